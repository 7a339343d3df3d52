/* Another data plane in the stand-in's place: says what is called, and answers 0. */
#include <inttypes.h>
#include <stdio.h>

static uint64_t last_handle = 70;

#define CREATE(operation)                                                                                              \
    uint32_t operation(uint64_t type, const void *record, uint64_t *handle)                                            \
    {                                                                                                                  \
        (void)type, (void)record;                                                                                      \
        printf(#operation ": %" PRIu64 "\n", *handle = ++last_handle);                                                 \
        return 0;                                                                                                      \
    }

#define ON_HANDLE(operation)                                                                                           \
    uint32_t operation(uint64_t type, uint64_t handle)                                                                 \
    {                                                                                                                  \
        (void)type;                                                                                                    \
        printf(#operation ": %" PRIu64 "\n", handle);                                                                  \
        return 0;                                                                                                      \
    }

#define OTHER(operation)                                                                                               \
    uint32_t operation(void)                                                                                           \
    {                                                                                                                  \
        puts(#operation);                                                                                              \
        return 0;                                                                                                      \
    }

CREATE(vok_ip_ingress_association_create)
CREATE(vok_ip_egress_association_create)
CREATE(vok_ipv6_ingress_association_create)
CREATE(vok_ipv6_egress_association_create)
CREATE(vok_l2tpv3_ingress_interface_add)
CREATE(vok_l2tpv3_ingress_flow_create)
CREATE(vok_l2tpv3_egress_flow_create)

ON_HANDLE(vok_ip_ingress_association_delete)
ON_HANDLE(vok_ip_egress_association_delete)
ON_HANDLE(vok_ipv6_ingress_association_delete)
ON_HANDLE(vok_ipv6_egress_association_delete)
ON_HANDLE(vok_l2tpv3_ingress_flow_delete)
ON_HANDLE(vok_l2tpv3_egress_flow_delete)

OTHER(vok_bind)
OTHER(vok_unbind)
OTHER(vok_ip_ingress_association_stats_get)
OTHER(vok_ip_egress_association_stats_get)
OTHER(vok_ipv6_ingress_association_statistics_get)
OTHER(vok_ipv6_egress_association_statistics_get)
OTHER(vok_ipv6_egress_association_attr_modify)
OTHER(vok_syshandle_get)
OTHER(vok_sys_status_get)
