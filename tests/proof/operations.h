/// The operations that `zel-proof sweep` and `zel-proof calls` try, and the states that they try them from.
#pragma once

#include <span>

#include "proof/world.h"

namespace proof {

struct state {
    const char *name;
    void (*reach)(world &);
};

/// Of one operation, by the answers of what it calls: all of them; those with few failures, where there are more than
/// there is time for; or only the one without.
enum class paths { all, few, one };

struct tried_operation {
    const char *name;
    uint32_t (*run)(world &);
    std::span<const state> from;
    paths swept = paths::all;
    bool undone = false; ///< when it fails, apart from documented exceptions

    // Of those whose calls are shown, all from one state.
    const char *exported_name = nullptr;
    const char *form = ""; ///< what is particular about it
    void (*shown_from)(world &) = nullptr;
};

extern const std::span<const tried_operation> operations;

} // namespace proof
