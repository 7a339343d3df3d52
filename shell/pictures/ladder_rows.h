/// The course of an operation, row by row.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "operation_record.h"

struct ladder_step {
    enum class kind { step, exception, slow };
    kind what;
    std::string text;
};

/// A step, a data-plane call, a step with the call that it announces, or a gap.
struct ladder_row {
    std::optional<ladder_step> step;
    const recorded_call *call = nullptr;
    std::size_t left_out = 0; ///< steps and calls that the gap stands for
};

/// The rows that tell the story: all of them, or with more than `rows_at_most` the first and the last, and of those
/// between them the failures, undos, exceptions and slow calls as far as there is room.
std::vector<ladder_row> rows_of(const operation_record &operation, std::size_t rows_at_most);
