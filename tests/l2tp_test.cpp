// L2TPv3 control connections and sessions: their calls, reports and undo, what they share, what they refuse.
#include <cstring>

#include "library_test.h"

using namespace std::string_literals;

namespace {

uint32_t remove(uint32_t id)
{
    return zel_core_term_l2tp_control_connection_rem(id, request::pcep, request::rat_session);
}

uint32_t bind_part(uint32_t connection, uint32_t session, uint8_t session_type_flag)
{
    return zel_l2tp_session_modify_bind_part(connection, session, 5, session_type_flag);
}

/// All operations, in their order in the interface.
const struct {
    const char *name;
    std::function<uint32_t(uint32_t connection, uint32_t session)> call;
    bool of_session, is_removal;
} operations[] = {
    {"zel_core_term_l2tp_control_connection_add",
     [](uint32_t c, uint32_t) { return request::connection_add{.id = c, .cfg = request::to_peer(1)}(); }, false, false},
    {"zel_core_term_l2tp_control_connection_rem", [](uint32_t c, uint32_t) { return remove(c); }, false, true},
    {"zel_core_term_l2tp_control_connection_modify",
     [](uint32_t c, uint32_t s) {
         auto cfg = request::to_peer(1);
         return request::move(c, 1, {s})(cfg);
     },
     false, false},
    {"zel_core_term_l2tp_session_add",
     [](uint32_t c, uint32_t s) { return request::session_add{.connection = c, .id = s}(); }, true, false},
    {"zel_core_term_l2tp_session_rem", zel_core_term_l2tp_session_rem, true, true},
    {"zel_l2tp_session_modify_unbind_part", zel_l2tp_session_modify_unbind_part, true, false},
    {"zel_l2tp_session_modify_bind_part", [](uint32_t c, uint32_t s) { return bind_part(c, s, 1); }, true, false},
};

/// What the operations, and an add of a UDP session, answered before the process started the library, and how many
/// calls they made.
const auto before_the_first_start = [] {
    std::vector<uint32_t> results;
    std::size_t calls = 0;
    const watcher counter([](const watched_call &) { return vok_cp_sim_answer_t{}; },
                          [&](const watched_call &) { ++calls; });
    for (const auto &operation : operations)
        results.push_back(operation.call(0, 48));
    results.push_back(request::udp_add{1, request::udp(1, 4).cfg, 0, 0, 0}());
    return std::pair(results, calls);
}();

class l2tp : public library_test {
protected:
    /// Of the caller's configuration a fallback writes four bytes, and nothing else does any.
    static uint32_t move(request::connection_modify r)
    {
        std::memset(r.cfg.remote_addr + 4, 0xEE, 12);
        auto written = r.cfg;
        const uint32_t result = r(written);
        if (result != 0)
            std::memcpy(r.cfg.remote_addr, result == 2 ? r.old_remote_addr.data() : written.remote_addr, 4);
        EXPECT_EQ(std::memcmp(&written, &r.cfg, sizeof written), 0);
        return result;
    }
    /// Moves connection 1.
    static uint32_t move(uint8_t peer, const std::vector<uint32_t> &sessions, uint8_t session_type_flag = 0)
    {
        return move(request::move(1, peer, sessions, session_type_flag));
    }
    /// Connection 1 to peer 1, made of objects 1 to 4, and its session 100, made of 5 and 6.
    static void connected()
    {
        EXPECT_EQ(request::connect(1, 1)(), 0u);
        EXPECT_EQ(request::session_of(1, 100)(), 0u);
    }
};

TEST_F(l2tp, rows)
{
    const auto nothing = [] {};
    const auto only_connected = [] { EXPECT_EQ(request::connect(1, 1)(), 0u); };
    const auto unbound = [] {
        connected();
        EXPECT_EQ(zel_l2tp_session_modify_unbind_part(1, 100), 0u);
    };
    const auto remove_1 = [] { return remove(1); };
    const auto remove_2 = [] { return remove(2); };
    const auto remove_session = [] { return zel_core_term_l2tp_session_rem(1, 100); };
    const auto move_to = [](uint8_t peer) { return [=] { return move(peer, {100}); }; };
    const auto move_typed = [] { return move(2, {100}, 1); };
    const auto hook_answers = [](uint32_t result) { return fault{.call = session_type_hook, .status = result}; };

    collect_failures({"connection add", nothing, request::connect(1, 1, 0x80)}, 8);
    collect({"connection add whose undo fails", nothing, request::connect(1, 1), {all_fail_from(7)}});
    collect({"connection add that the hook refuses with 3", nothing, request::connect(1, 1, 1), {hook_answers(3)}});
    collect({"connection removal with all calls failing", only_connected, remove_1, {all_fail_from(1)}});
    collect_failures({"session add", only_connected, request::session_of(1, 100, 0x80)}, 7);
    collect({"session add whose undo fails", only_connected, request::session_of(1, 100), {all_fail_from(5)}});
    collect({"session add that the hook refuses with 3",
             only_connected,
             request::session_of(1, 100, 1),
             {hook_answers(3)}});
    const request::session_add with_flow_0{.connection = 1, .id = 100};
    collect({"session add whose flow of 0 counts as not bound", only_connected, with_flow_0, {fails(3)}});
    collect({"session add without a connection", nothing, request::session_of(1, 100)});
    const auto removed = [&] {
        only_connected();
        EXPECT_EQ(remove(1), 0u);
    };
    collect({"session add without a connection, which there was", removed, request::session_of(1, 100)});
    collect({"session removal", connected, remove_session});
    collect({"session removal, again", {}, remove_session});
    collect({"session removal with all calls failing", connected, remove_session, {all_fail_from(1)}});
    collect_failures({"unbind part", connected, [] { return zel_l2tp_session_modify_unbind_part(1, 100); }}, 1);
    collect({"unbind part of no session", only_connected, [] { return zel_l2tp_session_modify_unbind_part(1, 100); }});
    collect({"bind part of no session", {}, [] { return bind_part(1, 100, 0); }});
    collect_failures({"bind part", unbound, [] { return bind_part(1, 100, 1); }}, 2);

    collect({"modify", connected, move_typed});
    for (uint32_t n = 1; n <= 12; ++n)
        collect({"modify with failing call " + std::to_string(n), connected, move_typed, {fails(n)}});
    // The first of two failures leads to a fallback, or leaves a handle that is tried again.
    for (const auto &[n, m] : {std::pair(9u, 14u), {9u, 18u}, {3u, 6u}, {5u, 6u}})
        collect({"modify with failing calls " + std::to_string(n) + " and " + std::to_string(m),
                 connected,
                 move_to(2),
                 {fails(n), fails(m)}});
    const auto with_two_sessions = [] {
        connected();
        EXPECT_EQ(request::session_of(1, 101)(), 0u);
    };
    collect({"modify whose sessions cannot be bound",
             with_two_sessions,
             [] {
                 return move(2, {101, 100});
             },
             {fails(11)}});
    collect({"modify with a hook's 2, which is no fallback",
             connected,
             move_typed,
             {{.call = session_type_hook, .every = true, .status = 2}}});
    collect({"modify with a session twice", connected, [] { return move(2, {100, 100}); }});
    const auto unbinds_twice = [] {
        connected();
        others.on_unbound = [](uint32_t) { return 0; };
    };
    collect({"modify with a session twice, which can be unbound twice", unbinds_twice, [] {
                 return move(2, {100, 100});
             }});
    collect({"modify to the same peer", connected, move_to(1)});

    // Only adds look at the limits.
    request::connection_modify beyond_limits = request::move(1, 2, {});
    beyond_limits.pcep = 0x1001;
    collect({"modify with a PCEP id beyond the limit", only_connected, [=] { return move(beyond_limits); }});
    collect({"connection removal with ids beyond the limits", {}, [] {
                 return zel_core_term_l2tp_control_connection_rem(1, 0x1001, 0x10000B);
             }});

    // What connections share is made by the first and taken by the last.
    collect({"second connection that shares", only_connected, request::connect(2, 1)});
    collect({"third connection, to another peer", {}, request::connect(3, 2)});
    auto other_vrf = request::connect(4, 1);
    other_vrf.cfg.vrf_id = 1;
    collect({"fourth connection, in another routing instance", {}, other_vrf});
    auto the_other_way = request::connect(5, 1);
    std::swap(the_other_way.cfg.local_addr, the_other_way.cfg.remote_addr);
    collect({"fifth connection, between the same addresses the other way", {}, the_other_way});
    collect({"modify to the same peer, which is shared", {}, [] { return move(1, {}); }});
    collect({"modify from a shared peer to another", {}, [] { return move(2, {}); }});
    collect({"modify from a shared peer to a new one", {}, [] { return move(3, {}); }});
    collect({"modify to a shared peer, which falls back to another", {}, [] { return move(2, {}); }, {fails(5)}});
    collect({"removal of one of two", {}, remove_1});
    collect({"removal of the last", {}, remove_2});
    collect({"removal in the other routing instance", {}, [] { return remove(4); }});

    // An add that fails before its bind takes the binding from under the other.
    const auto beside_another = [&] {
        EXPECT_EQ(request::connect(3, 3)(), 0u);
        only_connected();
    };
    collect({"second connection whose flow fails", beside_another, request::connect(2, 1), {fails(1)}});
    EXPECT_EQ(remove(3), 0u); // the unbound association takes its place
    collect({"second connection, which binds again", {}, request::connect(2, 1)});
    collect({"second connection goes", {}, remove_2});
    collect({"second connection whose flow fails, when nothing is bound", {}, request::connect(2, 1), {fails(1)}});
    collect({"second connection, which binds again", {}, request::connect(2, 1)});
    collect({"second connection goes", {}, remove_2});
    collect({"first connection goes, whose binding went before", {}, remove_1});
    collect({"removal of a connection that is not there", {}, remove_1});
    // A table of associations that is full; connections that share still fit.
    const auto full = [] {
        for (uint8_t id = 0; id < 48; ++id)
            EXPECT_EQ(request::connect(id, id)(), 0u);
    };
    collect({"49th peer", full, request::connect(48, 48)});
    collect({"49th peer, whose association stays", {}, request::connect(48, 48), {fails(2)}});
    collect({"49th connection", {}, request::connect(48, 1)});
    const auto first_of_full_removed = [&] {
        full();
        EXPECT_EQ(remove(0), 0u);
    };
    collect(
        {"connection that shares the last association, now the first", first_of_full_removed, request::connect(0, 47)});

    // A session keeps all bits of its DSCP, which this data plane would refuse.
    const auto with_wide_dscp = [] {
        others.on_bound = [](uint32_t) { return 0; };
        EXPECT_EQ(request::connect(1, 1)(), 0u);
        EXPECT_EQ((request::session_add{.dscp = 0xEE, .pcep = 5, .connection = 1, .id = 100})(), 0u);
    };
    collect({"bind part of a session with a wide DSCP", with_wide_dscp, [] { return bind_part(1, 100, 0); }});
    expect_collected("l2tp_rows.txt");
}

TEST_F(l2tp, records_byte_for_byte)
{
    const auto collect_with = [this](const std::string &what, const auto &entry) {
        collect(what + "; table entry" + dump(&entry, sizeof entry));
    };
    // Numbers that read otherwise in another format, or as another field.
    auto connection = request::connect(41, 7, 1);
    std::memcpy(connection.cfg.local_addr + 4, " not read", 9);
    connection.cfg.vrf_id = 0x81020304;
    connection.control_connection_id = 0xFEDCBA98;
    connection.pcep = 19;
    EXPECT_EQ(connection(), 0u);
    collect_with("control connection add", l2tp_control_table[41]);
    auto session = request::session_of(41, 101, 1);
    session.crc = 12;
    session.pcep = 21;
    session.rat_session = 0x112345; // of which 20 bits count
    session.local_session_id = 0xFEDC0000;
    others.capabilities = {0x112345, 21, {}};
    zel_core_ic_ovlin_capabilities_get(&ovlin_capabilities);
    EXPECT_EQ(session(), 0u);
    collect_with("session add", l2tp_session_table[53]);
    EXPECT_EQ(request::session_of(41, 48)(), 0u);
    collect_with("session add without CRC", l2tp_session_table[0]);
    auto modify = request::move(41, 9, {101, 48});
    modify.pcep = 19;
    EXPECT_EQ(move(modify), 0u);
    collect_with("control connection modify", l2tp_control_table[41]);
    EXPECT_EQ(zel_core_term_l2tp_session_rem(41, 101), 0u);
    collect_with("session removal", l2tp_session_table[53]);
    EXPECT_EQ(zel_core_term_l2tp_control_connection_rem(41, 19, 11), 0u);
    collect_with("control connection removal", l2tp_control_table[41]);
    expect_collected("l2tp_records.txt");
}

TEST_F(l2tp, before_the_first_start_nothing_is_called)
{
    const std::pair expected(std::vector<uint32_t>{13, 0, 13, 3, 0, 13, 13, 13}, std::size_t{0});
    EXPECT_EQ(before_the_first_start, expected); // the limit of session ids is still 0
}

TEST_F(l2tp, ids_outside_the_tables_and_a_stopped_library_touch_nothing)
{
    const std::string out_of_range = "identifier or argument out of range, ";
    for (const bool stopped : {false, true}) {
        if (stopped)
            zel_l2tp_stop();
        for (const auto &operation : operations) {
            const auto expect = [&](uint32_t connection, uint32_t session, uint32_t result, const std::string &text) {
                look();
                EXPECT_EQ(operation.call(connection, session), operation.is_removal ? 0 : result);
                EXPECT_EQ(look().calls, "["s + operation.name + "(): " + text + "]");
            };
            if (operation.of_session) {
                expect(49, 47, 3, out_of_range + "tn_ovlin_session_id_control_conn out-of-range");
                expect(48, 47, 3, out_of_range + "tn_ovlin_session_id_session out-of-range");
                expect(48, 337, 3, out_of_range + "tn_ovlin_session_id_session out-of-range");
            } else {
                expect(49, 100, 3, out_of_range + "tn_ovlin_session_id out-of-range");
            }
            if (stopped)
                expect(48, 336, 13, "not started");
        }
    }
    EXPECT_EQ(counts_now(), "0 objects, 0 bindings");

    ASSERT_EQ(zel_l2tp_start(), 0u);
    ASSERT_EQ(request::connect(48, 1)(), 0u); // the last of each
    ASSERT_EQ(request::session_of(48, 336)(), 0u);
    for (uint64_t l2tp_control_entry::*handle :
         {&l2tp_control_entry::l2tp_ingress_flow_handle, &l2tp_control_entry::ipv4_ingress_association_handle,
          &l2tp_control_entry::ipv4_egress_association_handle}) {
        l2tp_control_table[47] = {};
        l2tp_control_table[47].*handle = 1; // any one of them
        look();
        EXPECT_EQ(request::connect(47, 1)(), 5u);
        EXPECT_EQ(look().calls, "[zel_core_term_l2tp_control_connection_add(): session id already in use, "
                                "(tn_ovlin_session_id)]");
    }
    ASSERT_EQ(zel_l2tp_stop() + zel_l2tp_start(), 0u); // forgets them, but not the interface
    EXPECT_EQ(used(l2tp_control_table) + used(l2tp_session_table), 0);
    look();
    EXPECT_EQ(request::connect(1, 1)(), 0u);
    EXPECT_TRUE(look().calls.starts_with("+ip_ingress"));
}

TEST_F(l2tp, adds_check_their_limits_in_order)
{
    others.capabilities = {1000, 20, {}};
    restart();
    const auto expect = [this](uint32_t result, const char *wrong) {
        EXPECT_EQ(result, 3u);
        const std::string report = look().calls;
        EXPECT_TRUE(report.ends_with("(): identifier or argument out of range, "s + wrong + " out-of-range]"))
            << report;
    };
    const auto connection = [](uint32_t pcep, uint32_t rat_session) {
        return request::connection_add{.id = 49, .pcep = pcep, .rat_session = rat_session}();
    };
    expect(connection(21, 1001), "rat_ovlin_session_id");
    expect(connection(21, 1000), "tn_pcep");
    expect(connection(20, 1000), "tn_ovlin_session_id");
    const auto session = [](uint32_t pcep, uint32_t rat_session, uint32_t c, uint32_t id) {
        return request::session_add{.pcep = pcep, .rat_session = rat_session, .connection = c, .id = id}();
    };
    expect(session(21, 1001, 1001, 1001), "rat_ovlin_session_id");
    expect(session(21, 1000, 1001, 1001), "tn_ovlin_session_id_control_conn");
    expect(session(21, 1000, 1000, 1001), "tn_ovlin_session_id_session");
    expect(session(21, 1000, 1000, 1000), "tn_pcep");
    expect(session(20, 1000, 1000, 1000), "tn_ovlin_session_id_control_conn");
}

TEST_F(l2tp, a_modify_moves_or_removes_all_sessions_in_their_order)
{
    ASSERT_EQ(request::connect(1, 1)(), 0u);
    std::vector<uint32_t> sessions;
    std::string unbinds, binds;
    for (uint32_t id = 336; id >= 48; --id) {
        ASSERT_EQ(request::session_of(1, id)(), 0u);
        const std::string egress_flow = std::to_string(6 + 2 * sessions.size());
        sessions.push_back(id);
        unbinds += "unbind " + egress_flow + " -> 4, ";
        binds += ", bind " + egress_flow + " -> 584 dscp 46";
    }
    look();
    EXPECT_EQ(move(2, sessions), 0u);
    EXPECT_EQ(look().calls, unbinds +
                                "unbind 0x00300001 -> 4, -ip_egress 4, unbind 2 -> 1, -ip_ingress 2, "
                                "+ip_ingress 583, bind 583 -> 1, +ip_egress 584, bind 0x00300001 -> 584 dscp 40" +
                                binds);
    others.failing.add({.call = "vok_ip_ingress_association_create", .every = true, .status = 1});
    EXPECT_EQ(move(3, sessions), 13u);
    EXPECT_EQ(counts_now(), "1 object, 0 bindings");
    EXPECT_EQ(used(l2tp_control_table) + used(l2tp_session_table), 0);
}

} // namespace
