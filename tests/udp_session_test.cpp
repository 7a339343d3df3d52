// UDP sessions: their calls, reports and undo, their records, what they refuse.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "library_test.h"

using namespace std::string_literals;

namespace {

class udp_session : public library_test {
protected:
    static request::udp_add add(uint8_t ip_version, uint8_t session_type_flag = 0)
    {
        request::udp_add r = request::udp(1, ip_version, session_type_flag);
        std::memcpy(r.cfg.remote_addr, "\xc6\x33\x64\x07\x12\x34\x56\x78\x9a\xbc\xde\xf0\x01\x02\x03\x04", 16);
        r.cfg.vrf_id = 0x01020304;
        r.cfg.pmtu = 70000;
        r.cfg.ttl = 64;
        return r;
    }
    static uint32_t modify_ttl() { return zel_core_term_udp_session_modify_ttl(1, 0); }
    static uint32_t modify_pmtu() { return zel_core_term_udp_session_modify_pmtu(1, 131072 + 1280); }
    static uint32_t disconnect() { return zel_core_term_udp_session_disconnect(1); }
    static uint32_t release() { return zel_core_term_udp_session_release(1); }
    static uint32_t format()
    {
        char text[200];
        return zel_core_term_udp_session_fmt_stats_get(1, text, sizeof text, 0);
    }
    static bool has_configuration(uint32_t id, const zel_core_term_udp_session_cfg_t &cfg)
    {
        zel_core_term_udp_session_cfg_t stored;
        return zel_core_term_udp_session_cfg_get(id, &stored) == 0 && std::memcmp(&stored, &cfg, sizeof cfg) == 0;
    }
};

TEST_F(udp_session, rows)
{
    const auto nothing = [] {};
    const auto disconnected = [](uint8_t version) { return [=] { EXPECT_EQ(add(version)() + disconnect(), 0u); }; };
    const fault after_effect{.status = 0x8000'0000, .after_effect = true}; // all 32 bits of a status count
    const auto refused_by_hook = [](uint32_t result) { return fault{.call = session_type_hook, .status = result}; };

    collect_failures({"add over IPv4", nothing, add(4, 0x80)}, 5);
    collect_failures({"add over IPv6", nothing, add(6, 0x80)}, 2);
    // Any bit of the flag counts, also for a caller that knows it as a number.
    const auto add_by_number = [] {
        void *const function = dlsym(RTLD_DEFAULT, "zel_core_term_udp_session_add");
        using by_number = uint32_t(uint32_t, const void *, uint32_t, uint32_t, uint32_t, uint8_t, uint8_t);
        const zel_core_term_udp_session_cfg_t cfg = add(4).cfg;
        return reinterpret_cast<by_number *>(function)(1, &cfg, 1, 2, 5, 46, 0x80);
    };
    collect({"add with another bit of the flag", nothing, add_by_number});
    collect({"add whose undo fails over IPv4", nothing, add(4), {all_fail_from(4)}});
    collect({"add whose undo fails over IPv6", nothing, add(6), {all_fail_from(4)}});
    collect({"add whose create fails after it took effect", nothing, add(6), {after_effect}});
    collect({"add that the hook refuses with 3", nothing, add(4, 1), {refused_by_hook(3)}});
    collect({"add that the hook refuses with 5", nothing, add(4, 1), {refused_by_hook(5)}});

    collect_failures({"statistics over IPv4", add(4), format}, 2);
    collect_failures({"statistics over IPv6", add(6), format}, 2);
    const auto format_in_no_room = [] {
        char text[20];
        return zel_core_term_udp_session_fmt_stats_get(1, text, sizeof text, 0);
    };
    collect({"statistics that are cut", add(4), format_in_no_room});
    collect_failures({"modify ttl", add(6), modify_ttl}, 1);
    collect_failures({"modify pmtu", add(6), modify_pmtu}, 1);
    collect({"modify ttl over IPv4", add(4), modify_ttl});
    collect({"modify pmtu over IPv4", add(4), modify_pmtu});
    collect({"disconnect", add(4), disconnect});
    collect({"disconnect again", {}, disconnect});
    collect({"disconnect with all calls failing", add(6), disconnect, {all_fail_from(1)}});
    collect({"release with all calls failing over IPv4", disconnected(4), release, {all_fail_from(1)}});
    collect({"release with all calls failing over IPv6", disconnected(6), release, {all_fail_from(1)}});
    auto downlink_0 = add(4);
    downlink_0.downlink_pcep = downlink_0.rat_session = 0;
    collect({"disconnect from a downlink flow of 0, which counts as not bound", downlink_0, disconnect});

    kept_delays = {"vok_ipv6_ingress_association_create", "vok_bind(F2ID, EGRESS, ipv4/ipv6->ovlin)"};
    const uint64_t slow = 30'000'000;
    const fault fails_slowly{.nth = 4, .status = VOK_CP_SIM_INJECTED, .ticks = slow};
    collect({"add with two slow calls, of which one fails", nothing, add(6), {{.ticks = slow}, fails_slowly}});
    kept_delays.clear();

    // The data plane comes back to the caller, which takes or changes the session that is being added.
    const auto released_at_first = [this] { before_call = release; };
    collect({"add with a release before its associations are there", released_at_first, add(4)});
    const auto released_at_uplink = [] { others.on_bound = [](uint32_t) { return release(); }; };
    collect({"add with a release after the uplink's bind", released_at_uplink, add(4)});
    const auto replaced_at_downlink = [] {
        others.on_bound = [bind = 0](uint32_t status) mutable {
            return ++bind == 2 ? release() + add(4)() + 1 : status;
        };
    };
    collect({"add whose downlink bind fails for another session", replaced_at_downlink, add(4), {fails(11)}});
    expect_collected("udp_rows.txt");
}

TEST_F(udp_session, records_byte_for_byte)
{
    for (const uint8_t version : {uint8_t{4}, uint8_t{6}}) {
        restart();
        ASSERT_EQ(add(version)(), 0u);
        collect("add over IPv" + std::to_string(version));
        if (version == 6) {
            ASSERT_EQ(modify_ttl() + modify_pmtu(), 0u);
            collect("modify ttl: 0; modify pmtu: 132352, of which the data plane gets 1280");
        }
    }
    ASSERT_EQ(disconnect() + release(), 0u);
    collect("disconnect and release");
    expect_collected("udp_records.txt");
}

TEST_F(udp_session, an_add_stores_its_configuration_and_a_modify_what_the_data_plane_took)
{
    others.capabilities = {0x100005, 0xFFF, {}};
    restart();
    request::udp_add last = add(6);
    for (auto *reserved : {last.cfg.reserved_01, last.cfg.reserved_14, last.cfg.reserved_35})
        *reserved = 0xA1;
    last = {70000, last.cfg, 0xFFF, 2, 0x100005, 63}; // each the last of its kind; 20 bits of the RAT session count
    EXPECT_EQ(last(), 0u);
    EXPECT_EQ(look().calls, "+ipv6_ingress 1, +ipv6_egress 2, bind 0xfff11170 -> 2 dscp 63, bind 1 -> 0x00200005");
    EXPECT_TRUE(has_configuration(70000, last.cfg));

    request::udp_add first = {1, add(6).cfg, 0, 0xFFF, 0, 0};
    EXPECT_EQ(first(), 0u);
    EXPECT_EQ(look().calls, "+ipv6_ingress 3, +ipv6_egress 4, bind 0x00000001 -> 4 dscp 0, bind 3 -> 0xfff00000");
    others.failing.add({.every = true, .status = 1, .after_effect = true});
    EXPECT_EQ(modify_ttl() + modify_pmtu(), 26u);
    EXPECT_TRUE(has_configuration(1, first.cfg));
    others.failing.clear();
    EXPECT_EQ(modify_ttl() + modify_pmtu(), 0u);
    first.cfg.ttl = 0;
    first.cfg.pmtu = 132352;
    EXPECT_TRUE(has_configuration(1, first.cfg));
}

TEST_F(udp_session, adds_are_rejected_in_an_order)
{
    others.capabilities = {1000, 20, {}};
    restart();
    ASSERT_EQ(add(4)(), 0u);
    look();

    // Each row is wrong in its own way and in all the ways of the rows below it. Below the first two the module is
    // stopped.
    const struct {
        uint32_t id, uplink_pcep, downlink_pcep, rat_session;
        uint8_t ip_version;
        uint32_t result;
        const char *text;
    } rows[] = {
        {1, 21, 21, 1001, 5, 5, "session id already in use, (udp_session_id)"},
        {8, 20, 20, 1000, 5, 7, "unsupported IP version, Unsupported IP Version"},
        {0, 21, 21, 1001, 5, 3, "identifier or argument out of range, (udp_session_id)"},
        {70001, 21, 21, 1001, 5, 3, "identifier or argument out of range, (udp_session_id)"},
        {8, 21, 21, 1001, 5, 3, "identifier or argument out of range, rat_ovlin_session_id out-of-range"},
        {8, 21, 21, 1000, 5, 3, "identifier or argument out of range, tn_ul_pcep_id out-of-range"},
        {8, 20, 21, 1000, 5, 3, "identifier or argument out of range, tn_dl_pcep_id out-of-range"},
        {8, 20, 20, 1000, 5, 7, "unsupported IP version, Unsupported IP Version"},
        {8, 20, 20, 1000, 4, 13, "data-plane call failed, not started"},
    };
    for (const auto &r : rows) {
        if (r.id == 0)
            zel_udp_session_stop();
        look();
        const zel_core_term_udp_session_cfg_t cfg = request::udp(8, r.ip_version).cfg;
        EXPECT_EQ(request::udp_add({r.id, cfg, r.uplink_pcep, r.downlink_pcep, r.rat_session})(), r.result);
        EXPECT_EQ(look().lines,
                  "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_add(): "s + r.text + "\n");
    }
    uint32_t free_id = 0;
    EXPECT_EQ(zel_core_term_udp_session_free_id_get(&free_id), 0u);
    EXPECT_EQ(free_id, 1u); // no entry was taken
}

TEST_F(udp_session, operations_refuse_what_is_no_session)
{
    const char *const names[] = {
        "zel_core_term_udp_session_cfg_get",    "zel_core_term_udp_session_modify_pmtu",
        "zel_core_term_udp_session_modify_ttl", "zel_core_term_udp_session_disconnect",
        "zel_core_term_udp_session_release",    "zel_udp_session_get_stats",
        "zel_ipv6_udp_session_get_stats",       "zel_core_term_udp_session_fmt_stats_get",
    };
    for (const uint32_t id : {0u, 1u, 70000u, 70001u, UINT32_MAX}) {
        zel_core_term_udp_session_cfg_t cfg, untouched_cfg;
        zel_udp_session_ipv4_stats_t v4, cleared{};
        zel_udp_session_ipv6_stats_t v6, untouched;
        std::memset(&cfg, 0xAB, sizeof cfg);
        std::memset(&untouched_cfg, 0xAB, sizeof cfg);
        std::memset(&v4, 0xAB, sizeof v4);
        std::memset(&v6, 0xAB, sizeof v6);
        std::memset(&untouched, 0xAB, sizeof untouched);
        char text[] = "text";
        const uint32_t results[] = {
            zel_core_term_udp_session_cfg_get(id, &cfg), zel_core_term_udp_session_modify_pmtu(id, 1),
            zel_core_term_udp_session_modify_ttl(id, 1), zel_core_term_udp_session_disconnect(id),
            zel_core_term_udp_session_release(id),       zel_udp_session_get_stats(id, &v4),
            zel_ipv6_udp_session_get_stats(id, &v6),     zel_core_term_udp_session_fmt_stats_get(id, text, 4, 0),
        };
        const bool in_range = id == 1 || id == 70000;
        std::string reports;
        for (const char *name : names)
            reports += "tn_zel_init:EXCEPTION zel_udp_session GENERAL "s + name +
                       "(): " + (in_range ? "session is free" : "identifier or argument out of range") +
                       ", (udp_session_id)\n";
        EXPECT_EQ(std::ranges::count(results, in_range ? 4u : 3u), 8);
        EXPECT_EQ(look().lines, reports);
        EXPECT_EQ(std::memcmp(&cfg, &untouched_cfg, sizeof cfg), 0);
        EXPECT_EQ(std::memcmp(&v4, &cleared, sizeof v4), 0);
        EXPECT_EQ(std::memcmp(&v6, &untouched, sizeof v6), 0);
        EXPECT_EQ(std::string(text, 4), std::string("\0ext", 4));
    }
}

TEST_F(udp_session, queries)
{
    const std::string report = "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_";
    zel_core_term_udp_session_capabilities_t given;
    EXPECT_EQ(zel_core_term_udp_session_capabilities_get(&given), 0u);
    EXPECT_EQ(std::tuple(given.max_udp_sessions, given.capability_b, given.capability_c),
              std::tuple(70'000u, 41'000u, 61'000u));
    EXPECT_EQ(zel_core_term_udp_session_capabilities_get(nullptr), 2u);
    EXPECT_EQ(look().lines, report + "capabilities_get(): output pointer is NULL, or fell back to the old "
                                     "configuration, capabilities == NULL\n");

    const auto lowest = [](uint32_t id) {
        const uint32_t result = zel_core_term_udp_session_free_id_get(&id);
        return std::pair(result, id);
    };
    vok_cp_sim_reset(); // which nobody watches from now on
    for (uint32_t id = 1; id <= 70000; ++id) {
        ASSERT_EQ(lowest(0), std::pair(0u, id));
        ASSERT_EQ(request::udp(id, 4)(), 0u);
    }
    look();
    EXPECT_EQ(lowest(1234), std::pair(10u, 1234u));
    EXPECT_EQ(look().lines, report + "free_id_get(): no free session id, \n");
    EXPECT_EQ(zel_core_term_udp_session_release(35000), 0u);
    EXPECT_EQ(lowest(0), std::pair(0u, 35000u));
}

TEST_F(udp_session, statistics_are_formatted_in_their_order_and_in_their_buffer)
{
    const struct {
        uint8_t version;
        std::string whole;
        std::string left[2]; ///< in the caller's record by the first and by the second reading when it fails
    } rows[] = {
        {4,
         "IPv4 ingress: 2 packets, 200 octets\nIPv4 egress: 1 packets, 1000 octets\n\n",
         {"", " 20:0200000000000000 28:c800000000000000"}},
        {6,
         "IPv6 ingress: 2 packets, 200 octets\nIPv6 egress: 1 packets\n\n",
         {" 00:abababababababab 08:abababab00000000", " 00:abababab02000000 08:c800000000000000"}},
    };
    for (const auto &[version, whole, left] : rows) {
        restart();
        ASSERT_EQ(add(version)(), 0u);
        const vok_cp_sim_header_t received = data_plane::now().objects[0].header;
        vok_cp_sim_receive(&received, 100);
        vok_cp_sim_receive(&received, 100);
        vok_cp_sim_send(0x00100001, 1000);
        for (uint32_t size = 1; size <= whole.size() + 2; ++size) {
            std::string buf(size + 1, 'x');
            EXPECT_EQ(zel_core_term_udp_session_fmt_stats_get(1, buf.data(), size, 0), size > whole.size() ? 0u : 21u);
            EXPECT_EQ(buf.c_str(), whole.substr(0, size - 1));
            EXPECT_EQ(buf[size], 'x');
        }
        std::string buf(200, 'x');
        EXPECT_EQ(zel_core_term_udp_session_fmt_stats_get(1, buf.data(), 200, 1), 0u);
        EXPECT_NE(buf.find("\n  packets: 1\n"), buf.npos); // the caller's option is passed on,
        EXPECT_EQ(zel_core_term_udp_session_fmt_stats_get(1, buf.data(), 200, 2), 0u);
        EXPECT_STREQ(buf.c_str(), "\n"); // also one that no formatter knows
        for (const uint32_t nth : {1u, 2u}) {
            others.failing.add(fails(nth));
            EXPECT_EQ(zel_core_term_udp_session_fmt_stats_get(1, buf.data(), 200, 0), 13u);
            EXPECT_STREQ(buf.c_str(), "");
            others.failing.add(fails(nth));
            zel_udp_session_ipv4_stats_t v4;
            zel_udp_session_ipv6_stats_t v6;
            std::memset(&v4, 0xAB, sizeof v4);
            std::memset(&v6, 0xAB, sizeof v6);
            EXPECT_EQ(version == 4 ? zel_udp_session_get_stats(1, &v4) : zel_ipv6_udp_session_get_stats(1, &v6), 13u);
            EXPECT_EQ(version == 4 ? dump(&v4, sizeof v4) : dump(&v6, sizeof v6), left[nth - 1]);
        }
    }
}

TEST_F(udp_session, asks_for_no_text_when_every_event_is_off)
{
    using counts = std::map<std::string, int>;
    const auto asked = [this] {
        restart();
        others.failing.add(all_fail_from(4));
        EXPECT_EQ(request::udp(0, 4)() + add(4)(), 3u + 13u);
        return others.asked;
    };
    EXPECT_EQ(asked(), (counts{{"kiv_util_init_rc_str_get", 3}, {"vok_sys_status_get", 4}, {"vok_syshandle_get", 4}}));
    listener.reset();
    EXPECT_EQ(asked(), (counts{{"vok_syshandle_get", 4}}));
}

} // namespace
