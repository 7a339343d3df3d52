/* A data plane as another maker would declare it: without const, and with names of its own where none are settled. */
#pragma once
#include <stdint.h>

struct vok_bind_record {
    uint32_t bindKind, direction, param08, pad0c;
    uint64_t srcTypeHandle, srcFlowHandle;
    uint32_t srcFlowID, srcSessionType;
    uint64_t dstTypeHandle, destFlowHandle;
    uint32_t dstFlowID, dstSessionType;
    uint8_t pad40[20], param54, pad55[3];
    uint64_t dscpRef;
};

struct vok_ip_ingress_record {
    uint16_t rulesMask;
    uint8_t pad02[14];
    uint32_t ipVrdId;
    uint8_t pad14[12];
    uint32_t dstAddr, dstPrefixLen, srcAddr, srcPrefixLen;
    uint8_t prot;
    uint16_t dstPort, srcPort;
    uint32_t param38;
    uint8_t pad3c[68];
};

struct vok_ip_egress_record {
    uint16_t rulesMask;
    uint8_t pad02[14];
    uint32_t ipVrdId, dstAddr, srcAddr;
    uint8_t prot;
    uint16_t dstPort, srcPort;
    uint8_t pad22[14];
    uint32_t mtu;
    uint8_t pad34, ttl, pad36[2];
};

struct vok_ipv6_ingress_record {
    uint16_t rulesMask;
    uint8_t pad02[14];
    uint32_t ipVrdId;
    uint8_t pad14[16], nextHeader;
    uint16_t srcPort, dstPort;
    uint8_t pad2a[6];
    uint32_t srcAddr[4];
    uint8_t srcPrefixLen;
    uint32_t dstAddr[4];
    uint8_t dstPrefixLen, pad55[91];
};

#pragma pack(push, 1)
struct vok_ipv6_egress_record {
    uint8_t param00, pad01[8];
    uint32_t ipVrdId;
    uint8_t srcAddr[16], dstAddr[16], hopLimit, pad2e[5], nextHeader;
    uint16_t mtu, srcPort, dstPort;
    uint8_t param3a;
};
#pragma pack(pop)

struct foreign_flow {
    uint64_t flow_type, interface_handle;
    uint32_t id;
};

#ifdef __cplusplus
extern "C" {
#else
typedef struct vok_bind_record vok_bind_record;
typedef struct vok_ip_ingress_record vok_ip_ingress_record;
typedef struct vok_ip_egress_record vok_ip_egress_record;
typedef struct vok_ipv6_ingress_record vok_ipv6_ingress_record;
typedef struct vok_ipv6_egress_record vok_ipv6_egress_record;
#endif

int32_t vok_ip_ingress_association_create(uint64_t, vok_ip_ingress_record *, uint64_t *);
int32_t vok_ip_egress_association_create(uint64_t, vok_ip_egress_record *, uint64_t *);
int32_t vok_ipv6_ingress_association_create(uint64_t, vok_ipv6_ingress_record *, uint64_t *);
int32_t vok_ipv6_egress_association_create(uint64_t, vok_ipv6_egress_record *, uint64_t *);
int32_t vok_ip_ingress_association_delete(uint64_t, uint64_t);
int32_t vok_ip_egress_association_delete(uint64_t, uint64_t);
int32_t vok_ipv6_ingress_association_delete(uint64_t, uint64_t);
int32_t vok_ipv6_egress_association_delete(uint64_t, uint64_t);
int32_t vok_ipv6_egress_association_attr_modify(uint64_t, vok_ipv6_egress_record *, uint64_t);
int32_t vok_ip_ingress_association_stats_get(uint64_t, uint64_t, void *);
int32_t vok_ip_egress_association_stats_get(uint64_t, uint64_t, void *);
int32_t vok_ipv6_ingress_association_statistics_get(uint64_t, uint64_t, void *);
int32_t vok_ipv6_egress_association_statistics_get(uint64_t, uint64_t, void *);
int32_t vok_l2tpv3_ingress_interface_add(uint64_t, uint32_t *, uint64_t *);
int32_t vok_l2tpv3_ingress_flow_create(uint64_t, struct foreign_flow *, uint64_t *);
int32_t vok_l2tpv3_egress_flow_create(uint64_t, uint64_t *, uint64_t *);
int32_t vok_l2tpv3_ingress_flow_delete(uint64_t, uint64_t);
int32_t vok_l2tpv3_egress_flow_delete(uint64_t, uint64_t);
int32_t vok_bind(uint64_t, vok_bind_record *);
int32_t vok_unbind(uint64_t, vok_bind_record *);
int32_t vok_syshandle_get(uint64_t, uint64_t, uint64_t *);
char *vok_sys_status_get(uint64_t, int32_t);

#ifdef __cplusplus
}
#endif
