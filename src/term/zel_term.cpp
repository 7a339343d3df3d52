#include "zel_core_term/zel_term.h"

#include "term/platform.h"
#include "term/steps.h"
#include "term/tick.h"
#include "term/zel_trace.h"
#include "zel_core_term/zel_l2tp_control_connection.h"
#include "zel_core_term/zel_udp_session.h"

#define ZEL_MODULE "zel_term"

using namespace zel;

static zel_handles_t handle_block;

zel_handles_t *zel_handles;

static u32 attach()
{
    return zel_init_attach(&handle_block);
}

u32 zel_core_term_start()
{
    static constexpr step<> steps[] = {
        {"zel_init_attach", attach},
        {"zel_udp_session_start", zel_udp_session_start},
        {"zel_l2tp_start", zel_l2tp_start},
    };

    const traced_function traced(ZEL_HERE, category::general);
    const u32 result = run_until_failure(ZEL_HERE, steps);
    if (result != ZEL_CORE_TERM_SUCCESS)
        ZEL_TRACE(tn_zel_term, EXCEPTION, ZEL_HERE, category::general, "%s(): ", "zel_core_term_start failed");
    return result;
}

u32 zel_core_term_stop()
{
    if (const u32 result = zel_l2tp_stop())
        return report(ZEL_HERE, result, "zel_l2tp_stop");
    if (const u32 result = zel_udp_session_stop())
        return report(ZEL_HERE, result, "zel_udp_session_stop");
    handle_block = {};
    return ZEL_CORE_TERM_SUCCESS;
}

zel_handles_t *zel_getHandles()
{
    return &handle_block;
}

u64 zel_core_term_time_get()
{
    return read_ticks();
}

u32 zel_core_term_clock_freq_get(u64 *freq_hz)
{
    *freq_hz = tick_frequency_hz;
    return ZEL_CORE_TERM_SUCCESS;
}

void zel_tracepoint()
{
}
