#include "zel_core_term/zel_ovlin_session_handler.h"

uint32_t zel_ovlin_session_handler_set_session_type(uint64_t, uint32_t, uint32_t)
{
    return ZEL_CORE_TERM_SUCCESS;
}

uint32_t zel_ovlin_session_handler_5gc_session_enable(...)
{
    return ZEL_CORE_TERM_SUCCESS;
}

uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping(...)
{
    return ZEL_CORE_TERM_SUCCESS;
}

uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove(...)
{
    return ZEL_CORE_TERM_SUCCESS;
}

uint32_t zel_ovlin_5gc_session_stats_get(...)
{
    return ZEL_CORE_TERM_SUCCESS;
}
