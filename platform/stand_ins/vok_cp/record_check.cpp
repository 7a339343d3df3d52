#include "record_check.h"

#include <algorithm>
#include <cstring>

#include "vok_cp.h"
#include "vok_cp_sim.h"

namespace vok_cp {
namespace {

// clang-format off

// Fields are listed in the order of their offsets.
#define FIELD(record, name, ...) (field{offsetof(record, name), sizeof(record::name) __VA_OPT__(, ) __VA_ARGS__})

constexpr std::uint8_t udp = 17;

constexpr field ip_ingress[] = {
    FIELD(vok_ip_ingress_record, rulesMask),
    FIELD(vok_ip_ingress_record, ipVrdId),
    FIELD(vok_ip_ingress_record, dstAddr),
    FIELD(vok_ip_ingress_record, dstPrefixLen, rule::full_prefix, 32),
    FIELD(vok_ip_ingress_record, srcAddr),
    FIELD(vok_ip_ingress_record, srcPrefixLen, rule::full_prefix, 32),
    FIELD(vok_ip_ingress_record, prot),
    FIELD(vok_ip_ingress_record, dstPort),
    FIELD(vok_ip_ingress_record, srcPort),
    FIELD(vok_ip_ingress_record, param38, rule::constant, 1),
};

constexpr field ip_egress[] = {
    FIELD(vok_ip_egress_record, rulesMask),
    FIELD(vok_ip_egress_record, ipVrdId),
    FIELD(vok_ip_egress_record, dstAddr),
    FIELD(vok_ip_egress_record, srcAddr),
    FIELD(vok_ip_egress_record, prot),
    FIELD(vok_ip_egress_record, dstPort),
    FIELD(vok_ip_egress_record, srcPort),
    FIELD(vok_ip_egress_record, mtu),
    FIELD(vok_ip_egress_record, ttl),
};

constexpr field ipv6_ingress[] = {
    FIELD(vok_ipv6_ingress_record, rulesMask),
    FIELD(vok_ipv6_ingress_record, ipVrdId),
    FIELD(vok_ipv6_ingress_record, nextHeader),
    FIELD(vok_ipv6_ingress_record, srcPort),
    FIELD(vok_ipv6_ingress_record, dstPort),
    FIELD(vok_ipv6_ingress_record, srcAddr),
    FIELD(vok_ipv6_ingress_record, srcPrefixLen, rule::full_prefix, 128),
    FIELD(vok_ipv6_ingress_record, dstAddr),
    FIELD(vok_ipv6_ingress_record, dstPrefixLen, rule::full_prefix, 128),
};

// A create names the protocol; an attribute modify leaves it 0.
template <std::uint8_t next_header>
constexpr field ipv6_egress[] = {
    FIELD(vok_ipv6_egress_record, param00, rule::constant, 1),
    FIELD(vok_ipv6_egress_record, ipVrdId),
    FIELD(vok_ipv6_egress_record, srcAddr),
    FIELD(vok_ipv6_egress_record, dstAddr),
    FIELD(vok_ipv6_egress_record, hopLimit),
    FIELD(vok_ipv6_egress_record, nextHeader, rule::constant, next_header),
    FIELD(vok_ipv6_egress_record, mtu),
    FIELD(vok_ipv6_egress_record, srcPort),
    FIELD(vok_ipv6_egress_record, dstPort),
    FIELD(vok_ipv6_egress_record, param3a, rule::constant, 0x40),
};

constexpr field l2tpv3_ingress_interface[] = {
    FIELD(vok_l2tpv3_ingress_interface_record, param00, rule::constant, 0),
};

constexpr field l2tpv3_ingress_flow[] = {
    FIELD(vok_l2tpv3_ingress_flow_record, flowType),
    FIELD(vok_l2tpv3_ingress_flow_record, ingressInterfaceHandle),
    FIELD(vok_l2tpv3_ingress_flow_record, identifier),
};

constexpr field l2tpv3_egress_flow[] = {
    FIELD(vok_l2tpv3_egress_flow_record, flowType),
};

constexpr field bind[] = {
    FIELD(vok_bind_record, bindKind),
    FIELD(vok_bind_record, direction),
    FIELD(vok_bind_record, param08, rule::constant, 1),
    FIELD(vok_bind_record, srcTypeHandle),
    FIELD(vok_bind_record, srcFlowHandle),
    FIELD(vok_bind_record, srcFlowID),
    FIELD(vok_bind_record, srcSessionType),
    FIELD(vok_bind_record, dstTypeHandle),
    FIELD(vok_bind_record, destFlowHandle),
    FIELD(vok_bind_record, dstFlowID),
    FIELD(vok_bind_record, dstSessionType),
    FIELD(vok_bind_record, param54, rule::constant, 1),
    FIELD(vok_bind_record, dscpRef),
};

#undef FIELD

// clang-format on

std::uint64_t number_at(std::span<const std::byte> record, const field &f)
{
    std::uint64_t number = 0; // the machine is little-endian: the low bytes come first
    std::memcpy(&number, record.data() + f.offset, f.width);
    return number;
}

bool all_zero(std::span<const std::byte> bytes)
{
    return std::ranges::all_of(bytes, [](std::byte b) { return b == std::byte{0}; });
}

} // namespace

constinit const std::span<const field> ip_ingress_fields = ip_ingress;
constinit const std::span<const field> ip_egress_fields = ip_egress;
constinit const std::span<const field> ipv6_ingress_fields = ipv6_ingress;
constinit const std::span<const field> ipv6_egress_create_fields = ipv6_egress<udp>;
constinit const std::span<const field> ipv6_egress_modify_fields = ipv6_egress<0>;
constinit const std::span<const field> l2tpv3_ingress_interface_fields = l2tpv3_ingress_interface;
constinit const std::span<const field> l2tpv3_ingress_flow_fields = l2tpv3_ingress_flow;
constinit const std::span<const field> l2tpv3_egress_flow_fields = l2tpv3_egress_flow;
constinit const std::span<const field> bind_fields = bind;

status check_record(std::span<const std::byte> record, std::span<const field> fields)
{
    std::size_t end = 0; // of the field before
    for (const field &f : fields) {
        if (!all_zero(record.subspan(end, f.offset - end)))
            return VOK_CP_SIM_RESERVED_NOT_ZERO;
        if (f.must_be == rule::constant && number_at(record, f) != f.value)
            return VOK_CP_SIM_WRONG_CONSTANT;
        if (f.must_be == rule::full_prefix && number_at(record, f) != f.value)
            return VOK_CP_SIM_PREFIX_NOT_FULL;
        end = f.offset + f.width;
    }
    return all_zero(record.subspan(end)) ? VOK_CP_SIM_OK : VOK_CP_SIM_RESERVED_NOT_ZERO;
}

} // namespace vok_cp
