// The commands of L2TPv3 control connections and sessions. Removal and modify need what was given to the add; the
// library does not keep it, so the ledger does, as any control program must.
#include <algorithm>
#include <iterator>

#include "shell.h"
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

/// Of an id outside the table: an empty entry.
const l2tp_session_entry &session_entry(std::uint32_t id)
{
    static const l2tp_session_entry none{};
    const std::uint32_t index = id - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN;
    return index < std::size(l2tp_session_table) ? l2tp_session_table[index] : none;
}

std::string name_of(const char *operation, std::uint32_t id)
{
    return std::string("l2tp ") + operation + " " + std::to_string(id);
}

/// Forgets what the library has removed.
void forget_removed(ledger &known)
{
    std::erase_if(known.connections, [](const auto &one) { return !connection_is_in_use(one.first); });
    std::erase_if(known.l2tp_sessions,
                  [](const auto &one) { return session_entry(one.first).ingress_flow_handle == 0; });
}

void add_connection(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    ledger::connection c{
        {}, given.number("--pcep"), given.number("--rat-session"), given.byte("--dscp"), given.has("--session-type")};
    set_address(c.cfg.local_addr, given.text("--local"));
    set_address(c.cfg.remote_addr, given.text("--remote"));
    c.cfg.vrf_id = given.number("--vrf");
    c.cfg.ttl = given.byte("--ttl");
    s.operate(name_of("connection add", id), [&] {
        return zel_core_term_l2tp_control_connection_add(id, &c.cfg, given.number("--connection-id"), c.pcep,
                                                         c.rat_session, c.dscp, c.session_type);
    });
    if (connection_is_in_use(id))
        s.known.connections.try_emplace(id, c);
}

void remove_connection(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    const auto known = s.known.connections.find(id);
    if ((!given.has("--pcep") || !given.has("--rat-session")) && known == s.known.connections.end())
        throw bad_line("control connection " + std::to_string(id) +
                       " was not added here; --pcep and --rat-session are required");
    const ledger::connection c = known != s.known.connections.end() ? known->second : ledger::connection{};
    s.operate(name_of("connection remove", id), [&] {
        return zel_core_term_l2tp_control_connection_rem(id, given.number("--pcep", c.pcep),
                                                         given.number("--rat-session", c.rat_session));
    });
    forget_removed(s.known);
}

/// The sessions that a modify is to move: those listed, or all that the connection carries.
std::vector<std::uint32_t> sessions_to_move(const shell &s, const arguments &given)
{
    std::vector<std::uint32_t> sessions;
    for (const std::string &listed : given.texts("--sessions"))
        sessions.push_back(parse_number(listed));
    for (const auto &[id, connection] : s.known.l2tp_sessions)
        if (connection == given.number("ID") && !given.has("--sessions"))
            sessions.push_back(id);
    return sessions;
}

void modify_connection(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    const auto known = s.known.connections.find(id);
    if (known == s.known.connections.end())
        throw bad_line("control connection " + std::to_string(id) + " was not added here");
    ledger::connection old = known->second, c = old;
    set_address(c.cfg.remote_addr, given.text("--remote"));
    c.dscp = static_cast<std::uint8_t>(given.number("--dscp", c.dscp));
    c.cfg.vrf_id = given.number("--vrf", c.cfg.vrf_id);
    c.cfg.ttl = static_cast<std::uint8_t>(given.number("--ttl", c.cfg.ttl));
    std::vector<std::uint32_t> sessions = sessions_to_move(s, given);
    const bool was_in_use = connection_is_in_use(id);
    const std::uint32_t result = s.record(name_of("connection modify", id), [&] {
        return zel_core_term_l2tp_control_connection_modify(
            id, sessions.data(), static_cast<std::uint32_t>(sessions.size()), &c.cfg, c.pcep, c.rat_session, c.dscp,
            old.dscp, old.cfg.remote_addr, c.session_type);
    });
    // A 2 without a connection is the hook's own.
    const bool has_fallen_back = result == ZEL_CORE_TERM_FELL_BACK && connection_is_in_use(id);
    if (has_fallen_back) {
        s.watch.result_means("fell back to the old peer and DSCP");
        known->second.cfg = c.cfg; // whose peer is the old one again
    }
    s.show_result();
    if (result == ZEL_CORE_TERM_SUCCESS)
        known->second = c;
    if (result == ZEL_CORE_TERM_SUCCESS || has_fallen_back)
        for (const std::uint32_t session : sessions) // which send through this connection now
            if (const auto moved = s.known.l2tp_sessions.find(session); moved != s.known.l2tp_sessions.end())
                moved->second = id;
    if (was_in_use && !connection_is_in_use(id))
        s.out << "the connection and the sessions to move were removed\n";
    forget_removed(s.known);
}

void show_connections(shell &s, const arguments &)
{
    text_table table{{"id", "peers", "vrf", "dscp", "ttl", "L2TPv3 flow", "ingress", "egress"}};
    for (const auto &[id, c] : s.known.connections) {
        const l2tp_control_entry &entry = l2tp_control_table[id];
        table.add({std::to_string(id), address_text(4, c.cfg.local_addr) + " - " + address_text(4, c.cfg.remote_addr),
                   std::to_string(c.cfg.vrf_id), std::to_string(c.dscp),
                   ttl_text(c.cfg.ttl, entry.ipv4_egress_association_handle),
                   handle_text(entry.l2tp_ingress_flow_handle), handle_text(entry.ipv4_ingress_association_handle),
                   handle_text(entry.ipv4_egress_association_handle)});
    }
    s.out << count_text(s.known.connections.size(), "control connection") << '\n' << table;
}

void add_session(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID"), connection = given.number("--connection");
    const std::uint64_t flow_before = session_entry(id).ingress_flow_handle;
    s.operate(name_of("session add", id), [&] {
        return zel_core_term_l2tp_session_add(given.byte("--dscp"), given.has("--crc"), given.number("--pcep"),
                                              given.number("--rat-session"), given.number("--local-session-id"),
                                              connection, id, given.has("--session-type"));
    });
    const std::uint64_t flow = session_entry(id).ingress_flow_handle;
    if (flow != 0 && flow != flow_before)
        s.known.l2tp_sessions[id] = connection; // also when it was there, and is overwritten
    forget_removed(s.known);
}

void remove_session(shell &s, const arguments &given)
{
    const std::uint32_t id = given.number("ID");
    const auto known = s.known.l2tp_sessions.find(id);
    if (!given.has("--connection") && known == s.known.l2tp_sessions.end())
        throw bad_line("session " + std::to_string(id) + " was not added here; --connection is required");
    const std::uint32_t connection = given.has("--connection") ? given.number("--connection") : known->second;
    s.operate(name_of("session remove", id), [&] { return zel_core_term_l2tp_session_rem(connection, id); });
    forget_removed(s.known);
}

void show_sessions(shell &s, const arguments &)
{
    text_table table{{"id", "connection", "sends for", "ends at", "dscp", "ingress flow", "egress flow"}};
    for (const auto &[id, connection] : s.known.l2tp_sessions) {
        const l2tp_session_entry &entry = session_entry(id);
        table.add({std::to_string(id), std::to_string(connection), "ovlin " + handle_text(entry.src_flow_id),
                   "ovlin " + handle_text(entry.dst_flow_id), std::to_string(entry.dscp),
                   handle_text(entry.ingress_flow_handle), handle_text(entry.egress_flow_handle)});
    }
    s.out << count_text(s.known.l2tp_sessions.size(), "L2TP session") << '\n' << table;
}

} // namespace

std::vector<command> l2tp_commands()
{
    const parameter connection = with_choices(required(number("ID", "the control connection")), l2tp_connections);
    return {
        {"l2tp connection add",
         "add a control connection",
         "l2tp connection add 1 --local 192.0.2.1 --remote 198.51.100.7 --connection-id 1001 --pcep 3 --rat-session 11 "
         "--dscp 48",
         {required(
              number("ID", "tn_ovlin_session_id, 0 to 48; also the ovlin session id of the flow that it sends for")),
          address("--local", "local IPv4 address"), address("--remote", "the peer's IPv4 address"),
          required(number("--connection-id", "L2TPv3 control connection id")),
          required(number("--pcep", "PCEP id of its ovlin flows")),
          required(number("--rat-session", "ovlin session id of the flow that it receives for")),
          byte("--dscp", "DSCP of the sent control messages", "0"), number("--vrf", "routing instance", "0"),
          byte("--ttl", "TTL of the sent packets, 0: not given", "0"),
          flag("--session-type", "set the session type of the PCEP first")},
         add_connection},
        {"l2tp connection remove",
         "remove a control connection; remove its sessions before",
         "l2tp connection remove 1",
         {connection, number("--pcep", "PCEP id, if not the one that it was added with"),
          number("--rat-session", "RAT-side ovlin session id, likewise")},
         remove_connection},
        {"l2tp connection modify",
         "move a control connection and its sessions to another peer",
         "l2tp connection modify 1 --remote 203.0.113.9 --dscp 40",
         {connection, address("--remote", "the new peer's IPv4 address"),
          byte("--dscp", "new DSCP of the control messages; a fallback restores the old one"),
          number("--vrf", "new routing instance; a fallback keeps the new one"),
          byte("--ttl", "new TTL of the sent packets, 0: not given; a fallback keeps the new one"),
          with_choices(several(number("--sessions", "the sessions to move, if not all that it carries")),
                       l2tp_sessions)},
         modify_connection},
        plain("l2tp connection show", "the control connections", show_connections),
        {"l2tp session add",
         "add a session to a control connection",
         "l2tp session add 100 --connection 1 --local-session-id 50001 --pcep 3 --rat-session 101 --dscp 46",
         {required(number(
              "ID", "tn_ovlin_session_id_session, 48 to 336; also the ovlin session id of the flow that it sends for")),
          with_choices(required(number("--connection", "the control connection that carries it")), l2tp_connections),
          required(number("--local-session-id", "L2TPv3 session id of the received packets")),
          required(number("--pcep", "PCEP id of its ovlin flows")),
          required(number("--rat-session", "ovlin session id of the flow that it receives for")),
          byte("--dscp", "DSCP of the sent packets", "0"), flag("--crc", "the session's packets carry a CRC"),
          flag("--session-type", "set the session type of the PCEP first")},
         add_session},
        {"l2tp session remove",
         "remove a session",
         "l2tp session remove 100",
         {with_choices(required(number("ID", "the session")), l2tp_sessions),
          with_choices(number("--connection", "its control connection, if not the one that it was added to"),
                       l2tp_connections)},
         remove_session},
        plain("l2tp session show", "the sessions", show_sessions),
    };
}
