// The commands of L2TPv3 control connections and sessions. Removal and modify need what was given to the add; the
// library does not keep it, so the ledger does, as any control program must.
#include <algorithm>
#include <iterator>

#include "data_plane.h"
#include "line_options.h"
#include "text_table.h"
#include "zel_core_term/zel_l2tp_control_connection.h"
#include "zel_core_term/zel_l2tp_session.h"

namespace {

void set_address(std::uint8_t (&address)[16], const std::string &text)
{
    std::ranges::copy(parse_ipv4(text).address, address);
}

bool connection_is_in_use(std::uint32_t id)
{
    if (id >= std::size(l2tp_control_table))
        return false;
    const l2tp_control_entry &entry = l2tp_control_table[id];
    return entry.l2tp_ingress_flow_handle != 0 || entry.ipv4_ingress_association_handle != 0 ||
           entry.ipv4_egress_association_handle != 0;
}

/// Null for an id outside the table.
const l2tp_session_entry *session_entry(std::uint32_t id)
{
    const std::uint32_t index = id - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN;
    return index < std::size(l2tp_session_table) ? &l2tp_session_table[index] : nullptr;
}

bool session_is_in_use(std::uint32_t id)
{
    const l2tp_session_entry *entry = session_entry(id);
    return entry != nullptr && entry->ingress_flow_handle != 0;
}

std::string connection_name(const char *operation, std::uint32_t id)
{
    return std::string("l2tp connection ") + operation + " " + std::to_string(id);
}

std::string session_name(const char *operation, std::uint32_t id)
{
    return std::string("l2tp session ") + operation + " " + std::to_string(id);
}

} // namespace

void commands::add_l2tp_commands(CLI::App &app, line_options &o)
{
    CLI::App *l2tp = add_group(app, "l2tp", "L2TPv3 control connections and sessions");
    add_connection_commands(*l2tp, o);
    add_session_commands(*l2tp, o);
}

/// Forgets what the library has removed.
void commands::forget_removed()
{
    std::erase_if(known_.connections, [](const auto &known) { return !connection_is_in_use(known.first); });
    std::erase_if(known_.l2tp_sessions, [](const auto &known) { return !session_is_in_use(known.first); });
}

void commands::add_connection_commands(CLI::App &l2tp, line_options &o)
{
    CLI::App *group = add_group(l2tp, "connection", "L2TPv3 control connections");
    CLI::App *add = add_command(*group, "add", "add a control connection",
                                "l2tp connection add 1 --local 192.0.2.1 --remote 198.51.100.7 --connection-id 1001 "
                                "--pcep 3 --rat-session 11 --dscp 48");
    required(add_number(add, "ID", o.id, "tn_ovlin_session_id, 0 to 48"));
    add_ipv4(add, "--local", o.local, "local IPv4 address");
    add_ipv4(add, "--remote", o.remote, "the peer's IPv4 address");
    required(add_number(add, "--connection-id", o.connection_id, "L2TPv3 control connection id"));
    required(add_number(add, "--pcep", o.pcep, "PCEP id of its ovlin flows"));
    required(add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id"));
    with_default(add_number(add, "--dscp", o.dscp, "DSCP of the sent control messages", 255));
    with_default(add_number(add, "--vrf", o.vrf, "routing instance"));
    with_default(add_number(add, "--ttl", o.ttl, "TTL of the sent packets", 255));
    add_flag(add, "--session-type", o.session_type, "set the session type of the PCEP first");
    on_run(add, [this, &o] {
        ledger::connection c{{}, o.pcep, o.rat_session, static_cast<std::uint8_t>(o.dscp), o.session_type};
        set_address(c.cfg.local_addr, o.local);
        set_address(c.cfg.remote_addr, o.remote);
        c.cfg.vrf_id = o.vrf;
        c.cfg.ttl = static_cast<std::uint8_t>(o.ttl);
        operate(connection_name("add", o.id), [&] {
            return zel_core_term_l2tp_control_connection_add(o.id, &c.cfg, o.connection_id, c.pcep, c.rat_session,
                                                             c.dscp, c.session_type);
        });
        if (connection_is_in_use(o.id))
            known_.connections.try_emplace(o.id, c);
    });

    CLI::App *remove = add_command(*group, "remove", "remove a control connection; remove its sessions before",
                                   "l2tp connection remove 1");
    add_known_id(remove, o, "the control connection", ids_of(known_.connections));
    CLI::Option *pcep = add_number(remove, "--pcep", o.pcep, "PCEP id, if not the one that it was added with");
    CLI::Option *rat_session =
        add_number(remove, "--rat-session", o.rat_session, "RAT-side ovlin session id, likewise");
    on_run(remove, [this, &o, pcep, rat_session] {
        const auto known = known_.connections.find(o.id);
        if ((!is_given(pcep) || !is_given(rat_session)) && known == known_.connections.end())
            throw bad_line("control connection " + std::to_string(o.id) +
                           " was not added here; --pcep and --rat-session are required");
        const ledger::connection c = known != known_.connections.end() ? known->second : ledger::connection{};
        operate(connection_name("remove", o.id), [&] {
            return zel_core_term_l2tp_control_connection_rem(o.id, is_given(pcep) ? o.pcep : c.pcep,
                                                             is_given(rat_session) ? o.rat_session : c.rat_session);
        });
        forget_removed();
    });

    add_connection_modify(*group, o);

    on_run(add_command(*group, "show", "the control connections", "l2tp connection show"), [this] {
        text_table table{{"id", "peers", "vrf", "dscp", "L2TPv3 flow", "ingress", "egress"}};
        for (const auto &[id, c] : known_.connections) {
            const l2tp_control_entry &entry = l2tp_control_table[id];
            table.add({std::to_string(id),
                       address_text(4, c.cfg.local_addr) + " - " + address_text(4, c.cfg.remote_addr),
                       std::to_string(c.cfg.vrf_id), std::to_string(c.dscp),
                       handle_text(entry.l2tp_ingress_flow_handle), handle_text(entry.ipv4_ingress_association_handle),
                       handle_text(entry.ipv4_egress_association_handle)});
        }
        out_ << known_.connections.size() << " control connections\n" << table;
    });
}

void commands::add_connection_modify(CLI::App &group, line_options &o)
{
    CLI::App *modify = add_command(group, "modify", "move a control connection and its sessions to another peer",
                                   "l2tp connection modify 1 --remote 203.0.113.9 --dscp 40");
    add_known_id(modify, o, "the control connection", ids_of(known_.connections));
    add_ipv4(modify, "--remote", o.remote, "the new peer's IPv4 address");
    CLI::Option *dscp =
        add_number(modify, "--dscp", o.dscp, "new DSCP of the control messages; the old one stays", 255);
    CLI::Option *vrf = add_number(modify, "--vrf", o.vrf, "new routing instance, also when it falls back");
    CLI::Option *ttl = add_number(modify, "--ttl", o.ttl, "new TTL of the sent packets, also when it falls back", 255);
    CLI::Option *listed =
        add_numbers(modify, "--sessions", o.sessions, "the sessions to move, if not all that it carries");
    o.choices[listed] = ids_of(known_.l2tp_sessions);
    on_run(modify, [this, &o, dscp, vrf, ttl, listed] {
        const auto known = known_.connections.find(o.id);
        if (known == known_.connections.end())
            throw bad_line("control connection " + std::to_string(o.id) + " was not added here");
        ledger::connection old = known->second;
        ledger::connection c = old;
        set_address(c.cfg.remote_addr, o.remote);
        if (is_given(dscp))
            c.dscp = static_cast<std::uint8_t>(o.dscp);
        if (is_given(vrf))
            c.cfg.vrf_id = o.vrf;
        if (is_given(ttl))
            c.cfg.ttl = static_cast<std::uint8_t>(o.ttl);
        std::vector<std::uint32_t> sessions = o.sessions;
        for (const auto &[id, control_connection] : known_.l2tp_sessions)
            if (control_connection == o.id && !is_given(listed))
                sessions.push_back(id);
        const bool was_in_use = connection_is_in_use(o.id);
        const std::uint32_t result = operate(connection_name("modify", o.id), [&] {
            return zel_core_term_l2tp_control_connection_modify(
                o.id, sessions.data(), static_cast<std::uint32_t>(sessions.size()), &c.cfg, c.pcep, c.rat_session,
                c.dscp, old.dscp, old.cfg.remote_addr, c.session_type);
        });
        if (result == ZEL_CORE_TERM_SUCCESS)
            known->second = c;
        if (result == ZEL_CORE_TERM_FELL_BACK && connection_is_in_use(o.id)) { // otherwise it is the hook's own 2
            known->second.cfg = c.cfg;                                         // whose peer is the old one again
            out_ << "the old peer and DSCP are in force\n";
        }
        if (was_in_use && !connection_is_in_use(o.id))
            out_ << "the connection and the sessions to move were removed\n";
        forget_removed();
    });
}

void commands::add_session_commands(CLI::App &l2tp, line_options &o)
{
    CLI::App *group = add_group(l2tp, "session", "L2TPv3 sessions");

    CLI::App *add = add_command(*group, "add", "add a session to a control connection",
                                "l2tp session add 100 --connection 1 --local-session-id 50001 --pcep 3 "
                                "--rat-session 101 --dscp 46");
    required(add_number(add, "ID", o.id, "tn_ovlin_session_id_session, 48 to 336"));
    CLI::Option *carried_by = add_number(add, "--connection", o.connection, "the control connection that carries it");
    required(carried_by);
    o.choices[carried_by] = ids_of(known_.connections);
    required(add_number(add, "--local-session-id", o.local_session_id, "L2TPv3 session id of the received packets"));
    required(add_number(add, "--pcep", o.pcep, "PCEP id of its ovlin flows"));
    required(add_number(add, "--rat-session", o.rat_session, "RAT-side ovlin session id"));
    with_default(add_number(add, "--dscp", o.dscp, "DSCP of the sent packets", 255));
    add_flag(add, "--crc", o.crc, "the session's packets carry a CRC");
    add_flag(add, "--session-type", o.session_type, "set the session type of the PCEP first");
    on_run(add, [this, &o] {
        const std::uint64_t flow_before = session_is_in_use(o.id) ? session_entry(o.id)->ingress_flow_handle : 0;
        operate(session_name("add", o.id), [&] {
            return zel_core_term_l2tp_session_add(static_cast<std::uint8_t>(o.dscp), o.crc, o.pcep, o.rat_session,
                                                  o.local_session_id, o.connection, o.id, o.session_type);
        });
        if (session_is_in_use(o.id) && session_entry(o.id)->ingress_flow_handle != flow_before)
            known_.l2tp_sessions[o.id] = o.connection; // also when it was there, and is overwritten
        forget_removed();
    });

    CLI::App *remove = add_command(*group, "remove", "remove a session", "l2tp session remove 100");
    add_known_id(remove, o, "the session", ids_of(known_.l2tp_sessions));
    CLI::Option *carrier =
        add_number(remove, "--connection", o.connection, "its control connection, if not the one that it was added to");
    o.choices[carrier] = ids_of(known_.connections);
    on_run(remove, [this, &o, carrier] {
        const auto known = known_.l2tp_sessions.find(o.id);
        if (!is_given(carrier) && known == known_.l2tp_sessions.end())
            throw bad_line("session " + std::to_string(o.id) + " was not added here; --connection is required");
        if (!is_given(carrier))
            o.connection = known->second;
        operate(session_name("remove", o.id), [&] { return zel_core_term_l2tp_session_rem(o.connection, o.id); });
        forget_removed();
    });

    on_run(add_command(*group, "show", "the sessions", "l2tp session show"), [this] {
        text_table table{{"id", "connection", "sends for", "ends at", "dscp", "ingress flow", "egress flow"}};
        for (const auto &[session, control_connection] : known_.l2tp_sessions) {
            const l2tp_session_entry &entry = *session_entry(session);
            table.add({std::to_string(session), std::to_string(control_connection),
                       "ovlin " + handle_text(entry.src_flow_id), "ovlin " + handle_text(entry.dst_flow_id),
                       std::to_string(entry.dscp), handle_text(entry.ingress_flow_handle),
                       handle_text(entry.egress_flow_handle)});
        }
        out_ << known_.l2tp_sessions.size() << " L2TP sessions\n" << table;
    });
}
