#pragma once
#include <stdint.h>

typedef struct zel_handles_t {
    uint64_t vok_instance, others_1[9], ipv4_association_type, ipv6_association_type, others_12[2], l2tpv3_flow_type,
        others_15[2], ovlin_flow_type, others_18[4];
} zel_handles_t;

#ifdef __cplusplus
extern "C"
#endif
    uint32_t
    zel_init_attach(zel_handles_t *);
