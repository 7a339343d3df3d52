/// What makes a data-plane record well-formed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vok_cp {

using status = std::uint32_t;

/// What a field may hold.
enum class rule : std::uint8_t {
    any,         ///< whatever the caller means
    constant,    ///< exactly `value`
    full_prefix, ///< exactly `value`, the length of the address in bits
};

/// One field of a record. Bytes that belong to no field of the record's list must be zero.
struct field {
    std::size_t offset;
    std::size_t width; ///< bytes
    rule must_be = rule::any;
    std::uint64_t value = 0;
};

extern const std::span<const field> ip_ingress_fields;
extern const std::span<const field> ip_egress_fields;
extern const std::span<const field> ipv6_ingress_fields;
extern const std::span<const field> ipv6_egress_create_fields;
extern const std::span<const field> ipv6_egress_modify_fields;
extern const std::span<const field> l2tpv3_ingress_interface_fields;
extern const std::span<const field> l2tpv3_ingress_flow_fields;
extern const std::span<const field> l2tpv3_egress_flow_fields;
extern const std::span<const field> bind_fields;

/// The first thing wrong with `record`, read from its start to its end, or VOK_CP_SIM_OK.
status check_record(std::span<const std::byte> record, std::span<const field> fields);

} // namespace vok_cp
