/**
 * @file
 * L2TPv3 sessions, each carried by a control connection.
 *
 * A session is identified by its own ovlin session id, tn_ovlin_session_id_session, 48 to 336. The library does not
 * record which control connection carries it: the caller names the connection in every operation, which uses that
 * connection's egress association at the time of the call. zel_l2tp_control_connection.h says which ids must not be
 * used at the same time.
 *
 * Operations run to completion on the caller's thread; the caller serialises them.
 */
#ifndef ZEL_CORE_TERM_ZEL_L2TP_SESSION_H
#define ZEL_CORE_TERM_ZEL_L2TP_SESSION_H

#include <stdint.h>

#include "zel_layout.h"
#include "zel_term_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The lowest and the highest tn_ovlin_session_id_session; a session's table index is its id less the lowest. */
enum { ZEL_CORE_TERM_L2TP_SESSION_ID_MIN = 48, ZEL_CORE_TERM_L2TP_SESSION_ID_MAX = 336 };

/** A session. A field of 0 means that the object or binding does not exist, or that its ovlin flow ID is 0. */
typedef struct l2tp_session_entry {
    uint8_t dscp; /**< set once the add has succeeded */
    uint8_t reserved_01[7];
    uint32_t src_flow_id; /**< ovlin flow whose packets the session sends */
    uint32_t dst_flow_id; /**< ovlin flow that gets the session's received packets */
    uint64_t ingress_flow_handle;
    uint64_t egress_flow_handle;
} l2tp_session_entry;

ZEL_LAYOUT_SIZE(l2tp_session_entry, 32);
ZEL_LAYOUT_FIELD(l2tp_session_entry, dscp, 0, 1);
ZEL_LAYOUT_FIELD(l2tp_session_entry, src_flow_id, 8, 4);
ZEL_LAYOUT_FIELD(l2tp_session_entry, dst_flow_id, 12, 4);
ZEL_LAYOUT_FIELD(l2tp_session_entry, ingress_flow_handle, 16, 8);
ZEL_LAYOUT_FIELD(l2tp_session_entry, egress_flow_handle, 24, 8);

/** The sessions by tn_ovlin_session_id_session - 48. Read-only. */
ZEL_CORE_TERM_API extern l2tp_session_entry
    l2tp_session_table[ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1];

/**
 * Adds a session. In this order: creates its L2TPv3 ingress flow and binds it to the ovlin flow ((tn_pcep << 20) | low
 * 20 bits of rat_ovlin_session_id); creates its L2TPv3 egress flow, binds the ovlin flow ((tn_pcep << 20) |
 * tn_ovlin_session_id_session) to it, and binds it to the control connection's egress association.
 *
 * Remove an existing session before adding it again: the add overwrites it and forgets its data-plane objects, and an
 * add that fails removes whatever of it the entry still shows.
 *
 * A received ovlin flow ID of 0, from tn_pcep 0 and a rat_ovlin_session_id whose low 20 bits are 0, counts as not
 * bound: the undo of an add leaves that binding and its ingress flow in the data plane. The removal does not.
 *
 * @param dscp                             DSCP of sent packets
 * @param crc                              0: flowType 2; any other value: flowType 1
 * @param tn_pcep                          at most the ovlin capabilities' max_tn_pcep_id
 * @param rat_ovlin_session_id             at most the capabilities' max_rat_ovlin_session_id
 * @param l2tp_local_session_id            L2TPv3 session id in received packets, not checked
 * @param tn_ovlin_session_id_control_conn the control connection, 0 to 48 and at most the capabilities'
 *                                         max_rat_ovlin_session_id
 * @param tn_ovlin_session_id_session      48 to 336, same limit
 * @param session_type_flag                not 0: zel_ovlin_session_handler_set_session_type() is called for tn_pcep
 *                                         with session type 1 before each of the two egress binds
 *
 * @retval 0     added
 * @retval 3     an id is out of range: nothing was done. (Before the first start every limit is 0, and this is checked
 *               before 13.)
 * @retval 3     the session-type hook returned 3: nothing is undone; the id keeps what was built until it is removed
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval 13    a data-plane call failed, as one does if the control connection does not exist. What the table entry
 *               shows was removed and the id is free. Unbinds are tried for all that the entry and the control
 *               connection show, even if a bind was never made; the data plane keeps what could not be removed
 * @retval other the code of the session-type hook; undone likewise
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_session_add(uint8_t dscp, uint8_t crc, uint32_t tn_pcep,
                                                          uint32_t rat_ovlin_session_id, uint32_t l2tp_local_session_id,
                                                          uint32_t tn_ovlin_session_id_control_conn,
                                                          uint32_t tn_ovlin_session_id_session,
                                                          uint8_t session_type_flag);

/**
 * Removes a session: its three bindings and its two flows. Safe if the session, or part of it, does not exist.
 *
 * @param tn_ovlin_session_id_control_conn its control connection
 * @param tn_ovlin_session_id_session      the session
 * @retval 0 always. The id is free, even if a step failed: trace events report that, and the data plane keeps what
 *           could not be removed. If an id is out of range or the L2TP side is stopped, nothing is done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_session_rem(uint32_t tn_ovlin_session_id_control_conn,
                                                          uint32_t tn_ovlin_session_id_session);

/**
 * Unbinds a session from its control connection's egress association before the association is replaced; part of the
 * control connection's modify. The session keeps everything else; its table entry does not change.
 *
 * @param tn_ovlin_session_id_control_conn its control connection
 * @param tn_ovlin_session_id_session      the session
 * @retval 0  unbound
 * @retval 3  an id is out of range: nothing was done
 * @retval 13 the L2TP side is stopped: nothing was done
 * @retval 13 the data plane refused: an existing binding stays, unless the unbind took effect even though it failed
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_session_modify_unbind_part(uint32_t tn_ovlin_session_id_control_conn,
                                                               uint32_t tn_ovlin_session_id_session);

/**
 * Binds a session to its control connection's egress association, with the DSCP given to the add; part of the control
 * connection's modify. Its table entry does not change.
 *
 * @param tn_ovlin_session_id_control_conn its control connection
 * @param tn_ovlin_session_id_session      the session
 * @param tn_pcep                          as given to the add
 * @param session_type_flag                as for the add
 * @retval 0     bound
 * @retval 3     an id is out of range: nothing was done
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval 13    the data plane refused: nothing is undone, so the binding stays if it was made even so
 * @retval other the code of the session-type hook: nothing was bound
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_session_modify_bind_part(uint32_t tn_ovlin_session_id_control_conn,
                                                             uint32_t tn_ovlin_session_id_session, uint32_t tn_pcep,
                                                             uint8_t session_type_flag);

#ifdef __cplusplus
}
#endif

#endif
