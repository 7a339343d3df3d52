/**
 * @file
 * Ovlin session handler: entry points that keep no state and do nothing here. A definition of the same name that the
 * dynamic linker finds first replaces the library's own, for the library's calls too. They may be called from any
 * thread.
 *
 * The library also exports zel_ovlin_session_handler_5gc_session_enable(),
 * zel_ovlin_session_handler_5gc_qfi_dscp_mapping(), zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove() and
 * zel_ovlin_5gc_session_stats_get(), which read no argument and return 0. No header declares them: the caller does,
 * with whatever parameters it passes.
 */
#ifndef ZEL_CORE_TERM_ZEL_OVLIN_SESSION_HANDLER_H
#define ZEL_CORE_TERM_ZEL_OVLIN_SESSION_HANDLER_H

#include <stdint.h>

#include "zel_term_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the session type of a PCEP. The library calls it before the binds in the sending direction of an endpoint whose
 * session-type flag is set, and treats a result other than 0 as a failure of that bind.
 *
 * @param ovlin_flow_type the handle block's ovlin_flow_type
 * @param pcep_id         the PCEP
 * @param session_type    1: L2TP, 2: UDP
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_ovlin_session_handler_set_session_type(uint64_t ovlin_flow_type, uint32_t pcep_id,
                                                                      uint32_t session_type);

#ifdef __cplusplus
}
#endif

#endif
