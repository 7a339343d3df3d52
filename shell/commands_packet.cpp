// The commands that take packets through the stand-in data plane.
#include <algorithm>

#include "data_plane_view.h"
#include "line_options.h"

namespace {

constexpr std::uint8_t protocol_udp = 17, protocol_l2tpv3 = 115;

vok_cp_sim_header_t received(const endpoint &from, const endpoint &to, std::uint8_t protocol, std::uint32_t vrf)
{
    vok_cp_sim_header_t header{};
    header.ip_version = static_cast<std::uint8_t>(from.ip_version);
    header.protocol = protocol;
    header.vrf_id = vrf;
    std::ranges::copy(from.address, header.src_addr);
    std::ranges::copy(to.address, header.dst_addr);
    header.src_port = from.port;
    header.dst_port = to.port;
    return header;
}

} // namespace

void commands::add_packet_commands(CLI::App &app, line_options &o)
{
    CLI::App *packet = add_group(app, "packet", "the data plane receives a packet");
    CLI::App *udp = add_command(*packet, "udp", "the data plane receives a UDP packet",
                                "packet udp --from 198.51.100.7:2152 --to 192.0.2.1:2152");
    add_endpoint(udp, "--from", o.remote, "its source, IPv6 as [2001:db8::1]:2152");
    add_endpoint(udp, "--to", o.local, "its destination, of the same IP version");
    with_default(add_number(udp, "--vrf", o.vrf, "routing instance that it arrives in"));
    with_default(add_number(udp, "--octets", o.octets, "its size"));
    on_run(udp, [this, &o] {
        const endpoint from = parse_endpoint(o.remote), to = parse_endpoint(o.local);
        require_same_version("--from", from, "--to", to);
        const vok_cp_sim_header_t header = received(from, to, protocol_udp, o.vrf);
        out_ << "packet " << to_text(vok_cp_sim_receive(&header, o.octets)) << '\n';
    });

    CLI::App *l2tp = add_command(*packet, "l2tp", "the data plane receives an L2TPv3 packet over IPv4",
                                 "packet l2tp --from 198.51.100.7 --to 192.0.2.1 --session 50001");
    add_ipv4(l2tp, "--from", o.remote, "its source");
    add_ipv4(l2tp, "--to", o.local, "its destination");
    CLI::Option *session = add_number(l2tp, "--session", o.local_session_id, "the session id that it carries");
    CLI::Option *control_message = add_number(l2tp, "--connection", o.connection_id,
                                              "a control message: the control connection id that it carries");
    with_default(add_number(l2tp, "--vrf", o.vrf, "routing instance that it arrives in"));
    with_default(add_number(l2tp, "--octets", o.octets, "its size"));
    on_run(l2tp, [this, &o, session, control_message] {
        if (is_given(session) == is_given(control_message))
            throw bad_line("--session or --connection is required, and not both");
        vok_cp_sim_header_t header = received(parse_ipv4(o.remote), parse_ipv4(o.local), protocol_l2tpv3, o.vrf);
        header.l2tp_session_id = o.local_session_id;
        header.l2tp_connection_id = o.connection_id;
        out_ << "packet " << to_text(vok_cp_sim_receive(&header, o.octets)) << '\n';
    });

    CLI::App *send = add_command(app, "send", "an ovlin flow sends a packet", "send 1/1 --octets 300");
    add_flow(send, "FLOW", o.flow, "ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)");
    with_default(add_number(send, "--octets", o.octets, "its size"));
    on_run(send, [this, &o] { out_ << "packet " << to_text(vok_cp_sim_send(parse_flow(o.flow), o.octets)) << '\n'; });
}
