/// Operations as lists of steps.
#pragma once

#include <cstddef>
#include <type_traits>

#include "term/zel_trace.h"

namespace zel {

/// A part of an operation, and its name in reports.
template <typename... Arguments> struct step {
    const char *name;
    u32 (*run)(Arguments...);
};

/// Runs the steps up to the first failure, which is reported at `site`, and returns its result.
template <std::size_t count, typename... Arguments>
u32 run_until_failure(trace_site site, const step<Arguments...> (&steps)[count],
                      std::type_identity_t<Arguments>... arguments)
{
    for (const auto &[name, run] : steps)
        if (const u32 failure = run(arguments...))
            return report(site, failure, name);
    return ZEL_CORE_TERM_SUCCESS;
}

/// Runs all steps and reports failures at `site`.
template <std::size_t count, typename... Arguments>
void run_all(trace_site site, const step<Arguments...> (&steps)[count], std::type_identity_t<Arguments>... arguments)
{
    for (const auto &[name, run] : steps)
        if (const u32 failure = run(arguments...))
            report(site, failure, name);
}

} // namespace zel
