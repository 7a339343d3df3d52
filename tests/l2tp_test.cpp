// L2TPv3 control connections and sessions: what they send, what they report, what sharing and faults leave.
#include <cstring>
#include <sstream>

#include "library_test.h"

using namespace std::string_literals;

namespace {

constexpr uint8_t peer_a = 7, peer_b = 9; ///< last byte of 198.51.100.x

class l2tp : public library_test {
protected:
    static zel_core_term_l2tp_control_connection_cfg_t configuration(uint8_t peer, uint32_t vrf = 0x01020304)
    {
        zel_core_term_l2tp_control_connection_cfg_t cfg{};
        std::memcpy(cfg.local_addr, "\xc0\x00\x02\x01 not read", 13);
        std::memcpy(cfg.remote_addr, "\xc6\x33\x64", 3);
        cfg.remote_addr[3] = peer;
        cfg.vrf_id = vrf;
        cfg.ttl = 64;
        return cfg;
    }

    static uint32_t connect(uint32_t id, uint8_t peer = peer_a, uint8_t session_type = 0)
    {
        auto cfg = configuration(peer);
        return zel_core_term_l2tp_control_connection_add(id, &cfg, 1000 + id, 3, 10 + id, 48, session_type);
    }
    static uint32_t remove(uint32_t id) { return zel_core_term_l2tp_control_connection_rem(id, 3, 10 + id); }
    static uint32_t add_session(uint32_t id, uint32_t connection = 1, uint8_t session_type = 0)
    {
        return zel_core_term_l2tp_session_add(46, id % 2, 5, 0x12345, 50000 + id, connection, id, session_type);
    }
    /// Connection 1, from peer a.
    static uint32_t move(uint8_t to, std::vector<uint32_t> sessions, uint8_t session_type = 0)
    {
        auto cfg = configuration(to);
        auto old = configuration(peer_a);
        return zel_core_term_l2tp_control_connection_modify(1, sessions.data(), static_cast<uint32_t>(sessions.size()),
                                                            &cfg, 3, 11, 40, 48, old.remote_addr, session_type);
    }

    static bool is_free(uint32_t connection)
    {
        static const l2tp_control_entry free{};
        return std::memcmp(&l2tp_control_table[connection], &free, sizeof free) == 0;
    }
    static bool is_free_session(uint32_t session)
    {
        static const l2tp_session_entry free{};
        return std::memcmp(&l2tp_session_table[session - 48], &free, sizeof free) == 0;
    }

    /// The fate of a packet for a connection's control messages.
    static vok_cp_sim_fate_t receive(uint8_t peer, uint32_t connection)
    {
        const auto cfg = configuration(peer);
        vok_cp_sim_header_t h{};
        h.ip_version = 4;
        h.protocol = 115;
        h.vrf_id = cfg.vrf_id;
        std::memcpy(h.src_addr, cfg.remote_addr, 4);
        std::memcpy(h.dst_addr, cfg.local_addr, 4);
        h.l2tp_connection_id = 1000 + connection;
        return vok_cp_sim_receive(&h, 100).fate;
    }
    /// "peer dscp" that a packet from an ovlin flow leaves with, or "lost".
    static std::string send(uint32_t flow)
    {
        const vok_cp_sim_departure_t d = vok_cp_sim_send(flow, 100);
        return d.fate == VOK_CP_SIM_FORWARDED
                   ? std::to_string(d.header.dst_addr[3]) + " " + std::to_string(d.binding.dscp)
                   : "lost";
    }

    /// The calls of a trail and what the operation itself reports, without what only announces or repeats.
    static std::string essence(const std::string &trail)
    {
        std::istringstream lines(trail);
        std::string line, kept;
        while (std::getline(lines, line)) {
            const std::string call = line.substr(0, line.find(" + "));
            if (line.starts_with("vok_") || line.starts_with("session type"))
                kept += call + (call == line ? "\n" : " fails\n");
            else if (line.find(":ERROR ") != std::string::npos || line.find("tn_zel_init:") == 0)
                kept += line.substr(line.rfind("(): ") + 4) + "\n";
        }
        return kept;
    }
};

TEST_F(l2tp, whole_lives_with_records_and_table_entries)
{
    const auto entry = [this](const auto &e, const std::vector<std::size_t> &handle_offsets) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&e);
        return "\ntable entry\n" + dump({bytes, bytes + sizeof e}, handle_offsets) + "calls and events";
    };
    dump_records = true;
    record();
    EXPECT_EQ(connect(1, peer_a, 1), 0u);
    collect("control connection 1, the session type set first" + entry(l2tp_control_table[1], {8, 16, 24}));
    EXPECT_EQ(connect(2), 0u);
    collect("control connection 2, which shares" + entry(l2tp_control_table[2], {8, 16, 24}));
    EXPECT_EQ(add_session(101, 1, 0x80), 0u);
    collect("session 101 with CRC, the session type set first" + entry(l2tp_session_table[53], {16, 24}));
    EXPECT_EQ(add_session(48, 1), 0u);
    collect("session 48" + entry(l2tp_session_table[0], {16, 24}));
    EXPECT_EQ(move(peer_b, {101, 48}), 0u);
    collect("control connection 1 moves to another peer" + entry(l2tp_control_table[1], {8, 16, 24}));
    EXPECT_EQ(zel_core_term_l2tp_session_rem(1, 101), 0u);
    EXPECT_EQ(zel_core_term_l2tp_session_rem(1, 48), 0u);
    collect("both sessions are removed");
    EXPECT_EQ(remove(1), 0u);
    EXPECT_EQ(remove(2), 0u);
    collect("both control connections are removed");
    EXPECT_EQ(remove(3), 0u);
    EXPECT_EQ(zel_core_term_l2tp_session_rem(1, 336), 0u);
    collect("what was never there is removed");
    EXPECT_EQ(data_plane(), "1 objects, 0 bindings");
    expect_collected("l2tp_lives.txt");
}

TEST_F(l2tp, adds_fail_at_each_call_and_each_undo_too)
{
    fail_each_call({"control connection add", 7, [] {}, [] { return connect(1); }});
    fail_each_call({"session add", 5, [] { EXPECT_EQ(connect(1), 0u); }, [] { return add_session(100); }});
    reset();
    ASSERT_EQ(connect(2), 0u);
    record();
    EXPECT_EQ(add_session(100, 1), 13u);
    collect("session add without its control connection, which leaves nothing to unbind there");
    expect_collected("l2tp_faults.txt");
}

TEST_F(l2tp, a_failed_add_that_shares_takes_the_binding_from_under_the_other)
{
    ASSERT_EQ(connect(1), 0u);
    record({{1, failing}}); // the flow of the second, before it asks for the binding to the interface
    EXPECT_EQ(connect(2), 13u);
    EXPECT_EQ(essence(trail()), R"(vok_l2tpv3_ingress_flow_create fails
data-plane call failed, l2tp_control_create_l2tp_ingress_flow
vok_unbind #-3 -> #-4
)");
    EXPECT_EQ(receive(peer_a, 1), VOK_CP_SIM_NOT_BOUND);
    EXPECT_EQ(send(0x00300001), "7 48");
    remove(1);
    EXPECT_NE(trail().find("unbind_flow_needed(): Unexpected unbind: Possible problem with bind and unbind count not "
                           "matched"),
              std::string::npos);
    EXPECT_EQ(connect(1), 0u);
    EXPECT_EQ(receive(peer_a, 1), VOK_CP_SIM_FORWARDED);
}

TEST_F(l2tp, a_full_association_table)
{
    for (uint32_t id = 0; id < 48; ++id)
        ASSERT_EQ(connect(id, static_cast<uint8_t>(100 + id)), 0u);
    const std::string data_plane_before = data_plane();
    for (const bool delete_fails : {false, true}) {
        record(delete_fails ? std::map<int, vok_cp_sim_answer_t>{{2, failing}} : std::map<int, vok_cp_sim_answer_t>{});
        EXPECT_EQ(connect(48, peer_a), 13u);
        EXPECT_TRUE(is_free(48));
        const std::string all = trail();
        EXPECT_NE(
            all.find("tn_zel_term:ERROR zel_l2tp_control_connection L2TP_CONTROL_CONNECTION save_new_ip_association(): "
                     "Cannot add a new control connection in array as max connection limit has reached: 48\n"
                     "tn_zel_term:API_CALL zel_l2tp_control_connection L2TP_CONTROL_CONNECTION "
                     "l2tp_control_create_ipv4_ingress_association(): tn_ovlin_session_id=48: "
                     "vok_ip_ingress_association_delete\nvok_ip_ingress_association_delete #1"),
            std::string::npos);
        stop_recording();
        EXPECT_EQ(data_plane() == data_plane_before, !delete_fails);
    }
    EXPECT_EQ(connect(48, 100), 0u); // one that shares still can
}

TEST_F(l2tp, ids_outside_the_tables_and_a_stopped_library_touch_nothing)
{
    auto cfg = configuration(peer_a);
    uint32_t session = 100;
    const auto modify = [&](uint32_t id) {
        return zel_core_term_l2tp_control_connection_modify(id, &session, 1, &cfg, 3, 11, 0, 0, cfg.remote_addr, 0);
    };
    const struct {
        const char *name;
        std::function<uint32_t(uint32_t connection, uint32_t session)> call;
        bool of_session, is_removal;
    } operations[] = {
        {"zel_core_term_l2tp_control_connection_add", [](uint32_t c, uint32_t) { return connect(c); }, false, false},
        {"zel_core_term_l2tp_control_connection_rem", [](uint32_t c, uint32_t) { return remove(c); }, false, true},
        {"zel_core_term_l2tp_control_connection_modify", [&](uint32_t c, uint32_t) { return modify(c); }, false, false},
        {"zel_core_term_l2tp_session_add", [](uint32_t c, uint32_t s) { return add_session(s, c); }, true, false},
        {"zel_core_term_l2tp_session_rem", zel_core_term_l2tp_session_rem, true, true},
        {"zel_l2tp_session_modify_unbind_part", zel_l2tp_session_modify_unbind_part, true, false},
        {"zel_l2tp_session_modify_bind_part",
         [](uint32_t c, uint32_t s) { return zel_l2tp_session_modify_bind_part(c, s, 3, 0); }, true, false},
    };
    const std::string range = "identifier or argument out of range, ", failed = "data-plane call failed, ";
    record();
    for (const bool stopped : {false, true}) {
        if (stopped) {
            ASSERT_EQ(zel_l2tp_stop(), 0u);
            trail();
        }
        for (const auto &operation : operations) {
            const auto expect = [&](uint32_t connection, uint32_t s, uint32_t result, const std::string &text) {
                SCOPED_TRACE(operation.name + " "s + std::to_string(connection) + " " + std::to_string(s));
                EXPECT_EQ(operation.call(connection, s), operation.is_removal ? 0 : result);
                std::string all = trail();
                EXPECT_EQ(essence(all), text + "\n");
                EXPECT_EQ(all.find(":FN_EXIT") != std::string::npos, all.find(":FN_ENTER") != std::string::npos);
                EXPECT_EQ(all.find(":API_CALL"), std::string::npos);
                EXPECT_NE(all.find(" GENERAL "s + operation.name), std::string::npos);
            };
            if (operation.of_session) {
                expect(49, 47, 3, range + "tn_ovlin_session_id_control_conn out-of-range");
                expect(48, 47, 3, range + "tn_ovlin_session_id_session out-of-range");
                expect(48, 337, 3, range + "tn_ovlin_session_id_session out-of-range");
            } else {
                expect(49, 0, 3, range + "tn_ovlin_session_id out-of-range");
            }
            if (stopped)
                expect(48, 336, 13, failed + "not started");
        }
    }
    EXPECT_EQ(data_plane(), "0 objects, 0 bindings");

    ASSERT_EQ(zel_l2tp_start(), 0u);
    ASSERT_EQ(connect(48), 0u); // the last of each
    ASSERT_EQ(add_session(336, 48), 0u);
    trail();
    for (uint64_t l2tp_control_entry::*handle :
         {&l2tp_control_entry::l2tp_ingress_flow_handle, &l2tp_control_entry::ipv4_ingress_association_handle,
          &l2tp_control_entry::ipv4_egress_association_handle}) {
        l2tp_control_table[47] = {};
        l2tp_control_table[47].*handle = 1; // any one of them
        EXPECT_EQ(connect(47), 5u);
        EXPECT_EQ(essence(trail()), "session id already in use, (tn_ovlin_session_id)\n");
    }
    ASSERT_EQ(zel_l2tp_stop(), 0u); // forgets them, but not the interface
    ASSERT_EQ(zel_l2tp_start(), 0u);
    EXPECT_TRUE(is_free(48) && is_free_session(336));
    trail();
    ASSERT_EQ(connect(1), 0u);
    EXPECT_EQ(trail().find("vok_l2tpv3_ingress_interface_add\n"), std::string::npos);
}

TEST_F(l2tp, adds_check_their_limits_in_order)
{
    interposed.capabilities = {1000, 20, {}};
    ASSERT_EQ(zel_core_term_start(), 0u);
    auto cfg = configuration(peer_a);
    record();
    const auto expect = [this](uint32_t result, const char *text) {
        EXPECT_EQ(result, 3u);
        EXPECT_EQ(essence(trail()), "identifier or argument out of range, "s + text + " out-of-range\n");
    };
    const auto connection = [&](uint32_t pcep, uint32_t rat) {
        return zel_core_term_l2tp_control_connection_add(49, &cfg, 1, pcep, rat, 0, 0);
    };
    expect(connection(21, 1001), "rat_ovlin_session_id");
    expect(connection(21, 1000), "tn_pcep");
    expect(connection(20, 1000), "tn_ovlin_session_id");
    const auto session = [&](uint32_t pcep, uint32_t rat, uint32_t control_connection, uint32_t id) {
        return zel_core_term_l2tp_session_add(0, 0, pcep, rat, 1, control_connection, id, 0);
    };
    expect(session(21, 1001, 1001, 1001), "rat_ovlin_session_id");
    expect(session(21, 1000, 1001, 1001), "tn_ovlin_session_id_control_conn");
    expect(session(21, 1000, 1000, 1001), "tn_ovlin_session_id_session");
    expect(session(21, 1000, 1000, 1000), "tn_pcep");
    expect(session(20, 1000, 1000, 1000), "tn_ovlin_session_id_control_conn");
}

TEST_F(l2tp, a_modify_that_falls_back_says_nothing_of_its_own)
{
    ASSERT_EQ(connect(1), 0u);
    ASSERT_EQ(add_session(100), 0u);
    record({{9, failing}});
    EXPECT_EQ(move(peer_b, {100}), 2u);
    const std::string all = trail();
    EXPECT_EQ(all.find(" GENERAL zel_core_term_l2tp_control_connection_modify()"), std::string::npos);
    EXPECT_NE(all.find("GENERAL add_control_connection_for_modify(): data-plane call failed, "
                       "l2tp_control_bind_ovlin_to_ipv4\n"),
              std::string::npos);

    // The same without sessions, failing for good.
    reset();
    ASSERT_EQ(connect(1), 0u);
    record({{8, failing}, {12, failing}, {13, failing}});
    EXPECT_EQ(move(peer_b, {}), 13u);
    EXPECT_NE(trail().find("GENERAL zel_core_term_l2tp_control_connection_modify(): data-plane call failed, "
                           "add_control_connection_for_modify\n"),
              std::string::npos);
    EXPECT_TRUE(is_free(1));
}

TEST_F(l2tp, a_2_of_the_hook_is_a_failure_and_not_the_fallback_of_a_modify)
{
    ASSERT_EQ(connect(1), 0u);
    ASSERT_EQ(add_session(100), 0u);
    interposed.session_type_result = 2;
    EXPECT_EQ(move(peer_b, {100}, 1), 2u);
    EXPECT_TRUE(is_free(1) && is_free_session(100));
    EXPECT_EQ(data_plane(), "1 objects, 0 bindings");
}

} // namespace
