#include "operations.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "by_hand.h"
#include "vok_cp.h"
#include "vok_cp_null.h"
#include "zel_core_term/zel_core_term.h"

namespace {

using std::uint32_t, std::uint8_t;

constexpr by_hand::ovlin_ids udp_ids{1, 5}, connection_ids{3, 11}, session_ids{4, 101};
constexpr uint8_t dscp = 46;

constexpr zel_core_term_udp_session_cfg_t ipv4{.ip_version = 4,
                                               .reserved_01 = {},
                                               .local_addr = {192, 0, 2, 1},
                                               .reserved_14 = {},
                                               .remote_addr = {198, 51, 100, 7},
                                               .local_port = 2152,
                                               .remote_port = 2152,
                                               .vrf_id = 0,
                                               .pmtu = 0,
                                               .ttl = 64,
                                               .reserved_35 = {}};
constexpr zel_core_term_udp_session_cfg_t ipv6{.ip_version = 6,
                                               .reserved_01 = {},
                                               .local_addr = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 1},
                                               .reserved_14 = {},
                                               .remote_addr = {0x20, 1, 0xd, 0xb8, 0, 7, 0, 7},
                                               .local_port = 2152,
                                               .remote_port = 2152,
                                               .vrf_id = 0,
                                               .pmtu = 1400,
                                               .ttl = 0,
                                               .reserved_35 = {}};

/// Kept from the compiler's eyes, so that it cannot make the hand-written calls for these values only.
const zel_core_term_udp_session_cfg_t *volatile ipv4_seen = &ipv4, *volatile ipv6_seen = &ipv6;

void require(bool holds, const char *what, const char *where)
{
    if (holds)
        return;
    std::fprintf(stderr, "nothing is measured: %s: %s\n", where, what);
    std::exit(1);
}

uint32_t first_free; ///< number of the first entry that the batch may use, from 0

// ---- UDP sessions; entry 0 is id 1

uint32_t udp_id(uint32_t n)
{
    return first_free + n + 1;
}

uint32_t add_udp(uint32_t id, const zel_core_term_udp_session_cfg_t &cfg)
{
    return zel_core_term_udp_session_add(id, &cfg, udp_ids.pcep, udp_ids.pcep, udp_ids.rat_session, dscp, false);
}

void add_udp_ipv4(uint32_t n)
{
    add_udp(udp_id(n), *ipv4_seen);
    by_hand::udp_add(n, udp_id(n), *ipv4_seen, udp_ids, dscp);
}

void add_udp_ipv6(uint32_t n)
{
    add_udp(udp_id(n), *ipv6_seen);
    by_hand::udp_add(n, udp_id(n), *ipv6_seen, udp_ids, dscp);
}

void release_udp(uint32_t n)
{
    zel_core_term_udp_session_release(udp_id(n));
}

/// A table of the library's size without its index: the lowest free id is found by looking at each entry.
struct {
    uint32_t id;
    uint8_t rest[84];
} searched[ZEL_CORE_TERM_UDP_SESSION_ID_MAX + 1];

volatile uint32_t found_by_search;

void occupy_udp(uint32_t entries)
{
    zel_core_term_start();
    for (uint32_t id = 1; id <= entries; ++id)
        add_udp(id, *ipv4_seen);
    for (uint32_t id = 1; id <= ZEL_CORE_TERM_UDP_SESSION_ID_MAX; ++id)
        searched[id].id = id <= entries ? id : 0;
}

uint32_t search_ascending(uint32_t)
{
    uint32_t id = 1;
    while (id <= ZEL_CORE_TERM_UDP_SESSION_ID_MAX && searched[id].id != 0)
        ++id;
    found_by_search = id;
    return 0;
}

uint32_t get_free_id(uint32_t)
{
    uint32_t id;
    return zel_core_term_udp_session_free_id_get(&id);
}

/// Comes by every id before it comes by one again, and never by a neighbour.
uint32_t next_scattered_id()
{
    static uint32_t position;
    position = (position + 26'993) % ZEL_CORE_TERM_UDP_SESSION_ID_MAX;
    return position + 1;
}

uint32_t fill(uint32_t)
{
    uint32_t id, failures = 0;
    for (uint32_t i = 0; i < ZEL_CORE_TERM_UDP_SESSION_ID_MAX; ++i)
        failures |= zel_core_term_udp_session_free_id_get(&id) | add_udp(id, *ipv4_seen);
    return failures;
}

void fill_with_known_ids(uint32_t)
{
    for (uint32_t id = 1; id <= ZEL_CORE_TERM_UDP_SESSION_ID_MAX; ++id)
        add_udp(id, *ipv4_seen);
}

void restart(uint32_t)
{
    zel_core_term_start();
}

// ---- L2TPv3 control connections. The highest id is the carrier of sessions, always there.

constexpr uint32_t carrier = ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX;
constexpr uint32_t sessions_per_connection = 6;

uint32_t connection_id(uint32_t n)
{
    return first_free + n;
}

/// Peers differ by their number; that of a connection is its id.
zel_core_term_l2tp_control_connection_cfg_t connection_cfg(uint32_t peer)
{
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    const uint8_t local_addr[] = {192, 0, 2, 1}, remote_addr[] = {198, 51, 100, static_cast<uint8_t>(peer)};
    std::memcpy(cfg.local_addr, local_addr, sizeof local_addr);
    std::memcpy(cfg.remote_addr, remote_addr, sizeof remote_addr);
    cfg.ttl = 64;
    return cfg;
}

uint32_t add_connection(uint32_t id, uint32_t peer)
{
    auto cfg = connection_cfg(peer);
    return zel_core_term_l2tp_control_connection_add(id, &cfg, 1000 + id, connection_ids.pcep,
                                                     connection_ids.rat_session, dscp, 0);
}

void add_connection_by_hand(uint32_t n, bool shared)
{
    by_hand::connection_add(n, connection_id(n), connection_cfg(connection_id(n)), 1000 + connection_id(n),
                            connection_ids, dscp, shared);
}

uint32_t remove_connection(uint32_t n)
{
    return zel_core_term_l2tp_control_connection_rem(connection_id(n), connection_ids.pcep, connection_ids.rat_session);
}

void remove_connection_by_hand(uint32_t n, bool shared)
{
    by_hand::connection_remove(n, connection_id(n), connection_ids, shared);
}

void occupy_connections(uint32_t entries)
{
    zel_core_term_start();
    for (uint32_t id = 0; id < entries; ++id)
        add_connection(id, id);
    add_connection(carrier, carrier);
}

/// The n-th connection's own sessions, and the peers that it moves from and to.
uint32_t first_session_slot(uint32_t n)
{
    return n * sessions_per_connection;
}

uint32_t session_of_connection(uint32_t n, uint32_t i)
{
    return ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + first_session_slot(n) + i;
}

uint32_t other_peer(uint32_t n)
{
    return 128 + connection_id(n);
}

uint32_t modify_connection(uint32_t n)
{
    uint32_t sessions[sessions_per_connection];
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        sessions[i] = session_of_connection(n, i);
    auto cfg = connection_cfg(other_peer(n));
    return zel_core_term_l2tp_control_connection_modify(connection_id(n), sessions, sessions_per_connection, &cfg,
                                                        connection_ids.pcep, connection_ids.rat_session, dscp, dscp,
                                                        connection_cfg(connection_id(n)).remote_addr, 0);
}

void modify_connection_by_hand(uint32_t n)
{
    by_hand::connection_modify(n, connection_id(n), connection_cfg(other_peer(n)), connection_ids, dscp,
                               connection_cfg(connection_id(n)).remote_addr, first_session_slot(n),
                               sessions_per_connection);
}

// ---- L2TPv3 sessions, all carried by the carrier but those of the modify

uint32_t session_id(uint32_t n)
{
    return ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + first_free + n;
}

uint32_t add_session(uint32_t id, uint32_t connection)
{
    return zel_core_term_l2tp_session_add(dscp, 0, session_ids.pcep, session_ids.rat_session, 50'000 + id, connection,
                                          id, 0);
}

uint32_t remove_session(uint32_t n)
{
    return zel_core_term_l2tp_session_rem(carrier, session_id(n));
}

void add_session_by_hand(uint32_t n)
{
    by_hand::session_add(n, session_id(n), 50'000 + session_id(n), session_ids, dscp);
}

void remove_session_by_hand(uint32_t n)
{
    by_hand::session_remove(n, session_id(n), session_ids);
}

void add_both_sessions(uint32_t n)
{
    add_session(session_id(n), carrier);
    add_session_by_hand(n);
}

void occupy_sessions(uint32_t entries)
{
    occupy_connections(0);
    for (uint32_t i = 0; i < entries; ++i)
        add_session(ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + i, carrier);
}

void add_connection_with_sessions(uint32_t n)
{
    add_connection(connection_id(n), connection_id(n));
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        add_session(session_of_connection(n, i), connection_id(n));
}

void remove_connection_with_sessions(uint32_t n)
{
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        zel_core_term_l2tp_session_rem(connection_id(n), session_of_connection(n, i));
    remove_connection(n);
}

// ---- The tables and their operations

constexpr uint32_t udp_capacity = ZEL_CORE_TERM_UDP_SESSION_ID_MAX;
constexpr uint32_t session_capacity = ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1;
constexpr uint32_t slots = by_hand::slot_count;

constexpr measured_table no_table{"", 0, 0, slots, 400, occupy_udp};
constexpr measured_table whole_udp{"", 0, 0, 1, 20, occupy_udp};
constexpr measured_table udp{"UDP", udp_capacity, slots, slots, 400, occupy_udp};
constexpr measured_table udp_queried{"UDP", udp_capacity, 1, slots, 40, occupy_udp};
constexpr measured_table udp_restarted{"UDP", udp_capacity, 0, 1, 20, occupy_udp};
constexpr measured_table connections{"connections", carrier - 1, 8, 8, 1'000, occupy_connections};
constexpr measured_table sessions{"sessions", session_capacity, slots, slots, 400, occupy_sessions};

constexpr operation table[] = {
    // Those that the targets name.
    {.name = "UDP add + release",
     .table = &udp,
     .library =
         [](uint32_t n) { return add_udp(udp_id(n), *ipv4_seen) | zel_core_term_udp_session_release(udp_id(n)); },
     .reference =
         [](uint32_t n) {
             by_hand::udp_add(n, udp_id(n), *ipv4_seen, udp_ids, dscp);
             by_hand::udp_release(n, *ipv4_seen);
         }},
    {.name = "UDP add + release IPv6",
     .table = &udp,
     .library =
         [](uint32_t n) { return add_udp(udp_id(n), *ipv6_seen) | zel_core_term_udp_session_release(udp_id(n)); },
     .reference =
         [](uint32_t n) {
             by_hand::udp_add(n, udp_id(n), *ipv6_seen, udp_ids, dscp);
             by_hand::udp_release(n, *ipv6_seen);
         }},
    {.name = "UDP add + release (ids all over the table)",
     .table = &no_table,
     .library =
         [](uint32_t) {
             const uint32_t id = next_scattered_id();
             return add_udp(id, *ipv4_seen) | zel_core_term_udp_session_release(id);
         },
     .reference =
         [](uint32_t n) {
             by_hand::udp_add(n, next_scattered_id(), *ipv4_seen, udp_ids, dscp);
             by_hand::udp_release(n, *ipv4_seen);
         }},
    {.name = "L2TP session add + removal",
     .table = &sessions,
     .library = [](uint32_t n) { return add_session(session_id(n), carrier) | remove_session(n); },
     .reference =
         [](uint32_t n) {
             add_session_by_hand(n);
             remove_session_by_hand(n);
         }},
    {.name = "lowest free id", .table = &udp_queried, .library = get_free_id},
    {.name = "ascending search for it (not the library)", .table = &udp_queried, .library = search_ascending},
    {.name = "fill of 70000 sessions (beside the adds alone)",
     .table = &whole_udp,
     .library = fill,
     .reference = fill_with_known_ids,
     .prepare = restart,
     .clean_up = restart},

    // UDP sessions
    {.name = "UDP add IPv4",
     .table = &udp,
     .library = [](uint32_t n) { return add_udp(udp_id(n), *ipv4_seen); },
     .reference = [](uint32_t n) { by_hand::udp_add(n, udp_id(n), *ipv4_seen, udp_ids, dscp); },
     .failing_call = 4,
     .clean_up = release_udp},
    {.name = "UDP add IPv6",
     .table = &udp,
     .library = [](uint32_t n) { return add_udp(udp_id(n), *ipv6_seen); },
     .reference = [](uint32_t n) { by_hand::udp_add(n, udp_id(n), *ipv6_seen, udp_ids, dscp); },
     .failing_call = 4,
     .clean_up = release_udp},
    {.name = "UDP modify path MTU",
     .table = &udp,
     .library = [](uint32_t n) { return zel_core_term_udp_session_modify_pmtu(udp_id(n), 1280 + n); },
     .reference = [](uint32_t n) { by_hand::udp_modify(n, *ipv6_seen); },
     .failing_call = 1,
     .prepare = add_udp_ipv6,
     .clean_up = release_udp},
    {.name = "UDP modify TTL",
     .table = &udp,
     .library = [](uint32_t n) { return zel_core_term_udp_session_modify_ttl(udp_id(n), 64); },
     .reference = [](uint32_t n) { by_hand::udp_modify(n, *ipv6_seen); },
     .failing_call = 1,
     .prepare = add_udp_ipv6,
     .clean_up = release_udp},
    {.name = "UDP disconnect",
     .table = &udp,
     .library = [](uint32_t n) { return zel_core_term_udp_session_disconnect(udp_id(n)); },
     .reference = [](uint32_t n) { by_hand::udp_disconnect(n, udp_id(n), *ipv4_seen, udp_ids); },
     .failing_call = 2,
     .prepare = add_udp_ipv4,
     .clean_up = release_udp},
    {.name = "UDP release",
     .table = &udp,
     .library = [](uint32_t n) { return zel_core_term_udp_session_release(udp_id(n)); },
     .reference = [](uint32_t n) { by_hand::udp_release(n, *ipv4_seen); },
     .failing_call = 2,
     .prepare = add_udp_ipv4},
    {.name = "UDP statistics IPv4",
     .table = &udp,
     .library =
         [](uint32_t n) {
             zel_udp_session_ipv4_stats_t stats;
             return zel_udp_session_get_stats(udp_id(n), &stats);
         },
     .reference =
         [](uint32_t n) {
             zel_udp_session_ipv4_stats_t stats;
             by_hand::udp_stats(n, stats);
         },
     .failing_call = 2,
     .prepare = add_udp_ipv4,
     .clean_up = release_udp},
    {.name = "UDP statistics IPv6",
     .table = &udp,
     .library =
         [](uint32_t n) {
             zel_udp_session_ipv6_stats_t stats;
             return zel_ipv6_udp_session_get_stats(udp_id(n), &stats);
         },
     .reference =
         [](uint32_t n) {
             zel_udp_session_ipv6_stats_t stats;
             by_hand::udp_stats(n, stats);
         },
     .failing_call = 2,
     .prepare = add_udp_ipv6,
     .clean_up = release_udp},
    {.name = "UDP statistics as text",
     .table = &udp,
     .library =
         [](uint32_t n) {
             char text[256];
             return zel_core_term_udp_session_fmt_stats_get(udp_id(n), text, sizeof text, 0);
         },
     .reference =
         [](uint32_t n) {
             char text[256];
             by_hand::udp_formatted_stats(n, text, sizeof text);
         },
     .failing_call = 2,
     .prepare = add_udp_ipv4,
     .clean_up = release_udp},
    {.name = "UDP configuration",
     .table = &udp,
     .library =
         [](uint32_t n) {
             zel_core_term_udp_session_cfg_t cfg;
             return zel_core_term_udp_session_cfg_get(udp_id(n), &cfg);
         },
     .prepare = add_udp_ipv4,
     .clean_up = release_udp},
    {.name = "UDP capabilities",
     .table = &no_table,
     .library =
         [](uint32_t) {
             zel_core_term_udp_session_capabilities_t capabilities;
             return zel_core_term_udp_session_capabilities_get(&capabilities);
         }},

    // L2TPv3 control connections
    {.name = "L2TP connection add",
     .table = &connections,
     .library = [](uint32_t n) { return add_connection(connection_id(n), connection_id(n)); },
     .reference = [](uint32_t n) { add_connection_by_hand(n, false); },
     .failing_call = 6,
     .clean_up = [](uint32_t n) { remove_connection(n); }},
    {.name = "L2TP connection add (sharing)",
     .table = &connections,
     .library = [](uint32_t n) { return add_connection(connection_id(n), carrier); },
     .reference = [](uint32_t n) { add_connection_by_hand(n, true); },
     .failing_call = 3,
     .clean_up = [](uint32_t n) { remove_connection(n); }},
    {.name = "L2TP connection modify (6 sessions)",
     .table = &connections,
     .library = modify_connection,
     .reference = modify_connection_by_hand,
     .failing_call = 14,
     .prepare = add_connection_with_sessions,
     .clean_up = remove_connection_with_sessions},
    {.name = "L2TP connection removal",
     .table = &connections,
     .library = remove_connection,
     .reference = [](uint32_t n) { remove_connection_by_hand(n, false); },
     .failing_call = 6,
     .prepare = [](uint32_t n) { add_connection(connection_id(n), connection_id(n)); }},
    {.name = "L2TP connection removal (sharing)",
     .table = &connections,
     .library = remove_connection,
     .reference = [](uint32_t n) { remove_connection_by_hand(n, true); },
     .failing_call = 3,
     .prepare = [](uint32_t n) { add_connection(connection_id(n), carrier); }},

    // L2TPv3 sessions
    {.name = "L2TP session add",
     .table = &sessions,
     .library = [](uint32_t n) { return add_session(session_id(n), carrier); },
     .reference = add_session_by_hand,
     .failing_call = 5,
     .clean_up = [](uint32_t n) { remove_session(n); }},
    {.name = "L2TP session unbind part",
     .table = &sessions,
     .library = [](uint32_t n) { return zel_l2tp_session_modify_unbind_part(carrier, session_id(n)); },
     .reference = by_hand::session_unbind,
     .failing_call = 1,
     .prepare = add_both_sessions,
     .clean_up = [](uint32_t n) { remove_session(n); }},
    {.name = "L2TP session bind part",
     .table = &sessions,
     .library =
         [](uint32_t n) { return zel_l2tp_session_modify_bind_part(carrier, session_id(n), session_ids.pcep, 0); },
     .reference = [](uint32_t n) { by_hand::session_bind(n, dscp); },
     .failing_call = 1,
     .prepare = add_both_sessions,
     .clean_up = [](uint32_t n) { remove_session(n); }},
    {.name = "L2TP session removal",
     .table = &sessions,
     .library = remove_session,
     .reference = remove_session_by_hand,
     .failing_call = 5,
     .prepare = add_both_sessions},

    // The frame
    {.name = "start",
     .table = &udp_restarted,
     .library = [](uint32_t) { return zel_core_term_start(); },
     .prepare = [](uint32_t) { occupy_udp(first_free); }},
    {.name = "stop",
     .table = &udp_restarted,
     .library = [](uint32_t) { return zel_core_term_stop(); },
     .prepare = [](uint32_t) { occupy_udp(first_free); },
     .clean_up = restart},
    {.name = "UDP module start", .table = &no_table, .library = [](uint32_t) { return zel_udp_session_start(); }},
    {.name = "UDP module stop",
     .table = &no_table,
     .library = [](uint32_t) { return zel_udp_session_stop(); },
     .clean_up = restart},
    {.name = "L2TP module start", .table = &no_table, .library = [](uint32_t) { return zel_l2tp_start(); }},
    {.name = "L2TP module stop",
     .table = &no_table,
     .library = [](uint32_t) { return zel_l2tp_stop(); },
     .clean_up = restart},
    {.name = "L2TP associations reset",
     .table = &no_table,
     .library =
         [](uint32_t) {
             zel_l2tp_reset_ip_associations_handling();
             return 0u;
         }},
    {.name = "handle block",
     .table = &no_table,
     .library = [](uint32_t) { return zel_getHandles() == nullptr ? 1u : 0u; }},
    {.name = "tick counter",
     .table = &no_table,
     .library = [](uint32_t) { return zel_core_term_time_get() == 0 ? 1u : 0u; }},
    {.name = "tick frequency",
     .table = &no_table,
     .library =
         [](uint32_t) {
             uint64_t frequency_hz;
             return zel_core_term_clock_freq_get(&frequency_hz);
         }},
    {.name = "place for a breakpoint",
     .table = &no_table,
     .library =
         [](uint32_t) {
             zel_tracepoint();
             return 0u;
         }},
    {.name = "trace message",
     .table = &no_table,
     .library =
         [](uint32_t n) {
             return zel_trace_internal_format_str("%s(): ", "function", "id=%u", n) == nullptr ? 1u : 0u;
         }},
    {.name = "session-type hook",
     .table = &no_table,
     .library = [](uint32_t) { return zel_ovlin_session_handler_set_session_type(0, 1, 2); }},
};

} // namespace

std::span<const operation> operations()
{
    return table;
}

void occupy(const measured_table &occupied, uint32_t quarters)
{
    const uint32_t most = occupied.capacity - occupied.free_entries;
    first_free = (most * quarters + quarters_full - 1) / quarters_full;
    occupied.occupy(first_free);
}

void for_each_call(const operation &measured, void (*part)(uint32_t n))
{
    for (uint32_t n = 0; part != nullptr && n < measured.table->calls; ++n)
        part(n);
}

template <typename Part> static void run(const operation &measured, outcome wanted, Part part)
{
    for (uint32_t n = 0; n < measured.table->calls; ++n) {
        if (wanted == outcome::failure)
            vok_cp_null_fail(measured.failing_call);
        part(n);
    }
}

void run_library(const operation &measured, outcome wanted)
{
    run(measured, wanted, measured.library);
}

void run_reference(const operation &measured, outcome wanted)
{
    run(measured, wanted, measured.reference);
}

void require_null_data_plane()
{
    for (const char *name : {"vok_bind", "vok_cp_null_fail"}) {
        Dl_info info{};
        const void *function = dlsym(RTLD_DEFAULT, name);
        require(function != nullptr && dladdr(function, &info) != 0 &&
                    std::strstr(info.dli_fname, "/null/libvok_cp.so") != nullptr,
                "the data plane is not the null one", name);
    }
}

/// Runs one batch of `measured` and gives the number of data-plane calls.
template <typename Part> static uint64_t count_calls(const operation &measured, Part part)
{
    for_each_call(measured, measured.prepare);
    const uint64_t before = vok_cp_null_calls();
    part();
    const uint64_t calls = vok_cp_null_calls() - before;
    vok_cp_null_fail(0);
    for_each_call(measured, measured.clean_up);
    return calls;
}

void require_honest_measurement()
{
    require_null_data_plane();
    for (const operation &measured : table) {
        occupy(*measured.table, 2);
        require(count_calls(measured,
                            [&] {
                                for (uint32_t n = 0; n < measured.table->calls; ++n)
                                    require(measured.library(n) == ZEL_CORE_TERM_SUCCESS, "fails", measured.name);
                            }) != 0 ||
                    measured.failing_call == 0,
                "makes no call", measured.name);
        for_each_outcome(measured, [&](outcome wanted) {
            const uint64_t by_library = count_calls(measured, [&] { run_library(measured, wanted); });
            if (measured.reference == nullptr)
                require(by_library == 0, "makes platform calls and has no reference", measured.name);
            else
                require(by_library == count_calls(measured, [&] { run_reference(measured, wanted); }),
                        "library and reference make different calls", measured.name);
        });
    }
}
