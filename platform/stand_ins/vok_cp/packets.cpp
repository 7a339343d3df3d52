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

void put(std::uint8_t (&address)[16], vok_ipv6_address ipv6) // by value: a packed record's is not aligned
{
    for (std::size_t i = 0; i < 4; ++i) {
        const std::uint32_t network_word = __builtin_bswap32(ipv6.word[i]);
        std::memcpy(address + 4 * i, &network_word, sizeof network_word);
    }
}

/// @param protocol 0, which an egress record may leave it at, is UDP
template <typename Record>
vok_cp_sim_header_t header(const Record &r, std::uint8_t ip_version, std::uint8_t protocol, std::uint8_t ttl)
{
    vok_cp_sim_header_t h{};
    h.ip_version = ip_version;
    h.protocol = protocol != 0 ? protocol : udp;
    h.vrf_id = r.ipVrdId;
    put(h.src_addr, r.srcAddr);
    put(h.dst_addr, r.dstAddr);
    h.src_port = r.srcPort;
    h.dst_port = r.dstPort;
    h.ttl = ttl;
    return h;
}

bool port_matches(std::uint16_t wanted, std::uint16_t port)
{
    return wanted == 0 || wanted == port;
}

bool address_matches(const vok_cp_sim_header_t &h, const std::uint8_t (&wanted)[16], const std::uint8_t (&address)[16])
{
    return std::memcmp(wanted, address, h.ip_version == 4 ? 4 : 16) == 0;
}

bool matches(const vok_cp_sim_header_t &wanted, const vok_cp_sim_header_t &h)
{
    return wanted.ip_version == h.ip_version && wanted.vrf_id == h.vrf_id && wanted.protocol == h.protocol &&
           port_matches(wanted.src_port, h.src_port) && port_matches(wanted.dst_port, h.dst_port) &&
           address_matches(h, wanted.src_addr, h.src_addr) && address_matches(h, wanted.dst_addr, h.dst_addr);
}

void count(object &o, std::uint32_t octets)
{
    ++o.packets;
    o.octets += octets;
}

} // namespace

vok_cp_sim_header_t header_of(const object &o)
{
    switch (o.kind) {
    case VOK_CP_SIM_IPV4_INGRESS: {
        const auto r = record_of<vok_ip_ingress_record>(o);
        return header(r, 4, r.prot, 0);
    }
    case VOK_CP_SIM_IPV4_EGRESS: {
        const auto r = record_of<vok_ip_egress_record>(o);
        return header(r, 4, r.prot, r.ttl);
    }
    case VOK_CP_SIM_IPV6_INGRESS: {
        const auto r = record_of<vok_ipv6_ingress_record>(o);
        return header(r, 6, r.nextHeader, 0);
    }
    case VOK_CP_SIM_IPV6_EGRESS: {
        const auto r = record_of<vok_ipv6_egress_record>(o);
        return header(r, 6, r.nextHeader, r.hopLimit);
    }
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

vok_cp_sim_arrival_t model::receive(const vok_cp_sim_header_t &h, std::uint32_t octets)
{
    const auto association = std::ranges::find_if(objects_, [&](const auto &entry) {
        return traits(entry.second.kind).receives && matches(header_of(entry.second), h);
    });
    if (association == objects_.end())
        return {VOK_CP_SIM_NO_ASSOCIATION, 0, 0};
    auto &[handle, object] = *association;
    for (const auto &[key, binding] : bindings_) {
        if (key.kind == VOK_BIND_F2ID && key.source_handle == handle) {
            count(object, octets);
            return {VOK_CP_SIM_FORWARDED, handle, key.destination_flow_id};
        }
    }
    return {VOK_CP_SIM_NOT_BOUND, handle, 0};
}

vok_cp_sim_departure_t model::send(std::uint32_t ovlin_flow_id, std::uint32_t octets)
{
    for (const auto &[key, binding] : bindings_) {
        if (key.kind == VOK_BIND_ID2F && key.source_flow_id == ovlin_flow_id) {
            object &association = objects_.at(key.destination_handle);
            count(association, octets);
            return {VOK_CP_SIM_FORWARDED,     key.destination_handle, header_of(association),
                    path_mtu_of(association), binding.has_dscp,       binding.dscp};
        }
    }
    return {VOK_CP_SIM_NOT_BOUND, 0, {}, 0, false, 0};
}

} // namespace vok_cp
