// The commands of L2TPv3 control connections and sessions. Removal and modify need what was given to the add; the
// library does not keep it, so the shell does, as any control program must.
#include <algorithm>

#include "line_options.h"
#include "text_table.h"
#include "zel_core_term/zel_l2tp_control_connection.h"
#include "zel_core_term/zel_l2tp_session.h"

namespace {

std::string hex(std::uint64_t handle)
{
    char text[sizeof "0x0123456789abcdef"];
    std::snprintf(text, sizeof text, "0x%lx", handle);
    return text;
}

void set_address(std::uint8_t (&address)[16], const std::string &text)
{
    std::ranges::copy(parse_ipv4(text).address, address);
}

bool is_in_use(const l2tp_control_entry &entry)
{
    return entry.l2tp_ingress_flow_handle != 0 || entry.ipv4_ingress_association_handle != 0 ||
           entry.ipv4_egress_association_handle != 0;
}

} // namespace

void commands::add_l2tp_commands(CLI::App &app, line_options &o)
{
    CLI::App *l2tp = app.add_subcommand("l2tp", "L2TPv3 control connections and sessions")->require_subcommand(1);
    add_connection_commands(*l2tp, o);
    add_session_commands(*l2tp, o);
}

/// Forgets what the library has removed.
void commands::forget_removed()
{
    std::erase_if(connections_, [](const auto &known) {
        return known.first < std::size(l2tp_control_table) && !is_in_use(l2tp_control_table[known.first]);
    });
    std::erase_if(l2tp_sessions_, [](const auto &known) {
        const std::uint32_t index = known.first - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN;
        return index < std::size(l2tp_session_table) && l2tp_session_table[index].ingress_flow_handle == 0;
    });
}

void commands::add_connection_commands(CLI::App &l2tp, line_options &o)
{
    CLI::App *connection_command =
        l2tp.add_subcommand("connection", "L2TPv3 control connections")->require_subcommand(1);

    CLI::App *add = connection_command->add_subcommand("add", "add a control connection");
    add_number(add, "ID", o.id, "tn_ovlin_session_id, 0 to 48")->required();
    add_ipv4(add, "--local", o.local, "local IPv4 address");
    add_ipv4(add, "--remote", o.remote, "the peer's IPv4 address");
    add_number(add, "--connection-id", o.connection_id, "L2TPv3 control connection id")->required();
    add_number(add, "--pcep", o.pcep, "PCEP id of its ovlin flows")->required();
    add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id")->required();
    add_number(add, "--dscp", o.dscp, "DSCP of the sent control messages", 255)->capture_default_str();
    add_number(add, "--vrf", o.vrf, "routing instance")->capture_default_str();
    add_number(add, "--ttl", o.ttl, "TTL of the sent packets", 255)->capture_default_str();
    add->add_flag("--session-type", o.session_type, "set the session type of the PCEP first");
    add->callback([this, &o] {
        connection c{{}, o.pcep, o.rat_session, static_cast<std::uint8_t>(o.dscp), o.session_type};
        set_address(c.cfg.local_addr, o.local);
        set_address(c.cfg.remote_addr, o.remote);
        c.cfg.vrf_id = o.vrf;
        c.cfg.ttl = static_cast<std::uint8_t>(o.ttl);
        const std::uint32_t result = zel_core_term_l2tp_control_connection_add(o.id, &c.cfg, o.connection_id, c.pcep,
                                                                               c.rat_session, c.dscp, c.session_type);
        show_result("l2tp connection add " + std::to_string(o.id), result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            connections_[o.id] = c;
    });

    CLI::App *remove = connection_command->add_subcommand("remove", "remove a control connection, its sessions first");
    add_number(remove, "ID", o.id, "the control connection")->required();
    CLI::Option *pcep = add_number(remove, "--pcep", o.pcep, "PCEP id, if not the one that it was added with");
    CLI::Option *rat_session =
        add_number(remove, "--rat-session", o.rat_session, "RAT-side ovlin session id, likewise");
    remove->callback([this, &o, pcep, rat_session] {
        const auto known = connections_.find(o.id);
        const connection c = known != connections_.end() ? known->second : connection{};
        show_result("l2tp connection remove " + std::to_string(o.id),
                    zel_core_term_l2tp_control_connection_rem(o.id, *pcep ? o.pcep : c.pcep,
                                                              *rat_session ? o.rat_session : c.rat_session));
        forget_removed();
    });

    CLI::App *modify =
        connection_command->add_subcommand("modify", "move a control connection and its sessions to another peer");
    add_number(modify, "ID", o.id, "the control connection")->required();
    add_ipv4(modify, "--remote", o.remote, "the new peer's IPv4 address");
    CLI::Option *dscp =
        add_number(modify, "--dscp", o.dscp, "new DSCP of the control messages; the old one stays", 255);
    modify->callback([this, &o, dscp] {
        const auto known = connections_.find(o.id);
        if (known == connections_.end())
            throw bad_line("control connection " + std::to_string(o.id) + " was not added here");
        const connection old = known->second;
        connection c = old;
        set_address(c.cfg.remote_addr, o.remote);
        if (*dscp)
            c.dscp = static_cast<std::uint8_t>(o.dscp);
        std::vector<std::uint32_t> sessions;
        for (const auto &[id, control_connection] : l2tp_sessions_)
            if (control_connection == o.id)
                sessions.push_back(id);
        const std::uint32_t result = zel_core_term_l2tp_control_connection_modify(
            o.id, sessions.data(), static_cast<std::uint32_t>(sessions.size()), &c.cfg, c.pcep, c.rat_session, c.dscp,
            old.dscp, old.cfg.remote_addr, c.session_type);
        show_result("l2tp connection modify " + std::to_string(o.id), result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            connections_[o.id] = c;
        else if (result == ZEL_CORE_TERM_FELL_BACK && is_in_use(l2tp_control_table[o.id]))
            out_ << "the old peer and DSCP are in force\n"; // otherwise a 2 is the session-type hook's own
        forget_removed();
    });

    connection_command->add_subcommand("show", "the control connections")->callback([this] {
        text_table table{{"id", "peers", "vrf", "dscp", "L2TPv3 flow", "ingress", "egress"}};
        for (const auto &[id, c] : connections_) {
            const l2tp_control_entry &entry = l2tp_control_table[id];
            table.add({std::to_string(id),
                       address_text(4, c.cfg.local_addr) + " - " + address_text(4, c.cfg.remote_addr),
                       std::to_string(c.cfg.vrf_id), std::to_string(c.dscp), hex(entry.l2tp_ingress_flow_handle),
                       hex(entry.ipv4_ingress_association_handle), hex(entry.ipv4_egress_association_handle)});
        }
        out_ << connections_.size() << " control connections\n" << table;
    });
}

void commands::add_session_commands(CLI::App &l2tp, line_options &o)
{
    CLI::App *session = l2tp.add_subcommand("session", "L2TPv3 sessions")->require_subcommand(1);

    CLI::App *add = session->add_subcommand("add", "add a session to a control connection");
    add_number(add, "ID", o.id, "tn_ovlin_session_id_session, 48 to 336")->required();
    add_number(add, "--connection", o.connection, "the control connection that carries it")->required();
    add_number(add, "--local-session-id", o.local_session_id, "L2TPv3 session id of the received packets")->required();
    add_number(add, "--pcep", o.pcep, "PCEP id of its ovlin flows")->required();
    add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id")->required();
    add_number(add, "--dscp", o.dscp, "DSCP of the sent packets", 255)->capture_default_str();
    add->add_flag("--crc", o.crc, "the session's packets carry a CRC");
    add->add_flag("--session-type", o.session_type, "set the session type of the PCEP first");
    add->callback([this, &o] {
        const std::uint32_t result =
            zel_core_term_l2tp_session_add(static_cast<std::uint8_t>(o.dscp), o.crc, o.pcep, o.rat_session,
                                           o.local_session_id, o.connection, o.id, o.session_type);
        show_result("l2tp session add " + std::to_string(o.id), result);
        if (result == ZEL_CORE_TERM_SUCCESS)
            l2tp_sessions_[o.id] = o.connection;
    });

    CLI::App *remove = session->add_subcommand("remove", "remove a session");
    add_number(remove, "ID", o.id, "the session")->required();
    CLI::Option *carrier =
        add_number(remove, "--connection", o.connection, "its control connection, if not the one that it was added to");
    remove->callback([this, &o, carrier] {
        const auto known = l2tp_sessions_.find(o.id);
        if (!*carrier && known != l2tp_sessions_.end())
            o.connection = known->second;
        show_result("l2tp session remove " + std::to_string(o.id), zel_core_term_l2tp_session_rem(o.connection, o.id));
        forget_removed();
    });

    session->add_subcommand("show", "the sessions")->callback([this] {
        text_table table{{"id", "connection", "sends for", "ends at", "dscp", "ingress flow", "egress flow"}};
        for (const auto &[id, control_connection] : l2tp_sessions_) {
            const l2tp_session_entry &entry = l2tp_session_table[id - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN];
            table.add({std::to_string(id), std::to_string(control_connection), "ovlin " + hex(entry.src_flow_id),
                       "ovlin " + hex(entry.dst_flow_id), std::to_string(entry.dscp), hex(entry.ingress_flow_handle),
                       hex(entry.egress_flow_handle)});
        }
        out_ << l2tp_sessions_.size() << " L2TP sessions\n" << table;
    });
}
