#include "by_hand.h"

#include <cstring>
#include <type_traits>

#include "term/tick.h"
#include "vok_cp.h"

namespace by_hand {
namespace {

using std::uint32_t, std::uint64_t, std::uint8_t, std::uint16_t;

/// A flow or association of the data plane, named by its handle, or an ovlin flow by its id.
struct flow {
    uint64_t type, handle;
    uint32_t id;
};

struct flow_pair {
    flow ingress, egress;
};
flow_pair udp_sessions[slot_count];
flow_pair l2tp_sessions[slot_count];

struct connection {
    flow_pair association;
    flow control;
};
connection connections[slot_count];

constexpr uint8_t protocol_udp = 17;
constexpr uint8_t protocol_l2tpv3 = 115;

/// @return whether the call succeeded
template <typename... Parameters>
bool call(uint32_t (*operation)(Parameters...), std::type_identity_t<Parameters>... arguments)
{
    zel::read_ticks();
    const uint32_t status = operation(arguments...);
    zel::read_ticks();
    return status == 0;
}

uint32_t host_word(const uint8_t *address)
{
    uint32_t word;
    std::memcpy(&word, address, sizeof word);
    return __builtin_bswap32(word);
}

void put_host_words(uint8_t *field, const uint8_t *address)
{
    const uint32_t words[] = {host_word(address), host_word(address + 4), host_word(address + 8),
                              host_word(address + 12)};
    std::memcpy(field, words, sizeof words);
}

// ---- Bindings

flow ovlin_flow(uint32_t pcep, uint32_t session)
{
    return {zel_handles->ovlin_flow_type, 0, pcep << 20 | (session & 0xFFFFF)};
}

vok_bind_record binding(uint32_t kind, uint32_t direction, uint32_t session_type, const flow &from, const flow &to,
                        const uint8_t *dscp)
{
    vok_bind_record record{};
    record.bindKind = kind;
    record.direction = direction;
    record.param08 = 1;
    record.srcSessionType = session_type;
    record.dstSessionType = session_type;
    record.srcTypeHandle = from.type;
    record.srcFlowHandle = from.handle;
    record.srcFlowID = from.id;
    record.dstTypeHandle = to.type;
    record.destFlowHandle = to.handle;
    record.dstFlowID = to.id;
    record.dscpRef = reinterpret_cast<uint64_t>(dscp);
    record.param54 = 1;
    return record;
}

vok_bind_record from_ovlin(uint32_t session_type, const flow &from, const flow &to, const uint8_t *dscp)
{
    return binding(VOK_BIND_ID2F, VOK_EGRESS, session_type, from, to, dscp);
}

vok_bind_record to_ovlin(uint32_t session_type, const flow &from, const flow &to)
{
    return binding(VOK_BIND_F2ID, VOK_EGRESS, session_type, from, to, nullptr);
}

bool bind(const vok_bind_record &record)
{
    return call(vok_bind, zel_handles->vok_instance, &record);
}

bool unbind(const vok_bind_record &record)
{
    return call(vok_unbind, zel_handles->vok_instance, &record);
}

// ---- Associations and flows. The configurations of UDP sessions and of connections have members of the same names.

template <typename Cfg>
bool create_ipv4_ingress(const Cfg &cfg, uint16_t rules, uint8_t protocol, uint16_t local_port, uint16_t remote_port,
                         flow &created)
{
    vok_ip_ingress_record record{};
    record.rulesMask = rules;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.local_addr);
    record.dstPrefixLen = 32;
    record.srcAddr = host_word(cfg.remote_addr);
    record.srcPrefixLen = 32;
    record.prot = protocol;
    record.dstPort = local_port;
    record.srcPort = remote_port;
    record.param38 = 1;
    created.type = zel_handles->ipv4_association_type;
    return call(vok_ip_ingress_association_create, created.type, &record, &created.handle);
}

template <typename Cfg>
bool create_ipv4_egress(const Cfg &cfg, uint16_t rules, uint8_t protocol, uint16_t local_port, uint16_t remote_port,
                        flow &created)
{
    vok_ip_egress_record record{};
    record.rulesMask = rules;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.remote_addr);
    record.srcAddr = host_word(cfg.local_addr);
    record.prot = protocol;
    record.dstPort = remote_port;
    record.srcPort = local_port;
    record.ttl = cfg.ttl;
    created.type = zel_handles->ipv4_association_type;
    return call(vok_ip_egress_association_create, created.type, &record, &created.handle);
}

bool create_ipv6_ingress(const zel_core_term_udp_session_cfg_t &cfg, flow &created)
{
    vok_ipv6_ingress_record record{};
    record.rulesMask = 0x672;
    record.ipVrdId = cfg.vrf_id;
    record.nextHeader = protocol_udp;
    record.srcPort = cfg.remote_port;
    record.dstPort = cfg.local_port;
    put_host_words(record.srcAddr, cfg.remote_addr);
    record.srcPrefixLen = 128;
    put_host_words(record.dstAddr, cfg.local_addr);
    record.dstPrefixLen = 128;
    created.type = zel_handles->ipv6_association_type;
    return call(vok_ipv6_ingress_association_create, created.type, &record, &created.handle);
}

bool create_ipv6_egress(const zel_core_term_udp_session_cfg_t &cfg, flow &created)
{
    vok_ipv6_egress_record record{};
    record.param00 = 1;
    record.ipVrdId = cfg.vrf_id;
    put_host_words(record.srcAddr, cfg.local_addr);
    put_host_words(record.dstAddr, cfg.remote_addr);
    record.hopLimit = cfg.ttl != 0 ? cfg.ttl : 128;
    record.nextHeader = protocol_udp;
    record.mtu = static_cast<uint16_t>(cfg.pmtu);
    record.srcPort = cfg.local_port;
    record.dstPort = cfg.remote_port;
    record.param3a = 0x40;
    created.type = zel_handles->ipv6_association_type;
    return call(vok_ipv6_egress_association_create, created.type, &record, &created.handle);
}

bool create_l2tp_ingress(uint8_t flow_type, uint32_t identifier, flow &created)
{
    vok_l2tpv3_ingress_flow_record record{};
    record.flowType = flow_type;
    record.ingressInterfaceHandle = l2tp_control_ingress_interface;
    record.identifier = identifier;
    created.type = zel_handles->l2tpv3_flow_type;
    return call(vok_l2tpv3_ingress_flow_create, created.type, &record, &created.handle);
}

bool create_l2tp_egress(flow &created)
{
    vok_l2tpv3_egress_flow_record record{};
    record.flowType = VOK_L2TPV3_SESSION;
    created.type = zel_handles->l2tpv3_flow_type;
    return call(vok_l2tpv3_egress_flow_create, created.type, &record, &created.handle);
}

/// The carrier's egress association is as good as any.
vok_bind_record session_to_association(const flow_pair &session, const uint8_t *dscp)
{
    return binding(VOK_BIND_F2F, VOK_EGRESS, VOK_SESSION_TYPE_L2TP, session.egress,
                   {zel_handles->ipv4_association_type, connections[0].association.egress.handle, 0}, dscp);
}

} // namespace

bool udp_add(uint32_t slot, uint32_t id, const zel_core_term_udp_session_cfg_t &cfg, ovlin_ids ids, uint8_t dscp)
{
    auto &[ingress, egress] = udp_sessions[slot];
    const bool created = cfg.ip_version == 4
                             ? create_ipv4_ingress(cfg, 0xFC, protocol_udp, cfg.local_port, cfg.remote_port, ingress) &&
                                   create_ipv4_egress(cfg, 0x6E, 0, cfg.local_port, cfg.remote_port, egress)
                             : create_ipv6_ingress(cfg, ingress) && create_ipv6_egress(cfg, egress);
    return created && bind(from_ovlin(VOK_SESSION_TYPE_UDP, ovlin_flow(ids.pcep, id), egress, &dscp)) &&
           bind(to_ovlin(VOK_SESSION_TYPE_UDP, ingress, ovlin_flow(ids.pcep, ids.rat_session)));
}

bool udp_release(uint32_t slot, const zel_core_term_udp_session_cfg_t &cfg)
{
    const auto &[ingress, egress] = udp_sessions[slot];
    if (cfg.ip_version == 4)
        return call(vok_ip_ingress_association_delete, ingress.type, ingress.handle) &&
               call(vok_ip_egress_association_delete, egress.type, egress.handle);
    return call(vok_ipv6_ingress_association_delete, ingress.type, ingress.handle) &&
           call(vok_ipv6_egress_association_delete, egress.type, egress.handle);
}

namespace {

vok_bind_record to_interface(const flow &ingress)
{
    return binding(VOK_BIND_F2F, VOK_INGRESS, VOK_SESSION_TYPE_L2TP, ingress,
                   {zel_handles->l2tpv3_flow_type, l2tp_control_ingress_interface, 0}, nullptr);
}

vok_bind_record to_egress(uint32_t id, ovlin_ids ids, const flow &egress, const uint8_t *dscp)
{
    return from_ovlin(VOK_SESSION_TYPE_L2TP, ovlin_flow(ids.pcep, id), egress, dscp);
}

bool remove_ipv4_ingress(const flow &ingress)
{
    return call(vok_ip_ingress_association_delete, ingress.type, ingress.handle);
}

bool remove_ipv4_egress(const flow &egress)
{
    return call(vok_ip_egress_association_delete, egress.type, egress.handle);
}

} // namespace

bool connection_add(uint32_t slot, uint32_t id, const zel_core_term_l2tp_control_connection_cfg_t &cfg,
                    uint32_t connection_id, ovlin_ids ids, uint8_t dscp, bool shared)
{
    auto &[association, control] = connections[slot];
    const bool added = (shared || create_ipv4_ingress(cfg, 0x9C, protocol_l2tpv3, 0, 0, association.ingress)) &&
                       create_l2tp_ingress(VOK_L2TPV3_CONTROL_CONNECTION, connection_id, control) &&
                       (shared || bind(to_interface(association.ingress))) &&
                       bind(to_ovlin(VOK_SESSION_TYPE_L2TP, control, ovlin_flow(ids.pcep, ids.rat_session))) &&
                       (shared || create_ipv4_egress(cfg, 0x0E, protocol_l2tpv3, 0, 0, association.egress)) &&
                       bind(to_egress(id, ids, association.egress, &dscp));
    if (!added)
        connection_remove(slot, id, ids, shared);
    return added;
}

bool connection_remove(uint32_t slot, uint32_t id, ovlin_ids ids, bool shared)
{
    const auto &[association, control] = connections[slot];
    return unbind(to_egress(id, ids, association.egress, nullptr)) &&
           (shared || remove_ipv4_egress(association.egress)) &&
           unbind(to_ovlin(VOK_SESSION_TYPE_L2TP, control, ovlin_flow(ids.pcep, ids.rat_session))) &&
           (shared || unbind(to_interface(association.ingress))) &&
           call(vok_l2tpv3_ingress_flow_delete, control.type, control.handle) &&
           (shared || remove_ipv4_ingress(association.ingress));
}

static bool move_associations(flow_pair &association, uint32_t id,
                              const zel_core_term_l2tp_control_connection_cfg_t &cfg, ovlin_ids ids, uint8_t dscp)
{
    return unbind(to_egress(id, ids, association.egress, nullptr)) && remove_ipv4_egress(association.egress) &&
           unbind(to_interface(association.ingress)) && remove_ipv4_ingress(association.ingress) &&
           create_ipv4_ingress(cfg, 0x9C, protocol_l2tpv3, 0, 0, association.ingress) &&
           bind(to_interface(association.ingress)) &&
           create_ipv4_egress(cfg, 0x0E, protocol_l2tpv3, 0, 0, association.egress) &&
           bind(to_egress(id, ids, association.egress, &dscp));
}

bool connection_modify(uint32_t slot, uint32_t id, const zel_core_term_l2tp_control_connection_cfg_t &cfg,
                       const zel_core_term_l2tp_control_connection_cfg_t &old_cfg, ovlin_ids ids, uint8_t dscp,
                       uint32_t first_session, uint32_t session_count)
{
    flow_pair &association = connections[slot].association;
    bool succeeds = true;
    for (uint32_t i = 0; i < session_count; ++i)
        succeeds = succeeds && unbind(session_to_association(l2tp_sessions[first_session + i], nullptr));
    succeeds = succeeds && (move_associations(association, id, cfg, ids, dscp) ||
                            move_associations(association, id, old_cfg, ids, dscp));
    for (uint32_t i = 0; i < session_count; ++i)
        succeeds = succeeds && bind(session_to_association(l2tp_sessions[first_session + i], &dscp));
    return succeeds;
}

bool session_add(uint32_t slot, uint32_t id, uint32_t local_session_id, ovlin_ids ids, uint8_t dscp)
{
    flow_pair &session = l2tp_sessions[slot];
    return create_l2tp_ingress(VOK_L2TPV3_SESSION, local_session_id, session.ingress) &&
           bind(to_ovlin(VOK_SESSION_TYPE_L2TP, session.ingress, ovlin_flow(ids.pcep, ids.rat_session))) &&
           create_l2tp_egress(session.egress) &&
           bind(from_ovlin(VOK_SESSION_TYPE_L2TP, ovlin_flow(ids.pcep, id), session.egress, &dscp)) &&
           bind(session_to_association(session, &dscp));
}

bool session_remove(uint32_t slot, uint32_t id, ovlin_ids ids)
{
    const flow_pair &session = l2tp_sessions[slot];
    return unbind(session_to_association(session, nullptr)) &&
           unbind(from_ovlin(VOK_SESSION_TYPE_L2TP, ovlin_flow(ids.pcep, id), session.egress, nullptr)) &&
           call(vok_l2tpv3_egress_flow_delete, session.egress.type, session.egress.handle) &&
           unbind(to_ovlin(VOK_SESSION_TYPE_L2TP, session.ingress, ovlin_flow(ids.pcep, ids.rat_session))) &&
           call(vok_l2tpv3_ingress_flow_delete, session.ingress.type, session.ingress.handle);
}

} // namespace by_hand
