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
    // clang-format off
    const operation_row rows[] = {
        {"success", {4, 6}, add_plain, {}, 0, 0, "2 objects, 2 bindings", 70000, 64, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005
)"},
        {"success with the session type set", {4, 6}, add_typed, {}, 0, 0, "2 objects, 2 bindings", 70000, 64, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
session type hook: ovlin type 1, pcep 1, session type 2
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005
)"},
        {"ingress create fails", {4, 6}, add_plain, {{1, failing}}, 0, 13, "0 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL create_ingress_udp_association_$F(): injected fault, vok_$V_ingress_association_create
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, create_ingress_udp_association_$F
)"},
        {"ingress create fails after writing the handle", {4, 6}, add_plain, {{1, failing_after_effect}}, 0, 13, "0 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL create_ingress_udp_association_$F(): injected fault, vok_$V_ingress_association_create
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, create_ingress_udp_association_$F
vok_$V_ingress_association_delete #1
)"},
        {"egress create fails", {4, 6}, add_plain, {{2, failing}}, 0, 13, "0 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL create_egress_udp_association_$F(): injected fault, vok_$V_egress_association_create
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, create_egress_udp_association_$F
vok_$V_ingress_association_delete #1
)"},
        {"uplink bind fails, and so does the ingress delete", {4, 6}, add_plain, {{3, failing}, {4, failing}}, 0, 13, "1 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
vok_bind 0x00100001 -> #2 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL udp_session_connect_ul(): injected fault, vok_bind(ID2F, EGRESS, ovlin->ipv4/ipv6)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, udp_session_connect_ul
vok_$V_ingress_association_delete #1 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): injected fault, vok_$V_ingress_association_delete
vok_$V_egress_association_delete #2
)"},
        {"downlink bind fails", {4, 6}, add_plain, {{4, failing}}, 0, 13, "0 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL udp_session_connect_dl(): injected fault, vok_bind(F2ID, EGRESS, ipv4/ipv6->ovlin)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, udp_session_connect_dl
vok_unbind 0x00100001 -> #2
vok_$V_ingress_association_delete #1
vok_$V_egress_association_delete #2
)"},
        {"downlink bind fails, and so does every undo", {4, 6}, add_plain, {{4, failing}, {5, failing}, {6, failing}, {7, failing}}, 0, 13, "2 objects, 1 bindings", 0, 0, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
vok_bind 0x00100001 -> #2
vok_bind #1 -> 0x00200005 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL udp_session_connect_dl(): injected fault, vok_bind(F2ID, EGRESS, ipv4/ipv6->ovlin)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, udp_session_connect_dl
vok_unbind 0x00100001 -> #2 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL udp_session_disconnect_ul(): injected fault, vok_unbind(ID2F, EGRESS, ovlin->ipv4/ipv6)
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): data-plane call failed, udp_session_disconnect_ul
vok_$V_ingress_association_delete #1 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): injected fault, vok_$V_ingress_association_delete
vok_$V_egress_association_delete #2 + vok_syshandle_get + vok_sys_status_get
tn_zel_term:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): injected fault, vok_$V_egress_association_delete
)"},
        {"the session type is refused", {4, 6}, add_typed, {}, 9, 9, "0 objects, 0 bindings", 0, 0, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
session type hook: ovlin type 1, pcep 1, session type 2
tn_zel_init:EXCEPTION zel_udp_session GENERAL udp_session_connect_ul(): unknown result code, zel_ovlin_session_handler_set_session_type
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): unknown result code, udp_session_connect_ul
vok_$V_ingress_association_delete #1
vok_$V_egress_association_delete #2
)"},
        {"the session type is refused with 3, which undoes nothing", {4, 6}, add_typed, {}, 3, 3, "2 objects, 0 bindings", 70000, 64, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
session type hook: ovlin type 1, pcep 1, session type 2
tn_zel_init:EXCEPTION zel_udp_session GENERAL udp_session_connect_ul(): identifier or argument out of range, zel_ovlin_session_handler_set_session_type
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): identifier or argument out of range, udp_session_connect_ul
)"},
        {"the session type is refused with 5, which undoes nothing", {4, 6}, add_typed, {}, 5, 5, "2 objects, 0 bindings", 70000, 64, R"(
vok_$V_ingress_association_create
vok_$V_egress_association_create
session type hook: ovlin type 1, pcep 1, session type 2
tn_zel_init:EXCEPTION zel_udp_session GENERAL udp_session_connect_ul(): session id already in use, zel_ovlin_session_handler_set_session_type
tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): session id already in use, udp_session_connect_ul
)"},
    };
    // clang-format on
    for (const operation_row &row : rows)
        run(row, before::nothing);
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

/// A record of which only these bytes are not zero.
struct golden {
    const char *operation;
    std::size_t size;
    std::map<std::size_t, std::vector<uint8_t>> bytes; ///< by offset

    std::vector<uint8_t> record() const
    {
        std::vector<uint8_t> all(size);
        for (const auto &[offset, some] : bytes)
            std::copy(some.begin(), some.end(), all.begin() + static_cast<std::ptrdiff_t>(offset));
        return all;
    }
};

TEST_F(udp_session_add, records_byte_for_byte)
{
    // clang-format off
    const std::vector<uint8_t> local6 = {0xb8, 0x0d, 0x01, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
    const std::vector<uint8_t> remote6 = {0xb8, 0x0d, 0x01, 0x20, 0x78, 0x56, 0x34, 0x12, 0xf0, 0xde, 0xbc, 0x9a, 4, 3, 2, 1};
    const std::vector<uint8_t> vrf = {4, 3, 2, 1}, port_2152 = {0x68, 0x08}, port_40000 = {0x40, 0x9c};
    const std::vector<uint8_t> local4 = {1, 2, 0, 0xc0}, remote4 = {7, 100, 51, 198};
    const golden ipv4[] = {
        {"vok_ip_ingress_association_create", 128, {
            {0x00, {0xfc, 0}}, {0x10, vrf}, {0x20, local4}, {0x24, {32}}, {0x28, remote4}, {0x2c, {32}}, {0x30, {17}},
            {0x32, port_2152}, {0x34, port_40000}, {0x38, {1}}}},
        {"vok_ip_egress_association_create", 56, {
            {0x00, {0x6e, 0}}, {0x10, vrf}, {0x14, remote4}, {0x18, local4}, {0x1e, port_40000}, {0x20, port_2152},
            {0x35, {64}}}},
    };
    const golden ipv6[] = {
        {"vok_ipv6_ingress_association_create", 176, {
            {0x00, {0x72, 6}}, {0x10, vrf}, {0x24, {17}}, {0x26, port_40000}, {0x28, port_2152}, {0x30, remote6},
            {0x40, {128}}, {0x44, local6}, {0x54, {128}}}},
        {"vok_ipv6_egress_association_create", 59, {
            {0x00, {1}}, {0x09, vrf}, {0x0d, local6}, {0x1d, remote6}, {0x2d, {64}}, {0x33, {17}},
            {0x34, {0x70, 0x11}}, {0x36, port_2152}, {0x38, port_40000}, {0x3a, {0x40}}}},
    };
    for (const int ip_version : {4, 6}) {
        record({{4, failing}}); // so that the uplink is unbound too
        ASSERT_EQ(add(1, cfg(ip_version)), 13u);
        ASSERT_EQ(calls.size(), 7u);

        const uint8_t association_type = ip_version == 4 ? 0x0a : 0x0b;
        const std::vector<uint8_t> ingress = handle_bytes(1), egress = handle_bytes(2);
        const golden uplink{"vok_bind", 96, {
            {0x00, {6}}, {0x04, {2}}, {0x08, {1}}, {0x10, {0x11}}, {0x17, {0x5a}}, {0x20, {1, 0, 0x10, 0}},
            {0x24, {2}}, {0x28, {association_type}}, {0x2f, {0x5a}}, {0x30, egress}, {0x3c, {2}}, {0x54, {1}}}};
        const golden downlink{"vok_bind", 96, {
            {0x00, {5}}, {0x04, {2}}, {0x08, {1}}, {0x10, {association_type}}, {0x17, {0x5a}}, {0x18, ingress},
            {0x24, {2}}, {0x28, {0x11}}, {0x2f, {0x5a}}, {0x38, {5, 0, 0x20, 0}}, {0x3c, {2}}, {0x54, {1}}}};
        // clang-format on
        golden uplink_undo = uplink;
        uplink_undo.operation = "vok_unbind";
        const golden *created = ip_version == 4 ? ipv4 : ipv6;
        const golden *expected[] = {&created[0], &created[1], &uplink, &downlink, &uplink_undo};
        for (std::size_t i = 0; i < std::size(expected); ++i) {
            EXPECT_EQ(calls[i].operation, expected[i]->operation);
            EXPECT_EQ(calls[i].record, expected[i]->record()) << expected[i]->operation << " of IPv" << ip_version;
        }
        EXPECT_EQ(calls[2].dscp, 46);
        EXPECT_FALSE(calls[3].dscp || calls[4].dscp);
        stop_recording();
    }
}

TEST_F(udp_session_add, without_a_ttl_ipv4_sends_0_and_ipv6_128)
{
    for (const int ip_version : {4, 6}) {
        zel_core_term_udp_session_cfg_t configuration = cfg(ip_version);
        configuration.ttl = 0;
        record();
        ASSERT_EQ(add(static_cast<uint32_t>(ip_version), configuration), 0u);
        EXPECT_EQ(calls[1].record[ip_version == 4 ? 0x35 : 0x2d], ip_version == 4 ? 0 : 128);
    }
}

TEST_F(udp_session_add, asks_for_no_text_when_every_event_is_off)
{
    record({{1, failing}});
    EXPECT_EQ(add(1, cfg(4)), 13u);
    EXPECT_EQ(interposed.texts_asked, 1); // when they are on, they ask
    EXPECT_EQ(interposed.messages_formatted, 2);

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
