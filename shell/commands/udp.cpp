// The commands of UDP sessions.
#include <algorithm>

#include "interrupt.h"
#include "progress.h"
#include "shell.h"
#include "text_table.h"
#include "zel_core_term/zel_udp_session.h"

namespace {

zel_core_term_udp_session_cfg_t configuration(const endpoint &local, const endpoint &remote)
{
    require_same_version("--local", local, "--remote", remote);
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = static_cast<std::uint8_t>(local.ip_version);
    std::ranges::copy(local.address, cfg.local_addr);
    std::ranges::copy(remote.address, cfg.remote_addr);
    cfg.local_port = local.port;
    cfg.remote_port = remote.port;
    return cfg;
}

/// What the fill gives a session: 192.0.2.1:2152 here, an address of its own at the peer (198.18.0.0/15).
zel_core_term_udp_session_cfg_t configuration_of_filler(std::uint32_t id)
{
    zel_core_term_udp_session_cfg_t cfg =
        configuration(parse_endpoint("192.0.2.1:2152"), parse_endpoint("198.18.0.0:2152"));
    cfg.remote_addr[1] = static_cast<std::uint8_t>(cfg.remote_addr[1] + (id >> 16));
    cfg.remote_addr[2] = static_cast<std::uint8_t>(id >> 8);
    cfg.remote_addr[3] = static_cast<std::uint8_t>(id);
    cfg.ttl = 64;
    return cfg;
}

std::string udp(const char *operation, std::uint32_t id)
{
    return std::string("udp ") + operation + " " + std::to_string(id);
}

/// Whether the id is in use after an add: not undone is what the session-type hook ended with 3 or 5.
bool is_left_in_use(const operation_record &add)
{
    return add.result == ZEL_CORE_TERM_SUCCESS || std::ranges::any_of(calls_of(add), [](const recorded_call *call) {
               return call->is_hook() &&
                      (call->status == ZEL_CORE_TERM_OUT_OF_RANGE || call->status == ZEL_CORE_TERM_SESSION_IN_USE);
           });
}

std::size_t count_failed_calls(const operation_record &operation)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(calls_of(operation), [](const recorded_call *call) { return call->status != 0; }));
}

/// Keeps the handles of the associations that the last operation, an add, has made.
void note_session(shell &s, std::uint32_t id)
{
    known_udp_sessions::handles made;
    for (const recorded_call *call : calls_of(s.last_operation()))
        if (call->created != 0 && call->status == 0) {
            const bool is_ingress = call->kind == VOK_CP_SIM_IPV4_INGRESS || call->kind == VOK_CP_SIM_IPV6_INGRESS;
            (is_ingress ? made.ingress : made.egress) = call->created;
        }
    s.known.udp_sessions.add(id, made);
}

void add(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    zel_core_term_udp_session_cfg_t cfg =
        configuration(parse_endpoint(given.text("--local")), parse_endpoint(given.text("--remote")));
    cfg.vrf_id = given.number("--vrf");
    cfg.pmtu = given.number("--pmtu");
    cfg.ttl = given.byte("--ttl");
    s.operate(udp("add", id), [&] {
        return zel_core_term_udp_session_add(id, &cfg, given.number("--uplink-pcep"), given.number("--downlink-pcep"),
                                             given.number("--rat-session"), given.byte("--dscp"),
                                             given.has("--session-type"));
    });
    if (is_left_in_use(s.last_operation()))
        note_session(s, id);
}

void modify(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    if (!given.has("--pmtu") && !given.has("--ttl"))
        throw bad_line("--pmtu or --ttl is required");
    if (given.has("--pmtu") && s.operate(udp("modify", id) + " --pmtu", [&] {
            return zel_core_term_udp_session_modify_pmtu(id, given.number("--pmtu"));
        }) != ZEL_CORE_TERM_SUCCESS)
        return;
    if (given.has("--ttl"))
        s.operate(udp("modify", id) + " --ttl",
                  [&] { return zel_core_term_udp_session_modify_ttl(id, given.byte("--ttl")); });
}

void disconnect(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    s.operate(udp("disconnect", id), [&] { return zel_core_term_udp_session_disconnect(id); });
}

void release(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    if (s.operate(udp("release", id), [&] { return zel_core_term_udp_session_release(id); }) == ZEL_CORE_TERM_SUCCESS)
        s.known.udp_sessions.remove(id);
}

void stats(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    char text[512];
    s.operate(udp("stats", id),
              [&] { return zel_core_term_udp_session_fmt_stats_get(id, text, sizeof text, given.has("--fields")); });
    s.out << text;
}

void free_id(shell &s, const arguments &)
{
    std::uint32_t id = 0;
    if (s.operate("udp free-id", [&] { return zel_core_term_udp_session_free_id_get(&id); }) == ZEL_CORE_TERM_SUCCESS)
        s.out << "lowest free id: " << id << '\n';
}

void show(shell &s, const arguments &given)
{
    const auto &all = s.known.udp_sessions.all();
    const auto [begin, end] = given.has("ID") ? all.equal_range(given.number("ID")) : std::pair(all.begin(), all.end());
    if (given.has("ID") && begin == end) {
        s.out << "UDP session " << given.number("ID") << " is not in use\n";
        return;
    }
    text_table sessions{{"id", "local", "remote", "vrf", "path mtu", "ttl"}};
    for (auto at = begin; at != end; ++at) {
        const auto &[id, handles] = *at;
        zel_core_term_udp_session_cfg_t cfg{};
        zel_core_term_udp_session_cfg_get(id, &cfg);
        sessions.add({std::to_string(id), to_text(cfg.ip_version, cfg.local_addr, cfg.local_port),
                      to_text(cfg.ip_version, cfg.remote_addr, cfg.remote_port), std::to_string(cfg.vrf_id),
                      std::to_string(cfg.pmtu), ttl_text(cfg.ttl, handles.egress)});
    }
    s.out << count_text(static_cast<std::size_t>(std::distance(begin, end)), "UDP session") << '\n' << sessions;
}

void fill(shell &s, const arguments &given)
{
    const std::uint32_t count = given.number("COUNT");
    const auto &sessions = s.known.udp_sessions.all();
    progress shown(s.shows_progress, s.out, count);
    while (sessions.size() < count) {
        if (interrupt::taken()) {
            s.replace_line("udp fill " + std::to_string(sessions.size()));
            break;
        }
        std::uint32_t id = 0;
        if (zel_core_term_udp_session_free_id_get(&id) != ZEL_CORE_TERM_SUCCESS)
            break;
        const zel_core_term_udp_session_cfg_t cfg = configuration_of_filler(id);
        const std::uint32_t result =
            s.record(udp("add", id), [&] { return zel_core_term_udp_session_add(id, &cfg, 1, 2, id, 0, false); });
        if (result != ZEL_CORE_TERM_SUCCESS) {
            shown.end();
            s.show_result();
            break;
        }
        note_session(s, id);
        shown.at(sessions.size());
    }
    shown.end();
    s.changed_by("udp fill");
    s.out << "udp fill: " << count_text(sessions.size(), "session") << " in use\n";
}

void clear(shell &s, const arguments &given)
{
    const auto &sessions = s.known.udp_sessions.all();
    const std::uint32_t below = given.number("--below", UINT32_MAX);
    const auto count = static_cast<std::size_t>(std::distance(sessions.begin(), sessions.lower_bound(below)));
    std::size_t released = 0, failed_calls = 0;
    for (progress shown(s.shows_progress, s.out, count); released < count; shown.at(++released)) {
        const std::uint32_t id = sessions.begin()->first;
        if (interrupt::taken()) {
            s.replace_line("udp clear --below " + std::to_string(id));
            break;
        }
        s.record(udp("disconnect", id), [&] { return zel_core_term_udp_session_disconnect(id); });
        failed_calls += count_failed_calls(s.last_operation());
        s.record(udp("release", id), [&] { return zel_core_term_udp_session_release(id); });
        failed_calls += count_failed_calls(s.last_operation());
        s.known.udp_sessions.remove(id);
    }
    s.changed_by("udp clear");
    s.out << "udp clear: " << count_text(released, "session") << " released";
    if (failed_calls > 0)
        s.out << ", " << count_text(failed_calls, "data-plane call") << " failed";
    s.out << '\n';
}

} // namespace

std::vector<command> udp_commands()
{
    const parameter id = with_choices(required(number("ID", "the session")), udp_sessions);
    return {
        {"udp add",
         "add a session",
         "udp add 1 --local 192.0.2.1:2152 --remote 198.51.100.7:2152 --uplink-pcep 1 --downlink-pcep 2 --rat-session "
         "5 --dscp 46",
         {required(number("ID", "udp_session_id, 1 to 70000; also the uplink flow's ovlin session id")),
          address_and_port("--local", "local address and UDP port, IPv6 as [2001:db8::1]:2152"),
          address_and_port("--remote", "remote address and UDP port, of the same IP version"),
          required(number("--uplink-pcep", "PCEP id of the uplink ovlin flow")),
          required(number("--downlink-pcep", "PCEP id of the downlink ovlin flow")),
          required(number("--rat-session", "ovlin session id of the downlink flow")),
          byte("--dscp", "DSCP of the uplink binding", "0"), number("--vrf", "routing instance", "0"),
          number("--pmtu", "path MTU in bytes: IPv6 only, low 16 bits", "1500"),
          byte("--ttl", "TTL or hop limit, 0: not given", "0"),
          flag("--session-type", "set the session type of the uplink PCEP first")},
         add},
        {"udp modify",
         "change a session over IPv6 in place",
         "udp modify 2 --pmtu 1280 --ttl 7",
         {id, number("--pmtu", "new path MTU in bytes, low 16 bits"),
          byte("--ttl", "new hop limit, 0: not given; after the path MTU")},
         modify},
        {"udp disconnect", "remove a session's bindings", "udp disconnect 1", {id}, disconnect},
        {"udp release", "delete a session's associations and free its id", "udp release 1", {id}, release},
        {"udp stats",
         "a session's counters",
         "udp stats 1 --fields",
         {id, flag("--fields", "each field on a line of its own")},
         stats},
        plain("udp free-id", "the lowest free id", free_id),
        {"udp show",
         "the sessions and their configuration",
         "udp show 1",
         {with_choices(number("ID", "only this session"), udp_sessions)},
         show},
        {"udp fill",
         "add sessions under the lowest free ids until so many are in use",
         "udp fill 70000",
         {required(number("COUNT", "how many, at most 70000", "", ZEL_CORE_TERM_UDP_SESSION_ID_MAX))},
         fill},
        {"udp clear",
         "disconnect and release all sessions",
         "udp clear",
         {number("--below", "only sessions with a lower id")},
         clear},
    };
}
