#include "ownership.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "zel_core_term/zel_l2tp_session.h"

namespace {

using kind = owner::kind;

struct held_handle {
    owner holder;
    const char *field;
    std::uint64_t handle;
};

/// Every handle that is in a table.
std::vector<held_handle> held_handles(const ledger &known)
{
    std::vector<held_handle> all = {{{kind::library, 0}, "ingress interface", l2tp_control_ingress_interface}};
    for (const auto &[id, session] : known.udp_sessions) {
        const owner holder{kind::udp_session, id};
        all.push_back({holder, "ingress association", session.ingress_handle});
        all.push_back({holder, "egress association", session.egress_handle});
    }
    for (std::uint32_t id = 0; id < std::size(l2tp_control_table); ++id) {
        const l2tp_control_entry &entry = l2tp_control_table[id];
        const owner holder{kind::l2tp_connection, id};
        all.push_back({holder, "ingress flow", entry.l2tp_ingress_flow_handle});
        all.push_back({holder, "ingress association", entry.ipv4_ingress_association_handle});
        all.push_back({holder, "egress association", entry.ipv4_egress_association_handle});
    }
    for (std::uint32_t i = 0; i < std::size(l2tp_session_table); ++i) {
        const l2tp_session_entry &entry = l2tp_session_table[i];
        const owner holder{kind::l2tp_session, i + ZEL_CORE_TERM_L2TP_SESSION_ID_MIN};
        all.push_back({holder, "ingress flow", entry.ingress_flow_handle});
        all.push_back({holder, "egress flow", entry.egress_flow_handle});
    }
    std::erase_if(all, [](const held_handle &held) { return held.handle == 0; });
    return all;
}

} // namespace

std::string to_text(const owner &who)
{
    const std::string id = std::to_string(who.id);
    switch (who.what) {
    case kind::library: return "the library";
    case kind::udp_session: return "UDP session " + id;
    case kind::l2tp_connection: return "L2TP connection " + id;
    case kind::l2tp_session: return "L2TP session " + id;
    }
    return "unknown";
}

ownership::ownership(const ledger &known, const data_plane &plane) : known_(known)
{
    std::unordered_set<std::uint64_t> handles;
    for (const data_plane::object &o : plane.objects)
        handles.insert(o.handle);
    for (const held_handle &held : held_handles(known)) {
        holders_[held.handle].push_back(held.holder);
        if (!handles.contains(held.handle))
            dangling_.push_back({held.holder, held.field, held.handle});
    }
}

std::vector<owner> ownership::of(const data_plane::object &object) const
{
    return holders(object.handle);
}

/// A binding belongs to the flow or association that it leads on from; from an ovlin flow, to the endpoint that this is
/// of, which of those that share an association is one.
std::vector<owner> ownership::of(const data_plane::binding &binding) const
{
    const vok_bind_record &r = binding.record;
    if (r.bindKind != VOK_BIND_ID2F)
        return holders(r.srcFlowHandle);
    std::vector<owner> owners = holders(r.destFlowHandle);
    std::erase_if(owners, [&](const owner &who) { return !sends(who, r.srcFlowID); });
    return owners;
}

std::vector<owner> ownership::holders(std::uint64_t handle) const
{
    const auto found = holders_.find(handle);
    return found != holders_.end() ? found->second : std::vector<owner>{};
}

/// Whether the ovlin flow is the one that the endpoint sends for. Its low 20 bits are the endpoint's own id. The PCEP
/// matters where a later endpoint of that id can come to the same object: an association that others share.
bool ownership::sends(const owner &who, std::uint32_t ovlin_flow_id) const
{
    if (const auto connection = known_.connections.find(who.id);
        who.what == kind::l2tp_connection && connection != known_.connections.end())
        return ovlin_flow_id == (connection->second.pcep << 20 | who.id);
    return (ovlin_flow_id & 0xFFFFF) == who.id;
}
