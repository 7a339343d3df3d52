#include "vok_cp.h"
#include "vok_cp_null.h"

static uint64_t last_handle;
static uint64_t calls;
static uint32_t calls_until_failure;
static uint32_t (*asked)(void);

uint64_t vok_cp_null_calls(void)
{
    return calls;
}

void vok_cp_null_fail(uint32_t call)
{
    calls_until_failure = call;
}

void vok_cp_null_ask(uint32_t (*answer)(void))
{
    asked = answer;
}

static uint32_t answer(void)
{
    ++calls;
    if (asked != 0)
        return asked();
    return calls_until_failure != 0 && --calls_until_failure == 0 ? VOK_CP_NULL_FAILED : 0;
}

#define CREATE(operation, record_type)                                                                                 \
    uint32_t operation(uint64_t type, const record_type *record, uint64_t *handle)                                     \
    {                                                                                                                  \
        (void)type, (void)record;                                                                                      \
        const uint32_t status = answer();                                                                              \
        if (status == 0)                                                                                               \
            *handle = ++last_handle;                                                                                   \
        return status;                                                                                                 \
    }

#define DELETE(operation)                                                                                              \
    uint32_t operation(uint64_t type, uint64_t handle)                                                                 \
    {                                                                                                                  \
        (void)type, (void)handle;                                                                                      \
        return answer();                                                                                               \
    }

#define READ_STATS(operation, stats_type) /* NOLINTNEXTLINE(bugprone-macro-parentheses): a type */                     \
    uint32_t operation(uint64_t type, uint64_t handle, stats_type *stats)                                              \
    {                                                                                                                  \
        (void)type, (void)handle, (void)stats;                                                                         \
        return answer();                                                                                               \
    }

CREATE(vok_ip_ingress_association_create, vok_ip_ingress_record)
CREATE(vok_ip_egress_association_create, vok_ip_egress_record)
CREATE(vok_ipv6_ingress_association_create, vok_ipv6_ingress_record)
CREATE(vok_ipv6_egress_association_create, vok_ipv6_egress_record)
CREATE(vok_l2tpv3_ingress_interface_add, vok_l2tpv3_ingress_interface_record)
CREATE(vok_l2tpv3_ingress_flow_create, vok_l2tpv3_ingress_flow_record)
CREATE(vok_l2tpv3_egress_flow_create, vok_l2tpv3_egress_flow_record)

DELETE(vok_ip_ingress_association_delete)
DELETE(vok_ip_egress_association_delete)
DELETE(vok_ipv6_ingress_association_delete)
DELETE(vok_ipv6_egress_association_delete)
DELETE(vok_l2tpv3_ingress_flow_delete)
DELETE(vok_l2tpv3_egress_flow_delete)

READ_STATS(vok_ip_ingress_association_stats_get, vok_ip_association_stats)
READ_STATS(vok_ip_egress_association_stats_get, vok_ip_association_stats)
READ_STATS(vok_ipv6_ingress_association_statistics_get, vok_ipv6_ingress_association_stats)
READ_STATS(vok_ipv6_egress_association_statistics_get, vok_ipv6_egress_association_stats)

uint32_t vok_ipv6_egress_association_attr_modify(uint64_t type, const vok_ipv6_egress_record *record, uint64_t handle)
{
    (void)type, (void)record, (void)handle;
    return answer();
}

uint32_t vok_bind(uint64_t instance, const vok_bind_record *record)
{
    (void)instance, (void)record;
    return answer();
}

uint32_t vok_unbind(uint64_t instance, const vok_bind_record *record)
{
    (void)instance, (void)record;
    return answer();
}

uint32_t vok_syshandle_get(uint32_t first, uint32_t second, uint64_t *handle)
{
    (void)first, (void)second;
    *handle = 1;
    return 0;
}

const char *vok_sys_status_get(uint64_t system_handle, uint32_t status)
{
    (void)system_handle;
    return status == 0 ? "ok" : "failed";
}
