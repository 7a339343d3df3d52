/**
 * @file
 * The data-plane acceleration library: IP associations with their counters, L2TPv3 flows, and the bindings that
 * join them to each other and to ovlin flows.
 *
 * Every operation returns a 32-bit status, 0 for success; vok_sys_status_get() gives the text of any
 * other. Records are passed by address and read during the call only. All fields are in the machine's
 * byte order; IP addresses are host-order 32-bit words. Reserved bytes must be zero.
 */
#ifndef VOK_CP_H
#define VOK_CP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What a binding joins: vok_bind_record.bindKind. */
enum {
    VOK_BIND_F2F = 3,  /**< flow to flow */
    VOK_BIND_F2ID = 5, /**< flow to ovlin flow ID */
    VOK_BIND_ID2F = 6  /**< ovlin flow ID to flow */
};

/** vok_bind_record.direction */
enum { VOK_INGRESS = 1, VOK_EGRESS = 2 };

/** vok_bind_record.srcSessionType and .dstSessionType */
enum { VOK_SESSION_TYPE_L2TP = 1, VOK_SESSION_TYPE_UDP = 2 };

/** A binding; the argument of vok_bind() and vok_unbind(). A side is either a handle or an ovlin flow ID. */
typedef struct vok_bind_record {
    uint32_t bindKind;
    uint32_t direction;
    uint32_t param08; /**< 1 */
    uint8_t reserved_0c[4];
    uint64_t srcTypeHandle;
    uint64_t srcFlowHandle; /**< 0 when the source is an ovlin flow ID */
    uint32_t srcFlowID;     /**< 0 when the source is a handle */
    uint32_t srcSessionType;
    uint64_t dstTypeHandle;
    uint64_t destFlowHandle; /**< 0 when the destination is an ovlin flow ID */
    uint32_t dstFlowID;      /**< 0 when the destination is a handle */
    uint32_t dstSessionType; /**< equals srcSessionType */
    uint8_t reserved_40[20];
    uint8_t param54; /**< 1 */
    uint8_t reserved_55[3];
    uint64_t dscpRef; /**< address of a byte with the binding's DSCP, or 0; 0 in an unbind */
} vok_bind_record;

/** The received IPv4 packets that an ingress association matches. */
typedef struct vok_ip_ingress_record {
    uint16_t rulesMask;
    uint8_t reserved_02[14];
    uint32_t ipVrdId;
    uint8_t reserved_14[12];
    uint32_t dstAddr; /**< local address */
    uint32_t dstPrefixLen;
    uint32_t srcAddr; /**< remote address */
    uint32_t srcPrefixLen;
    uint8_t prot;
    uint8_t reserved_31[1];
    uint16_t dstPort; /**< local port; 0 when unset */
    uint16_t srcPort; /**< remote port; 0 when unset */
    uint8_t reserved_36[2];
    uint32_t param38; /**< 1 */
    uint8_t reserved_3c[68];
} vok_ip_ingress_record;

/** The header fields of the IPv4 packets that an egress association sends. */
typedef struct vok_ip_egress_record {
    uint16_t rulesMask;
    uint8_t reserved_02[14];
    uint32_t ipVrdId;
    uint32_t dstAddr; /**< remote address */
    uint32_t srcAddr; /**< local address */
    uint8_t prot;     /**< 0 when unset */
    uint8_t reserved_1d[1];
    uint16_t dstPort; /**< remote port */
    uint16_t srcPort; /**< local port */
    uint8_t reserved_22[14];
    uint32_t mtu; /**< bytes; 0 when unset */
    uint8_t reserved_34[1];
    uint8_t ttl; /**< 0 when unset */
    uint8_t reserved_36[2];
} vok_ip_egress_record;

/**
 * The received IPv6 packets that an ingress association matches. Source comes before destination. An address is its
 * four 32-bit words, each in host order, in their order in the address.
 */
typedef struct vok_ipv6_ingress_record {
    uint16_t rulesMask;
    uint8_t reserved_02[14];
    uint32_t ipVrdId;
    uint8_t reserved_14[16];
    uint8_t nextHeader;
    uint8_t reserved_25[1];
    uint16_t srcPort; /**< remote port */
    uint16_t dstPort; /**< local port */
    uint8_t reserved_2a[6];
    uint8_t srcAddr[16]; /**< remote address */
    uint8_t srcPrefixLen;
    uint8_t reserved_41[3];
    uint8_t dstAddr[16]; /**< local address */
    uint8_t dstPrefixLen;
    uint8_t reserved_55[91];
} vok_ipv6_ingress_record;

/** The header fields of the IPv6 packets that an egress association sends. No alignment padding. */
typedef struct __attribute__((packed)) vok_ipv6_egress_record {
    uint8_t param00; /**< 1 */
    uint8_t reserved_01[8];
    uint32_t ipVrdId;
    uint8_t srcAddr[16]; /**< local address, as in the ingress record */
    uint8_t dstAddr[16]; /**< remote address */
    uint8_t hopLimit;
    uint8_t reserved_2e[5];
    uint8_t nextHeader; /**< 17 in a create, 0 in an attribute modify */
    uint16_t mtu;       /**< path MTU in bytes */
    uint16_t srcPort;   /**< local port */
    uint16_t dstPort;   /**< remote port */
    uint8_t param3a;    /**< 0x40 */
} vok_ipv6_egress_record;

/** The L2TPv3 ingress interface. */
typedef struct vok_l2tpv3_ingress_interface_record {
    uint32_t param00; /**< 0 */
} vok_l2tpv3_ingress_interface_record;

/** flowType of L2TPv3 flow records */
enum { VOK_L2TPV3_SESSION_WITH_CRC = 1, VOK_L2TPV3_SESSION = 2, VOK_L2TPV3_CONTROL_CONNECTION = 3 };

/** The received L2TPv3 packets of one control connection or one session. */
typedef struct vok_l2tpv3_ingress_flow_record {
    uint8_t flowType;
    uint8_t reserved_01[7];
    uint64_t ingressInterfaceHandle;
    uint32_t identifier; /**< control connection id or local session id, as flowType says */
    uint8_t reserved_14[4];
} vok_l2tpv3_ingress_flow_record;

/** The sending side of one L2TPv3 session. */
typedef struct vok_l2tpv3_egress_flow_record {
    uint8_t flowType; /**< that of the session's ingress flow */
    uint8_t reserved_01[7];
} vok_l2tpv3_egress_flow_record;

/** The counters of an IPv4 association, either way. */
typedef struct vok_ip_association_stats {
    uint64_t packets;
    uint64_t octets;
    uint8_t reserved_10[16];
} vok_ip_association_stats;

/** The counters of an IPv6 ingress association; both start again from 0 after 2^32 - 1. */
typedef struct vok_ipv6_ingress_association_stats {
    uint32_t packets;
    uint32_t octets;
} vok_ipv6_ingress_association_stats;

/** The counter of an IPv6 egress association; it starts again from 0 after 2^32 - 1. */
typedef struct vok_ipv6_egress_association_stats {
    uint32_t packets;
} vok_ipv6_egress_association_stats;

/**
 * Creates an association.
 *
 * @param type   the type handle of the address family, from the handle block
 * @param record what to match or to send
 * @param handle receives the association's handle, never 0, on success
 */
uint32_t vok_ip_ingress_association_create(uint64_t type, const vok_ip_ingress_record *record, uint64_t *handle);
uint32_t vok_ip_egress_association_create(uint64_t type, const vok_ip_egress_record *record, uint64_t *handle);
uint32_t vok_ipv6_ingress_association_create(uint64_t type, const vok_ipv6_ingress_record *record, uint64_t *handle);
uint32_t vok_ipv6_egress_association_create(uint64_t type, const vok_ipv6_egress_record *record, uint64_t *handle);

/**
 * Deletes an association.
 *
 * @param type   the type handle of the address family
 * @param handle the association
 */
uint32_t vok_ip_ingress_association_delete(uint64_t type, uint64_t handle);
uint32_t vok_ip_egress_association_delete(uint64_t type, uint64_t handle);
uint32_t vok_ipv6_ingress_association_delete(uint64_t type, uint64_t handle);
uint32_t vok_ipv6_egress_association_delete(uint64_t type, uint64_t handle);

/**
 * Replaces the attributes of an existing IPv6 egress association with the record's. Its handle and the
 * bindings that use it stay valid.
 */
uint32_t vok_ipv6_egress_association_attr_modify(uint64_t type, const vok_ipv6_egress_record *record, uint64_t handle);

/**
 * Reads an association's counters.
 *
 * @param type   the type handle of the address family
 * @param handle the association
 * @param stats  receives its counters on success
 */
uint32_t vok_ip_ingress_association_stats_get(uint64_t type, uint64_t handle, vok_ip_association_stats *stats);
uint32_t vok_ip_egress_association_stats_get(uint64_t type, uint64_t handle, vok_ip_association_stats *stats);
uint32_t vok_ipv6_ingress_association_statistics_get(uint64_t type, uint64_t handle,
                                                     vok_ipv6_ingress_association_stats *stats);
uint32_t vok_ipv6_egress_association_statistics_get(uint64_t type, uint64_t handle,
                                                    vok_ipv6_egress_association_stats *stats);

/**
 * Adds the L2TPv3 ingress interface, the receiving end of IPv4 ingress associations that carry L2TPv3; or creates an
 * L2TPv3 flow.
 *
 * @param type   the handle block's l2tpv3_flow_type
 * @param handle receives the object's handle, never 0, on success
 */
uint32_t vok_l2tpv3_ingress_interface_add(uint64_t type, const vok_l2tpv3_ingress_interface_record *record,
                                          uint64_t *handle);
uint32_t vok_l2tpv3_ingress_flow_create(uint64_t type, const vok_l2tpv3_ingress_flow_record *record, uint64_t *handle);
uint32_t vok_l2tpv3_egress_flow_create(uint64_t type, const vok_l2tpv3_egress_flow_record *record, uint64_t *handle);

/** Deletes an L2TPv3 flow. */
uint32_t vok_l2tpv3_ingress_flow_delete(uint64_t type, uint64_t handle);
uint32_t vok_l2tpv3_egress_flow_delete(uint64_t type, uint64_t handle);

/**
 * Makes the binding that the record describes, or removes the one of the same kind, direction, source and
 * destination.
 *
 * @param instance the handle block's vok_instance
 */
uint32_t vok_bind(uint64_t instance, const vok_bind_record *record);
uint32_t vok_unbind(uint64_t instance, const vok_bind_record *record);

/**
 * Delivers the system handle that vok_sys_status_get() takes.
 *
 * @param first  0
 * @param second 1
 * @param handle receives the system handle
 */
uint32_t vok_syshandle_get(uint32_t first, uint32_t second, uint64_t *handle);

/** A constant NUL-terminated text that describes a status, never NULL. */
const char *vok_sys_status_get(uint64_t system_handle, uint32_t status);

#ifdef __cplusplus
}
#endif

#endif
