// The commands of UDP sessions.
#include <algorithm>

#include "line_options.h"
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

} // namespace

void commands::add_udp_commands(CLI::App &app, line_options &o)
{
    CLI::App *udp = app.add_subcommand("udp", "UDP sessions")->require_subcommand(1);

    CLI::App *add = udp->add_subcommand("add", "add a session");
    add_number(add, "ID", o.id, "udp_session_id, 1 to 70000")->required();
    add_endpoint(add, "--local", o.local, "local address and UDP port, IPv6 as [2001:db8::1]:2152");
    add_endpoint(add, "--remote", o.remote, "remote address and UDP port, of the same IP version");
    add_number(add, "--uplink-pcep", o.uplink_pcep, "PCEP id of the uplink ovlin flow")->required();
    add_number(add, "--downlink-pcep", o.downlink_pcep, "PCEP id of the downlink ovlin flow")->required();
    add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id")->required();
    add_number(add, "--dscp", o.dscp, "DSCP of the uplink binding", 255)->capture_default_str();
    add_number(add, "--vrf", o.vrf, "routing instance")->capture_default_str();
    add_number(add, "--pmtu", o.pmtu, "path MTU in bytes: IPv6 only, low 16 bits")->capture_default_str();
    add_number(add, "--ttl", o.ttl, "TTL or hop limit, 0: not given", 255)->capture_default_str();
    add->add_flag("--session-type", o.session_type, "set the session type of the uplink PCEP first");
    add->callback([this, &o] {
        zel_core_term_udp_session_cfg_t cfg = configuration(parse_endpoint(o.local), parse_endpoint(o.remote));
        cfg.vrf_id = o.vrf;
        cfg.pmtu = o.pmtu;
        cfg.ttl = static_cast<std::uint8_t>(o.ttl);
        const std::uint32_t result =
            zel_core_term_udp_session_add(o.id, &cfg, o.uplink_pcep, o.downlink_pcep, o.rat_session,
                                          static_cast<std::uint8_t>(o.dscp), o.session_type);
        show_result("udp add " + std::to_string(o.id), result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            udp_sessions_.insert(o.id);
    });

    CLI::App *modify = udp->add_subcommand("modify", "change a session over IPv6 in place");
    add_number(modify, "ID", o.id, "the session")->required();
    CLI::Option *pmtu = add_number(modify, "--pmtu", o.pmtu, "new path MTU in bytes, low 16 bits");
    CLI::Option *ttl = add_number(modify, "--ttl", o.ttl, "new hop limit, 0: not given", 255);
    modify->callback([this, &o, pmtu, ttl] {
        if (!*pmtu && !*ttl)
            throw bad_line("--pmtu or --ttl is required");
        const std::string operation = "udp modify " + std::to_string(o.id);
        if (*pmtu)
            show_result(operation + " --pmtu", zel_core_term_udp_session_modify_pmtu(o.id, o.pmtu));
        if (*ttl)
            show_result(operation + " --ttl",
                        zel_core_term_udp_session_modify_ttl(o.id, static_cast<std::uint8_t>(o.ttl)));
    });

    CLI::App *disconnect = udp->add_subcommand("disconnect", "remove a session's bindings");
    add_number(disconnect, "ID", o.id, "the session")->required();
    disconnect->callback([this, &o] {
        show_result("udp disconnect " + std::to_string(o.id), zel_core_term_udp_session_disconnect(o.id));
    });

    CLI::App *release = udp->add_subcommand("release", "delete a session's associations and free its id");
    add_number(release, "ID", o.id, "the session")->required();
    release->callback([this, &o] {
        const std::uint32_t result = zel_core_term_udp_session_release(o.id);
        show_result("udp release " + std::to_string(o.id), result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            udp_sessions_.erase(o.id);
    });

    CLI::App *stats = udp->add_subcommand("stats", "a session's counters");
    add_number(stats, "ID", o.id, "the session")->required();
    stats->add_flag("--fields", o.fields, "each field on a line of its own");
    stats->callback([this, &o] {
        char text[512];
        const std::uint32_t result = zel_core_term_udp_session_fmt_stats_get(o.id, text, sizeof text, o.fields);
        show_result("udp stats " + std::to_string(o.id), result);
        out_ << text;
    });

    udp->add_subcommand("free-id", "the lowest free id")->callback([this] {
        std::uint32_t id = 0;
        const std::uint32_t result = zel_core_term_udp_session_free_id_get(&id);
        show_result("udp free-id", result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            out_ << "lowest free id: " << id << '\n';
    });
    udp->add_subcommand("show", "the sessions and their configuration")->callback([this] { show_udp_sessions(); });
}

void commands::show_udp_sessions()
{
    text_table sessions{{"id", "local", "remote", "vrf", "path mtu", "ttl"}};
    for (const std::uint32_t id : udp_sessions_) {
        zel_core_term_udp_session_cfg_t cfg{};
        if (const std::uint32_t result = zel_core_term_udp_session_cfg_get(id, &cfg))
            show_result("udp show " + std::to_string(id), result);
        else
            sessions.add({std::to_string(id), to_text(cfg.ip_version, cfg.local_addr, cfg.local_port),
                          to_text(cfg.ip_version, cfg.remote_addr, cfg.remote_port), std::to_string(cfg.vrf_id),
                          std::to_string(cfg.pmtu), std::to_string(cfg.ttl)});
    }
    out_ << udp_sessions_.size() << " UDP sessions\n" << sessions;
}
