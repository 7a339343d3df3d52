#pragma once
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

void zel_fmt_ipv4_ingress_assoc_stats(char *, uint32_t, uint8_t, const void *);
void zel_fmt_ipv4_egress_assoc_stats(char *, uint32_t, uint8_t, const void *);
void zel_fmt_ipv6_ingress_assoc_stats(char *, uint32_t, uint8_t, const void *);
void zel_fmt_ipv6_egress_assoc_stats(char *, uint32_t, uint8_t, const void *);
uint32_t zel_fmt_end(char *, uint32_t);

#ifdef __cplusplus
}
#endif
