// Packets through the data plane, guided by nothing but the records that it was given.
#include <algorithm>
#include <cstring>

#include "model.h"

namespace vok_cp {
namespace {

constexpr std::uint8_t udp = 17;

template <typename Record> Record record_of(const object &o)
{
    Record record;
    std::memcpy(&record, o.record.data(), sizeof record);
    return record;
}

void put(std::uint8_t (&address)[16], std::uint32_t ipv4_word)
{
    const std::uint32_t network_word = __builtin_bswap32(ipv4_word);
    std::memcpy(address, &network_word, sizeof network_word);
}

void put(std::uint8_t (&address)[16], const std::uint8_t (&ipv6_words)[16])
{
    for (std::size_t i = 0; i < 16; ++i)
        address[i] = ipv6_words[i ^ 3]; // each word is in host order
}

template <typename Record>
vok_cp_sim_header_t header(const Record &r, std::uint8_t ip_version, std::uint8_t protocol, std::uint8_t ttl)
{
    vok_cp_sim_header_t h{};
    h.ip_version = ip_version;
    h.protocol = protocol;
    h.vrf_id = r.ipVrdId;
    put(h.src_addr, r.srcAddr);
    put(h.dst_addr, r.dstAddr);
    h.src_port = r.srcPort;
    h.dst_port = r.dstPort;
    h.ttl = ttl;
    return h;
}

/// An egress record may leave the protocol 0, and then sends UDP.
std::uint8_t protocol_sent(std::uint8_t protocol)
{
    return protocol != 0 ? protocol : udp;
}

bool port_matches(std::uint16_t wanted, std::uint16_t port)
{
    return wanted == 0 || wanted == port;
}

void count(object &o, std::uint32_t octets)
{
    ++o.packets;
    o.octets += octets;
}

} // namespace

receiver_key receiver_key_of(const vok_cp_sim_header_t &h)
{
    receiver_key key{h.ip_version, h.protocol, h.vrf_id, {}, {}};
    const std::size_t length = h.ip_version == 4 ? 4 : 16;
    std::memcpy(std::get<3>(key).data(), h.src_addr, length);
    std::memcpy(std::get<4>(key).data(), h.dst_addr, length);
    return key;
}

vok_cp_sim_header_t header_of(const object &o)
{
    switch (o.kind) {
    case VOK_CP_SIM_IPV4_INGRESS: {
        const auto r = record_of<vok_ip_ingress_record>(o);
        return header(r, 4, r.prot, 0);
    }
    case VOK_CP_SIM_IPV4_EGRESS: {
        const auto r = record_of<vok_ip_egress_record>(o);
        return header(r, 4, protocol_sent(r.prot), r.ttl);
    }
    case VOK_CP_SIM_IPV6_INGRESS: {
        const auto r = record_of<vok_ipv6_ingress_record>(o);
        return header(r, 6, r.nextHeader, 0);
    }
    case VOK_CP_SIM_IPV6_EGRESS: {
        const auto r = record_of<vok_ipv6_egress_record>(o);
        return header(r, 6, protocol_sent(r.nextHeader), r.hopLimit);
    }
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW: {
        const auto r = record_of<vok_l2tpv3_ingress_flow_record>(o);
        vok_cp_sim_header_t h{};
        (r.flowType == VOK_L2TPV3_CONTROL_CONNECTION ? h.l2tp_connection_id : h.l2tp_session_id) = r.identifier;
        return h;
    }
    case VOK_CP_SIM_L2TPV3_INTERFACE:
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: break;
    }
    return {};
}

std::uint32_t path_mtu_of(const object &o)
{
    switch (o.kind) {
    case VOK_CP_SIM_IPV4_EGRESS: return record_of<vok_ip_egress_record>(o).mtu;
    case VOK_CP_SIM_IPV6_EGRESS: return record_of<vok_ipv6_egress_record>(o).mtu;
    default: return 0;
    }
}

/// The binding of that kind that leads on from an object, or null.
const binding *model::binding_from(std::uint64_t source, std::uint32_t kind) const
{
    const auto &bindings = objects_.at(source).bindings;
    const auto found = std::ranges::find_if(
        bindings, [=](const binding *b) { return b->record.bindKind == kind && b->record.srcFlowHandle == source; });
    return found != bindings.end() ? *found : nullptr;
}

/// The first binding that leads on from an ovlin flow, or null.
const binding *model::binding_from_flow(std::uint32_t ovlin_flow_id) const
{
    const auto found = bindings_.lower_bound({VOK_BIND_ID2F, VOK_EGRESS, 0, ovlin_flow_id, 0, 0});
    const bool is_there =
        found != bindings_.end() && found->first.kind == VOK_BIND_ID2F && found->first.source_flow_id == ovlin_flow_id;
    return is_there ? &found->second : nullptr;
}

std::uint64_t model::l2tp_flow(std::uint64_t interface, const vok_cp_sim_header_t &h) const
{
    for (const auto &[handle, o] : objects_) {
        if (o.kind != VOK_CP_SIM_L2TPV3_INGRESS_FLOW)
            continue;
        const auto r = record_of<vok_l2tpv3_ingress_flow_record>(o);
        const vok_cp_sim_header_t wanted = header_of(o);
        if (r.ingressInterfaceHandle == interface && wanted.l2tp_session_id == h.l2tp_session_id &&
            wanted.l2tp_connection_id == h.l2tp_connection_id)
            return handle;
    }
    return 0;
}

vok_cp_sim_arrival_t model::receive(const vok_cp_sim_header_t &h, std::uint32_t octets)
{
    const auto [begin, end] = receivers_.equal_range(receiver_key_of(h));
    const auto found = std::find_if(begin, end, [&](const auto &receiver) {
        const vok_cp_sim_header_t wanted = header_of(objects_.at(receiver.second));
        return port_matches(wanted.src_port, h.src_port) && port_matches(wanted.dst_port, h.dst_port);
    });
    if (found == end)
        return {VOK_CP_SIM_NO_ASSOCIATION, 0, 0, {}};
    const std::uint64_t association = found->second;
    object &object = objects_.at(association);

    const binding *last = binding_from(association, VOK_BIND_F2ID);
    if (const binding *to_interface = binding_from(association, VOK_BIND_F2F)) {
        const std::uint64_t flow = l2tp_flow(to_interface->record.destFlowHandle, h);
        if (flow == 0)
            return {VOK_CP_SIM_NO_L2TPV3_FLOW, association, 0, {}};
        last = binding_from(flow, VOK_BIND_F2ID);
    }
    if (last == nullptr)
        return {VOK_CP_SIM_NOT_BOUND, association, 0, {}};
    count(object, octets);
    return {VOK_CP_SIM_FORWARDED, association, last->record.dstFlowID, shown(*last)};
}

vok_cp_sim_departure_t model::send(std::uint32_t ovlin_flow_id, std::uint32_t octets)
{
    const binding *last = binding_from_flow(ovlin_flow_id);
    if (last != nullptr && objects_.at(last->record.destFlowHandle).kind == VOK_CP_SIM_L2TPV3_EGRESS_FLOW)
        last = binding_from(last->record.destFlowHandle, VOK_BIND_F2F);
    if (last == nullptr)
        return {VOK_CP_SIM_NOT_BOUND, 0, {}, 0, {}};
    object &association = objects_.at(last->record.destFlowHandle);
    count(association, octets);
    return {VOK_CP_SIM_FORWARDED, last->record.destFlowHandle, header_of(association), path_mtu_of(association),
            shown(*last)};
}

} // namespace vok_cp
