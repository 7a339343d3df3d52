/**
 * @file
 * The entry points of the session handler that outside callers declare for themselves.
 */
#include "zel_core_term/zel_ovlin_session_handler.h"

uint32_t zel_ovlin_session_handler_set_session_type(uint64_t, uint32_t, uint32_t)
{
    return ZEL_CORE_TERM_SUCCESS;
}

// No header declares the others: callers do, with whatever parameters they pass.
extern "C" {

/** Enables a 5GC session. Reads no argument. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_session_enable()
{
    return ZEL_CORE_TERM_SUCCESS;
}

/** Adds a QFI-to-DSCP mapping. Reads no argument. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping()
{
    return ZEL_CORE_TERM_SUCCESS;
}

/** Removes a QFI-to-DSCP mapping. Reads no argument. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove()
{
    return ZEL_CORE_TERM_SUCCESS;
}

/** Gets 5GC session statistics. Reads no argument. @return 0, nothing written */
ZEL_CORE_TERM_API uint32_t zel_ovlin_5gc_session_stats_get()
{
    return ZEL_CORE_TERM_SUCCESS;
}

} // extern "C"
