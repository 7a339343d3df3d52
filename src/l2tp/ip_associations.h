/// The IPv4 associations of one direction that control connections share, with how many use each.
#pragma once

#include "term/types.h"

namespace zel {

/// Control connections with equal keys share an association. Addresses are as in the configuration.
struct association_key {
    u32 local_addr;
    u32 remote_addr;
    u32 vrf_id;

    bool operator==(const association_key &) const = default;
};

struct ip_association {
    association_key key;
    u64 association_handle;
    u32 user_count;          ///< control connections that hold the handle
    u8 bound;                ///< ingress only: the binding to the L2TPv3 ingress interface exists or was requested
    std::int32_t bind_count; ///< ingress only: control connections that requested that binding and did not release it
};

/// A dense table: the live entries come first and every search takes the first match.
class ip_associations {
public:
    static constexpr std::int32_t capacity = 48;

    /// Null when there is none.
    ip_association *find(const association_key &key)
    {
        return find_if([&](const ip_association &a) { return a.key == key; });
    }

    /// Null when there is none.
    ip_association *find(u64 association_handle)
    {
        return find_if([&](const ip_association &a) { return a.association_handle == association_handle; });
    }

    /// Adds an association with one user and no binding.
    /// @return false when the table is full; it is then unchanged
    bool add(const association_key &key, u64 association_handle)
    {
        if (count_ == capacity)
            return false;
        entries_[count_++] = {key, association_handle, 1, 0, 0};
        return true;
    }

    /// Removes one user of a live entry; with the last user the entry goes, and the table's last entry replaces it.
    /// @return whether it was the last
    bool release(ip_association &entry)
    {
        if (--entry.user_count != 0)
            return false;
        entry = entries_[--count_];
        return true;
    }

    void clear() { *this = {}; }

    std::int32_t count() const { return count_; }
    const ip_association &operator[](std::int32_t index) const { return entries_[index]; }

private:
    template <typename Wanted> ip_association *find_if(Wanted wanted)
    {
        for (std::int32_t i = 0; i < count_; ++i)
            if (wanted(entries_[i]))
                return &entries_[i];
        return nullptr;
    }

    ip_association entries_[capacity];
    std::int32_t count_;
};

/// Adds a request for an association's binding to the L2TPv3 ingress interface.
/// @return whether the binding must be made now
inline bool request_bind(ip_association &entry)
{
    if (entry.bound != 0) {
        ++entry.bind_count;
        return false;
    }
    entry.bound = 1;
    entry.bind_count = 1;
    return true;
}

enum class bind_release { still_requested, last_one, was_not_requested };

/// Releases a request. A count below 0 stays until the next request, which sets it to 1.
inline bind_release release_bind(ip_association &entry)
{
    if (--entry.bind_count > 0)
        return bind_release::still_requested;
    if (entry.bind_count < 0)
        return bind_release::was_not_requested;
    entry.bound = 0;
    return bind_release::last_one;
}

} // namespace zel
