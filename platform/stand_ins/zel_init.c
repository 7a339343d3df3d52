#include "zel_init.h"

#include <string.h>

#include "vok_cp_sim.h"

enum { null_argument = 2 };

/* Every slot gets a value of its own, so that a reader of the wrong slot is noticed. */
uint32_t zel_init_attach(zel_handles_t *block)
{
    uint64_t slots[sizeof *block / sizeof(uint64_t)];

    if (block == NULL)
        return null_argument;
    for (size_t i = 0; i < sizeof slots / sizeof slots[0]; ++i)
        slots[i] = UINT64_C(0x1c00000000000000) + i;
    memcpy(block, slots, sizeof *block);
    block->vok_instance = VOK_CP_SIM_INSTANCE;
    block->ipv4_association_type = VOK_CP_SIM_IPV4_ASSOCIATION_TYPE;
    block->ipv6_association_type = VOK_CP_SIM_IPV6_ASSOCIATION_TYPE;
    block->l2tpv3_flow_type = VOK_CP_SIM_L2TPV3_FLOW_TYPE;
    block->ovlin_flow_type = VOK_CP_SIM_OVLIN_FLOW_TYPE;
    return 0;
}
