#include "ownership.h"

#include <algorithm>
#include <set>

#include "zel_core_term/zel_l2tp_session.h"
#include "zel_core_term/zel_udp_session.h"

std::string to_text(const owner &who)
{
    switch (who.what) {
    case owner::kind::library: return "the library";
    case owner::kind::udp_session: return "UDP session " + std::to_string(who.id);
    case owner::kind::l2tp_connection: return "L2TP connection " + std::to_string(who.id);
    case owner::kind::l2tp_session: return "L2TP session " + std::to_string(who.id);
    }
    return "unknown";
}

ownership::ownership(const ledger &known, const data_plane &plane) : known_(known)
{
    std::set<std::uint64_t> handles;
    for (const auto &object : plane.objects)
        handles.insert(object.handle);
    const auto holds = [&](owner who, const char *field, std::uint64_t handle) {
        if (handle == 0)
            return;
        if (handles.contains(handle))
            holders_[handle].push_back(who);
        else
            dangling_.push_back({who, field, handle});
    };
    holds({owner::kind::library, 0}, "ingress interface", l2tp_control_ingress_interface);
    for (std::uint32_t id = 0; id < std::size(l2tp_control_table); ++id) {
        const owner who{owner::kind::l2tp_connection, id};
        holds(who, "ingress flow", l2tp_control_table[id].l2tp_ingress_flow_handle);
        holds(who, "ingress association", l2tp_control_table[id].ipv4_ingress_association_handle);
        holds(who, "egress association", l2tp_control_table[id].ipv4_egress_association_handle);
    }
    for (std::uint32_t i = 0; i < std::size(l2tp_session_table); ++i) {
        const owner who{owner::kind::l2tp_session, i + ZEL_CORE_TERM_L2TP_SESSION_ID_MIN};
        holds(who, "ingress flow", l2tp_session_table[i].ingress_flow_handle);
        holds(who, "egress flow", l2tp_session_table[i].egress_flow_handle);
    }
    for (const auto &[id, session] : known_.udp_sessions) {
        const owner who{owner::kind::udp_session, id};
        holds(who, "ingress association", session.ingress_handle);
        holds(who, "egress association", session.egress_handle);
    }
    for (auto &[handle, who] : holders_)
        std::ranges::sort(who);
}

std::vector<owner> ownership::holders(std::uint64_t handle) const
{
    const auto found = holders_.find(handle);
    return found != holders_.end() ? found->second : std::vector<owner>{};
}

std::vector<owner> ownership::of(const data_plane::object &object) const
{
    return holders(object.handle);
}

std::vector<owner> ownership::of(const data_plane::binding &binding) const
{
    const auto &r = binding.record;
    if (r.srcFlowHandle != 0)
        return holders(r.srcFlowHandle);
    // An ID2F binding: of those that hold the destination, the one whose flow it is.
    for (const owner &who : holders(r.destFlowHandle)) {
        if ((r.srcFlowID & 0xFFFFF) == who.id)
            return {who};
    }
    return {};
}
