/**
 * @file
 * The interconnect component, as far as the termination component uses it.
 */
#ifndef ZEL_CORE_IC_H
#define ZEL_CORE_IC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What the ovlin side accepts. */
typedef struct ovlin_capabilities_t {
    uint32_t max_rat_ovlin_session_id; /**< largest RAT-side ovlin session id */
    uint32_t max_tn_pcep_id;           /**< largest PCEP id */
    uint8_t reserved_08[8];            /**< the interconnect component's own; not read by this family's users */
} ovlin_capabilities_t;

/**
 * Reads the ovlin capabilities.
 *
 * @param capabilities receives the 16 bytes on success
 * @return 0, or a result code of the family
 */
uint32_t zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *capabilities);

#ifdef __cplusplus
}
#endif

#endif
