/// A set of small numbers that knows the lowest one missing from it.
#pragma once

#include <bit>

#include "term/types.h"

namespace zel {

/// Holds numbers from 0 to capacity - 1; empty when zero-initialised. Every operation except take_all() takes constant
/// time: above the bitmap are two summary levels, in which a bit says that the 64 bits below it are all set.
template <u32 capacity> class id_set {
public:
    void insert(u32 number)
    {
        if (set(numbers_, number) && set(full_words_, number / 64))
            set(&full_summaries_, number / 64 / 64);
    }

    void erase(u32 number)
    {
        clear(numbers_, number);
        clear(full_words_, number / 64);
        clear(&full_summaries_, number / 64 / 64);
    }

    /// `capacity` when all numbers are in the set.
    u32 lowest_missing() const
    {
        const u32 summary = lowest_clear(full_summaries_);
        const u32 word = summary * 64 + lowest_clear(full_words_[summary]);
        return word * 64 + lowest_clear(numbers_[word]);
    }

    /// Takes all numbers out, lowest first, and calls `take` with the first number and the length of each run.
    template <typename Take> void take_all(Take take)
    {
        u32 first = 0, count = 0;
        for (u32 word = 0; word < word_count; ++word) {
            for (u64 left = numbers_[word]; left != 0;) {
                const auto at = static_cast<u32>(std::countr_zero(left));
                const auto neighbours = static_cast<u32>(std::countr_one(left >> at));
                left &= ~(~u64{0} >> (64 - neighbours) << at);
                if (word * 64 + at != first + count) {
                    if (count != 0)
                        take(first, count);
                    first = word * 64 + at;
                    count = 0;
                }
                count += neighbours;
            }
        }
        if (count != 0)
            take(first, count);
        *this = {};
    }

private:
    static bool set(u64 *words, u32 bit)
    {
        words[bit / 64] |= u64{1} << bit % 64;
        return words[bit / 64] == ~u64{0};
    }

    static void clear(u64 *words, u32 bit) { words[bit / 64] &= ~(u64{1} << bit % 64); }

    static u32 lowest_clear(u64 word) { return static_cast<u32>(std::countr_one(word)); }

    // Has room for the number `capacity` too, which is never inserted, so every search ends there at the latest.
    static constexpr u32 word_count = capacity / 64 + 1;
    static constexpr u32 summary_count = capacity / 64 / 64 + 1;
    static_assert(summary_count <= 64, "one word holds the upper level");

    u64 numbers_[word_count];
    u64 full_words_[summary_count];
    u64 full_summaries_;
};

} // namespace zel
