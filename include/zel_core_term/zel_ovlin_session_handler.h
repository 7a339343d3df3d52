/**
 * @file
 * Ovlin session handler: entry points that keep no state and do nothing here. A definition of the same name that
 * the dynamic linker binds first takes the place of the library's own, also for the library's own calls.
 * They may be called from any thread.
 */
#ifndef ZEL_CORE_TERM_ZEL_OVLIN_SESSION_HANDLER_H
#define ZEL_CORE_TERM_ZEL_OVLIN_SESSION_HANDLER_H

#include <stdint.h>

#include "zel_term_api.h"

/* A parameter list that belongs to the outside callers: anything may be passed and nothing is read. */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)
#define ZEL_ANY_ARGUMENTS ...
#else
#define ZEL_ANY_ARGUMENTS
#endif

#ifdef __cplusplus
extern "C" {
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
#endif

/**
 * Sets the session type of a PCEP. The library calls it before the binds that sending needs of an endpoint whose
 * session-type flag is set, and takes a result other than 0 as the failure of that bind.
 *
 * @param ovlin_flow_type the handle block's ovlin_flow_type
 * @param pcep_id         the PCEP
 * @param session_type    1: L2TP, 2: UDP
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_set_session_type(uint64_t ovlin_flow_type, uint32_t pcep_id,
                                                                      uint32_t session_type);

/** Enables a 5GC session. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_session_enable(ZEL_ANY_ARGUMENTS);

/** Adds a QFI-to-DSCP mapping. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping(ZEL_ANY_ARGUMENTS);

/** Removes a QFI-to-DSCP mapping. @return 0 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove(ZEL_ANY_ARGUMENTS);

/** Gets 5GC session statistics. @return 0, nothing written */
ZEL_CORE_TERM_API uint32_t zel_ovlin_5gc_session_stats_get(ZEL_ANY_ARGUMENTS);

#ifdef __cplusplus
}
#else
#pragma GCC diagnostic pop
#endif

#undef ZEL_ANY_ARGUMENTS

#endif
