// What follows a UDP session's add: modify, disconnect, release, statistics, and packets that prove it all.
#include <cstring>

#include "library_test.h"

using namespace std::string_literals;

namespace {

class udp_session_life : public library_test {
protected:
    static vok_cp_sim_header_t received(const zel_core_term_udp_session_cfg_t &cfg)
    {
        vok_cp_sim_header_t header{};
        header.ip_version = cfg.ip_version;
        header.protocol = 17;
        header.vrf_id = cfg.vrf_id;
        std::memcpy(header.src_addr, cfg.remote_addr, 16);
        std::memcpy(header.dst_addr, cfg.local_addr, 16);
        header.src_port = cfg.remote_port;
        header.dst_port = cfg.local_port;
        return header;
    }
};

TEST_F(udp_session_life, calls_and_reports)
{
    const auto modify_pmtu = [](int) { return zel_core_term_udp_session_modify_pmtu(1, 131072 + 1280); };
    const auto modify_ttl = [](int) { return zel_core_term_udp_session_modify_ttl(1, 0); };
    const auto disconnect = [](int) { return zel_core_term_udp_session_disconnect(1); };
    const auto disconnect_twice = [=](int) { return disconnect(1) + disconnect(1); };
    const auto release = [](int) { return zel_core_term_udp_session_release(1); };
    const auto disconnect_and_release = [=](int) { return disconnect(1) + release(1); };
    const auto get_stats = [](int ip_version) {
        zel_udp_session_ipv4_stats_t v4;
        zel_udp_session_ipv6_stats_t v6;
        return ip_version == 4 ? zel_udp_session_get_stats(1, &v4) : zel_ipv6_udp_session_get_stats(1, &v6);
    };
    const auto format_stats = [](int) {
        char text[200];
        return zel_core_term_udp_session_fmt_stats_get(1, text, sizeof text, 0);
    };
    const auto format_stats_in_no_room = [](int) {
        char text[20];
        return zel_core_term_udp_session_fmt_stats_get(1, text, sizeof text, 0);
    };
    const operation_row rows[] = {
        {"modify pmtu over IPv4", {4}, modify_pmtu, {}, 0},
        {"modify ttl over IPv4", {4}, modify_ttl, {}, 0},
        {"modify pmtu", {6}, modify_pmtu, {}, 0},
        {"modify ttl", {6}, modify_ttl, {}, 0},
        {"modify pmtu fails", {6}, modify_pmtu, {{1, failing}}, 0},
        {"modify ttl fails after it took effect", {6}, modify_ttl, {{1, failing_after_effect}}, 0},
        {"disconnect", {4, 6}, disconnect, {}, 0},
        {"disconnect with both unbinds failing", {4, 6}, disconnect, {{1, failing}, {2, failing}}, 0},
        {"disconnect twice", {4, 6}, disconnect_twice, {}, 0},
        {"release of a connected session, which this data plane refuses", {4, 6}, release, {}, 0},
        {"disconnect and release with the ingress delete failing", {4, 6}, disconnect_and_release, {{3, failing}}, 0},
        {"disconnect and release", {4, 6}, disconnect_and_release, {}, 0},
        {"formatted statistics", {4, 6}, format_stats, {}, 0},
        {"statistics with the ingress read failing", {4, 6}, get_stats, {{1, failing}}, 0},
        {"formatted statistics with the egress read failing", {4, 6}, format_stats, {{2, failing}}, 0},
        {"formatted statistics that are cut", {4, 6}, format_stats_in_no_room, {}, 0},
    };
    for (const operation_row &row : rows)
        run(row, before::session_1);
    expect_collected("udp_life.txt");
}

TEST_F(udp_session_life, every_operation_refuses_what_is_no_session)
{
    zel_udp_session_ipv4_stats_t v4;
    zel_udp_session_ipv6_stats_t v6;
    char text[4];
    const struct {
        const char *name;
        std::function<uint32_t(uint32_t)> call;
    } operations[] = {
        {"zel_core_term_udp_session_modify_pmtu",
         [](uint32_t id) { return zel_core_term_udp_session_modify_pmtu(id, 1); }},
        {"zel_core_term_udp_session_modify_ttl",
         [](uint32_t id) { return zel_core_term_udp_session_modify_ttl(id, 1); }},
        {"zel_core_term_udp_session_disconnect", zel_core_term_udp_session_disconnect},
        {"zel_core_term_udp_session_release", zel_core_term_udp_session_release},
        {"zel_udp_session_get_stats", [&](uint32_t id) { return zel_udp_session_get_stats(id, &v4); }},
        {"zel_ipv6_udp_session_get_stats", [&](uint32_t id) { return zel_ipv6_udp_session_get_stats(id, &v6); }},
        {"zel_core_term_udp_session_fmt_stats_get",
         [&](uint32_t id) { return zel_core_term_udp_session_fmt_stats_get(id, text, sizeof text, 0); }},
    };
    record();
    const std::vector<uint8_t> zero(sizeof v4), untouched(sizeof v6, 0xAB);
    for (const auto &operation : operations) {
        for (const uint32_t id : {0u, 1u, 70000u, 70001u, UINT32_MAX}) {
            SCOPED_TRACE(operation.name + " "s + std::to_string(id));
            std::memset(&v4, 0xAB, sizeof v4);
            std::memset(&v6, 0xAB, sizeof v6);
            std::memset(text, 'x', sizeof text);
            const bool in_range = id == 1 || id == 70000;
            EXPECT_EQ(operation.call(id), in_range ? 4u : 3u);
            EXPECT_EQ(trail(), "tn_zel_init:EXCEPTION zel_udp_session GENERAL "s + operation.name +
                                   "(): " + (in_range ? "session is free" : "identifier or argument out of range") +
                                   ", (udp_session_id)\n");
            // The IPv4 counters are cleared before any check, the text emptied, the IPv6 counters left alone.
            EXPECT_EQ(std::memcmp(&v4, zero.data(), sizeof v4) == 0, operation.name == "zel_udp_session_get_stats"s);
            EXPECT_EQ(std::memcmp(&v6, untouched.data(), sizeof v6), 0);
            EXPECT_EQ(text[0] == '\0', operation.name == "zel_core_term_udp_session_fmt_stats_get"s);
            EXPECT_EQ(text[1], 'x');
        }
    }
}

TEST_F(udp_session_life, a_downlink_flow_of_0_counts_as_not_bound)
{
    const zel_core_term_udp_session_cfg_t configuration = cfg(4);
    ASSERT_EQ(zel_core_term_udp_session_add(1, &configuration, 1, 0, 0, 0, 0), 0u);
    record();
    EXPECT_EQ(zel_core_term_udp_session_disconnect(1), 0u);
    EXPECT_EQ(data_plane(), "2 objects, 1 bindings");
    const std::string all = trail();
    EXPECT_EQ(
        all.substr(0, all.find("vok_unbind")),
        R"(tn_zel_init:EXCEPTION zel_udp_session GENERAL udp_session_disconnect_dl(): session is free, (udp_session_id)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_disconnect(): session is free, udp_session_disconnect_dl
)");
}

TEST_F(udp_session_life, a_release_without_associations_says_so_and_an_add_notices_that_its_session_is_gone)
{
    // The data plane comes back to the caller, which releases the session that is just being added.
    on_call = [](int number) {
        if (number == 1) {
            EXPECT_EQ(zel_core_term_udp_session_release(1), 0u);
        }
    };
    record();
    const zel_core_term_udp_session_cfg_t configuration = cfg(4);
    EXPECT_EQ(zel_core_term_udp_session_add(1, &configuration, 1, 2, 5, 46, 0), 4u);
    EXPECT_EQ(trail(), R"(vok_ip_ingress_association_create
tn_zel_term:EXCEPTION zel_udp_session UDP_SESSION zel_core_term_udp_session_release(): ingress ip flow doesn't exist, udp_session_id=1
tn_zel_term:EXCEPTION zel_udp_session UDP_SESSION zel_core_term_udp_session_release(): egress ip flow doesn't exist, udp_session_id=1
vok_ip_egress_association_create
tn_zel_init:EXCEPTION zel_udp_session GENERAL udp_session_connect_ul(): session is free, (udp_session_id)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): session is free, udp_session_connect_ul
vok_ip_ingress_association_delete #1
vok_ip_egress_association_delete #2
)");
    EXPECT_EQ(data_plane(), "0 objects, 0 bindings");
}

TEST_F(udp_session_life, an_add_follows_its_entry_even_when_the_data_plane_comes_back_to_the_caller)
{
    const auto release_and_add = [](int bind) {
        if (bind == 1) {
            EXPECT_EQ(zel_core_term_udp_session_release(1), 0u);
        }
        return 0u;
    };
    interposed.after_bind = release_and_add;
    record();
    EXPECT_EQ(add(1, cfg(4)), 4u); // freed after the uplink bind
    std::string all = trail();
    EXPECT_NE(all.find("udp_session_connect_dl(): session is free, (udp_session_id)"), std::string::npos);
    EXPECT_NE(all.find("zel_core_term_udp_session_add(): session is free, udp_session_disconnect_ul"),
              std::string::npos);

    reset();
    interposed.binds = 0;
    interposed.after_bind = [](int bind) {
        if (bind == 2) { // the downlink's; the session is another one when its failure comes to the add
            EXPECT_EQ(zel_core_term_udp_session_release(1), 0u);
            EXPECT_EQ(add(1, cfg(6)), 0u);
        }
        return bind == 2 ? 1u : 0u;
    };
    record({{11, failing}});
    EXPECT_EQ(add(1, cfg(4)), 13u);
    all = trail();
    EXPECT_NE(all.find("vok_unbind #3 -> 0x00200005 + vok_syshandle_get + vok_sys_status_get\n"), std::string::npos);
    EXPECT_NE(all.find("zel_core_term_udp_session_add(): data-plane call failed, udp_session_disconnect_dl\n"
                       "vok_unbind 0x00100001 -> #4\n"),
              std::string::npos);
    zel_core_term_udp_session_cfg_t stored;
    EXPECT_EQ(zel_core_term_udp_session_cfg_get(1, &stored), 4u);
}

TEST_F(udp_session_life, statistics_lie_where_the_interface_says_as_far_as_they_could_be_read)
{
    ASSERT_EQ(add(4, cfg(4)), 0u);
    ASSERT_EQ(add(6, cfg(6)), 0u);
    for (const int ip_version : {4, 6}) {
        const vok_cp_sim_header_t down = received(cfg(ip_version));
        vok_cp_sim_receive(&down, 100);
        vok_cp_sim_receive(&down, 100);
        vok_cp_sim_send(0x00100000 + static_cast<uint32_t>(ip_version), 1000);
    }
    const auto read = [this](int failing_call, auto get, uint32_t id, auto stats) {
        std::memset(&stats, 0xAB, sizeof stats);
        record({{failing_call, failing}});
        EXPECT_EQ(get(id, &stats), failing_call == 0 ? 0u : 13u);
        std::vector<uint8_t> bytes(sizeof stats);
        std::memcpy(bytes.data(), &stats, sizeof stats);
        return bytes;
    };
    const auto ipv4 = [&](int failing_call) {
        return read(failing_call, zel_udp_session_get_stats, 4, zel_udp_session_ipv4_stats_t{});
    };
    const auto ipv6 = [&](int failing_call) {
        return read(failing_call, zel_ipv6_udp_session_get_stats, 6, zel_udp_session_ipv6_stats_t{});
    };
    std::vector<uint8_t> v4(64);
    EXPECT_EQ(ipv4(1), v4);
    v4[32] = 2, v4[40] = 200;
    EXPECT_EQ(ipv4(2), v4);
    v4[0] = 1, v4[8] = 0xe8, v4[9] = 3;
    EXPECT_EQ(ipv4(0), v4);

    EXPECT_EQ(ipv6(1), std::vector<uint8_t>(12, 0xAB));
    EXPECT_EQ(ipv6(2), (std::vector<uint8_t>{0xAB, 0xAB, 0xAB, 0xAB, 2, 0, 0, 0, 200, 0, 0, 0}));
    EXPECT_EQ(ipv6(0), (std::vector<uint8_t>{1, 0, 0, 0, 2, 0, 0, 0, 200, 0, 0, 0}));
}

TEST_F(udp_session_life, formatted_statistics_stay_in_their_buffer)
{
    ASSERT_EQ(add(4, cfg(4)), 0u);
    ASSERT_EQ(add(6, cfg(6)), 0u);
    const struct {
        uint32_t id;
        uint8_t option;
        std::string whole;
    } rows[] = {
        {4, 0, "IPv4 ingress: 0 packets, 0 octets\nIPv4 egress: 0 packets, 0 octets\n\n"},
        {4, 1, "IPv4 ingress\n  packets: 0\n  octets: 0\nIPv4 egress\n  packets: 0\n  octets: 0\n\n"},
        {6, 0, "IPv6 ingress: 0 packets, 0 octets\nIPv6 egress: 0 packets\n\n"},
        {6, 1, "IPv6 ingress\n  packets: 0\n  octets: 0\nIPv6 egress\n  packets: 0\n\n"},
        {6, 2, "\n"},
    };
    for (const auto &row : rows) {
        for (uint32_t size = 1; size <= row.whole.size() + 2; ++size) {
            std::vector<char> buf(size + 1, 'x');
            EXPECT_EQ(zel_core_term_udp_session_fmt_stats_get(row.id, buf.data(), size, row.option),
                      size > row.whole.size() ? 0u : 21u);
            EXPECT_EQ(buf.data(), row.whole.substr(0, size - 1)) << size;
            EXPECT_EQ(buf[size], 'x');
        }
    }
}

} // namespace
