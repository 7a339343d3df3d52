/**
 * @file
 * L2TPv3 control connections over IPv4, and the start and stop of the L2TP side.
 *
 * A control connection is identified by its own ovlin session id, tn_ovlin_session_id, 0 to 48. Connections with the
 * same local address, remote address and VRF share one IPv4 association each way, which is deleted with its last user;
 * a shared egress association has the TTL of the connection that created it. All connections share one L2TPv3 ingress
 * interface, which the first add creates and nothing deletes.
 *
 * Connections, L2TP sessions and UDP sessions share the ovlin session ids: under one PCEP id, an id must not be used by
 * two of them at the same time, because they would have the same ovlin flow. Id 48 is valid for both a connection and
 * an L2TP session, and every id but 0 for a UDP session, where the uplink's PCEP id counts.
 *
 * Operations run to completion on the caller's thread; the caller serialises them.
 */
#ifndef ZEL_CORE_TERM_ZEL_L2TP_CONTROL_CONNECTION_H
#define ZEL_CORE_TERM_ZEL_L2TP_CONTROL_CONNECTION_H

#include <stdint.h>

#include <zel_core_ic.h>

#include "zel_layout.h"
#include "zel_term_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The highest tn_ovlin_session_id of a control connection; the lowest is 0. */
enum { ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX = 48 };

/** The configuration of a control connection: 48 bytes, integers in the machine's byte order. It is not stored. */
typedef struct zel_core_term_l2tp_control_connection_cfg_t {
    uint8_t reserved_00[4];
    uint8_t local_addr[16]; /**< IPv4 address in network byte order in the first 4 bytes */
    uint8_t reserved_14[4];
    uint8_t remote_addr[16]; /**< as local_addr; the modify may write it */
    uint32_t vrf_id;         /**< routing instance of both associations */
    uint8_t ttl;             /**< TTL of the egress association */
    uint8_t reserved_2d[3];
} zel_core_term_l2tp_control_connection_cfg_t;

ZEL_LAYOUT_SIZE(zel_core_term_l2tp_control_connection_cfg_t, 48);
ZEL_LAYOUT_FIELD(zel_core_term_l2tp_control_connection_cfg_t, local_addr, 4, 16);
ZEL_LAYOUT_FIELD(zel_core_term_l2tp_control_connection_cfg_t, remote_addr, 24, 16);
ZEL_LAYOUT_FIELD(zel_core_term_l2tp_control_connection_cfg_t, vrf_id, 40, 4);
ZEL_LAYOUT_FIELD(zel_core_term_l2tp_control_connection_cfg_t, ttl, 44, 1);

/** A control connection, in use while any of its handles is not 0. */
typedef struct l2tp_control_entry {
    uint64_t reserved;
    uint64_t l2tp_ingress_flow_handle;
    uint64_t ipv4_ingress_association_handle; /**< may be shared */
    uint64_t ipv4_egress_association_handle;  /**< may be shared; the connection's L2TP sessions send through it */
} l2tp_control_entry;

ZEL_LAYOUT_SIZE(l2tp_control_entry, 32);
ZEL_LAYOUT_FIELD(l2tp_control_entry, l2tp_ingress_flow_handle, 8, 8);
ZEL_LAYOUT_FIELD(l2tp_control_entry, ipv4_ingress_association_handle, 16, 8);
ZEL_LAYOUT_FIELD(l2tp_control_entry, ipv4_egress_association_handle, 24, 8);

/** The control connections by tn_ovlin_session_id. Read-only. */
ZEL_CORE_TERM_API extern l2tp_control_entry l2tp_control_table[ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX + 1];

/** The L2TPv3 ingress interface's handle; 0 until the first add. It outlives stop and start. Read-only, except for a
 * test that empties its data plane, which must reset it to 0.
 */
ZEL_CORE_TERM_API extern uint64_t l2tp_control_ingress_interface;

/** The ovlin capabilities as read when the L2TP side started. Read-only. */
ZEL_CORE_TERM_API extern ovlin_capabilities_t ovlin_capabilities;

/**
 * Starts the L2TP side with empty tables and reads the ovlin capabilities; called by zel_core_term_start(). Makes no
 * data-plane call: objects of earlier connections and sessions are forgotten, not deleted.
 *
 * @retval 0     started
 * @retval other the code of zel_core_ic_ovlin_capabilities_get(); even so the tables are empty and zel_handles is set
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_start(void);

/**
 * Stops the L2TP side: empties the tables without touching the data plane and sets zel_handles to NULL. Called by
 * zel_core_term_stop().
 *
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_stop(void);

/** Forgets all IPv4 associations and who shares them; part of start and stop. */
ZEL_CORE_TERM_API void zel_l2tp_reset_ip_associations_handling(void);

/**
 * Adds a control connection. In this order: creates the L2TPv3 ingress interface if there is none; creates or shares
 * the ingress association; creates the connection's L2TPv3 ingress flow; binds the ingress association to the interface
 * unless it is bound; binds the ingress flow to the ovlin flow ((tn_pcep_id << 20) | low 20 bits of
 * rat_ovlin_session_id); creates or shares the egress association; binds the ovlin flow ((tn_pcep_id << 20) |
 * tn_ovlin_session_id) to it.
 *
 * @param tn_ovlin_session_id  0 to 48, not in use
 * @param ip_cfg               endpoints, VRF and TTL; must be valid; only read
 * @param controlConnId        L2TPv3 control connection id in received control messages
 * @param tn_pcep_id           at most the ovlin capabilities' max_tn_pcep_id
 * @param rat_ovlin_session_id at most the capabilities' max_rat_ovlin_session_id
 * @param dscp                 DSCP of sent control messages
 * @param session_type_flag    not 0: zel_ovlin_session_handler_set_session_type() is called for tn_pcep_id with
 *                             session type 1 before the last bind
 *
 * @retval 0     added
 * @retval 3     an id is out of range: nothing was done. (Before the first start every limit is 0, and this is checked
 *               before 13.)
 * @retval 3     the session-type hook returned 3: nothing is undone; the id stays in use, without the last binding,
 *               until it is removed
 * @retval 5     the id is in use: nothing was done
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval 13    a data-plane call failed, or 48 pairs of associations are already in use. What the table entry shows
 *               was removed, shared associations only with their last user, and the id is free. The unbind from an
 *               ovlin flow is tried once the flow or association to unbind exists, even if its bind was never made.
 *               The ingress interface stays. The data plane keeps what could not be removed, and an association that
 *               was created by a call that reported failure; connections that share may lose a binding, as the manual
 *               page describes
 * @retval other the code of the session-type hook; undone likewise
 *
 * How connections that share lose a binding: each user of an ingress association requests the association's binding to
 * the interface, and the last to release its request removes it. An add that fails after it has shared the association
 * but before it has requested the binding releases a request all the same, so there is now one request fewer than
 * users. When the requests run out, in this undo or in a later removal or modify of one of the users, the binding is
 * removed while connections still need it: their control messages and sessions are no longer received until another
 * add or modify shares the association, and then only until the next user is removed or moved. To repair it, remove all
 * of them and add them again.
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_add(
    uint32_t tn_ovlin_session_id, zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, uint32_t controlConnId,
    uint32_t tn_pcep_id, uint32_t rat_ovlin_session_id, uint8_t dscp, uint8_t session_type_flag);

/**
 * Removes a control connection: both bindings to ovlin flows, its shares of the associations and of the binding to the
 * ingress interface, and its L2TPv3 ingress flow. Safe if the connection, or part of it, does not exist. Its sessions
 * are not touched: remove them first.
 *
 * @param tn_ovlin_session_id  the connection
 * @param tn_pcep_id           as given to the add
 * @param rat_ovlin_session_id as given to the add
 * @retval 0 always. The id is free, even if a step failed: trace events report that, and the data plane keeps what
 *           could not be removed. If the id is above 48 or the L2TP side is stopped, nothing is done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_rem(uint32_t tn_ovlin_session_id, uint32_t tn_pcep_id,
                                                                     uint32_t rat_ovlin_session_id);

/**
 * Moves a control connection and its sessions to a new configuration. The L2TPv3 ingress flow and its binding stay.
 * The sessions are unbound from the egress association, the associations are replaced, and the sessions are bound
 * again. If the new configuration cannot be set up, the modify falls back to the old remote address and DSCP, with the
 * local address, VRF and TTL of `ip_cfg`. If that fails too, or a session cannot be unbound or bound, the connection
 * and all listed sessions are removed.
 *
 * It does not check that the connection exists: for one that does not, it makes only the associations and their
 * bindings, and the id is then in use.
 *
 * @param tn_ovlin_session_id  the connection
 * @param session_ids          the tn_ovlin_session_id_session of each of its sessions; must be valid unless there are
 *                             none; only read. An id that is out of range or not in use cannot be unbound: all is
 *                             removed. A session that is left out keeps sending through the old egress association,
 *                             which stays in the data plane; removing that session later leaves its egress flow and
 *                             the binding to that association behind
 * @param session_count        how many; 0 is allowed
 * @param ip_cfg               the new configuration; must be valid. A fallback writes the old remote address into it
 * @param tn_pcep_id           as given to the add
 * @param rat_ovlin_session_id as given to the add
 * @param dscp                 the new DSCP of control messages
 * @param old_dscp             the DSCP in force
 * @param old_remote_addr      the remote address in force: 16 bytes, only the first 4 are read; must be valid
 * @param session_type_flag    as for the add; for each session too
 *
 * @retval 0     the new configuration is in force, even if parts of the old one failed to be removed: trace events
 *               report that, and the data plane keeps those parts
 * @retval 2     fell back: the old remote address and DSCP are in force. The data plane keeps what could not be removed
 *               of either configuration, which trace events report, and an association that was created by a call that
 *               reported failure. (2 may also be the session-type hook's own code, with all removed, as under "other":
 *               see l2tp_control_table)
 * @retval 3     the id is above 48: nothing was done
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval other the code of the step that failed, which may equal any of the above: the connection and all listed
 *               sessions were removed, as their own removal does, and the data plane keeps the same as for 2.
 *               l2tp_control_table shows which case it was
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_modify(
    uint32_t tn_ovlin_session_id, uint32_t *session_ids, uint32_t session_count,
    zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, uint32_t tn_pcep_id, uint32_t rat_ovlin_session_id,
    uint8_t dscp, uint8_t old_dscp, uint8_t *old_remote_addr, uint8_t session_type_flag);

#ifdef __cplusplus
}
#endif

#endif
