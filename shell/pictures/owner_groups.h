/// The data plane's objects by who owns them, for a picture that has not room for all.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "data_plane.h"
#include "ownership.h"

/// What the same owners own.
struct owner_group {
    std::vector<owner> owners; ///< none: what nobody owns
    std::vector<const data_plane::object *> objects;
    std::vector<const dangling_handle *> dangling;

    /// "UDP session 1", "shared by L2TP connections 1, 2", "owned by nobody"
    std::string title() const;
};

/// The groups, up to so many objects: first what nobody owns, and groups with dangling handles or at the end of a
/// binding that nobody owns; then those that are bound to these; then the others by owner.
std::vector<owner_group> most_interesting_groups(const data_plane &plane, const ownership &owners,
                                                 std::size_t objects_at_most);

/// The L2TPv3 ingress interface that an ingress flow was created on, or 0.
std::uint64_t interface_of(const data_plane::object &object);
