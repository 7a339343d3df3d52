/* The libraries beside the data plane, each built with its own name defined. */
#include "kiv_util.h"
#include "zel_core_ic.h"
#include "zel_fmt.h"
#include "zel_init.h"

#ifdef zel_init
uint32_t zel_init_attach(zel_handles_t *block)
{
    block->vok_instance = 1;
    return 0;
}
#endif

#ifdef zel_core_ic
uint32_t zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *capabilities)
{
    capabilities->max_rat_ovlin_session_id = capabilities->max_tn_pcep_id = 100;
    return 0;
}
#endif

#ifdef kiv_util
const char *kiv_util_init_rc_str_get(uint32_t code)
{
    return code == 0 ? "fine" : "not fine";
}
#endif

#ifdef zel_fmt
#define FORMAT(formatter)                                                                                              \
    void formatter(char *text, uint32_t size, uint8_t option, const void *counters)                                    \
    {                                                                                                                  \
        (void)text, (void)size, (void)option, (void)counters;                                                          \
    }

FORMAT(zel_fmt_ipv4_ingress_assoc_stats)
FORMAT(zel_fmt_ipv4_egress_assoc_stats)
FORMAT(zel_fmt_ipv6_ingress_assoc_stats)
FORMAT(zel_fmt_ipv6_egress_assoc_stats)

uint32_t zel_fmt_end(char *text, uint32_t size)
{
    (void)text, (void)size;
    return 0;
}
#endif
