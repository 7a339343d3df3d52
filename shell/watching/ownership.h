/// Who owns what in the data plane: the library's tables beside the data plane's objects and bindings.
#pragma once

#include <compare>
#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "data_plane.h"
#include "ledger.h"

struct owner {
    enum class kind { library, udp_session, l2tp_connection, l2tp_session };
    kind what;
    std::uint32_t id; ///< 0 for the library, which owns the L2TPv3 ingress interface

    auto operator<=>(const owner &) const = default;
};

/// "UDP session 1", "L2TP connection 1", "L2TP session 100", "the library"
std::string to_text(const owner &who);

/// The same of one owner; of others "owned by nobody", or "shared by L2TP connection 1, L2TP connection 2".
std::string to_text(const std::vector<owner> &owners);

/// A handle in one of the library's tables.
struct held_handle {
    owner holder;
    int field; ///< its place in the entry
    std::uint64_t handle;

    bool operator==(const held_handle &) const = default;
};

/// "ingress association"
std::string field_name(const held_handle &held);

/// "ingress association 0x100000001 of UDP session 1"
std::string to_text(const held_handle &held);

/// The handles in the L2TP tables, which are public, after the library's own ingress interface.
std::vector<held_handle> l2tp_handles();

/// The handle whose owner owns a binding: its source, or its destination if it leads from an ovlin flow.
std::uint64_t deciding_handle(const vok_bind_record &binding);

/// A view of the tables at the time of its construction. The table of UDP sessions is not public; the ledger has its
/// contents.
class ownership {
public:
    explicit ownership(const ledger &known);

    /// In order; empty when no table entry owns it.
    std::vector<owner> of(const data_plane::object &object) const;
    std::vector<owner> of(const vok_bind_record &binding) const;
    std::vector<owner> of(const data_plane::binding &binding) const { return of(binding.record); }

    /// The entries that hold a handle, in order.
    std::vector<held_handle> holding(std::uint64_t handle) const;

    /// The handles that an entry holds.
    std::set<std::uint64_t> held_by(const owner &who) const;

    /// All handles, and those that name no object of the data plane.
    std::vector<held_handle> all() const;
    std::vector<held_handle> dangling() const;

private:
    std::vector<owner> holders(std::uint64_t handle) const;
    bool sends(const owner &who, std::uint32_t ovlin_flow_id) const;

    const ledger &known_;
    std::vector<held_handle> l2tp_;
    std::unordered_multimap<std::uint64_t, held_handle> l2tp_by_handle_;
};
