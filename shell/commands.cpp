#include "commands.h"

#include <CLI/CLI.hpp>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "data_plane_view.h"
#include "endpoint.h"
#include "kiv_util.h"
#include "text_table.h"
#include "zel_core_term/zel_core_term.h"

/// The options of one line, as the parser fills them.
struct commands::line_options {
    std::uint32_t id = 0;
    std::string local, remote;
    std::uint32_t vrf = 0, pmtu = 1500, ttl = 0;
    std::uint32_t uplink_pcep = 0, downlink_pcep = 0, rat_session = 0, dscp = 0;
    bool session_type = false;
    bool fields = false;
    std::string flow;
    std::uint32_t octets = 100;
    std::string on_off, what;
    std::vector<std::string> command;
};

namespace {

/// Accepts what `parse` reads, and otherwise says what it says.
template <typename Parse> CLI::Validator readable_by(Parse parse)
{
    return {[parse](std::string &text) {
                try {
                    parse(text);
                    return std::string{};
                } catch (const std::invalid_argument &wrong) {
                    return std::string(wrong.what());
                }
            },
            ""};
}

/// Reads a decimal number, or a hexadecimal one after 0x.
std::optional<std::uint32_t> parse_number(const std::string &text)
{
    const bool hexadecimal = text.starts_with("0x");
    std::uint32_t number = 0;
    const char *begin = text.data() + (hexadecimal ? 2 : 0), *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

/// An option that takes a number from 0 to `max`.
CLI::Option *add_number(CLI::App *command, const std::string &name, std::uint32_t &number, const std::string &meaning,
                        std::uint32_t max = UINT32_MAX)
{
    const CLI::Validator to_decimal(
        [max](std::string &text) {
            const std::optional<std::uint32_t> value = parse_number(text);
            if (!value || *value > max)
                return "'" + text + "' is not a number from 0 to " + std::to_string(max);
            text = std::to_string(*value);
            return std::string{};
        },
        "");
    return command->add_option(name, number, meaning)->type_name("NUMBER")->transform(to_decimal);
}

/// An ovlin flow ID, written as a number or as PCEP/SESSION.
std::uint32_t parse_flow(const std::string &text)
{
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        if (const auto id = parse_number(text))
            return *id;
    } else {
        const auto pcep = parse_number(text.substr(0, slash)), session = parse_number(text.substr(slash + 1));
        if (pcep && session && *pcep <= 0xFFF && *session <= 0xFFFFF)
            return *pcep << 20 | *session;
    }
    throw std::invalid_argument("'" + text + "' is not an ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)");
}

CLI::Option *add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    return command->add_option(name, text, meaning)
        ->type_name("ADDRESS:PORT")
        ->required()
        ->check(readable_by(parse_endpoint));
}

/// The command that the line named as far as it was understood.
const CLI::App &innermost(const CLI::App &app)
{
    const std::vector<CLI::App *> parsed = app.get_subcommands();
    return parsed.empty() ? app : innermost(*parsed.front());
}

std::string names_of_commands(const CLI::App &app)
{
    std::string names;
    for (const CLI::App *command : app.get_subcommands(nullptr))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

/// "udp add"
std::string full_name(const CLI::App &command)
{
    const CLI::App *parent = command.get_parent();
    const bool is_top = parent == nullptr || parent->get_parent() == nullptr;
    return (is_top ? "" : full_name(*parent) + " ") + command.get_name();
}

/// All commands below `app` that do something, with their descriptions.
void list_commands(text_table &list, const CLI::App &app)
{
    for (const CLI::App *command : app.get_subcommands(nullptr)) {
        if (command->get_subcommands(nullptr).empty())
            list.add({full_name(*command), command->get_description()});
        else
            list_commands(list, *command);
    }
}

std::string unknown_command(const CLI::App &app, const std::string &word)
{
    const std::string choices = names_of_commands(app);
    return choices.empty() ? "not expected: " + word : "unknown command '" + word + "'; expected " + choices;
}

void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second)
{
    if (first.ip_version != second.ip_version)
        throw bad_line(first_name + " is IPv" + std::to_string(first.ip_version) + " and " + second_name + " is IPv" +
                       std::to_string(second.ip_version));
}

zel_core_term_udp_session_cfg_t configuration(const endpoint &local, const endpoint &remote)
{
    require_same_version("--local", local, "--remote", remote);
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = static_cast<std::uint8_t>(local.ip_version);
    std::copy(local.address.begin(), local.address.end(), cfg.local_addr);
    std::copy(remote.address.begin(), remote.address.end(), cfg.remote_addr);
    cfg.local_port = local.port;
    cfg.remote_port = remote.port;
    return cfg;
}

} // namespace

void commands::execute(const std::string &line)
{
    CLI::App app;
    app.require_subcommand(1);
    line_options options;
    add_library_commands(app);
    add_udp_commands(app, options);
    add_packet_commands(app, options);
    add_view_commands(app, options);
    try {
        app.parse(line);
    } catch (const CLI::CallForHelp &) {
        const CLI::App &command = innermost(app);
        if (const std::vector<std::string> rest = app.remaining(true); !rest.empty())
            throw bad_line(unknown_command(command, rest.front()));
        show_help(command);
    } catch (const CLI::ParseError &wrong) {
        const std::vector<std::string> rest = app.remaining(true);
        const CLI::App &command = innermost(app);
        if (command.get_subcommands(nullptr).empty())
            throw bad_line(rest.empty() ? wrong.what() : "not expected: " + CLI::detail::join(rest, " "));
        throw bad_line(rest.empty() ? "a command is missing; expected " + names_of_commands(command)
                                    : unknown_command(command, rest.front()));
    }
}

void commands::add_library_commands(CLI::App &app)
{
    const auto add = [&](const std::string &name, const std::string &meaning, std::uint32_t (*operation)()) {
        app.add_subcommand(name, meaning)->callback([this, name, operation] {
            const std::uint32_t result = operation();
            show_result(name, result);
            if (result == ZEL_CORE_TERM_SUCCESS)
                udp_sessions_.clear();
        });
    };
    add("start", "start the library", zel_core_term_start);
    add("stop", "stop the library; the data plane keeps what sessions hold there", zel_core_term_stop);
}

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

void commands::add_packet_commands(CLI::App &app, line_options &o)
{
    CLI::App *packet = app.add_subcommand("packet", "the data plane receives a packet")->require_subcommand(1);
    CLI::App *udp = packet->add_subcommand("udp", "a UDP packet");
    add_endpoint(udp, "--from", o.remote, "its source, IPv6 as [2001:db8::1]:2152");
    add_endpoint(udp, "--to", o.local, "its destination, of the same IP version");
    add_number(udp, "--vrf", o.vrf, "routing instance that it arrives in")->capture_default_str();
    add_number(udp, "--octets", o.octets, "its size")->capture_default_str();
    udp->callback([this, &o] {
        const endpoint from = parse_endpoint(o.remote), to = parse_endpoint(o.local);
        require_same_version("--from", from, "--to", to);
        vok_cp_sim_header_t header{};
        header.ip_version = static_cast<std::uint8_t>(from.ip_version);
        header.protocol = IPPROTO_UDP;
        header.vrf_id = o.vrf;
        std::ranges::copy(from.address, header.src_addr);
        std::ranges::copy(to.address, header.dst_addr);
        header.src_port = from.port;
        header.dst_port = to.port;
        out_ << "packet " << to_text(vok_cp_sim_receive(&header, o.octets)) << '\n';
    });

    CLI::App *send = app.add_subcommand("send", "an ovlin flow sends a packet");
    send->add_option("FLOW", o.flow, "ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)")
        ->required()
        ->check(readable_by(parse_flow));
    add_number(send, "--octets", o.octets, "its size")->capture_default_str();
    send->callback([this, &o] { out_ << "packet " << to_text(vok_cp_sim_send(parse_flow(o.flow), o.octets)) << '\n'; });
}

void commands::add_view_commands(CLI::App &app, line_options &o)
{
    app.add_subcommand("objects", "the data plane's objects and bindings")->callback([this] { show_data_plane(out_); });
    CLI::App *expect = app.add_subcommand("expect", "fail unless the data plane is as expected");
    expect->add_option("WHAT", o.what, "empty: no object and no binding")->required()->check(CLI::IsMember({"empty"}));
    expect->callback([this] {
        const std::string counts = data_plane_counts();
        if (counts != "0 objects, 0 bindings")
            throw bad_line("expected an empty data plane, and it holds " + counts);
        out_ << "the data plane is empty\n";
    });
    CLI::App *trace = app.add_subcommand("trace", "show each trace event as it fires, or stop to");
    trace->add_option("SWITCH", o.on_off, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    trace->callback([this, &o] { show_events(o.on_off == "on"); });
    CLI::App *help = app.add_subcommand("help", "the commands, or the options of one");
    help->add_option("COMMAND", o.command, "as in: help udp add");
    help->callback([this, &app, &o] {
        const CLI::App *asked = &app;
        for (const std::string &word : o.command) {
            const auto choices = asked->get_subcommands(nullptr);
            const auto found = std::ranges::find(choices, word, &CLI::App::get_name);
            if (found == choices.end())
                throw bad_line(unknown_command(*asked, word));
            asked = *found;
        }
        show_help(*asked);
    });
}

void commands::show_help(const CLI::App &asked)
{
    if (asked.get_subcommands(nullptr).empty()) {
        out_ << asked.get_formatter()->make_help(&asked, full_name(asked), CLI::AppFormatMode::Normal);
        return;
    }
    text_table list{{"command", "what it does"}};
    list_commands(list, asked);
    out_ << list;
}

void commands::show_result(const std::string &operation, std::uint32_t result_code)
{
    out_ << operation << ": " << result_code << " (" << kiv_util_init_rc_str_get(result_code) << ")\n";
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

void commands::show_events(bool on)
{
    listener_.reset();
    if (on)
        listener_ = std::make_unique<event_listener>([this](const trace_event &e) {
            out_ << "  " << e.name << "  " << e.location << "  " << e.category << "  " << e.message << '\n';
        });
}
