#include <cstring>

#include "term/platform.h"
#include "term/zel_trace.h"
#include "zel_core_term/zel_l2tp_control_connection.h"
#include "zel_core_term/zel_l2tp_session.h"

#define ZEL_MODULE "zel_l2tp"
#define TRACE_API_CALL(name)                                                                                           \
    ZEL_TRACE(tn_zel_term, API_CALL, ZEL_HERE, category::l2tp_control_connection, "%s(): ", name)

using namespace zel;

ovlin_capabilities_t ovlin_capabilities;

static void clear_tables()
{
    std::memset(l2tp_control_table, 0, sizeof l2tp_control_table);
    std::memset(l2tp_session_table, 0, sizeof l2tp_session_table);
}

u32 zel_l2tp_start()
{
    const traced_function traced(ZEL_HERE, category::l2tp_control_connection);
    clear_tables();
    zel_handles = zel_getHandles();
    TRACE_API_CALL("zel_l2tp_reset_ip_associations_handling");
    zel_l2tp_reset_ip_associations_handling();
    TRACE_API_CALL("zel_core_ic_ovlin_capabilities_get");
    if (const u32 result = zel_core_ic_ovlin_capabilities_get(&ovlin_capabilities))
        return report(ZEL_HERE, result, "zel_core_ic_ovlin_capabilities_get");
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_l2tp_stop()
{
    const traced_function traced(ZEL_HERE, category::l2tp_control_connection);
    clear_tables();
    TRACE_API_CALL("zel_l2tp_reset_ip_associations_handling");
    zel_l2tp_reset_ip_associations_handling();
    zel_handles = nullptr;
    return ZEL_CORE_TERM_SUCCESS;
}
