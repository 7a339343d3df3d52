/// The data plane's objects and bindings.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <tuple>
#include <vector>

#include "record_check.h"
#include "vok_cp.h"
#include "vok_cp_sim.h"

namespace vok_cp {

/// A kind's place in the data plane.
struct kind_traits {
    std::uint64_t type_handle;
    std::span<const field> fields;
};

const kind_traits &traits(vok_cp_sim_kind_t kind);

struct binding {
    vok_bind_record record; ///< dscpRef is 0
    bool has_dscp;
    std::uint8_t dscp;
};

struct object {
    vok_cp_sim_kind_t kind;
    std::vector<std::byte> record;
    std::vector<const binding *> bindings{}; ///< that use it
    std::uint64_t packets = 0;
    std::uint64_t octets = 0;
};

/// Two records with equal keys describe the same binding.
struct binding_key {
    std::uint32_t kind, direction;
    std::uint64_t source_handle;
    std::uint32_t source_flow_id;
    std::uint64_t destination_handle;
    std::uint32_t destination_flow_id;

    auto operator<=>(const binding_key &) const = default;
};

/// A binding as the simulation interface shows it.
inline vok_cp_sim_binding_t shown(const binding &b)
{
    return {&b.record, b.has_dscp, b.dscp};
}

/// What a packet must have in common with the ingress association that receives it, beside the ports: IP version,
/// protocol, routing instance, source, destination.
using receiver_key =
    std::tuple<std::uint8_t, std::uint8_t, std::uint32_t, std::array<std::uint8_t, 16>, std::array<std::uint8_t, 16>>;
receiver_key receiver_key_of(const vok_cp_sim_header_t &h);

constexpr bool receives(vok_cp_sim_kind_t kind)
{
    return kind == VOK_CP_SIM_IPV4_INGRESS || kind == VOK_CP_SIM_IPV6_INGRESS;
}

/// What an object's record says of the packets that it matches or sends.
vok_cp_sim_header_t header_of(const object &o);
std::uint32_t path_mtu_of(const object &o);

/// Every change is checked whole before anything is changed: a refused call leaves the model as it was.
class model {
public:
    status create(vok_cp_sim_kind_t kind, std::uint64_t type, std::span<const std::byte> record, std::uint64_t *handle);
    status remove(vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle);
    status modify_ipv6_egress(std::uint64_t type, std::span<const std::byte> record, std::uint64_t handle);

    /// Gives `found`, an object of that kind, when it can.
    status look_up(vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle, object *&found);
    status bind(std::uint64_t instance, const vok_bind_record *record);
    status unbind(std::uint64_t instance, const vok_bind_record *record);

    vok_cp_sim_arrival_t receive(const vok_cp_sim_header_t &header, std::uint32_t octets);
    vok_cp_sim_departure_t send(std::uint32_t ovlin_flow_id, std::uint32_t octets);

    /// Forgets objects and bindings; the next handle stays what it is.
    void clear();

    const std::map<std::uint64_t, object> &objects() const { return objects_; }
    const std::map<binding_key, binding> &bindings() const { return bindings_; }

private:
    const binding *binding_from(std::uint64_t source, std::uint32_t kind) const;
    const binding *binding_from_flow(std::uint32_t ovlin_flow_id) const;
    std::uint64_t l2tp_flow(std::uint64_t interface, const vok_cp_sim_header_t &header) const;
    status check_flow_record(vok_cp_sim_kind_t kind, std::span<const std::byte> record) const;
    status check_flow_end(std::uint64_t type, std::uint64_t handle, std::uint32_t flow_id, unsigned kinds) const;
    status check_binding(std::uint64_t instance, const vok_bind_record *record) const;
    void for_each_end(const vok_bind_record &record, const std::function<void(object &)> &visit);

    std::map<std::uint64_t, object> objects_;
    std::map<binding_key, binding> bindings_;
    std::multimap<receiver_key, std::uint64_t> receivers_; ///< ingress associations, in the order of their creation
    std::uint64_t next_handle_ = 0x1'0000'0001;            ///< wider than 32 bits: a handle cut in half is unknown
};

} // namespace vok_cp
