#include "by_hand.h"

#include <cstring>
#include <type_traits>

#include "term/platform.h"
#include "term/tick.h"
#include "vok_cp.h"
#include "zel_fmt.h"

namespace by_hand {
namespace {

using std::uint32_t, std::uint64_t, std::uint8_t, std::uint16_t;

struct flow_pair {
    uint64_t ingress, egress;
};
flow_pair udp_sessions[slot_count];
flow_pair l2tp_sessions[slot_count];

struct connection {
    flow_pair association;
    uint64_t flow;
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
    if (status == 0) [[likely]]
        return true;
    uint64_t system_handle = 0;
    vok_syshandle_get(0, 1, &system_handle);
    return false;
}

const zel_handles_t &handles()
{
    return *zel_handles;
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

uint32_t flow_id(uint32_t pcep, uint32_t session)
{
    return pcep << 20 | (session & 0xFFFFF);
}

/// What all bindings have in common.
vok_bind_record binding(uint32_t kind, uint32_t direction, uint32_t session_type)
{
    vok_bind_record record{};
    record.bindKind = kind;
    record.direction = direction;
    record.param08 = 1;
    record.srcSessionType = session_type;
    record.dstSessionType = session_type;
    record.param54 = 1;
    return record;
}

vok_bind_record from_ovlin(uint32_t session_type, uint32_t flow, uint64_t type, uint64_t handle, const uint8_t *dscp)
{
    vok_bind_record record = binding(VOK_BIND_ID2F, VOK_EGRESS, session_type);
    record.srcTypeHandle = handles().ovlin_flow_type;
    record.srcFlowID = flow;
    record.dstTypeHandle = type;
    record.destFlowHandle = handle;
    record.dscpRef = reinterpret_cast<uint64_t>(dscp);
    return record;
}

vok_bind_record to_ovlin(uint32_t session_type, uint64_t type, uint64_t handle, uint32_t flow)
{
    vok_bind_record record = binding(VOK_BIND_F2ID, VOK_EGRESS, session_type);
    record.srcTypeHandle = type;
    record.srcFlowHandle = handle;
    record.dstTypeHandle = handles().ovlin_flow_type;
    record.dstFlowID = flow;
    return record;
}

vok_bind_record flow_to_flow(uint32_t direction, uint64_t from_type, uint64_t from, uint64_t to_type, uint64_t to,
                             const uint8_t *dscp)
{
    vok_bind_record record = binding(VOK_BIND_F2F, direction, VOK_SESSION_TYPE_L2TP);
    record.srcTypeHandle = from_type;
    record.srcFlowHandle = from;
    record.dstTypeHandle = to_type;
    record.destFlowHandle = to;
    record.dscpRef = reinterpret_cast<uint64_t>(dscp);
    return record;
}

bool bind(const vok_bind_record &record)
{
    return call(vok_bind, handles().vok_instance, &record);
}

bool unbind(const vok_bind_record &record)
{
    return call(vok_unbind, handles().vok_instance, &record);
}

// ---- Parts of the UDP operations

uint64_t udp_type(const udp_cfg &cfg)
{
    return cfg.ip_version == 4 ? handles().ipv4_association_type : handles().ipv6_association_type;
}

bool create_udp_ingress(const udp_cfg &cfg, uint64_t &handle)
{
    if (cfg.ip_version == 4) {
        vok_ip_ingress_record record{};
        record.rulesMask = 0xFC;
        record.ipVrdId = cfg.vrf_id;
        record.dstAddr = host_word(cfg.local_addr);
        record.dstPrefixLen = 32;
        record.srcAddr = host_word(cfg.remote_addr);
        record.srcPrefixLen = 32;
        record.prot = protocol_udp;
        record.dstPort = cfg.local_port;
        record.srcPort = cfg.remote_port;
        record.param38 = 1;
        return call(vok_ip_ingress_association_create, udp_type(cfg), &record, &handle);
    }
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
    return call(vok_ipv6_ingress_association_create, udp_type(cfg), &record, &handle);
}

vok_ipv6_egress_record ipv6_egress(const udp_cfg &cfg, uint8_t next_header)
{
    vok_ipv6_egress_record record{};
    record.param00 = 1;
    record.ipVrdId = cfg.vrf_id;
    put_host_words(record.srcAddr, cfg.local_addr);
    put_host_words(record.dstAddr, cfg.remote_addr);
    record.hopLimit = cfg.ttl != 0 ? cfg.ttl : 128;
    record.nextHeader = next_header;
    record.mtu = static_cast<uint16_t>(cfg.pmtu);
    record.srcPort = cfg.local_port;
    record.dstPort = cfg.remote_port;
    record.param3a = 0x40;
    return record;
}

bool create_udp_egress(const udp_cfg &cfg, uint64_t &handle)
{
    if (cfg.ip_version == 4) {
        vok_ip_egress_record record{};
        record.rulesMask = 0x6E;
        record.ipVrdId = cfg.vrf_id;
        record.dstAddr = host_word(cfg.remote_addr);
        record.srcAddr = host_word(cfg.local_addr);
        record.dstPort = cfg.remote_port;
        record.srcPort = cfg.local_port;
        record.ttl = cfg.ttl;
        return call(vok_ip_egress_association_create, udp_type(cfg), &record, &handle);
    }
    const vok_ipv6_egress_record record = ipv6_egress(cfg, protocol_udp);
    return call(vok_ipv6_egress_association_create, udp_type(cfg), &record, &handle);
}

// ---- Parts of the L2TP operations

bool create_l2tp_ingress(uint8_t flow_type, uint32_t identifier, uint64_t &handle)
{
    vok_l2tpv3_ingress_flow_record record{};
    record.flowType = flow_type;
    record.ingressInterfaceHandle = l2tp_control_ingress_interface;
    record.identifier = identifier;
    return call(vok_l2tpv3_ingress_flow_create, handles().l2tpv3_flow_type, &record, &handle);
}

bool create_association_ingress(const connection_cfg &cfg, uint64_t &handle)
{
    vok_ip_ingress_record record{};
    record.rulesMask = 0x9C;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.local_addr);
    record.dstPrefixLen = 32;
    record.srcAddr = host_word(cfg.remote_addr);
    record.srcPrefixLen = 32;
    record.prot = protocol_l2tpv3;
    record.param38 = 1;
    return call(vok_ip_ingress_association_create, handles().ipv4_association_type, &record, &handle);
}

bool create_association_egress(const connection_cfg &cfg, uint64_t &handle)
{
    vok_ip_egress_record record{};
    record.rulesMask = 0x0E;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.remote_addr);
    record.srcAddr = host_word(cfg.local_addr);
    record.prot = protocol_l2tpv3;
    record.ttl = cfg.ttl;
    return call(vok_ip_egress_association_create, handles().ipv4_association_type, &record, &handle);
}

vok_bind_record association_to_interface(const connection &c)
{
    return flow_to_flow(VOK_INGRESS, handles().ipv4_association_type, c.association.ingress, handles().l2tpv3_flow_type,
                        l2tp_control_ingress_interface, nullptr);
}

vok_bind_record connection_to_ovlin(const connection &c, ovlin_ids ids)
{
    return to_ovlin(VOK_SESSION_TYPE_L2TP, handles().l2tpv3_flow_type, c.flow, flow_id(ids.pcep, ids.rat_session));
}

vok_bind_record ovlin_to_connection(const connection &c, uint32_t id, uint32_t pcep, const uint8_t *dscp)
{
    return from_ovlin(VOK_SESSION_TYPE_L2TP, flow_id(pcep, id), handles().ipv4_association_type, c.association.egress,
                      dscp);
}

bool add_associations(connection &c, uint32_t id, const connection_cfg &cfg, uint32_t pcep, uint8_t dscp)
{
    return create_association_ingress(cfg, c.association.ingress) && bind(association_to_interface(c)) &&
           create_association_egress(cfg, c.association.egress) && bind(ovlin_to_connection(c, id, pcep, &dscp));
}

void remove_associations(const connection &c, uint32_t id, uint32_t pcep)
{
    unbind(ovlin_to_connection(c, id, pcep, nullptr));
    call(vok_ip_egress_association_delete, handles().ipv4_association_type, c.association.egress);
    unbind(association_to_interface(c));
    call(vok_ip_ingress_association_delete, handles().ipv4_association_type, c.association.ingress);
}

/// The carrier's egress association is as good as any.
vok_bind_record session_to_association(const flow_pair &session, const uint8_t *dscp)
{
    return flow_to_flow(VOK_EGRESS, handles().l2tpv3_flow_type, session.egress, handles().ipv4_association_type,
                        connections[0].association.egress, dscp);
}

} // namespace

// ---- UDP sessions

void udp_add(uint32_t slot, uint32_t id, const udp_cfg &cfg, ovlin_ids ids, uint8_t dscp)
{
    flow_pair &session = udp_sessions[slot];
    if (!create_udp_ingress(cfg, session.ingress))
        return;
    const bool egress = create_udp_egress(cfg, session.egress);
    const auto uplink = [&](const uint8_t *dscp_ref) {
        return from_ovlin(VOK_SESSION_TYPE_UDP, flow_id(ids.pcep, id), udp_type(cfg), session.egress, dscp_ref);
    };
    const bool uplink_bound = egress && bind(uplink(&dscp));
    if (uplink_bound &&
        bind(to_ovlin(VOK_SESSION_TYPE_UDP, udp_type(cfg), session.ingress, flow_id(ids.pcep, ids.rat_session))))
        return;
    if (uplink_bound)
        unbind(uplink(nullptr));
    udp_release(slot, cfg);
}

void udp_modify(uint32_t slot, const udp_cfg &cfg)
{
    const vok_ipv6_egress_record record = ipv6_egress(cfg, 0);
    call(vok_ipv6_egress_association_attr_modify, udp_type(cfg), &record, udp_sessions[slot].egress);
}

void udp_disconnect(uint32_t slot, uint32_t id, const udp_cfg &cfg, ovlin_ids ids)
{
    const flow_pair &session = udp_sessions[slot];
    unbind(to_ovlin(VOK_SESSION_TYPE_UDP, udp_type(cfg), session.ingress, flow_id(ids.pcep, ids.rat_session)));
    unbind(from_ovlin(VOK_SESSION_TYPE_UDP, flow_id(ids.pcep, id), udp_type(cfg), session.egress, nullptr));
}

void udp_release(uint32_t slot, const udp_cfg &cfg)
{
    const flow_pair &session = udp_sessions[slot];
    if (cfg.ip_version == 4) {
        call(vok_ip_ingress_association_delete, udp_type(cfg), session.ingress);
        call(vok_ip_egress_association_delete, udp_type(cfg), session.egress);
    } else {
        call(vok_ipv6_ingress_association_delete, udp_type(cfg), session.ingress);
        call(vok_ipv6_egress_association_delete, udp_type(cfg), session.egress);
    }
}

void udp_stats(uint32_t slot, zel_udp_session_ipv4_stats_t &stats)
{
    const flow_pair &session = udp_sessions[slot];
    stats = {};
    if (call(vok_ip_ingress_association_stats_get, handles().ipv4_association_type, session.ingress,
             zel::address_of(stats.ingress)))
        call(vok_ip_egress_association_stats_get, handles().ipv4_association_type, session.egress,
             zel::address_of(stats.egress));
}

void udp_stats(uint32_t slot, zel_udp_session_ipv6_stats_t &stats)
{
    const flow_pair &session = udp_sessions[slot];
    if (call(vok_ipv6_ingress_association_statistics_get, handles().ipv6_association_type, session.ingress,
             zel::address_of(stats.ingress)))
        call(vok_ipv6_egress_association_statistics_get, handles().ipv6_association_type, session.egress,
             zel::address_of(stats.egress));
}

void udp_formatted_stats(uint32_t slot, char *text, uint32_t text_size)
{
    const flow_pair &session = udp_sessions[slot];
    zel_udp_session_ipv4_stats_t stats{};
    text[0] = '\0';
    if (!call(vok_ip_ingress_association_stats_get, handles().ipv4_association_type, session.ingress,
              zel::address_of(stats.ingress)) ||
        !call(vok_ip_egress_association_stats_get, handles().ipv4_association_type, session.egress,
              zel::address_of(stats.egress)))
        return;
    zel_fmt_ipv4_ingress_assoc_stats(text, text_size, 0, &stats.ingress);
    zel_fmt_ipv4_egress_assoc_stats(text, text_size, 0, &stats.egress);
    zel_fmt_end(text, text_size);
}

// ---- L2TPv3 control connections

void connection_add(uint32_t slot, uint32_t id, const connection_cfg &cfg, uint32_t connection_id, ovlin_ids ids,
                    uint8_t dscp, bool shared)
{
    connection &c = connections[slot];
    if ((shared || create_association_ingress(cfg, c.association.ingress)) &&
        create_l2tp_ingress(VOK_L2TPV3_CONTROL_CONNECTION, connection_id, c.flow) &&
        (shared || bind(association_to_interface(c))) && bind(connection_to_ovlin(c, ids)) &&
        (shared || create_association_egress(cfg, c.association.egress)) &&
        bind(ovlin_to_connection(c, id, ids.pcep, &dscp)))
        return;

    // The undo of the last call, the one that is made to fail.
    unbind(ovlin_to_connection(c, id, ids.pcep, nullptr));
    if (!shared)
        call(vok_ip_egress_association_delete, handles().ipv4_association_type, c.association.egress);
    unbind(connection_to_ovlin(c, ids));
    call(vok_l2tpv3_ingress_flow_delete, handles().l2tpv3_flow_type, c.flow);
    if (!shared) {
        unbind(association_to_interface(c));
        call(vok_ip_ingress_association_delete, handles().ipv4_association_type, c.association.ingress);
    }
}

void connection_remove(uint32_t slot, uint32_t id, ovlin_ids ids, bool shared)
{
    const connection &c = connections[slot];
    unbind(ovlin_to_connection(c, id, ids.pcep, nullptr));
    if (!shared)
        call(vok_ip_egress_association_delete, handles().ipv4_association_type, c.association.egress);
    unbind(connection_to_ovlin(c, ids));
    if (!shared)
        unbind(association_to_interface(c));
    call(vok_l2tpv3_ingress_flow_delete, handles().l2tpv3_flow_type, c.flow);
    if (!shared)
        call(vok_ip_ingress_association_delete, handles().ipv4_association_type, c.association.ingress);
}

void connection_modify(uint32_t slot, uint32_t id, const connection_cfg &cfg, ovlin_ids ids, uint8_t dscp,
                       const uint8_t *old_remote_addr, uint32_t first_session_slot, uint32_t session_slots)
{
    connection &c = connections[slot];
    for (uint32_t i = 0; i < session_slots; ++i)
        session_unbind(first_session_slot + i);
    remove_associations(c, id, ids.pcep);
    if (!add_associations(c, id, cfg, ids.pcep, dscp)) {
        remove_associations(c, id, ids.pcep);
        connection_cfg old_cfg = cfg;
        std::memcpy(old_cfg.remote_addr, old_remote_addr, 4);
        add_associations(c, id, old_cfg, ids.pcep, dscp);
    }
    for (uint32_t i = 0; i < session_slots; ++i)
        session_bind(first_session_slot + i, dscp);
}

// ---- L2TPv3 sessions

void session_add(uint32_t slot, uint32_t id, uint32_t local_session_id, ovlin_ids ids, uint8_t dscp)
{
    flow_pair &session = l2tp_sessions[slot];
    const uint64_t type = handles().l2tpv3_flow_type;
    vok_l2tpv3_egress_flow_record egress{};
    egress.flowType = VOK_L2TPV3_SESSION;
    if (create_l2tp_ingress(VOK_L2TPV3_SESSION, local_session_id, session.ingress) &&
        bind(to_ovlin(VOK_SESSION_TYPE_L2TP, type, session.ingress, flow_id(ids.pcep, ids.rat_session))) &&
        call(vok_l2tpv3_egress_flow_create, type, &egress, &session.egress) &&
        bind(from_ovlin(VOK_SESSION_TYPE_L2TP, flow_id(ids.pcep, id), type, session.egress, &dscp)) &&
        bind(session_to_association(session, &dscp)))
        return;
    session_remove(slot, id, ids);
}

void session_remove(uint32_t slot, uint32_t id, ovlin_ids ids)
{
    const flow_pair &session = l2tp_sessions[slot];
    const uint64_t type = handles().l2tpv3_flow_type;
    unbind(session_to_association(session, nullptr));
    unbind(from_ovlin(VOK_SESSION_TYPE_L2TP, flow_id(ids.pcep, id), type, session.egress, nullptr));
    call(vok_l2tpv3_egress_flow_delete, type, session.egress);
    unbind(to_ovlin(VOK_SESSION_TYPE_L2TP, type, session.ingress, flow_id(ids.pcep, ids.rat_session)));
    call(vok_l2tpv3_ingress_flow_delete, type, session.ingress);
}

void session_unbind(uint32_t slot)
{
    unbind(session_to_association(l2tp_sessions[slot], nullptr));
}

void session_bind(uint32_t slot, uint8_t dscp)
{
    bind(session_to_association(l2tp_sessions[slot], &dscp));
}

} // namespace by_hand
