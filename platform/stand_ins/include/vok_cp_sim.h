/**
 * @file
 * The stand-in data plane from the side of whoever tests against it: look at what it holds, watch each
 * call, and answer in its place. Only the stand-in libvok_cp has these functions; the real one does not.
 *
 * Like the library that it stands in for, it is used from one thread.
 */
#ifndef VOK_CP_SIM_H
#define VOK_CP_SIM_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The only instance and type handles that the stand-in accepts. */
#define VOK_CP_SIM_INSTANCE UINT64_C(0x5a00000000000000)
#define VOK_CP_SIM_IPV4_ASSOCIATION_TYPE UINT64_C(0x5a0000000000000a)
#define VOK_CP_SIM_IPV6_ASSOCIATION_TYPE UINT64_C(0x5a0000000000000b)
#define VOK_CP_SIM_L2TPV3_FLOW_TYPE UINT64_C(0x5a0000000000000e)
#define VOK_CP_SIM_OVLIN_FLOW_TYPE UINT64_C(0x5a00000000000011)

/** The stand-in's own statuses; vok_sys_status_get() gives their texts. */
enum {
    VOK_CP_SIM_OK = 0,
    VOK_CP_SIM_WRONG_INSTANCE = 0x101,    /**< the first argument is not the instance handle */
    VOK_CP_SIM_WRONG_TYPE_HANDLE = 0x102, /**< a type handle is not the one that belongs there */
    VOK_CP_SIM_UNKNOWN_HANDLE = 0x103,    /**< no object of that kind has the handle */
    VOK_CP_SIM_NULL_ARGUMENT = 0x104,     /**< a record or an out-parameter is NULL */
    VOK_CP_SIM_WRONG_CONSTANT = 0x105,    /**< a constant field is not its value, an enumeration none of its values */
    VOK_CP_SIM_RESERVED_NOT_ZERO = 0x106, /**< a byte that must be zero is not */
    VOK_CP_SIM_PREFIX_NOT_FULL = 0x107,   /**< a prefix length is not the length of the address */
    VOK_CP_SIM_DUPLICATE_BINDING = 0x108, /**< that binding exists already */
    VOK_CP_SIM_NO_SUCH_BINDING = 0x109,   /**< an unbind of a binding that does not exist */
    VOK_CP_SIM_OBJECT_IN_USE = 0x10a,     /**< a delete of an object that a binding still uses */
    VOK_CP_SIM_DSCP_TOO_LARGE = 0x10b,    /**< a DSCP of more than 6 bits */
    VOK_CP_SIM_INJECTED = 0x1ff           /**< free for observers: an injected fault */
};

/** What a handle can name. */
typedef enum vok_cp_sim_kind {
    VOK_CP_SIM_IPV4_INGRESS,
    VOK_CP_SIM_IPV4_EGRESS,
    VOK_CP_SIM_IPV6_INGRESS,
    VOK_CP_SIM_IPV6_EGRESS,
    VOK_CP_SIM_L2TPV3_INTERFACE,
    VOK_CP_SIM_L2TPV3_INGRESS_FLOW,
    VOK_CP_SIM_L2TPV3_EGRESS_FLOW
} vok_cp_sim_kind_t;

/** A packet's header as far as the data plane matches and sets it. */
typedef struct vok_cp_sim_header {
    uint8_t ip_version;   /**< 4 or 6 */
    uint8_t protocol;     /**< IP protocol number */
    uint32_t vrf_id;      /**< routing instance that it arrives in or leaves from */
    uint8_t src_addr[16]; /**< network byte order; an IPv4 address is the first 4 bytes */
    uint8_t dst_addr[16];
    uint16_t src_port;
    uint16_t dst_port;
    uint32_t l2tp_session_id;    /**< L2TPv3, received: of a session's packet; 0 in a control message ... */
    uint32_t l2tp_connection_id; /**< ... which carries this instead */
    uint8_t ttl;                 /**< TTL or hop limit; not matched; sending: 0 is the data plane's own default */
} vok_cp_sim_header_t;

/** An object that the data plane holds. */
typedef struct vok_cp_sim_object {
    uint64_t handle; /**< never reused, not even after a reset */
    vok_cp_sim_kind_t kind;
    const void *record;         /**< the record that it was last given, of the type that belongs to its kind */
    size_t record_size;         /**< bytes */
    uint32_t binding_count;     /**< how many bindings use it */
    vok_cp_sim_header_t header; /**< the packets that it matches (a port of 0: any port) or sends, where it does */
    uint32_t path_mtu;          /**< bytes; 0: none given */
} vok_cp_sim_object_t;

/** A binding that the data plane holds. */
typedef struct vok_cp_sim_binding {
    const void *record; /**< a vok_bind_record whose dscpRef is 0 */
    bool has_dscp;
    uint8_t dscp; /**< 0 without has_dscp */
} vok_cp_sim_binding_t;

/** A call as it arrives, before it takes effect. What the operation does not take is 0 or NULL. */
typedef struct vok_cp_sim_call {
    const char *operation;    /**< the operation's own name */
    uint64_t type_handle;     /**< its first argument: type or instance handle */
    const void *record;       /**< valid during the observer's call only */
    size_t record_size;       /**< bytes; 0 without a record */
    uint64_t handle;          /**< the object; for vok_sys_status_get() the system handle */
    uint32_t reported_status; /**< vok_sys_status_get(): the status whose text is asked for */
    vok_cp_sim_kind_t kind;   /**< of the object, where there is one; without meaning in a bind or unbind */
} vok_cp_sim_call_t;

/** What an observer makes of a call; all zero lets it go on. */
typedef struct vok_cp_sim_answer {
    uint32_t status;   /**< other than 0: the call fails with it ... */
    bool after_effect; /**< ... having taken effect all the same, its out-parameter written */
    uint64_t ticks;    /**< the call takes at least so many ticks of the processor's counter */
} vok_cp_sim_answer_t;

/**
 * Sees each call of an operation before it takes effect. A call that goes on can still be refused by the
 * stand-in itself. For vok_syshandle_get() and vok_sys_status_get() only the ticks of the answer count.
 */
typedef vok_cp_sim_answer_t (*vok_cp_sim_observer_t)(void *context, const vok_cp_sim_call_t *call);

/** Puts the one observer in place; NULL removes it. It may itself call the data plane. */
void vok_cp_sim_observe(vok_cp_sim_observer_t observer, void *context);

/** What became of a call. */
typedef struct vok_cp_sim_outcome {
    uint32_t status;  /**< as its caller gets it */
    bool took_effect; /**< always with status 0, with any other only when an observer said so */
    uint64_t created; /**< the handle of the object that it made, or 0 */
} vok_cp_sim_outcome_t;

/** Sees each call of an operation after it has taken effect, or has not. */
typedef void (*vok_cp_sim_outcome_observer_t)(void *context, const vok_cp_sim_call_t *call,
                                              const vok_cp_sim_outcome_t *outcome);

/** Puts the one observer of outcomes in place; NULL removes it. It must not change the data plane. */
void vok_cp_sim_observe_outcomes(vok_cp_sim_outcome_observer_t observer, void *context);

/** An object of that kind and record as a walk would show it, with a handle of 0. The record must be complete. */
vok_cp_sim_object_t vok_cp_sim_describe(vok_cp_sim_kind_t kind, const void *record, size_t record_size);

/** Forgets all objects and bindings and removes both observers. Handles given before stay unknown for ever. */
void vok_cp_sim_reset(void);

/** Visits the objects in the order of their creation; a visitor must not change the data plane. */
void vok_cp_sim_walk_objects(void (*visit)(void *context, const vok_cp_sim_object_t *object), void *context);

/** Visits the bindings, ordered by kind, direction, source and destination; same rule for the visitor. */
void vok_cp_sim_walk_bindings(void (*visit)(void *context, const vok_cp_sim_binding_t *binding), void *context);

/** Gives the object of that handle; false: there is none. */
bool vok_cp_sim_find(uint64_t handle, vok_cp_sim_object_t *found);

/** Visits the bindings that use an object, in the order of their creation; same rule for the visitor. */
void vok_cp_sim_walk_bindings_of(uint64_t handle, void (*visit)(void *context, const vok_cp_sim_binding_t *binding),
                                 void *context);

typedef struct vok_cp_sim_counts {
    size_t objects, bindings;
} vok_cp_sim_counts_t;

/** How much the data plane holds. */
vok_cp_sim_counts_t vok_cp_sim_count(void);

/** What became of a packet. */
typedef enum vok_cp_sim_fate {
    VOK_CP_SIM_FORWARDED,
    VOK_CP_SIM_NO_ASSOCIATION, /**< dropped: no ingress association matches it */
    VOK_CP_SIM_NO_L2TPV3_FLOW, /**< dropped: no L2TPv3 ingress flow has its session or control connection id */
    VOK_CP_SIM_NOT_BOUND       /**< dropped: no binding leads on from where it came to */
} vok_cp_sim_fate_t;

/** A received packet's way through the data plane. What it did not come to is 0. */
typedef struct vok_cp_sim_arrival {
    vok_cp_sim_fate_t fate;
    uint64_t association;         /**< the ingress association that matched */
    uint32_t ovlin_flow_id;       /**< where it ends */
    vok_cp_sim_binding_t binding; /**< that took it there; valid until the data plane changes */
} vok_cp_sim_arrival_t;

/** The way of a packet from an ovlin flow, and the header that it leaves with. What it did not come to is 0. */
typedef struct vok_cp_sim_departure {
    vok_cp_sim_fate_t fate;
    uint64_t association; /**< the egress association that sends it */
    vok_cp_sim_header_t header;
    uint32_t path_mtu;            /**< bytes; 0: none given */
    vok_cp_sim_binding_t binding; /**< that took it there, with the DSCP; valid until the data plane changes */
} vok_cp_sim_departure_t;

/**
 * Receives a packet: the first ingress association, in the order of creation, that matches its IP header takes it to
 * the ovlin flow of its binding; or, bound to the L2TPv3 ingress interface, to the ingress flow there that has its
 * L2TPv3 id, and that one to the ovlin flow of its binding. An association's port of 0 matches every port. Only a
 * packet that ends at an ovlin flow is counted, at the association.
 *
 * @param header the packet
 * @param octets its size
 */
vok_cp_sim_arrival_t vok_cp_sim_receive(const vok_cp_sim_header_t *header, uint32_t octets);

/**
 * Sends a packet from an ovlin flow through the egress association that the flow's binding leads to, directly or by
 * way of an L2TPv3 egress flow; the DSCP is that of the binding to the association. Only a packet that leaves is
 * counted.
 */
vok_cp_sim_departure_t vok_cp_sim_send(uint32_t ovlin_flow_id, uint32_t octets);

#ifdef __cplusplus
}
#endif

#endif
