/* Says what is called, and answers 0. */
#include "vok_cp.h"

#include <inttypes.h>
#include <stdio.h>

static uint64_t last_handle = 70;

#define CREATE(operation, record)                                                                                      \
    int32_t operation(uint64_t type, record *described, uint64_t *handle)                                              \
    {                                                                                                                  \
        (void)type, (void)described;                                                                                   \
        printf(#operation ": %" PRIu64 "\n", *handle = ++last_handle);                                                 \
        return 0;                                                                                                      \
    }

#define DELETE(operation)                                                                                              \
    int32_t operation(uint64_t type, uint64_t handle)                                                                  \
    {                                                                                                                  \
        (void)type;                                                                                                    \
        printf(#operation ": %" PRIu64 "\n", handle);                                                                  \
        return 0;                                                                                                      \
    }

#define READ(operation)                                                                                                \
    int32_t operation(uint64_t type, uint64_t handle, void *counters)                                                  \
    {                                                                                                                  \
        (void)type, (void)counters;                                                                                    \
        printf(#operation ": %" PRIu64 "\n", handle);                                                                  \
        return 0;                                                                                                      \
    }

CREATE(vok_ip_ingress_association_create, vok_ip_ingress_record)
CREATE(vok_ip_egress_association_create, vok_ip_egress_record)
CREATE(vok_ipv6_ingress_association_create, vok_ipv6_ingress_record)
CREATE(vok_ipv6_egress_association_create, vok_ipv6_egress_record)
CREATE(vok_l2tpv3_ingress_interface_add, uint32_t)
CREATE(vok_l2tpv3_ingress_flow_create, struct foreign_flow)
CREATE(vok_l2tpv3_egress_flow_create, uint64_t)

DELETE(vok_ip_ingress_association_delete)
DELETE(vok_ip_egress_association_delete)
DELETE(vok_ipv6_ingress_association_delete)
DELETE(vok_ipv6_egress_association_delete)
DELETE(vok_l2tpv3_ingress_flow_delete)
DELETE(vok_l2tpv3_egress_flow_delete)
READ(vok_ip_ingress_association_stats_get)
READ(vok_ip_egress_association_stats_get)
READ(vok_ipv6_ingress_association_statistics_get)
READ(vok_ipv6_egress_association_statistics_get)

int32_t vok_ipv6_egress_association_attr_modify(uint64_t type, vok_ipv6_egress_record *described, uint64_t handle)
{
    (void)type;
    printf("vok_ipv6_egress_association_attr_modify: %" PRIu64 ", mtu %d\n", handle, described->mtu);
    return 0;
}

int32_t vok_bind(uint64_t instance, vok_bind_record *binding)
{
    printf("vok_bind %" PRIu64 ": %#" PRIx32 " %" PRIu64 " -> %#" PRIx32 " %" PRIu64 "\n", instance, binding->srcFlowID,
           binding->srcFlowHandle, binding->dstFlowID, binding->destFlowHandle);
    return 0;
}

int32_t vok_unbind(uint64_t instance, vok_bind_record *binding)
{
    printf("vok_unbind %" PRIu64 ": %#" PRIx32 " %" PRIu64 " -> %#" PRIx32 " %" PRIu64 "\n", instance,
           binding->srcFlowID, binding->srcFlowHandle, binding->dstFlowID, binding->destFlowHandle);
    return 0;
}

int32_t vok_syshandle_get(uint64_t first, uint64_t second, uint64_t *handle)
{
    *handle = first + second;
    return 0;
}

char *vok_sys_status_get(uint64_t system_handle, int32_t status)
{
    static char text[] = "refused";
    (void)system_handle, (void)status;
    return text;
}
