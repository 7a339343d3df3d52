#include "ownership.h"

#include <algorithm>
#include <cstring>
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
            objects_.emplace(handle, who);
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
    for (const std::uint32_t id : known_.udp_sessions) {
        std::vector<std::uint64_t> read;
        vok_cp_sim_observe(
            [](void *context, const vok_cp_sim_call_t *call) {
                if (call->handle != 0 && std::strstr(call->operation, "stat") != nullptr &&
                    std::strstr(call->operation, "vok_ip") != nullptr)
                    static_cast<std::vector<std::uint64_t> *>(context)->push_back(call->handle);
                return vok_cp_sim_answer_t{};
            },
            &read);
        zel_core_term_udp_session_cfg_t cfg{};
        zel_core_term_udp_session_cfg_get(id, &cfg);
        zel_udp_session_ipv4_stats_t ipv4;
        zel_udp_session_ipv6_stats_t ipv6;
        if (cfg.ip_version == 4)
            zel_udp_session_get_stats(id, &ipv4);
        else
            zel_ipv6_udp_session_get_stats(id, &ipv6);
        for (const std::uint64_t handle : read)
            holds({owner::kind::udp_session, id}, "association", handle);
    }
    vok_cp_sim_observe(nullptr, nullptr);
}

std::vector<owner> ownership::of(const data_plane::object &object) const
{
    std::vector<owner> owners;
    const auto [first, last] = objects_.equal_range(object.handle);
    for (auto it = first; it != last; ++it)
        owners.push_back(it->second);
    std::ranges::sort(owners);
    owners.erase(std::unique(owners.begin(), owners.end()), owners.end());
    return owners;
}

std::vector<owner> ownership::of(const data_plane::binding &binding) const
{
    const auto &r = binding.record;
    const auto of_handle = [&](std::uint64_t handle) {
        return of(data_plane::object{handle, VOK_CP_SIM_IPV4_INGRESS, {}, {}, 0});
    };
    if (r.srcFlowHandle != 0)
        return of_handle(r.srcFlowHandle);
    // An ID2F binding: of those that hold the destination, the one whose flow it is.
    for (const owner &who : of_handle(r.destFlowHandle)) {
        const bool is_udp = who.what == owner::kind::udp_session && (r.srcFlowID & 0xFFFFF) == who.id;
        const bool is_l2tp = who.what != owner::kind::udp_session && (r.srcFlowID & 0xFFFFF) == who.id;
        if (is_udp || is_l2tp)
            return {who};
    }
    return {};
}
