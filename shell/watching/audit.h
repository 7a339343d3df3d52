/// What is wrong between the library's tables and the data plane, and which operation left it so.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "ownership.h"

class audit {
public:
    /// Looks again at everything about these handles; a new finding was left by `operation`.
    void look_at(const std::set<std::uint64_t> &handles, const std::string &operation, const ownership &owners);

    /// The same for every handle.
    void look_at_all(const std::string &operation, const ownership &owners);

    /// How many things are wrong.
    std::size_t count() const;

    /// Each with the operation that left it; or that nothing is wrong.
    void show(std::ostream &out) const;

private:
    /// Objects without an owner come before such bindings, then handles that name nothing, then connections that
    /// receive nothing.
    struct subject {
        int what;
        std::array<std::uint64_t, 6> which;

        auto operator<=>(const subject &) const = default;
    };
    struct finding {
        std::string text, left_by;
    };
    using findings = std::map<subject, finding>;

    static findings found_at(std::uint64_t handle, const ownership &owners);
    std::map<std::uint64_t, findings> findings_; ///< by the handle that they are about
};
