// The order of a UDP session add: its calls, its reports, its undo.
#include <cstdio>
#include <cstring>

#include "library_test.h"

using namespace std::string_literals;

namespace {

class udp_session_add : public library_test {};

TEST_F(udp_session_add, calls_reports_and_undo)
{
    const auto add_plain = [](int ip_version) { return add(1, cfg(ip_version)); };
    const auto add_typed = [](int ip_version) { return add(1, cfg(ip_version), 0x80); };
    const operation_row rows[] = {
        {"success", {4, 6}, add_plain, {}, 0},
        {"success with the session type set", {4, 6}, add_typed, {}, 0},
        {"ingress create fails after writing the handle", {4, 6}, add_plain, {{1, failing_after_effect}}, 0},
        {"the session type is refused", {4, 6}, add_typed, {}, 9},
        {"the session type is refused with 3, which undoes nothing", {4, 6}, add_typed, {}, 3},
        {"the session type is refused with 5, which undoes nothing", {4, 6}, add_typed, {}, 5},
    };
    for (const operation_row &row : rows)
        run(row, before::nothing);
    for (const int ip_version : {4, 6})
        fail_each_call(
            {"add over IPv" + std::to_string(ip_version), 4, [] {}, [=] { return add(1, cfg(ip_version)); }});
    expect_collected("udp_add.txt");
}

TEST_F(udp_session_add, rejections_in_their_order)
{
    interposed.capabilities = {1000, 20, {}};
    ASSERT_EQ(zel_core_term_start(), 0u);
    ASSERT_EQ(add(7, cfg(4)), 0u);

    // Two rows with the module started; then each row is wrong in its own way and in all the ways of the rows below
    // it, down to the module being stopped.
    const struct {
        uint32_t id, uplink_pcep, downlink_pcep, rat_session;
        int ip_version;
        uint32_t result;
        const char *text;
    } rows[] = {
        {7, 21, 21, 1001, 5, 5, "session id already in use, (udp_session_id)"},
        {8, 20, 20, 1000, 5, 7, "unsupported IP version, Unsupported IP Version"},
        {0, 21, 21, 1001, 5, 3, "identifier or argument out of range, (udp_session_id)"},
        {70001, 21, 21, 1001, 5, 3, "identifier or argument out of range, (udp_session_id)"},
        {UINT32_MAX, 21, 21, 1001, 5, 3, "identifier or argument out of range, (udp_session_id)"},
        {8, 21, 21, 1001, 5, 3, "identifier or argument out of range, rat_ovlin_session_id out-of-range"},
        {8, 21, 21, 1000, 5, 3, "identifier or argument out of range, tn_ul_pcep_id out-of-range"},
        {8, 20, 21, 1000, 5, 3, "identifier or argument out of range, tn_dl_pcep_id out-of-range"},
        {8, 20, 20, 1000, 5, 7, "unsupported IP version, Unsupported IP Version"},
        {8, 20, 20, 1000, 4, 13, "data-plane call failed, not started"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const zel_core_term_udp_session_cfg_t configuration = cfg(row.ip_version);
        record();
        EXPECT_EQ(zel_core_term_udp_session_add(row.id, &configuration, row.uplink_pcep, row.downlink_pcep,
                                                row.rat_session, 0, 0),
                  row.result);
        EXPECT_EQ(trail(),
                  "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): "s + row.text + "\n");
        stop_recording();
        EXPECT_EQ(data_plane(), "2 objects, 2 bindings");
        zel_core_term_udp_session_cfg_t stored;
        EXPECT_EQ(zel_core_term_udp_session_cfg_get(8, &stored), 4u);
        if (&row != &rows[0]) {
            ASSERT_EQ(zel_udp_session_stop(), 0u);
        }
    }
}

TEST_F(udp_session_add, accepts_every_limit_and_cuts_the_rat_session_to_20_bits)
{
    interposed.capabilities = {0x100005, 0xFFF, {}};
    ASSERT_EQ(zel_core_term_start(), 0u);
    const zel_core_term_udp_session_cfg_t configuration = cfg(6);
    record();
    EXPECT_EQ(zel_core_term_udp_session_add(70000, &configuration, 0xFFF, 2, 0x100005, 63, 0), 0u);
    EXPECT_EQ(zel_core_term_udp_session_add(1, &configuration, 0, 0xFFF, 0, 0, 0), 0u);
    EXPECT_EQ(trail(), R"(vok_ipv6_ingress_association_create
vok_ipv6_egress_association_create
vok_bind 0xfff11170 -> #2
vok_bind #1 -> 0x00200005
vok_ipv6_ingress_association_create
vok_ipv6_egress_association_create
vok_bind 0x00000001 -> #4
vok_bind #3 -> 0xfff00000
)");
    stop_recording();

    zel_core_term_udp_session_cfg_t given = configuration, stored;
    std::memset(given.reserved_01, 0xA1, sizeof given.reserved_01);
    std::memset(given.reserved_14, 0xA2, sizeof given.reserved_14);
    std::memset(given.reserved_35, 0xA3, sizeof given.reserved_35);
    EXPECT_EQ(add(5, given), 0u);
    EXPECT_EQ(zel_core_term_udp_session_cfg_get(5, &stored), 0u);
    EXPECT_EQ(std::memcmp(&stored, &given, sizeof given), 0);
}

TEST_F(udp_session_add, records_byte_for_byte)
{
    dump_records = true;
    for (const int ip_version : {4, 6}) {
        record();
        ASSERT_EQ(add(1, cfg(ip_version)), 0u);
        collect("add over IPv" + std::to_string(ip_version));
        if (ip_version == 6) {
            ASSERT_EQ(zel_core_term_udp_session_modify_ttl(1, 0), 0u);
            collect("modify ttl: 0");
            ASSERT_EQ(zel_core_term_udp_session_modify_pmtu(1, 131072 + 1280), 0u);
            collect("modify pmtu: 132352, of which the data plane gets 1280");
        }
        ASSERT_EQ(zel_core_term_udp_session_disconnect(1), 0u);
        ASSERT_EQ(zel_core_term_udp_session_release(1), 0u);
        collect("disconnect and release");
    }
    expect_collected("udp_records.txt");
}

TEST_F(udp_session_add, asks_for_no_text_when_every_event_is_off)
{
    record({{1, failing}});
    EXPECT_EQ(add(1, cfg(4)), 13u);
    EXPECT_EQ(interposed.texts_asked, 1); // when they are on, it asks
    EXPECT_GE(interposed.messages_formatted, 2);

    interposed = {};
    listen = false;
    record({{4, failing}, {5, failing}});
    EXPECT_EQ(add(0, cfg(4)), 3u);
    EXPECT_EQ(add(1, cfg(4)), 13u);
    EXPECT_EQ(interposed.texts_asked, 0);
    EXPECT_EQ(interposed.messages_formatted, 0);
    EXPECT_EQ(trail(), R"(vok_ip_ingress_association_create
vok_ip_egress_association_create
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005 + vok_syshandle_get
vok_unbind 0x00100001 -> #2 + vok_syshandle_get
vok_ip_ingress_association_delete #1
vok_ip_egress_association_delete #2 + vok_syshandle_get
)");
}

TEST_F(udp_session_add, a_slow_call_is_reported_before_its_failure_and_is_none_itself)
{
    const uint64_t slow = 30'000'000;
    keep_delays_of = {"vok_ipv6_ingress_association_create,", "vok_bind(F2ID"};
    record({{1, {VOK_CP_SIM_OK, false, slow}}, {4, {VOK_CP_SIM_INJECTED, false, slow}}});
    ASSERT_EQ(add(1, cfg(6)), 13u);
    std::string all = trail();
    for (std::size_t at = 0; (at = all.find("delay=", at)) != std::string::npos;) {
        uint64_t delay, start, end;
        int length = 0;
        ASSERT_EQ(
            std::sscanf(all.c_str() + at, "delay=%lu,start_time=%lu, end_time=%lu%n", &delay, &start, &end, &length),
            3);
        EXPECT_GE(delay, slow);
        EXPECT_EQ(delay, end - start);
        all.replace(at, static_cast<std::size_t>(length), "DELAY,START, END");
    }
    EXPECT_EQ(all, R"(vok_ipv6_ingress_association_create
tn_zel_term:EXCEPTION zel_udp_session SESSION_API_DELAY create_ingress_udp_association_ipv6(): WARNING: too large VOK DELAY,START, END, detected for vok_ipv6_ingress_association_create, continue normal processing.
vok_ipv6_egress_association_create
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005
tn_zel_term:EXCEPTION zel_udp_session SESSION_API_DELAY udp_session_connect_dl(): WARNING: too large VOK DELAY,START, END, detected for vok_bind(F2ID, EGRESS, ipv4/ipv6->ovlin), continue normal processing. + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL udp_session_connect_dl(): injected fault, vok_bind(F2ID, EGRESS, ipv4/ipv6->ovlin)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, udp_session_connect_dl
vok_unbind 0x00100001 -> #2
vok_ipv6_ingress_association_delete #1
vok_ipv6_egress_association_delete #2
)");
}

} // namespace
