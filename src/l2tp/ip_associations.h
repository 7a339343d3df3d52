/// The IPv4 associations of one direction that control connections share, with how many use each.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>

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

/// A byte for each entry of a table, by which a search passes over eight entries at a time.
template <std::int32_t capacity> struct entry_marks {
    static_assert(capacity % 8 == 0);
    u8 marks[capacity];

    static u8 of(u64 value) { return static_cast<u8>(value * 0x9e37'79b9'7f4a'7c15 >> 56); }

    /// The first of `count` entries that has the mark and is the wanted one; if there is none, `count`.
    template <typename Wanted> std::int32_t find_first(std::int32_t count, u8 mark, Wanted is_wanted) const
    {
        for (std::int32_t first = 0; first < count; first += 8) {
            if (!any_of_eight(marks + first, mark))
                continue;
            for (std::int32_t i = first; i < std::min(first + 8, count); ++i)
                if (is_wanted(i))
                    return i;
        }
        return count;
    }

private:
    static bool any_of_eight(const u8 *eight, u8 mark)
    {
        constexpr u64 low_bits = 0x0101'0101'0101'0101, high_bits = 0x8080'8080'8080'8080;
        u64 difference;
        std::memcpy(&difference, eight, sizeof difference);
        difference ^= low_bits * mark;
        return ((difference - low_bits) & ~difference & high_bits) != 0; // whether a byte is 0
    }
};

/// A dense table: the live entries come first and every search takes the first match.
class ip_associations {
public:
    static constexpr std::int32_t capacity = 48;

    /// Null when there is none.
    ip_association *find(const association_key &key)
    {
        return find_if(true, by_key_, mark_of(key), [&](const ip_association &a) { return a.key == key; });
    }

    /// Null when there is none.
    ip_association *find(u64 association_handle)
    {
        return find_if(!has_equal_handles_, by_handle_, marks::of(association_handle),
                       [&](const ip_association &a) { return a.association_handle == association_handle; });
    }

    /// Adds an association with one user and no binding.
    /// @return false when the table is full; it is then unchanged
    bool add(const association_key &key, u64 association_handle)
    {
        if (count_ == capacity)
            return false;
        has_equal_handles_ = has_equal_handles_ || find(association_handle) != nullptr;
        by_key_.marks[count_] = mark_of(key);
        by_handle_.marks[count_] = marks::of(association_handle);
        entries_[count_++] = {key, association_handle, 1, 0, 0};
        return true;
    }

    /// Removes one user of a live entry; with the last user the entry goes, and the table's last entry replaces it.
    /// @return whether it was the last
    bool release(ip_association &entry)
    {
        if (--entry.user_count != 0)
            return false;
        --count_;
        for (marks *const all : {&by_key_, &by_handle_})
            all->marks[&entry - entries_] = all->marks[count_];
        entry = entries_[count_];
        return true;
    }

    void clear() { *this = {}; }

    std::int32_t count() const { return count_; }
    const ip_association &operator[](std::int32_t index) const { return entries_[index]; }

private:
    using marks = entry_marks<capacity>;

    static u8 mark_of(const association_key &key) { return marks::of(key.local_addr ^ key.remote_addr ^ key.vrf_id); }

    /// @param any_will_do no two entries are wanted, so that the first match need not be searched for
    template <typename Wanted>
    ip_association *find_if(bool any_will_do, const marks &searched, u8 mark, Wanted is_wanted)
    {
        if (any_will_do && recent < count_ && is_wanted(entries_[recent]))
            return &entries_[recent];
        const std::int32_t index =
            searched.find_first(count_, mark, [&](std::int32_t i) { return is_wanted(entries_[i]); });
        if (index == count_)
            return nullptr;
        recent = index;
        return &entries_[index];
    }

    /// Where the last search of any table ended: the next is often for the same connection, and the associations that
    /// it has each way are often in the same place.
    static inline std::int32_t recent = 0;

    ip_association entries_[capacity];
    marks by_key_, by_handle_;
    std::int32_t count_;
    bool has_equal_handles_; ///< two entries had the same handle: a data plane that was restarted gives some again
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
