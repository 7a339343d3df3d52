// The commands that take packets through the stand-in data plane.
#include <algorithm>

#include "shell.h"

namespace {

constexpr std::uint8_t protocol_udp = 17, protocol_l2tpv3 = 115;

std::string to_text(const vok_cp_sim_arrival_t &a)
{
    switch (a.fate) {
    case VOK_CP_SIM_FORWARDED:
        return "ends at " + ovlin_flow_text(a.ovlin_flow_id) + " through " + handle_text(a.association);
    case VOK_CP_SIM_NO_ASSOCIATION: return "dropped: no ingress association matches it";
    case VOK_CP_SIM_NO_L2TPV3_FLOW: return "dropped: no L2TPv3 ingress flow has its id";
    case VOK_CP_SIM_NOT_BOUND:
        return "dropped: " + handle_text(a.association) + " matches it, but no binding leads on to a flow";
    }
    return "unknown fate";
}

std::string to_text(const vok_cp_sim_departure_t &d)
{
    if (d.fate != VOK_CP_SIM_FORWARDED)
        return "dropped: the flow is not bound to an egress association";
    return "leaves through " + handle_text(d.association) + " as " + whole_header_text(d.header, d.path_mtu) +
           (d.binding.has_dscp ? ", dscp " + std::to_string(d.binding.dscp) : "");
}

vok_cp_sim_header_t received(const endpoint &from, const endpoint &to, std::uint8_t protocol, const arguments &given)
{
    vok_cp_sim_header_t header{};
    header.ip_version = static_cast<std::uint8_t>(from.ip_version);
    header.protocol = protocol;
    header.vrf_id = given.number("--vrf");
    std::ranges::copy(from.address, header.src_addr);
    std::ranges::copy(to.address, header.dst_addr);
    header.src_port = from.port;
    header.dst_port = to.port;
    return header;
}

void receive(shell &s, const vok_cp_sim_header_t &header, const arguments &given)
{
    s.out << "packet " << to_text(vok_cp_sim_receive(&header, given.number("--octets"))) << '\n';
}

void receive_udp(shell &s, const arguments &given)
{
    const endpoint from = parse_endpoint(given.text("--from")), to = parse_endpoint(given.text("--to"));
    require_same_version("--from", from, "--to", to);
    receive(s, received(from, to, protocol_udp, given), given);
}

void receive_l2tp(shell &s, const arguments &given)
{
    if (given.has("--session") == given.has("--connection"))
        throw bad_line("--session or --connection is required, and not both");
    vok_cp_sim_header_t header =
        received(parse_ipv4(given.text("--from")), parse_ipv4(given.text("--to")), protocol_l2tpv3, given);
    header.l2tp_session_id = given.number("--session", 0);
    header.l2tp_connection_id = given.number("--connection", 0);
    receive(s, header, given);
}

void send(shell &s, const arguments &given)
{
    const std::uint32_t flow = parse_flow(given.text("FLOW"));
    s.out << "packet " << to_text(vok_cp_sim_send(flow, given.number("--octets"))) << '\n';
}

} // namespace

std::vector<command> packet_commands()
{
    const parameter vrf = number("--vrf", "routing instance that it arrives in", "0"),
                    octets = number("--octets", "its size", "100");
    parameter flow = required(text("FLOW", "ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)"));
    flow.check = parse_flow;
    return {
        {"packet udp",
         "the data plane receives a UDP packet",
         "packet udp --from 198.51.100.7:2152 --to 192.0.2.1:2152",
         {address_and_port("--from", "its source, IPv6 as [2001:db8::1]:2152"),
          address_and_port("--to", "its destination, of the same IP version"), vrf, octets},
         receive_udp},
        {"packet l2tp",
         "the data plane receives an L2TPv3 packet over IPv4",
         "packet l2tp --from 198.51.100.7 --to 192.0.2.1 --session 50001",
         {address("--from", "its source"), address("--to", "its destination"),
          number("--session", "the session id that it carries"),
          number("--connection", "a control message: the control connection id that it carries"), vrf, octets},
         receive_l2tp},
        {"send", "an ovlin flow sends a packet", "send 1/1 --octets 300", {flow, octets}, send},
    };
}
