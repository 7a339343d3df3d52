/// What is measured: operations, which the stop watch, the instruction counter and the test `process` share.
#pragma once

#include <cstdint>
#include <functional>

/// A table of the library that operations are tried on at several occupancies.
struct measured_table {
    std::uint32_t capacity;
    std::uint32_t free_entries;            ///< that are left for a batch, also at the highest occupancy
    std::uint32_t calls;                   ///< in a batch
    void (*occupy)(std::uint32_t entries); ///< restarts the library with the table's first entries taken
};

/// Something done for the n-th call of a batch; gives the library's result where that is of interest.
using part = std::uint32_t (*)(std::uint32_t n);

struct operation {
    const char *name;
    const measured_table *table;
    part library;
    std::uint32_t failing_call = 0; ///< not 0: this data-plane call fails, counted from the operation's first
    part prepare = nullptr;         ///< what precedes a batch, unmeasured; null: nothing
    part clean_up = nullptr;        ///< what follows it
    part reference = nullptr;       ///< what its time is compared with; null: it is not timed
};

/// Visits all operations: first with a failing_call of 0, as each call succeeds, and then with the one that fails.
void for_each_operation(const std::function<void(const operation &)> &visit);

/// Occupancies are counted in quarters: 0 empty, 4 full but for the entries that the batch needs.
constexpr std::uint32_t quarters_full = 4;
void occupy(const measured_table &occupied, std::uint32_t quarters);

/// All calls of a batch, each preceded by the order to fail where it is to; gives their results together.
std::uint32_t run(const operation &measured, part run_part);

/// What is measured of a batch, between what precedes and what follows.
template <typename Measure> void with_batch(const operation &measured, Measure measure)
{
    for (std::uint32_t n = 0; measured.prepare != nullptr && n < measured.table->calls; ++n)
        measured.prepare(n);
    measure();
    for (std::uint32_t n = 0; measured.clean_up != nullptr && n < measured.table->calls; ++n)
        measured.clean_up(n);
}

/// Ends the program unless it is the null data plane that the library calls.
void require_null_data_plane();

/// As require_null_data_plane(); and each operation must succeed, or come to the call that fails, and make as many
/// data-plane calls as its reference.
void require_honest_measurement();
