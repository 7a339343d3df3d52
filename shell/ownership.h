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
    /// Reads the library's tables. Those of UDP sessions are not public: the handles are taken from the data-plane calls
    /// that reading a session's counters makes, so the caller keeps its own observers and events out of the way.
    ownership(const ledger &known, const data_plane &plane);

    /// In order, without duplicates; empty when no table entry owns it.
    std::vector<owner> of(const data_plane::object &object) const;
    std::vector<owner> of(const data_plane::binding &binding) const;

    const std::vector<dangling_handle> &dangling() const { return dangling_; }

private:
    std::multimap<std::uint64_t, owner> objects_; ///< by handle
    const ledger &known_;
    std::vector<dangling_handle> dangling_;
};
