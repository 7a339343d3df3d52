#include "zel_core_ic.h"

#include <stddef.h>

enum { null_argument = 2 };

/* As much as an ovlin flow ID can carry: 20 bits of session id, 12 bits of PCEP id. */
uint32_t zel_core_ic_ovlin_capabilities_get(ovlin_capabilities_t *capabilities)
{
    static const ovlin_capabilities_t everything = {
        .max_rat_ovlin_session_id = 0xFFFFF,
        .max_tn_pcep_id = 0xFFF,
    };

    if (capabilities == NULL)
        return null_argument;
    *capabilities = everything;
    return 0;
}
