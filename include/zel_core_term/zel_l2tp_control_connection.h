/**
 * @file
 * L2TPv3 control connections over IPv4, and the start and stop of the L2TP side.
 *
 * A control connection is named by its own ovlin session id, tn_ovlin_session_id, 0 to 48. Connections with the same
 * local address, remote address and VRF share one IPv4 association each way, which is deleted with its last user; the
 * egress association then has the TTL of the connection that made it. All connections share one L2TPv3 ingress
 * interface, which the first add makes and nothing deletes.
 *
 * Connections and L2TP sessions share the ovlin session ids, of which 48 is valid for both: with one PCEP id it must
 * not be used for a connection and a session at the same time, whose ovlin flow would be the same. Nor must it be the
 * id of a UDP session whose uplink has that PCEP id.
 *
 * Operations run to their end on the caller's thread; the caller serialises them.
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

/** The configuration of a control connection: 48 bytes, integers in the machine's byte order. It is not kept. */
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

/** The control connections by tn_ovlin_session_id. To be read only. */
ZEL_CORE_TERM_API extern l2tp_control_entry l2tp_control_table[ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX + 1];

/** The L2TPv3 ingress interface's handle; 0 until the first add. It outlives stop and start. To be read
 * only, except by a test that empties its data plane and must set it back to 0.
 */
ZEL_CORE_TERM_API extern uint64_t l2tp_control_ingress_interface;

/** The ovlin capabilities as the L2TP side read them at its start. To be read only. */
ZEL_CORE_TERM_API extern ovlin_capabilities_t ovlin_capabilities;

/**
 * Starts the L2TP side with empty tables and reads the ovlin capabilities; called by zel_core_term_start(). Makes no
 * data-plane call: what connections and sessions held before is forgotten, not deleted.
 *
 * @retval 0     started
 * @retval other the code of zel_core_ic_ovlin_capabilities_get(); the tables are then empty and zel_handles is set all
 *               the same
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_start(void);

/**
 * Stops the L2TP side; called by zel_core_term_stop(). Empties the tables without touching the data plane and sets
 * zel_handles to NULL.
 *
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_l2tp_stop(void);

/** Forgets which IPv4 associations there are and who shares them; a part of start and stop. */
ZEL_CORE_TERM_API void zel_l2tp_reset_ip_associations_handling(void);

/**
 * Adds a control connection: the L2TPv3 ingress interface if there is none, the ingress association or a share of it,
 * the connection's L2TPv3 ingress flow, the binding of the association to the interface unless it is there, the
 * binding of the flow to the ovlin flow ((tn_pcep_id << 20) | low 20 bits of rat_ovlin_session_id), the egress
 * association or a share of it, and the binding of the ovlin flow ((tn_pcep_id << 20) | tn_ovlin_session_id) to that.
 *
 * @param tn_ovlin_session_id  0 to 48, not in use
 * @param ip_cfg               endpoints, VRF and TTL; must be valid; only read
 * @param controlConnId        L2TPv3 control connection id of the received control messages
 * @param tn_pcep_id           at most the ovlin capabilities' max_tn_pcep_id
 * @param rat_ovlin_session_id at most the capabilities' max_rat_ovlin_session_id
 * @param dscp                 DSCP of the sent control messages
 * @param session_type_flag    not 0: zel_ovlin_session_handler_set_session_type() is called for tn_pcep_id with
 *                             session type 1 before the last bind
 *
 * @retval 0     added
 * @retval 3     an id is out of range: nothing was done. (Before the first start no limit but 0 is known, and 3 comes
 *               before 13.)
 * @retval 3     the session-type hook refused with 3: nothing is undone, the id stays in use without the last binding,
 *               until it is removed
 * @retval 5     the id is in use: nothing was done
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval 13    a data-plane call failed, or 48 associations are in use already. What the table entry shows was taken
 *               down again, shared associations by their counts, and the id is free. An ovlin flow's unbind is tried
 *               once its flow or association is there, whether its bind was made or not. The ingress interface stays.
 *               The data plane keeps what could not be taken down, and an association whose create took effect although
 *               it failed; zel_core_term_l2tp_control_connection_add() tells when connections that share lose a binding
 * @retval other the code of the session-type hook; undone likewise
 *
 * The undo of an add that fails after it came to share an ingress association, but before it asked for that
 * association's binding to the interface, releases one request for it all the same. From then on there is one request
 * less than users. When they are used up, by this undo or by a later removal or modify of one of them, the binding is
 * removed from under the connections that are left: their control messages and sessions are no longer received until
 * another add or modify comes to share the association, and then only until the next of them is removed or moved.
 * Removing all of them and adding them again mends it.
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_add(
    uint32_t tn_ovlin_session_id, zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, uint32_t controlConnId,
    uint32_t tn_pcep_id, uint32_t rat_ovlin_session_id, uint8_t dscp, uint8_t session_type_flag);

/**
 * Removes a control connection, of which nothing needs to be there: both bindings to ovlin flows, its shares of the
 * associations and of the binding to the ingress interface, and its L2TPv3 ingress flow. Its sessions are not touched:
 * remove them first.
 *
 * @param tn_ovlin_session_id  the connection
 * @param tn_pcep_id           as given to the add
 * @param rat_ovlin_session_id as given to the add
 * @retval 0 in every case. The id is free, except that with an id above 48 or the L2TP side stopped nothing was done;
 *           what failed is reported by trace events, and the data plane keeps it
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_rem(uint32_t tn_ovlin_session_id, uint32_t tn_pcep_id,
                                                                     uint32_t rat_ovlin_session_id);

/**
 * Moves a control connection and its sessions to a new configuration. The L2TPv3 ingress flow and its binding stay.
 * First the sessions are unbound from the egress association, then the associations are exchanged, then the sessions
 * are bound again. When the new configuration cannot be set up, the old remote address and DSCP are, with the local
 * address, VRF and TTL of `ip_cfg`. When that fails too, or the part of a session, all is removed.
 *
 * That the connection is there is not checked: of one that is not, the associations and their bindings are made and
 * nothing else, and its id is then in use.
 *
 * @param tn_ovlin_session_id  the connection
 * @param session_ids          the tn_ovlin_session_id_session of each of its sessions; must be valid unless there are
 *                             none; only read. One that is out of range or not there fails as any session's part
 *                             does: all is removed. One that is left out goes on sending through the old egress
 * association, which stays in the data plane; its removal then leaves the binding to that and its flow behind
 * @param session_count        how many; 0 is allowed
 * @param ip_cfg               the new configuration; must be valid. Once the old one is tried, its remote_addr is the
 *                             old one
 * @param tn_pcep_id           as given to the add
 * @param rat_ovlin_session_id as given to the add
 * @param dscp                 the new DSCP of the control messages
 * @param old_dscp             the one in force
 * @param old_remote_addr      the remote address in force: 16 bytes, of which the first 4 are read; must be valid
 * @param session_type_flag    as for the add; for each session too
 *
 * @retval 0     the new configuration is in force. The data plane keeps what could not be taken down of the
 *               configuration before, which is reported by trace events: what failed is no failure of the modify
 * @retval 2     the old remote address and DSCP are in force, unless the session-type hook answered 2 and all is
 *               removed, as under "other": l2tp_control_table tells. The data plane keeps what could not be taken down
 *               of either configuration, which is reported by trace events, and an association whose create took effect
 *               although it failed
 * @retval 3     the id is above 48: nothing was done
 * @retval 13    the L2TP side is stopped: nothing was done
 * @retval other the code of the step that failed, which may be any of these too: all listed sessions and the
 *               connection were removed, as their removal does, and the data plane keeps what it does with 2.
 *               l2tp_control_table tells which
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_l2tp_control_connection_modify(
    uint32_t tn_ovlin_session_id, uint32_t *session_ids, uint32_t session_count,
    zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, uint32_t tn_pcep_id, uint32_t rat_ovlin_session_id,
    uint8_t dscp, uint8_t old_dscp, uint8_t *old_remote_addr, uint8_t session_type_flag);

#ifdef __cplusplus
}
#endif

#endif
