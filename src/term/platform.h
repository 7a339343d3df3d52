/// What the library assumes about the platform's headers, checked at compile time: the layout of the records that it
/// fills, and the parameters of the functions that it calls.
#pragma once

#include <bit>
#include <type_traits>

#include "kiv_util.h"
#include "term/types.h"
#include "vok_cp.h"
#include "zel_core_ic.h"
#include "zel_core_term/zel_layout.h"
#include "zel_fmt.h"
#include "zel_init.h"

namespace zel {

static_assert(std::endian::native == std::endian::little, "the records are those of little-endian machines");
static_assert(sizeof(void *) == 8, "the records are those of 64-bit machines");

// ---- Values in records

namespace bind_kind {
inline constexpr u32 f2f = 3;  ///< flow to flow
inline constexpr u32 f2id = 5; ///< flow to ovlin flow ID
inline constexpr u32 id2f = 6; ///< ovlin flow ID to flow
} // namespace bind_kind

namespace bind_direction {
inline constexpr u32 ingress = 1;
inline constexpr u32 egress = 2;
} // namespace bind_direction

namespace session_type {
inline constexpr u32 l2tp = 1;
inline constexpr u32 udp = 2;
} // namespace session_type

namespace l2tpv3_flow_type {
inline constexpr u8 session_with_crc = 1;
inline constexpr u8 session = 2;
inline constexpr u8 control_connection = 3;
} // namespace l2tpv3_flow_type

// ---- Records

ZEL_LAYOUT_SIZE(zel_handles_t, 22 * sizeof(u64));
ZEL_LAYOUT_FIELD(zel_handles_t, vok_instance, 0 * sizeof(u64), 8);
ZEL_LAYOUT_FIELD(zel_handles_t, ipv4_association_type, 10 * sizeof(u64), 8);
ZEL_LAYOUT_FIELD(zel_handles_t, ipv6_association_type, 11 * sizeof(u64), 8);
ZEL_LAYOUT_FIELD(zel_handles_t, l2tpv3_flow_type, 14 * sizeof(u64), 8);
ZEL_LAYOUT_FIELD(zel_handles_t, ovlin_flow_type, 17 * sizeof(u64), 8);

ZEL_LAYOUT_SIZE(ovlin_capabilities_t, 16);
ZEL_LAYOUT_FIELD(ovlin_capabilities_t, max_rat_ovlin_session_id, 0, 4);
ZEL_LAYOUT_FIELD(ovlin_capabilities_t, max_tn_pcep_id, 4, 4);

ZEL_LAYOUT_SIZE(vok_bind_record, 96);
ZEL_LAYOUT_FIELD(vok_bind_record, bindKind, 0x00, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, direction, 0x04, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, param08, 0x08, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, srcTypeHandle, 0x10, 8);
ZEL_LAYOUT_FIELD(vok_bind_record, srcFlowHandle, 0x18, 8);
ZEL_LAYOUT_FIELD(vok_bind_record, srcFlowID, 0x20, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, srcSessionType, 0x24, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, dstTypeHandle, 0x28, 8);
ZEL_LAYOUT_FIELD(vok_bind_record, destFlowHandle, 0x30, 8);
ZEL_LAYOUT_FIELD(vok_bind_record, dstFlowID, 0x38, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, dstSessionType, 0x3c, 4);
ZEL_LAYOUT_FIELD(vok_bind_record, param54, 0x54, 1);
ZEL_LAYOUT_FIELD(vok_bind_record, dscpRef, 0x58, 8);

ZEL_LAYOUT_SIZE(vok_ip_ingress_record, 128);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, rulesMask, 0x00, 2);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, ipVrdId, 0x10, 4);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, dstAddr, 0x20, 4);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, dstPrefixLen, 0x24, 4);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, srcAddr, 0x28, 4);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, srcPrefixLen, 0x2c, 4);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, prot, 0x30, 1);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, dstPort, 0x32, 2);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, srcPort, 0x34, 2);
ZEL_LAYOUT_FIELD(vok_ip_ingress_record, param38, 0x38, 4);

ZEL_LAYOUT_SIZE(vok_ip_egress_record, 56);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, rulesMask, 0x00, 2);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, ipVrdId, 0x10, 4);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, dstAddr, 0x14, 4);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, srcAddr, 0x18, 4);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, prot, 0x1c, 1);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, dstPort, 0x1e, 2);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, srcPort, 0x20, 2);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, mtu, 0x30, 4);
ZEL_LAYOUT_FIELD(vok_ip_egress_record, ttl, 0x35, 1);

ZEL_LAYOUT_SIZE(vok_ipv6_ingress_record, 176);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, rulesMask, 0x00, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, ipVrdId, 0x10, 4);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, nextHeader, 0x24, 1);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, srcPort, 0x26, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, dstPort, 0x28, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, srcAddr, 0x30, 16);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, srcPrefixLen, 0x40, 1);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, dstAddr, 0x44, 16);
ZEL_LAYOUT_FIELD(vok_ipv6_ingress_record, dstPrefixLen, 0x54, 1);

ZEL_LAYOUT_SIZE(vok_ipv6_egress_record, 59);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, param00, 0x00, 1);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, ipVrdId, 0x09, 4);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, srcAddr, 0x0d, 16);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, dstAddr, 0x1d, 16);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, hopLimit, 0x2d, 1);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, nextHeader, 0x33, 1);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, mtu, 0x34, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, srcPort, 0x36, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, dstPort, 0x38, 2);
ZEL_LAYOUT_FIELD(vok_ipv6_egress_record, param3a, 0x3a, 1);

// The L2TPv3 records have no settled names, so the library brings its own.

struct l2tpv3_ingress_interface_record {
    u32 param00;
};

struct l2tpv3_ingress_flow_record {
    u8 flow_type;
    u8 reserved_01[7];
    u64 ingress_interface_handle;
    u32 identifier; ///< control connection id or local session id, as flow_type says
    u32 reserved_14;
};
ZEL_LAYOUT_SIZE(l2tpv3_ingress_flow_record, 24);
ZEL_LAYOUT_FIELD(l2tpv3_ingress_flow_record, ingress_interface_handle, 8, 8);
ZEL_LAYOUT_FIELD(l2tpv3_ingress_flow_record, identifier, 16, 4);

struct l2tpv3_egress_flow_record {
    u8 flow_type;
    u8 reserved_01[7];
};

// ---- Functions

/// A record of that size, whatever its name on the platform.
template <std::size_t size> struct record_of_size;

// What a platform may declare in several ways:
struct integer; // of any size
struct code;    // a 32-bit integer or enumeration
struct text;    // with or without const
struct anything;

template <typename Given, typename Wanted> constexpr bool is_wanted = std::is_same_v<Given, Wanted>;
template <typename Given> constexpr bool is_wanted<Given, anything> = true;
template <typename Given> constexpr bool is_wanted<Given, text> = std::is_convertible_v<Given, const char *>;
template <typename Given> constexpr bool is_wanted<Given, integer> = std::is_integral_v<Given>;
template <typename Given>
requires std::is_integral_v<Given> || std::is_enum_v<Given>
constexpr bool is_wanted<Given, code> = sizeof(Given) == sizeof(u32);

/// What is only read may be declared without const.
template <typename Record, typename Wanted>
constexpr bool is_wanted<Record *, const Wanted *> = std::is_same_v<std::remove_const_t<Record>, Wanted>;

template <typename Record, std::size_t size>
constexpr bool is_wanted<Record *, const record_of_size<size> *> = sizeof(Record) == size;
template <std::size_t size> constexpr bool is_wanted<void *, const record_of_size<size> *> = true;
template <std::size_t size> constexpr bool is_wanted<const void *, const record_of_size<size> *> = true;
template <typename Record, std::size_t size>
constexpr bool is_wanted<Record *, record_of_size<size> *> =
    !std::is_const_v<Record> && is_wanted<Record *, const record_of_size<size> *>;

/// Whether a function has the wanted result and the wanted parameters.
template <typename WantedResult, typename... Wanted, typename Result, typename... Parameters>
consteval bool is_as_wanted(Result (*)(Parameters...))
{
    if constexpr (sizeof...(Parameters) == sizeof...(Wanted))
        return is_wanted<Result, WantedResult> && (is_wanted<Parameters, Wanted> && ...);
    else
        return false;
}

#define ZEL_REQUIRE(result, function, ...)                                                                             \
    static_assert(is_as_wanted<result, __VA_ARGS__>(function), #function " has other parameters or another result")

ZEL_REQUIRE(code, vok_ip_ingress_association_create, u64, const vok_ip_ingress_record *, u64 *);
ZEL_REQUIRE(code, vok_ip_egress_association_create, u64, const vok_ip_egress_record *, u64 *);
ZEL_REQUIRE(code, vok_ipv6_ingress_association_create, u64, const vok_ipv6_ingress_record *, u64 *);
ZEL_REQUIRE(code, vok_ipv6_egress_association_create, u64, const vok_ipv6_egress_record *, u64 *);
ZEL_REQUIRE(code, vok_ip_ingress_association_delete, u64, u64);
ZEL_REQUIRE(code, vok_ip_egress_association_delete, u64, u64);
ZEL_REQUIRE(code, vok_ipv6_ingress_association_delete, u64, u64);
ZEL_REQUIRE(code, vok_ipv6_egress_association_delete, u64, u64);
ZEL_REQUIRE(code, vok_ipv6_egress_association_attr_modify, u64, const vok_ipv6_egress_record *, u64);
ZEL_REQUIRE(code, vok_ip_ingress_association_stats_get, u64, u64, record_of_size<32> *);
ZEL_REQUIRE(code, vok_ip_egress_association_stats_get, u64, u64, record_of_size<32> *);
ZEL_REQUIRE(code, vok_ipv6_ingress_association_statistics_get, u64, u64, record_of_size<8> *);
ZEL_REQUIRE(code, vok_ipv6_egress_association_statistics_get, u64, u64, record_of_size<4> *);
ZEL_REQUIRE(code, vok_l2tpv3_ingress_interface_add, u64, const record_of_size<4> *, u64 *);
ZEL_REQUIRE(code, vok_l2tpv3_ingress_flow_create, u64, const record_of_size<24> *, u64 *);
ZEL_REQUIRE(code, vok_l2tpv3_egress_flow_create, u64, const record_of_size<8> *, u64 *);
ZEL_REQUIRE(code, vok_l2tpv3_ingress_flow_delete, u64, u64);
ZEL_REQUIRE(code, vok_l2tpv3_egress_flow_delete, u64, u64);
ZEL_REQUIRE(code, vok_bind, u64, const vok_bind_record *);
ZEL_REQUIRE(code, vok_unbind, u64, const vok_bind_record *);
ZEL_REQUIRE(code, zel_init_attach, zel_handles_t *);
ZEL_REQUIRE(code, zel_core_ic_ovlin_capabilities_get, ovlin_capabilities_t *);
ZEL_REQUIRE(code, zel_fmt_end, char *, u32);
ZEL_REQUIRE(code, vok_syshandle_get, integer, integer, u64 *);
ZEL_REQUIRE(text, vok_sys_status_get, u64, code);
ZEL_REQUIRE(text, kiv_util_init_rc_str_get, code);
// Nobody looks at the results of these.
ZEL_REQUIRE(anything, zel_fmt_ipv4_ingress_assoc_stats, char *, u32, u8, const void *);
ZEL_REQUIRE(anything, zel_fmt_ipv4_egress_assoc_stats, char *, u32, u8, const void *);
ZEL_REQUIRE(anything, zel_fmt_ipv6_ingress_assoc_stats, char *, u32, u8, const void *);
ZEL_REQUIRE(anything, zel_fmt_ipv6_egress_assoc_stats, char *, u32, u8, const void *);

template <typename Record, std::size_t size>
constexpr bool holds_bytes = is_wanted<Record *, const record_of_size<size> *>;

/// The address of a record as the platform's function takes it: with or without const, as the platform's own type.
template <typename Record> class record_address {
public:
    explicit constexpr record_address(const Record &record) : record_(&record) {}

    template <typename Parameter>
    requires holds_bytes<Parameter, sizeof(Record)>
    operator Parameter *() const // NOLINT(google-explicit-constructor): it is there to be converted
    {
        return reinterpret_cast<Parameter *>(const_cast<Record *>(record_));
    }

private:
    const Record *record_;
};

template <typename Record> record_address<Record> address_of(const Record &record)
{
    return record_address<Record>(record);
}

} // namespace zel
