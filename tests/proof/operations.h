/// The operations that `zel-proof sweep` and `zel-proof calls` try, and the states that they try them from.
#pragma once

#include <span>

#include "proof/world.h"

namespace proof {

struct state {
    const char *name;
    void (*reach)(world &);
};

/// Which paths of an operation are taken: all, with few failures where all are too many, or only the one without any.
enum class paths { all, all_undone, few, one };

struct tried_operation {
    const char *name;
    uint32_t (*run)(world &);
    std::span<const state> from;
    paths swept = paths::all; ///< all_undone: when it fails, nothing stays, apart from documented exceptions

    // Of those whose calls are shown, all from one state.
    const char *exported_name = nullptr;
    const char *form = ""; ///< what is particular about it
    void (*shown_from)(world &) = nullptr;
};

extern const std::span<const tried_operation> operations;

} // namespace proof
