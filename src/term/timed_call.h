/// The only way the library calls the data plane.
#pragma once

#include <type_traits>

#include "term/tick.h"
#include "term/zel_trace.h"

namespace zel {

/// Warns of a call that took longer than the delay bound.
[[gnu::cold]] void report_delay(trace_site site, const char *description, u64 start, u64 end);

/// Reports a call's status with the data plane's text for it, looked up only if the event is enabled.
[[gnu::cold]] void report_failure(trace_site site, const char *description, u32 status);

/// Calls a data-plane operation between two reads of the tick counter and reports it if it was slow or failed. A slow
/// call is not a failure. The status of a failed call is only reported, not passed on.
///
/// @param site        the calling statement
/// @param description names the call in the reports
/// @return 0, or 13 if the status was not 0
template <typename Status, typename... Parameters>
u32 timed_call(trace_site site, const char *description, Status (*operation)(Parameters...),
               std::type_identity_t<Parameters>... arguments)
{
    const u64 start = read_ticks();
    const u32 status = static_cast<u32>(operation(arguments...));
    const u64 end = read_ticks();
    if (is_delayed(start, end)) [[unlikely]]
        report_delay(site, description, start, end);
    if (status == 0) [[likely]]
        return ZEL_CORE_TERM_SUCCESS;
    report_failure(site, description, status);
    return ZEL_CORE_TERM_DATA_PLANE_FAILED;
}

} // namespace zel
