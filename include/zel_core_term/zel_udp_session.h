/**
 * @file
 * UDP sessions: each terminates one UDP flow pair over IPv4 or IPv6 with an ingress and an egress association in
 * the data plane, and joins them to ovlin flows by an uplink and a downlink binding.
 *
 * The caller chooses each udp_session_id, 1 to 70,000. Operations run to completion on the caller's thread; the caller
 * serialises them.
 */
#ifndef ZEL_CORE_TERM_ZEL_UDP_SESSION_H
#define ZEL_CORE_TERM_ZEL_UDP_SESSION_H

#include <stdbool.h>
#include <stdint.h>

#include "zel_layout.h"
#include "zel_term_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The highest valid udp_session_id; the lowest is 1. */
enum { ZEL_CORE_TERM_UDP_SESSION_ID_MAX = 70000 };

/**
 * The configuration of a session: 56 bytes, integers in the machine's byte order. All bytes are stored as given,
 * reserved ones included.
 */
typedef struct zel_core_term_udp_session_cfg_t {
    uint8_t ip_version; /**< 4 or 6 */
    uint8_t reserved_01[3];
    uint8_t local_addr[16]; /**< network byte order; an IPv4 address is the first 4 bytes */
    uint8_t reserved_14[4];
    uint8_t remote_addr[16]; /**< as local_addr */
    uint16_t local_port;
    uint16_t remote_port;
    uint32_t vrf_id; /**< routing instance of both associations */
    uint32_t pmtu;   /**< path MTU in bytes, IPv6 only; the data plane gets the low 16 bits */
    uint8_t ttl;     /**< TTL or hop limit; 0 if not given: the data plane then gets 0 for IPv4, 128 for IPv6 */
    uint8_t reserved_35[3];
} zel_core_term_udp_session_cfg_t;

ZEL_LAYOUT_SIZE(zel_core_term_udp_session_cfg_t, 56);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, ip_version, 0, 1);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, local_addr, 4, 16);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, remote_addr, 24, 16);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, local_port, 40, 2);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, remote_port, 42, 2);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, vrf_id, 44, 4);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, pmtu, 48, 4);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_cfg_t, ttl, 52, 1);

/** What the capabilities query reports: fixed values. The library enforces only the first. */
typedef struct zel_core_term_udp_session_capabilities_t {
    uint32_t max_udp_sessions; /**< 70,000 */
    uint32_t capability_b;     /**< 41,000 */
    uint32_t capability_c;     /**< 61,000 */
} zel_core_term_udp_session_capabilities_t;

ZEL_LAYOUT_SIZE(zel_core_term_udp_session_capabilities_t, 12);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_capabilities_t, max_udp_sessions, 0, 4);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_capabilities_t, capability_b, 4, 4);
ZEL_LAYOUT_FIELD(zel_core_term_udp_session_capabilities_t, capability_c, 8, 4);

/** The counters of a session over IPv4: the data plane's records of both associations, in a form that only the data
 * plane and its formatters know. */
typedef struct zel_udp_session_ipv4_stats_t {
    uint8_t egress[32] __attribute__((aligned(8)));
    uint8_t ingress[32] __attribute__((aligned(8)));
} zel_udp_session_ipv4_stats_t;

ZEL_LAYOUT_SIZE(zel_udp_session_ipv4_stats_t, 64);
ZEL_LAYOUT_FIELD(zel_udp_session_ipv4_stats_t, egress, 0, 32);
ZEL_LAYOUT_FIELD(zel_udp_session_ipv4_stats_t, ingress, 32, 32);

/** As zel_udp_session_ipv4_stats_t, for a session over IPv6. */
typedef struct zel_udp_session_ipv6_stats_t {
    uint8_t egress[4] __attribute__((aligned(4)));
    uint8_t ingress[8] __attribute__((aligned(4)));
} zel_udp_session_ipv6_stats_t;

ZEL_LAYOUT_SIZE(zel_udp_session_ipv6_stats_t, 12);
ZEL_LAYOUT_FIELD(zel_udp_session_ipv6_stats_t, egress, 0, 4);
ZEL_LAYOUT_FIELD(zel_udp_session_ipv6_stats_t, ingress, 4, 8);

/**
 * Starts the module with an empty table and reads the ovlin capabilities; called by zel_core_term_start() once
 * the handle block is filled.
 *
 * @retval 0     started
 * @retval other the code of zel_core_ic_ovlin_capabilities_get(); even so the table is empty and the module has the
 *               handle block
 */
ZEL_CORE_TERM_API uint32_t zel_udp_session_start(void);

/**
 * Stops the module: empties the table without touching the data plane. Called by zel_core_term_stop().
 *
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_udp_session_stop(void);

/**
 * The module's capabilities.
 *
 * @param capabilities receives them
 * @retval 0 `capabilities` is filled
 * @retval 2 `capabilities` is NULL: nothing was done
 */
ZEL_CORE_TERM_API uint32_t
zel_core_term_udp_session_capabilities_get(zel_core_term_udp_session_capabilities_t *capabilities);

/**
 * The lowest free udp_session_id. It is not reserved: it stays free until an add takes it.
 *
 * @param udp_session_id receives the id; must be valid
 * @retval 0  the id is in `udp_session_id`
 * @retval 10 all ids are in use; `udp_session_id` is unchanged: nothing was done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_free_id_get(uint32_t *udp_session_id);

/**
 * The configuration of a session, as add received it and modify changed it.
 *
 * @param udp_session_id the session
 * @param cfg            receives the 56 bytes; must be valid
 * @retval 0 the configuration is in `cfg`, which no other result writes
 * @retval 3 the id is outside 1 to 70,000: nothing was done
 * @retval 4 the id is free: nothing was done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_cfg_get(uint32_t udp_session_id,
                                                             zel_core_term_udp_session_cfg_t *cfg);

/**
 * Adds a session: creates its ingress and its egress association, binds the uplink ovlin flow
 * ((tn_ul_pcep_id << 20) | udp_session_id) to the egress association and the ingress association to the
 * downlink ovlin flow ((tn_dl_pcep_id << 20) | the low 20 bits of rat_ovlin_session_id).
 *
 * Addresses and ports are not compared with those of other sessions: what equal ones mean is up to the data plane.
 * A downlink ovlin flow ID of 0 counts as not bound, so no undo or disconnect removes that binding. The uplink ovlin
 * flow must not be that of an L2TP control connection or session: under the same PCEP id their ids must differ.
 *
 * @param udp_session_id       1 to 70,000, free
 * @param cfg                  the configuration, copied; must be valid
 * @param tn_ul_pcep_id        PCEP of the uplink flow, at most the ovlin capabilities' max_tn_pcep_id
 * @param tn_dl_pcep_id        PCEP of the downlink flow, same limit
 * @param rat_ovlin_session_id RAT-side ovlin session, at most the capabilities' max_rat_ovlin_session_id
 * @param dscp                 DSCP of the uplink binding, not checked
 * @param session_type_flag    true: zel_ovlin_session_handler_set_session_type() is called for tn_ul_pcep_id with
 *                             session type 2 before the uplink bind
 *
 * @retval 0     added
 * @retval 3     an id is out of range: nothing was done. (Before the first start every limit is 0, and this is checked
 *               before 13.)
 * @retval 3     the session-type hook returned 3: nothing is undone; the id stays in use, with both associations and no
 *               binding, until it is released
 * @retval 4     the id was freed while the add ran, which cannot happen if calls are serialised; undone as for 13, as
 *               far as the table still shows what was made
 * @retval 5     the id is in use: nothing was done
 * @retval 5     the session-type hook returned 5: as when it returns 3
 * @retval 7     the IP version is neither 4 nor 6: nothing was done
 * @retval 13    the module is stopped: nothing was done
 * @retval 13    a data-plane call failed. What was made before was removed (downlink binding, uplink binding, ingress
 *               association, egress association) and the id is free. The data plane keeps, without an owner, what could
 *               not be removed, and a binding made by a bind that reported failure: a failed bind is not undone
 * @retval other the code of the session-type hook; undone as for 13
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_add(uint32_t udp_session_id,
                                                         const zel_core_term_udp_session_cfg_t *cfg,
                                                         uint32_t tn_ul_pcep_id, uint32_t tn_dl_pcep_id,
                                                         uint32_t rat_ovlin_session_id, uint8_t dscp,
                                                         bool session_type_flag);

/**
 * Changes the path MTU of the egress association of a session over IPv6, in place: its binding stays.
 *
 * @param udp_session_id the session, in use, connected or not
 * @param pmtu           bytes; the configuration keeps all 32 bits, the data plane gets the low 16
 * @retval 0  changed
 * @retval 3  the id is outside 1 to 70,000: nothing was done
 * @retval 4  the id is free: nothing was done
 * @retval 7  the session is not over IPv6: nothing was done
 * @retval 13 the data plane refused: the session's configuration is unchanged, and so is the association, unless the
 *            change took effect even though the call failed
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_modify_pmtu(uint32_t udp_session_id, uint32_t pmtu);

/**
 * Changes the hop limit of the egress association of a session over IPv6, in place: its binding stays.
 *
 * @param udp_session_id the session, in use, connected or not
 * @param ttl            hop limit; for 0 the configuration keeps 0 and the data plane gets 128
 * @retval 0  changed
 * @retval 3  the id is outside 1 to 70,000: nothing was done
 * @retval 4  the id is free: nothing was done
 * @retval 7  the session is not over IPv6: nothing was done
 * @retval 13 as for zel_core_term_udp_session_modify_pmtu()
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_modify_ttl(uint32_t udp_session_id, uint8_t ttl);

/**
 * Removes a session's downlink binding, then its uplink binding. The session stays in use with its associations, and
 * cannot be connected again: release it.
 *
 * The session does not record that it was disconnected: a second call asks the data plane to remove the same bindings
 * again. A downlink binding of ovlin flow ID 0 counts as not bound and stays in the data plane.
 *
 * @param udp_session_id the session
 * @retval 0 disconnected, even if an unbind failed: trace events report that, and the binding stays in the data plane
 *           unless the unbind took effect anyway
 * @retval 3 the id is outside 1 to 70,000: nothing was done
 * @retval 4 the id is free: nothing was done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_disconnect(uint32_t udp_session_id);

/**
 * Deletes a session's associations and frees its id. It does not remove bindings: disconnect first. Otherwise the
 * bindings stay in the data plane without an owner, and so do the associations if it refuses to delete what is bound.
 *
 * @param udp_session_id the session
 * @retval 0 the id is free, even if a delete failed: trace events report that, and the association stays in the data
 *           plane unless the delete took effect anyway
 * @retval 3 the id is outside 1 to 70,000: nothing was done
 * @retval 4 the id is free already: nothing was done
 * @retval 7 the session's IP version is neither 4 nor 6: nothing was done
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_release(uint32_t udp_session_id);

/**
 * Reads the counters of a session over IPv4, ingress first. The IP version is not checked: for a session over IPv6 the
 * data plane answers as it does for a wrong handle.
 *
 * @param udp_session_id the session
 * @param stats          receives the counters; must be valid. It is zeroed first
 * @retval 0  the counters are in `stats`
 * @retval 3  the id is outside 1 to 70,000: `stats` is zero
 * @retval 4  the id is free: `stats` is zero
 * @retval 13 the data plane refused; if it was the egress read, `stats` already has the ingress counters
 */
ZEL_CORE_TERM_API uint32_t zel_udp_session_get_stats(uint32_t udp_session_id, zel_udp_session_ipv4_stats_t *stats);

/**
 * Reads the counters of a session over IPv6, as zel_udp_session_get_stats() does for IPv4, except that `stats` is not
 * zeroed first: what is not read stays as it was.
 *
 * @param udp_session_id the session
 * @param stats          receives the counters; must be valid
 * @retval 0  the counters are in `stats`
 * @retval 3  the id is outside 1 to 70,000: `stats` is unchanged
 * @retval 4  the id is free: `stats` is unchanged
 * @retval 13 as for zel_udp_session_get_stats()
 */
ZEL_CORE_TERM_API uint32_t zel_ipv6_udp_session_get_stats(uint32_t udp_session_id, zel_udp_session_ipv6_stats_t *stats);

/**
 * A session's counters as text: ingress, then egress, each from the formatter for its IP version.
 *
 * @param udp_session_id the session
 * @param buf            receives the text; must be valid and at least one byte. It is set to the empty text first, and
 *                       stays empty if the counters cannot be read
 * @param buf_size       size of `buf` in bytes, passed on to the formatters
 * @param fmt_option     passed on to the formatters, which give it its meaning, and whose results are ignored
 * @retval 0     the text is in `buf`
 * @retval 3     the id is outside 1 to 70,000: the text is empty
 * @retval 4     the id is free: the text is empty
 * @retval 13    the data plane refused: the text is empty
 * @retval other the code of zel_fmt_end(); `buf` has the text as far as it was made
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_udp_session_fmt_stats_get(uint32_t udp_session_id, char *buf,
                                                                   uint32_t buf_size, uint8_t fmt_option);

#ifdef __cplusplus
}
#endif

#endif
