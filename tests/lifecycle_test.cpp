// Start, stop, the time services, and the queries of the UDP session table.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "library_test.h"
#include "term/tick.h"

namespace {

class lifecycle : public library_test {
protected:
    static bool handle_block_is_zero()
    {
        const zel_handles_t zero{};
        return std::memcmp(zel_getHandles(), &zero, sizeof zero) == 0;
    }
};

TEST_F(lifecycle, start_and_stop_with_each_step_failing)
{
    ASSERT_EQ(zel_core_term_stop(), 0u);
    EXPECT_TRUE(handle_block_is_zero());
    record();

    interposed.attach_result = 77;
    EXPECT_EQ(zel_core_term_start(), 77u);
    collect("start without the initialisation component");
    EXPECT_TRUE(handle_block_is_zero());
    interposed.attach_result.reset();

    interposed.capabilities_result = {2};
    EXPECT_EQ(zel_core_term_start(), 2u);
    collect("start without capabilities for the UDP module");
    EXPECT_EQ(zel_getHandles()->vok_instance, VOK_CP_SIM_INSTANCE);
    EXPECT_EQ(zel_getHandles()->ovlin_flow_type, VOK_CP_SIM_OVLIN_FLOW_TYPE);
    EXPECT_EQ(zel_handles, nullptr);

    interposed.capabilities_result = {0, 2};
    EXPECT_EQ(zel_core_term_start(), 2u);
    collect("start without capabilities for the L2TP side");
    EXPECT_EQ(zel_handles, zel_getHandles());

    interposed.messages_formatted = 0;
    EXPECT_EQ(zel_core_term_start(), 0u);
    collect("start");
    EXPECT_EQ(interposed.messages_formatted, 8); // by a definition that the library must call in place of its own
    EXPECT_EQ(zel_handles, zel_getHandles());

    interposed.l2tp_stop_result = 8;
    EXPECT_EQ(zel_core_term_stop(), 8u);
    collect("stop with the L2TP side failing");
    interposed.l2tp_stop_result.reset();

    interposed.udp_stop_result = 9;
    EXPECT_EQ(zel_core_term_stop(), 9u);
    collect("stop with the UDP module failing");
    EXPECT_FALSE(handle_block_is_zero());
    interposed.udp_stop_result.reset();

    EXPECT_EQ(zel_core_term_stop(), 0u);
    collect("stop");
    EXPECT_TRUE(handle_block_is_zero());
    EXPECT_EQ(zel_handles, nullptr);
    expect_collected("lifecycle.txt");
}

TEST_F(lifecycle, a_failed_capabilities_read_leaves_the_udp_module_with_its_handles_and_an_empty_table)
{
    const zel_core_term_udp_session_cfg_t configuration = cfg(4);
    ASSERT_EQ(add(1, configuration), 0u);
    interposed.capabilities_result = {2};
    EXPECT_EQ(zel_udp_session_start(), 2u);
    EXPECT_EQ(add(1, configuration), 0u);
}

TEST_F(lifecycle, start_forgets_sessions_but_not_their_data_plane_objects_and_reads_the_capabilities_again)
{
    const zel_core_term_udp_session_cfg_t configuration = cfg(4);
    for (const uint32_t id : {1u, 64u, 65u, 70000u})
        ASSERT_EQ(zel_core_term_udp_session_add(id, &configuration, 1, 1, 1, 0, 0), 0u);
    interposed.capabilities = {0, 0, {}};
    ASSERT_EQ(zel_core_term_start(), 0u);

    EXPECT_EQ(data_plane(), "8 objects, 8 bindings");
    zel_core_term_udp_session_cfg_t stored;
    for (const uint32_t id : {1u, 64u, 65u, 70000u})
        EXPECT_EQ(zel_core_term_udp_session_cfg_get(id, &stored), 4u);
    EXPECT_EQ(zel_core_term_udp_session_add(1, &configuration, 1, 0, 0, 0, 0), 3u);
    EXPECT_EQ(zel_core_term_udp_session_add(1, &configuration, 0, 0, 0, 0, 0), 0u);
}

TEST_F(lifecycle, time_services)
{
    uint64_t frequency = 0;
    EXPECT_EQ(zel_core_term_clock_freq_get(&frequency), 0u);
    EXPECT_EQ(frequency, 256'000'000u);
    const uint64_t first = zel_core_term_time_get();
    EXPECT_GE(zel_core_term_time_get(), first);

    EXPECT_FALSE(zel::is_delayed(1000, 1000 + 25'600'000));
    EXPECT_TRUE(zel::is_delayed(1000, 1000 + 25'600'001));
    EXPECT_FALSE(zel::is_delayed(UINT64_MAX, UINT64_MAX + 25'600'000)); // the counter starts again from 0
}

TEST_F(lifecycle, the_session_type_hook_and_the_data_plane_can_be_interposed)
{
    ASSERT_EQ(add(1, cfg(4), 1), 0u);
    EXPECT_EQ(interposed.session_types_set, 1); // by definitions of this program, which stand in front
    EXPECT_EQ(interposed.binds, 2);

    // Any bit of the flag counts, also for a caller that knows it as a number.
    auto *const add_by_number =
        reinterpret_cast<uint32_t (*)(uint32_t, const zel_core_term_udp_session_cfg_t *, uint32_t, uint32_t, uint32_t,
                                      uint8_t, uint8_t)>(dlsym(RTLD_DEFAULT, "zel_core_term_udp_session_add"));
    const auto configuration = cfg(4);
    ASSERT_EQ(add_by_number(2, &configuration, 1, 2, 5, 46, 0x80), 0u);
    EXPECT_EQ(interposed.session_types_set, 2);
}

// As callers declare them: their parameters are no part of the library's headers.
extern "C" uint32_t zel_ovlin_session_handler_5gc_session_enable(uint32_t, int *);
extern "C" uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping();
extern "C" uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove(const char *, double, uint64_t);
extern "C" uint32_t zel_ovlin_5gc_session_stats_get(void *);

TEST_F(lifecycle, session_handler_entry_points_do_nothing)
{
    int anything = 1;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(zel_ovlin_session_handler_5gc_session_enable(1, &anything), 0u);
        EXPECT_EQ(zel_ovlin_session_handler_5gc_qfi_dscp_mapping(), 0u);
        EXPECT_EQ(zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove("a", 2.0, 3ULL), 0u);
        EXPECT_EQ(zel_ovlin_5gc_session_stats_get(nullptr), 0u);
    }
    EXPECT_EQ(anything, 1);
    zel_tracepoint();
}

using udp_queries = library_test;

TEST_F(udp_queries, capabilities)
{
    record();
    EXPECT_EQ(zel_core_term_udp_session_capabilities_get(nullptr), 2u);
    EXPECT_EQ(trail(), "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_capabilities_get(): "
                       "output pointer is NULL, or fell back to the old configuration, capabilities == NULL\n");
    zel_core_term_udp_session_capabilities_t capabilities;
    EXPECT_EQ(zel_core_term_udp_session_capabilities_get(&capabilities), 0u);
    EXPECT_EQ(capabilities.max_udp_sessions, 70'000u);
    EXPECT_EQ(capabilities.capability_b, 41'000u);
    EXPECT_EQ(capabilities.capability_c, 61'000u);
    EXPECT_EQ(trail(), "");
}

TEST_F(udp_queries, configuration_of_what_is_no_session)
{
    const std::string name = "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_cfg_get(): ";
    zel_core_term_udp_session_cfg_t stored;
    record();
    for (const uint32_t id : {0u, 70001u, UINT32_MAX}) {
        EXPECT_EQ(zel_core_term_udp_session_cfg_get(id, &stored), 3u);
        EXPECT_EQ(trail(), name + "identifier or argument out of range, (udp_session_id)\n");
    }
    for (const uint32_t id : {1u, 70000u}) {
        EXPECT_EQ(zel_core_term_udp_session_cfg_get(id, &stored), 4u);
        EXPECT_EQ(trail(), name + "session is free, (udp_session_id)\n");
    }
}

TEST_F(udp_queries, lowest_free_id_of_an_empty_a_half_and_a_full_table)
{
    const zel_core_term_udp_session_cfg_t configuration = cfg(4);
    const auto add = [&](uint32_t id) { return zel_core_term_udp_session_add(id, &configuration, 1, 1, 1, 0, false); };
    const auto lowest = [] {
        uint32_t id = 0xABCD;
        return zel_core_term_udp_session_free_id_get(&id) == 0 ? id : 0;
    };
    EXPECT_EQ(lowest(), 1u);
    EXPECT_EQ(lowest(), 1u); // nothing was reserved
    for (const uint32_t id : {1u, 2u, 3u, 4u, 6u})
        ASSERT_EQ(add(id), 0u);
    EXPECT_EQ(lowest(), 5u);
    ASSERT_EQ(add(5), 0u);
    for (uint32_t id = 7; id <= 70000; ++id) {
        ASSERT_EQ(lowest(), id);
        ASSERT_EQ(add(id), 0u);
    }
    record();
    uint32_t id = 0xABCD;
    EXPECT_EQ(zel_core_term_udp_session_free_id_get(&id), 10u);
    EXPECT_EQ(id, 0xABCDu);
    EXPECT_EQ(trail(), "tn_zel_init:EXCEPTION zel_udp_session GENERAL zel_core_term_udp_session_free_id_get(): no free "
                       "session id, \n");
}

} // namespace
