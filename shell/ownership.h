/// Who owns what in the data plane: the library's tables beside the data plane's objects and bindings.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
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

/// A handle in a table that names no object of the data plane.
struct dangling_handle {
    owner holder;
    std::string field; ///< "ingress association"
    std::uint64_t handle;
};

class ownership {
public:
    /// Reads the library's public tables. That of UDP sessions is not public; the ledger has what is in it.
    ownership(const ledger &known, const data_plane &plane);

    /// In order; empty when no table entry owns it.
    std::vector<owner> of(const data_plane::object &object) const;
    std::vector<owner> of(const data_plane::binding &binding) const;

    const std::vector<dangling_handle> &dangling() const { return dangling_; }

private:
    std::vector<owner> holders(std::uint64_t handle) const;
    bool sends(const owner &who, std::uint32_t ovlin_flow_id) const;

    const ledger &known_;
    std::map<std::uint64_t, std::vector<owner>> holders_; ///< by handle
    std::vector<dangling_handle> dangling_;
};
