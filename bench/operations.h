/// What is measured: one table, which the stop watch, the instruction counter and the reports share.
#pragma once

#include <cstdint>
#include <span>

/// A table of the library that operations are tried on at several occupancies.
struct measured_table {
    const char *name;
    std::uint32_t capacity;
    std::uint32_t free_entries;            ///< that are left for a batch, also at the highest occupancy
    std::uint32_t calls;                   ///< in a batch
    std::uint32_t batches;                 ///< a run
    void (*occupy)(std::uint32_t entries); ///< restarts the library with the table's first entries taken
};

struct operation {
    const char *name;
    const measured_table *table;

    std::uint32_t (*library)(std::uint32_t n); ///< the n-th call of a batch; gives the library's result

    /// What the library is compared with: the same platform calls by hand, unless `name` says something else. Null: it
    /// makes no platform call.
    void (*reference)(std::uint32_t n) = nullptr;

    /// Not 0: the operation is measured a second time, with this data-plane call failing.
    std::uint32_t failing_call = 0;

    /// The n-th call's part of what precedes and follows a batch, unmeasured; null: nothing.
    void (*prepare)(std::uint32_t n) = nullptr;
    void (*clean_up)(std::uint32_t n) = nullptr;
};

std::span<const operation> operations();

/// Occupancies are counted in quarters: 0 empty, 4 full but for the entries that the batch needs.
constexpr std::uint32_t quarters_full = 4;
void occupy(const measured_table &occupied, std::uint32_t quarters);

/// How an operation is run: as it is, or with its failing_call failing.
enum class outcome { success, failure };
constexpr const char *to_text(outcome o)
{
    return o == outcome::success ? "success" : "failure";
}

/// Calls `visit` with the outcomes that the operation has.
template <typename Visit> void for_each_outcome(const operation &measured, Visit visit)
{
    visit(outcome::success);
    if (measured.failing_call != 0)
        visit(outcome::failure);
}

/// For all calls of a batch, where there is something to prepare or clean up.
void for_each_call(const operation &measured, void (*part)(std::uint32_t n));

/// The measured part: all calls of a batch, each preceded by the order to fail when the outcome wants that.
void run_library(const operation &measured, outcome wanted);
void run_reference(const operation &measured, outcome wanted);

/// Ends the program unless it is the null data plane that the library calls.
void require_null_data_plane();

/// As require_null_data_plane(); and each operation must succeed, and make as many data-plane calls as its reference,
/// with both outcomes.
void require_honest_measurement();
