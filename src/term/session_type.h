/// The session-type hook, which binds in the sending direction call first.
#pragma once

#include "term/platform.h"
#include "term/zel_trace.h"
#include "zel_core_term/zel_ovlin_session_handler.h"

namespace zel {

/// Calls the hook if the caller's flag is set; a failure is reported at `site`.
/// @return 0, or the hook's own code
inline u32 set_session_type(trace_site site, u8 flag, u64 ovlin_flow_type, u32 pcep_id, u32 session_type)
{
    if (flag == 0)
        return ZEL_CORE_TERM_SUCCESS;
    if (const u32 refusal = zel_ovlin_session_handler_set_session_type(ovlin_flow_type, pcep_id, session_type))
        return report(site, refusal, "zel_ovlin_session_handler_set_session_type");
    return ZEL_CORE_TERM_SUCCESS;
}

} // namespace zel
