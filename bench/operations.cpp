#include "operations.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "by_hand.h"
#include "requests.h"
#include "tn_zel_tracepoints.h"
#include "vok_cp.h"
#include "vok_cp_null.h"
#include "zel_core_term/zel_core_term.h"

namespace {

using std::uint32_t;

const request::udp_add ipv4 = request::udp(1, 4), ipv6 = request::udp(1, 6); // each operation has an id of its own
const by_hand::ovlin_ids udp_ids{ipv4.uplink_pcep, ipv4.rat_session};

/// Kept from the compiler's eyes, so that it cannot make the hand-written calls for these values only.
const zel_core_term_udp_session_cfg_t *volatile ipv4_seen = &ipv4.cfg, *volatile ipv6_seen = &ipv6.cfg;

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
    return zel_core_term_udp_session_add(id, &cfg, udp_ids.pcep, udp_ids.pcep, udp_ids.rat_session, ipv4.dscp, false);
}

uint32_t add_udp_ipv4(uint32_t n)
{
    return add_udp(udp_id(n), *ipv4_seen);
}

uint32_t add_udp_ipv6(uint32_t n)
{
    return add_udp(udp_id(n), *ipv6_seen);
}

uint32_t release_udp(uint32_t n)
{
    return zel_core_term_udp_session_release(udp_id(n));
}

uint32_t add_and_release_by_hand(uint32_t n, uint32_t id, const zel_core_term_udp_session_cfg_t &cfg)
{
    return !by_hand::udp_add(n, id, cfg, udp_ids, ipv4.dscp) || !by_hand::udp_release(n, cfg);
}

void occupy_udp(uint32_t entries)
{
    zel_core_term_start();
    for (uint32_t id = 1; id <= entries; ++id)
        add_udp(id, *ipv4_seen);
}

uint32_t occupy_udp_again(uint32_t)
{
    occupy_udp(first_free);
    return 0;
}

/// Visits each id once per cycle, and never two neighbours in turn.
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

uint32_t fill_with_known_ids(uint32_t)
{
    uint32_t failures = 0;
    for (uint32_t id = 1; id <= ZEL_CORE_TERM_UDP_SESSION_ID_MAX; ++id)
        failures |= add_udp(id, *ipv4_seen);
    return failures;
}

uint32_t restart(uint32_t)
{
    return zel_core_term_start();
}

uint32_t call_empty_function(uint32_t)
{
    zel_tracepoint();
    return 0;
}

// ---- L2TPv3 control connections. The highest id is the carrier of sessions, always there.

constexpr uint32_t carrier = ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX;
constexpr uint32_t sessions_per_connection = 6;

uint32_t connection_id(uint32_t n)
{
    return first_free + n;
}

/// Peers differ by their number; that of a connection is its id.
request::connection_add connection(uint32_t id, uint32_t peer)
{
    return request::connect(id, static_cast<uint8_t>(peer));
}

uint32_t add_connection_by_hand(uint32_t n, bool shared)
{
    const request::connection_add r = connection(connection_id(n), connection_id(n));
    return !by_hand::connection_add(n, r.id, r.cfg, r.control_connection_id, {r.pcep, r.rat_session}, r.dscp, shared);
}

uint32_t remove_connection_by_hand(uint32_t n, bool shared)
{
    return !by_hand::connection_remove(n, connection_id(n), {request::pcep, request::rat_session}, shared);
}

uint32_t add_connection_of_its_own(uint32_t n)
{
    return connection(connection_id(n), connection_id(n))();
}

uint32_t add_connection_sharing(uint32_t n)
{
    return connection(connection_id(n), carrier)();
}

/// By turns with two connections, so that what was found last is not what is wanted.
uint32_t add_connection_sharing_by_turns(uint32_t n)
{
    return connection(connection_id(n), n % 2 == 0 || first_free == 0 ? carrier : first_free / 2)();
}

uint32_t remove_connection(uint32_t n)
{
    return zel_core_term_l2tp_control_connection_rem(connection_id(n), request::pcep, request::rat_session);
}

void occupy_connections(uint32_t entries)
{
    zel_core_term_start();
    for (uint32_t id = 0; id < entries; ++id)
        connection(id, id)();
    connection(carrier, carrier)();
}

// ---- L2TPv3 sessions, all carried by the carrier but those of the modify

uint32_t session_id(uint32_t n)
{
    return ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + first_free + n;
}

uint32_t add_session_to_carrier(uint32_t n)
{
    return request::session_of(carrier, session_id(n))();
}

uint32_t remove_session(uint32_t n)
{
    return zel_core_term_l2tp_session_rem(carrier, session_id(n));
}

uint32_t add_and_remove_session(uint32_t n)
{
    return add_session_to_carrier(n) | remove_session(n);
}

uint32_t add_and_remove_session_by_hand(uint32_t n)
{
    const request::session_add r = request::session_of(carrier, session_id(n));
    const by_hand::ovlin_ids ids{r.pcep, r.rat_session};
    return !by_hand::session_add(n, r.id, r.local_session_id, ids, r.dscp) || !by_hand::session_remove(n, r.id, ids);
}

/// What the tracer takes for an event with three short strings that are there already.
void fire_bare_events(int count)
{
    for (int i = 0; i < count; ++i)
        lttng_ust_tracepoint(tn_zel_term, FN_ENTER, "zel_l2tp_session:222", "L2TP_SESSION",
                             "zel_core_term_l2tp_session_add()");
}

void occupy_sessions(uint32_t entries)
{
    occupy_connections(0);
    for (uint32_t i = 0; i < entries; ++i)
        request::session_of(carrier, ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + i)();
}

/// A connection's own sessions, which move with it.
uint32_t session_of_connection(uint32_t n, uint32_t i)
{
    return ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + n * sessions_per_connection + i;
}

uint32_t add_connection_with_sessions(uint32_t n)
{
    uint32_t failures = add_connection_of_its_own(n);
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        failures |= request::session_of(connection_id(n), session_of_connection(n, i))();
    return failures;
}

uint32_t modify_connection(uint32_t n)
{
    uint32_t sessions[sessions_per_connection];
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        sessions[i] = session_of_connection(n, i);
    request::connection_add old_place = connection(connection_id(n), connection_id(n));
    request::connection_add r = connection(connection_id(n), 128 + connection_id(n));
    return zel_core_term_l2tp_control_connection_modify(r.id, sessions, sessions_per_connection, &r.cfg, r.pcep,
                                                        r.rat_session, r.dscp, r.dscp, old_place.cfg.remote_addr, 0);
}

uint32_t modify_connection_by_hand(uint32_t n)
{
    const request::connection_add r = connection(connection_id(n), 128 + connection_id(n));
    const request::connection_add old_place = connection(connection_id(n), connection_id(n));
    return !by_hand::connection_modify(n, r.id, r.cfg, old_place.cfg, {r.pcep, r.rat_session}, r.dscp,
                                       n * sessions_per_connection, sessions_per_connection);
}

uint32_t remove_connection_with_sessions(uint32_t n)
{
    for (uint32_t i = 0; i < sessions_per_connection; ++i)
        zel_core_term_l2tp_session_rem(connection_id(n), session_of_connection(n, i));
    return remove_connection(n);
}

// ---- The tables and their operations

constexpr uint32_t udp_capacity = ZEL_CORE_TERM_UDP_SESSION_ID_MAX;
constexpr uint32_t session_capacity = ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1;
constexpr uint32_t slots = by_hand::slot_count;

constexpr measured_table no_table{0, 0, slots, occupy_udp};
constexpr measured_table whole_udp{0, 0, 1, occupy_udp};
constexpr measured_table udp{udp_capacity, slots, slots, occupy_udp};
constexpr measured_table udp_queried{udp_capacity, 1, slots, occupy_udp};
constexpr measured_table udp_restarted{udp_capacity, 0, 1, occupy_udp};
constexpr measured_table connections{carrier - 1, 8, 8, occupy_connections};
constexpr measured_table sessions{session_capacity, slots, slots, occupy_sessions};

/// Where what a getter gives is left.
struct {
    uint32_t id;
    uint64_t frequency_hz;
    char text[256];
    zel_core_term_udp_session_cfg_t cfg;
    zel_core_term_udp_session_capabilities_t capabilities;
    zel_udp_session_ipv4_stats_t ipv4_stats;
    zel_udp_session_ipv6_stats_t ipv6_stats;
} got;

// Each row: name, table, operation; the call that fails, what precedes and what follows a batch; the reference.
constexpr operation table[] = {
    // With a reference
    {"UDP add + release", &udp, [](uint32_t n) { return add_udp_ipv4(n) | release_udp(n); }, 0, nullptr, nullptr,
     [](uint32_t n) { return add_and_release_by_hand(n, udp_id(n), *ipv4_seen); }},
    {"UDP add + release IPv6", &udp, [](uint32_t n) { return add_udp_ipv6(n) | release_udp(n); }, 0, nullptr, nullptr,
     [](uint32_t n) { return add_and_release_by_hand(n, udp_id(n), *ipv6_seen); }},
    {"UDP add + release (ids all over the table)", &no_table,
     [](uint32_t) {
         const uint32_t id = next_scattered_id();
         return add_udp(id, *ipv4_seen) | zel_core_term_udp_session_release(id);
     },
     0, nullptr, nullptr, [](uint32_t n) { return add_and_release_by_hand(n, next_scattered_id(), *ipv4_seen); }},
    {"L2TP session add + removal", &sessions, add_and_remove_session, 0, nullptr, nullptr,
     add_and_remove_session_by_hand},
    {"L2TP session beside 15 bare events", &sessions, add_and_remove_session, 0, nullptr, nullptr,
     [](uint32_t n) { return fire_bare_events(15), add_and_remove_session_by_hand(n); }},
    {"refused removal beside 3 bare events", &no_table,
     [](uint32_t) { return zel_core_term_l2tp_session_rem(carrier, ZEL_CORE_TERM_L2TP_SESSION_ID_MAX + 1); }, 0,
     nullptr, nullptr, [](uint32_t) { return fire_bare_events(3), 0u; }},
    {"L2TP connection add", &connections, add_connection_of_its_own, 6, nullptr, remove_connection,
     [](uint32_t n) { return add_connection_by_hand(n, false); }},
    {"L2TP connection add (sharing)", &connections, add_connection_sharing, 3, nullptr, remove_connection,
     [](uint32_t n) { return add_connection_by_hand(n, true); }},
    {"L2TP connection add (sharing by turns)", &connections, add_connection_sharing_by_turns, 0, nullptr,
     remove_connection, [](uint32_t n) { return add_connection_by_hand(n, true); }},
    {"L2TP connection removal", &connections, remove_connection, 6, add_connection_of_its_own, nullptr,
     [](uint32_t n) { return remove_connection_by_hand(n, false); }},
    {"L2TP connection removal (sharing)", &connections, remove_connection, 3, add_connection_sharing, nullptr,
     [](uint32_t n) { return remove_connection_by_hand(n, true); }},
    {"L2TP connection modify (6 sessions)", &connections, modify_connection, 14, add_connection_with_sessions,
     remove_connection_with_sessions, modify_connection_by_hand},
    {"lowest free id", &udp_queried, [](uint32_t) { return zel_core_term_udp_session_free_id_get(&got.id); }, 0,
     nullptr, nullptr, call_empty_function},
    {"fill of 70000 sessions (beside the adds alone)", &whole_udp, fill, 0, restart, restart, fill_with_known_ids},

    // UDP sessions
    {"UDP add IPv4", &udp, add_udp_ipv4, 4, nullptr, release_udp},
    {"UDP add IPv6", &udp, add_udp_ipv6, 4, nullptr, release_udp},
    {"UDP modify path MTU", &udp, [](uint32_t n) { return zel_core_term_udp_session_modify_pmtu(udp_id(n), 1280 + n); },
     1, add_udp_ipv6, release_udp},
    {"UDP modify TTL", &udp, [](uint32_t n) { return zel_core_term_udp_session_modify_ttl(udp_id(n), 64); }, 1,
     add_udp_ipv6, release_udp},
    {"UDP disconnect", &udp, [](uint32_t n) { return zel_core_term_udp_session_disconnect(udp_id(n)); }, 2,
     add_udp_ipv4, release_udp},
    {"UDP release", &udp, release_udp, 2, add_udp_ipv4},
    {"UDP statistics IPv4", &udp, [](uint32_t n) { return zel_udp_session_get_stats(udp_id(n), &got.ipv4_stats); }, 2,
     add_udp_ipv4, release_udp},
    {"UDP statistics IPv6", &udp, [](uint32_t n) { return zel_ipv6_udp_session_get_stats(udp_id(n), &got.ipv6_stats); },
     2, add_udp_ipv6, release_udp},
    {"UDP statistics as text", &udp,
     [](uint32_t n) { return zel_core_term_udp_session_fmt_stats_get(udp_id(n), got.text, sizeof got.text, 0); }, 2,
     add_udp_ipv4, release_udp},
    {"UDP configuration", &udp, [](uint32_t n) { return zel_core_term_udp_session_cfg_get(udp_id(n), &got.cfg); }, 0,
     add_udp_ipv4, release_udp},
    {"UDP capabilities", &no_table,
     [](uint32_t) { return zel_core_term_udp_session_capabilities_get(&got.capabilities); }},

    // L2TPv3 control connections and sessions
    {"L2TP session add", &sessions, add_session_to_carrier, 5, nullptr, remove_session},
    {"L2TP session unbind part", &sessions,
     [](uint32_t n) { return zel_l2tp_session_modify_unbind_part(carrier, session_id(n)); }, 1, add_session_to_carrier,
     remove_session},
    {"L2TP session bind part", &sessions,
     [](uint32_t n) {
         const request::session_add r = request::session_of(carrier, session_id(n));
         return zel_l2tp_session_modify_bind_part(r.connection, r.id, r.pcep, 0);
     },
     1, add_session_to_carrier, remove_session},
    {"L2TP session removal", &sessions, remove_session, 5, add_session_to_carrier},

    // The frame
    {"start", &udp_restarted, restart, 0, occupy_udp_again},
    {"stop", &udp_restarted, [](uint32_t) { return zel_core_term_stop(); }, 0, occupy_udp_again, restart},
    {"UDP module start", &no_table, [](uint32_t) { return zel_udp_session_start(); }},
    {"UDP module stop", &no_table, [](uint32_t) { return zel_udp_session_stop(); }, 0, nullptr, restart},
    {"L2TP module start", &no_table, [](uint32_t) { return zel_l2tp_start(); }},
    {"L2TP module stop", &no_table, [](uint32_t) { return zel_l2tp_stop(); }, 0, nullptr, restart},
    {"L2TP associations reset", &no_table, [](uint32_t) { return zel_l2tp_reset_ip_associations_handling(), 0u; }},
    {"handle block", &no_table, [](uint32_t) -> uint32_t { return zel_getHandles() == nullptr; }},
    {"tick counter", &no_table, [](uint32_t) -> uint32_t { return zel_core_term_time_get() == 0; }},
    {"tick frequency", &no_table, [](uint32_t) { return zel_core_term_clock_freq_get(&got.frequency_hz); }},
    {"place for a breakpoint", &no_table, call_empty_function},
    {"trace message", &no_table,
     [](uint32_t n) -> uint32_t { return zel_trace_internal_format_str("%s(): ", "function", "id=%u", n) == nullptr; }},
    {"session-type hook", &no_table, [](uint32_t) { return zel_ovlin_session_handler_set_session_type(0, 1, 2); }},
};

/// Of a batch, whose calls must succeed where none is to fail.
uint64_t count_calls(const operation &measured, part run_part)
{
    uint64_t calls = 0;
    with_batch(measured, [&] {
        const uint64_t before = vok_cp_null_calls();
        require(run(measured, run_part) == 0 || measured.failing_call != 0, "fails", measured.name);
        calls = vok_cp_null_calls() - before;
    });
    return calls;
}

} // namespace

void for_each_operation(const std::function<void(const operation &)> &visit)
{
    for (operation visited : table) {
        const uint32_t failing_call = std::exchange(visited.failing_call, 0);
        visit(visited);
        visited.failing_call = failing_call;
        if (failing_call != 0)
            visit(visited);
    }
}

void occupy(const measured_table &occupied, uint32_t quarters)
{
    const uint32_t most = occupied.capacity - occupied.free_entries;
    first_free = (most * quarters + quarters_full - 1) / quarters_full;
    occupied.occupy(first_free);
}

uint32_t run(const operation &measured, part run_part)
{
    uint32_t results = 0;
    for (uint32_t n = 0; n < measured.table->calls; ++n) {
        if (measured.failing_call != 0)
            vok_cp_null_fail(measured.failing_call);
        results |= run_part(n);
    }
    return results;
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

void require_honest_measurement()
{
    require_null_data_plane();
    for_each_operation([](const operation &measured) {
        occupy(*measured.table, quarters_full / 2);
        const uint64_t calls = count_calls(measured, measured.library);
        require(calls >= uint64_t{measured.table->calls} * measured.failing_call,
                "does not come to the call that fails", measured.name);
        if (measured.reference != nullptr)
            require(calls == count_calls(measured, measured.reference), "library and reference make different calls",
                    measured.name);
    });
}
