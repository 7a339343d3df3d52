#include "proof/operations.h"

#include <numeric>

namespace proof {
namespace {

using enum paths;
using request::connect, request::move, request::pcep, request::rat_session, request::session_of, request::udp;

constexpr auto reach_nothing = [](world &) {};

void add_connection(world &w)
{
    w.connection_add(connect(1, 1));
}

void add_session(world &w)
{
    add_connection(w);
    w.session_add(session_of(1, 100));
}

void add_one_of_each(world &w)
{
    w.udp_add(udp(1, 4));
    w.udp_add(udp(2, 6));
    add_session(w);
}

void disconnect_and_unbind(world &w)
{
    add_one_of_each(w);
    w.udp_disconnect(1);
    w.udp_disconnect(2);
    w.session_unbind_part(1, 100);
}

void remove_all_again(world &w)
{
    disconnect_and_unbind(w);
    w.session_remove(1, 100);
    w.connection_remove(1, pcep, rat_session);
    w.udp_release(1);
    w.udp_release(2);
}

void share_associations(world &w)
{
    add_session(w);
    w.connection_add(connect(2, 1));
    w.connection_add(connect(3, 2));
    w.session_add(session_of(2, 101));
    w.session_add(session_of(1, 102));
}

void use_all_associations(world &w)
{
    for (uint32_t id = 0; id < 48; ++id)
        w.connection_add(connect(id, static_cast<uint8_t>(100 + id)));
    w.connection_add(connect(48, 100));
}

std::vector<uint32_t> all_sessions()
{
    std::vector<uint32_t> ids(ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1);
    std::iota(ids.begin(), ids.end(), uint32_t{ZEL_CORE_TERM_L2TP_SESSION_ID_MIN});
    return ids;
}

void add_all_sessions(world &w)
{
    add_connection(w);
    for (const uint32_t id : all_sessions())
        w.session_add(session_of(1, id));
}

constexpr state most[] = {
    {"nothing", reach_nothing},
    {"one of each", add_one_of_each},
    {"shared associations", share_associations},
    {"disconnected and unbound", disconnect_and_unbind},
    {"all of it removed again", remove_all_again},
};
constexpr state full[] = {{"all associations in use", use_all_associations}};
constexpr state crowded[] = {{"all sessions", add_all_sessions}};

constexpr tried_operation table[] = {
    {"udp add, IPv4", [](world &w) { return w.udp_add(udp(9, 4)); }, most, all_undone},
    {"udp add with session type", [](world &w) { return w.udp_add(udp(9, 4, 1)); }, most, all_undone,
     "zel_core_term_udp_session_add", "IPv4, with session type", reach_nothing},
    {"udp add, IPv6", [](world &w) { return w.udp_add(udp(9, 6)); }, most, all_undone, "zel_core_term_udp_session_add",
     "IPv6", reach_nothing},
    {"udp modify path mtu", [](world &w) { return w.udp_modify(attribute::pmtu, 2, 1280); }, most, all_undone,
     "zel_core_term_udp_session_modify_pmtu", "", add_one_of_each},
    {"udp modify ttl", [](world &w) { return w.udp_modify(attribute::ttl, 2, 9); }, most, all_undone,
     "zel_core_term_udp_session_modify_ttl", "", add_one_of_each},
    {"udp disconnect", [](world &w) { return w.udp_disconnect(1); }, most, all, "zel_core_term_udp_session_disconnect",
     "", add_one_of_each},
    {"udp release", [](world &w) { return w.udp_release(1); }, most, all, "zel_core_term_udp_session_release",
     "IPv4, disconnected before", disconnect_and_unbind},
    {"udp disconnect and release", [](world &w) { return w.udp_disconnect(2) + w.udp_release(2); }, most},
    {"udp statistics, IPv4", [](world &w) { return w.udp_statistics(statistics::ipv4, 1); }, most, all_undone,
     "zel_udp_session_get_stats", "", add_one_of_each},
    {"udp statistics, IPv6", [](world &w) { return w.udp_statistics(statistics::ipv6, 2); }, most, all_undone,
     "zel_ipv6_udp_session_get_stats", "", add_one_of_each},
    {"udp statistics as text, IPv4", [](world &w) { return w.udp_statistics(statistics::text, 1); }, most, all_undone,
     "zel_core_term_udp_session_fmt_stats_get", "IPv4", add_one_of_each},
    {"udp statistics as text, IPv6", [](world &w) { return w.udp_statistics(statistics::text, 2); }, most, all_undone},

    {"control connection add", [](world &w) { return w.connection_add(connect(9, 9)); }, most, all_undone},
    {"control connection add with session type", [](world &w) { return w.connection_add(connect(9, 1, 1)); }, most,
     all_undone, "zel_core_term_l2tp_control_connection_add", "the first, with session type", reach_nothing},
    {"control connection add, sharing", [](world &w) { return w.connection_add(connect(9, 1)); }, most, all_undone,
     "zel_core_term_l2tp_control_connection_add", "sharing the associations of another", add_one_of_each},
    {"control connection add, no association left",
     [](world &w) { return w.connection_remove(48, pcep, rat_session) + w.connection_add(connect(48, 9)); }, full},
    {"control connection removal", [](world &w) { return w.connection_remove(1, pcep, rat_session); }, most, all,
     "zel_core_term_l2tp_control_connection_rem", "the last that uses its associations", add_connection},
    {"control connection modify without sessions", [](world &w) { return w.connection_modify(move(1, 9, {})); }, most,
     few},
    {"control connection modify with a session", [](world &w) { return w.connection_modify(move(1, 9, {100})); }, most,
     few, "zel_core_term_l2tp_control_connection_modify", "with one session, to a peer that no other connection has",
     add_session},
    {"control connection modify with session type", [](world &w) { return w.connection_modify(move(1, 9, {100}, 1)); },
     most, few},
    {"control connection modify to a shared peer", [](world &w) { return w.connection_modify(move(1, 2, {100})); },
     most, few},
    {"control connection modify with two sessions",
     [](world &w) {
         return w.connection_modify(move(1, 9, {100, 102}));
     },
     most, few},
    {"control connection modify, a session twice",
     [](world &w) {
         return w.connection_modify(move(1, 9, {100, 100}));
     },
     most, few},
    {"control connection modify, no association left",
     [](world &w) {
         request::connection_modify r = move(48, 9, {});
         r.old_remote_addr[3] = 100;
         return w.connection_modify(r);
     },
     full, few},
    {"control connection modify with all sessions",
     [](world &w) { return w.connection_modify(request::move(1, 9, all_sessions())); }, crowded, one},

    {"session add", [](world &w) { return w.session_add(session_of(1, 109)); }, most, all_undone},
    {"session add over another", [](world &w) { return w.session_add(session_of(1, 100)); }, most},
    {"session add with session type", [](world &w) { return w.session_add(session_of(1, 109, 1)); }, most, all_undone,
     "zel_core_term_l2tp_session_add", "with session type", add_one_of_each},
    {"session removal", [](world &w) { return w.session_remove(1, 100); }, most, all, "zel_core_term_l2tp_session_rem",
     "", add_one_of_each},
    {"session unbind part", [](world &w) { return w.session_unbind_part(1, 100); }, most, all,
     "zel_l2tp_session_modify_unbind_part", "", add_one_of_each},
    {"session bind part with session type", [](world &w) { return w.session_bind_part(1, 100, 5, 1); }, most, all,
     "zel_l2tp_session_modify_bind_part", "with session type", disconnect_and_unbind},
    {"session parts, one after the other",
     [](world &w) { return w.session_unbind_part(1, 100) + w.session_bind_part(1, 100, 5, 0); }, most},
};

} // namespace

const std::span<const tried_operation> operations = table;

} // namespace proof
