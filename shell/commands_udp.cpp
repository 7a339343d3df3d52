// The commands of UDP sessions.
#include <algorithm>

#include "interrupt.h"
#include "line_options.h"
#include "progress.h"
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
               return call->operation == session_type_hook &&
                      (call->status == ZEL_CORE_TERM_OUT_OF_RANGE || call->status == ZEL_CORE_TERM_SESSION_IN_USE);
           });
}

std::size_t count_failed_calls(const operation_record &operation)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(calls_of(operation), [](const recorded_call *call) { return call->status != 0; }));
}

} // namespace

void commands::add_udp_commands(CLI::App &app, line_options &o)
{
    CLI::App *group = add_group(app, "udp", "UDP sessions");

    CLI::App *add = add_command(*group, "add", "add a session",
                                "udp add 1 --local 192.0.2.1:2152 --remote 198.51.100.7:2152 --uplink-pcep 1 "
                                "--downlink-pcep 2 --rat-session 5 --dscp 46");
    required(add_number(add, "ID", o.id, "udp_session_id, 1 to 70000"));
    add_endpoint(add, "--local", o.local, "local address and UDP port, IPv6 as [2001:db8::1]:2152");
    add_endpoint(add, "--remote", o.remote, "remote address and UDP port, of the same IP version");
    required(add_number(add, "--uplink-pcep", o.uplink_pcep, "PCEP id of the uplink ovlin flow"));
    required(add_number(add, "--downlink-pcep", o.downlink_pcep, "PCEP id of the downlink ovlin flow"));
    required(add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id"));
    with_default(add_number(add, "--dscp", o.dscp, "DSCP of the uplink binding", 255));
    with_default(add_number(add, "--vrf", o.vrf, "routing instance"));
    with_default(add_number(add, "--pmtu", o.pmtu, "path MTU in bytes: IPv6 only, low 16 bits"));
    with_default(add_number(add, "--ttl", o.ttl, "TTL or hop limit, 0: not given", 255));
    add_flag(add, "--session-type", o.session_type, "set the session type of the uplink PCEP first");
    on_run(add, [this, &o] {
        zel_core_term_udp_session_cfg_t cfg = configuration(parse_endpoint(o.local), parse_endpoint(o.remote));
        cfg.vrf_id = o.vrf;
        cfg.pmtu = o.pmtu;
        cfg.ttl = static_cast<std::uint8_t>(o.ttl);
        operate(udp("add", o.id), [&] {
            return zel_core_term_udp_session_add(o.id, &cfg, o.uplink_pcep, o.downlink_pcep, o.rat_session,
                                                 static_cast<std::uint8_t>(o.dscp), o.session_type);
        });
        if (is_left_in_use(last_operation()))
            note_udp_session(o.id);
    });

    const auto add_id = [&](CLI::App *command) {
        add_known_id(command, o, "the session", ids_of(known_.udp_sessions));
    };

    CLI::App *modify =
        add_command(*group, "modify", "change a session over IPv6 in place", "udp modify 2 --pmtu 1280 --ttl 7");
    add_id(modify);
    CLI::Option *pmtu = add_number(modify, "--pmtu", o.pmtu, "new path MTU in bytes, low 16 bits");
    CLI::Option *ttl = add_number(modify, "--ttl", o.ttl, "new hop limit, 0: not given; after the path MTU", 255);
    on_run(modify, [this, &o, pmtu, ttl] {
        if (!is_given(pmtu) && !is_given(ttl))
            throw bad_line("--pmtu or --ttl is required");
        if (is_given(pmtu) && operate(udp("modify", o.id) + " --pmtu", [&] {
                                  return zel_core_term_udp_session_modify_pmtu(o.id, o.pmtu);
                              }) != ZEL_CORE_TERM_SUCCESS)
            return;
        if (is_given(ttl))
            operate(udp("modify", o.id) + " --ttl",
                    [&] { return zel_core_term_udp_session_modify_ttl(o.id, static_cast<std::uint8_t>(o.ttl)); });
    });

    CLI::App *disconnect = add_command(*group, "disconnect", "remove a session's bindings", "udp disconnect 1");
    add_id(disconnect);
    on_run(disconnect, [this, &o] {
        operate(udp("disconnect", o.id), [&] { return zel_core_term_udp_session_disconnect(o.id); });
    });

    CLI::App *release =
        add_command(*group, "release", "delete a session's associations and free its id", "udp release 1");
    add_id(release);
    on_run(release, [this, &o] {
        if (operate(udp("release", o.id), [&] { return zel_core_term_udp_session_release(o.id); }) ==
            ZEL_CORE_TERM_SUCCESS)
            known_.udp_sessions.erase(o.id);
    });

    CLI::App *stats = add_command(*group, "stats", "a session's counters", "udp stats 1 --fields");
    add_id(stats);
    add_flag(stats, "--fields", o.fields, "each field on a line of its own");
    on_run(stats, [this, &o] {
        char text[512];
        operate(udp("stats", o.id),
                [&] { return zel_core_term_udp_session_fmt_stats_get(o.id, text, sizeof text, o.fields); });
        out_ << text;
    });

    on_run(add_command(*group, "free-id", "the lowest free id", "udp free-id"), [this] {
        std::uint32_t id = 0;
        if (operate("udp free-id", [&] { return zel_core_term_udp_session_free_id_get(&id); }) == ZEL_CORE_TERM_SUCCESS)
            out_ << "lowest free id: " << id << '\n';
    });

    on_run(add_command(*group, "show", "the sessions and their configuration", "udp show"),
           [this] { show_udp_sessions(); });

    CLI::App *fill = add_command(*group, "fill", "add sessions under the lowest free ids until so many are in use",
                                 "udp fill 70000");
    required(add_number(fill, "COUNT", o.count, "how many, at most 70000", ZEL_CORE_TERM_UDP_SESSION_ID_MAX));
    on_run(fill, [this, &o] { fill_udp_sessions(o.count); });

    CLI::App *clear = add_command(*group, "clear", "disconnect and release all sessions", "udp clear");
    with_default(add_number(clear, "--below", o.below, "only sessions with a lower id"));
    on_run(clear, [this, &o] { clear_udp_sessions(o.below); });
}

/// Keeps the handles of the associations that the last operation, an add, has made.
void commands::note_udp_session(std::uint32_t id)
{
    ledger::udp_session &session = known_.udp_sessions[id];
    for (const recorded_call *call : calls_of(last_operation()))
        if (call->created != 0 && call->status == 0) {
            const bool is_ingress = call->kind == VOK_CP_SIM_IPV4_INGRESS || call->kind == VOK_CP_SIM_IPV6_INGRESS;
            (is_ingress ? session.ingress_handle : session.egress_handle) = call->created;
        }
}

void commands::show_udp_sessions()
{
    text_table sessions{{"id", "local", "remote", "vrf", "path mtu", "ttl"}};
    for (const auto &[id, handles] : known_.udp_sessions) {
        zel_core_term_udp_session_cfg_t cfg{};
        zel_core_term_udp_session_cfg_get(id, &cfg);
        sessions.add({std::to_string(id), to_text(cfg.ip_version, cfg.local_addr, cfg.local_port),
                      to_text(cfg.ip_version, cfg.remote_addr, cfg.remote_port), std::to_string(cfg.vrf_id),
                      std::to_string(cfg.pmtu), std::to_string(cfg.ttl)});
    }
    out_ << known_.udp_sessions.size() << " UDP sessions\n" << sessions;
}

void commands::fill_udp_sessions(std::uint32_t count)
{
    progress shown(shows_progress_, out_, count);
    while (known_.udp_sessions.size() < count) {
        if (interrupt::taken()) {
            line_ = "udp fill " + std::to_string(known_.udp_sessions.size());
            break;
        }
        std::uint32_t id = 0;
        if (zel_core_term_udp_session_free_id_get(&id) != ZEL_CORE_TERM_SUCCESS)
            break;
        const zel_core_term_udp_session_cfg_t cfg = configuration_of_filler(id);
        const std::uint32_t result =
            record(udp("add", id), [&] { return zel_core_term_udp_session_add(id, &cfg, 1, 2, id, 0, false); });
        if (result != ZEL_CORE_TERM_SUCCESS) {
            shown.end();
            show_result();
            break;
        }
        note_udp_session(id);
        shown.at(known_.udp_sessions.size());
    }
    shown.end();
    changed_by_ = "udp fill";
    out_ << "udp fill: " << known_.udp_sessions.size() << " sessions are in use\n";
}

void commands::clear_udp_sessions(std::uint32_t below)
{
    std::map<std::uint32_t, ledger::udp_session> &sessions = known_.udp_sessions;
    const auto count = static_cast<std::size_t>(std::distance(sessions.begin(), sessions.lower_bound(below)));
    std::size_t released = 0, failed_calls = 0;
    for (progress shown(shows_progress_, out_, count); released < count; shown.at(++released)) {
        const std::uint32_t id = sessions.begin()->first;
        if (interrupt::taken()) {
            line_ = "udp clear --below " + std::to_string(id);
            break;
        }
        record(udp("disconnect", id), [&] { return zel_core_term_udp_session_disconnect(id); });
        failed_calls += count_failed_calls(last_operation());
        record(udp("release", id), [&] { return zel_core_term_udp_session_release(id); });
        failed_calls += count_failed_calls(last_operation());
        sessions.erase(id);
    }
    changed_by_ = "udp clear";
    out_ << "udp clear: " << released << " sessions released";
    if (failed_calls > 0)
        out_ << ", " << failed_calls << " data-plane calls failed";
    out_ << '\n';
}
