#pragma once
#include <stdint.h>

typedef struct ovlin_capabilities_t {
    uint32_t max_rat_ovlin_session_id, max_tn_pcep_id;
    uint64_t others;
} ovlin_capabilities_t;

#ifdef __cplusplus
extern "C"
#endif
    uint32_t
    zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *);
