/// What the stand-in data plane holds, and its objects, bindings and calls in words.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "vok_cp.h"
#include "vok_cp_sim.h"
#include "watcher.h"

struct data_plane {
    struct object {
        std::uint64_t handle;
        vok_cp_sim_kind_t kind;
        std::vector<std::byte> record;
        vok_cp_sim_header_t header; ///< made from the record, as `path_mtu` is
        std::uint32_t path_mtu;     ///< bytes; 0: none given

        static object from(const vok_cp_sim_object_t &shown);
        std::strong_ordering operator<=>(const object &other) const;
        bool operator==(const object &other) const { return *this <=> other == 0; }
    };

    struct binding {
        vok_bind_record record; ///< dscpRef is 0
        bool has_dscp;
        std::uint8_t dscp;

        std::strong_ordering operator<=>(const binding &other) const;
        bool operator==(const binding &other) const { return *this <=> other == 0; }
    };

    std::vector<object> objects;   ///< in the order of their creation
    std::vector<binding> bindings; ///< ordered by kind, direction, source and destination

    static data_plane now();

    /// Of these handles only those that name objects, and the bindings that use them.
    static data_plane of(const std::set<std::uint64_t> &handles);

    bool operator==(const data_plane &) const = default;
};

/// "1 object", "2 objects"
std::string count_text(std::size_t count, const char *what);

/// "2 objects, 1 binding", as of now.
std::string counts_now();

/// An address in network byte order: "192.0.2.1:2152", "[2001:db8::1]:2152", or without the port.
std::string to_text(int ip_version, const std::uint8_t (&address)[16], std::uint16_t port);
std::string address_text(int ip_version, const std::uint8_t (&address)[16]);

/// "IPv4 ingress", "L2TPv3 ingress interface"
const char *kind_name(vok_cp_sim_kind_t kind);

/// "192.0.2.1:2152 -> 198.51.100.7:2152", without ports where the protocol has none.
std::string from_to(const vok_cp_sim_header_t &h);

/// What a header has beside its addresses: "UDP, ttl 64", "control connection 1001", or nothing.
std::string header_text(const vok_cp_sim_header_t &h, std::uint32_t path_mtu);
std::string header_text(const data_plane::object &o);

/// Both, and the routing instance: "192.0.2.1 -> 198.51.100.7, L2TPv3, ttl 64, vrf 0".
std::string whole_header_text(const vok_cp_sim_header_t &h, std::uint32_t path_mtu);

/// A TTL or hop limit as it was given, with that of the egress association if it is another: "64", "0 (128 in force)".
std::string ttl_text(std::uint8_t given, std::uint64_t association);

/// "ovlin 0x00200005 (pcep 2, session 5)"
std::string ovlin_flow_text(std::uint32_t id);

/// "F2F", "F2ID", "ID2F"
std::string bind_kind_text(const vok_bind_record &r);

/// "INGRESS", "EGRESS"
std::string direction_text(const vok_bind_record &r);

/// "0x100000001", or the ovlin flow on that side.
std::string source_text(const vok_bind_record &r);
std::string destination_text(const vok_bind_record &r);

/// "0x100000001"
std::string handle_text(std::uint64_t handle);

/// "IPv4 egress 0x100000002 (192.0.2.1:2152 -> 198.51.100.7:2152)"
std::string to_text(const data_plane::object &o);

/// "ID2F EGRESS ovlin 0x00100001 (pcep 1, session 1) -> 0x100000002"
std::string to_text(const vok_bind_record &r);

/// What a call was given: a binding's ends, an object's header, a handle, the hook's arguments.
std::string subject_text(const watched_call &call);

/// The text for what a call answered: the data plane's, or the result code's for the session-type hook.
std::string status_text(const watched_call &call);
std::string status_text(std::string_view operation, std::uint32_t status);
