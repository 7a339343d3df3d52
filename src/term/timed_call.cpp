#include "term/timed_call.h"

#include "term/platform.h"

namespace zel {

void report_delay(trace_site site, const char *description, u64 start, u64 end)
{
    ZEL_TRACE(tn_zel_term, EXCEPTION, site, category::session_api_delay, "%s(): ",
              "WARNING: too large VOK delay=%lu,start_time=%lu, end_time=%lu, detected for %s, "
              "continue normal processing.",
              end - start, start, end, description);
}

void report_failure(trace_site site, const char *description, u32 status)
{
    u64 system_handle = 0;
    vok_syshandle_get(0, 1, &system_handle);
    ZEL_TRACE(tn_zel_term, EXCEPTION, site, category::general, "%s(): ", "%s, %s",
              vok_sys_status_get(system_handle, status), description);
}

} // namespace zel
