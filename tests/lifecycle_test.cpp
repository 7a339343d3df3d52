// Start, stop, and what the library offers beside sessions and connections.
#include <cstring>

#include "library_test.h"
#include "term/tick.h"

namespace {

class lifecycle : public library_test {
protected:
    static bool has_handles()
    {
        const zel_handles_t none{};
        return std::memcmp(zel_getHandles(), &none, sizeof none) != 0;
    }
};

TEST_F(lifecycle, start_and_stop_with_each_step_failing)
{
    const auto fails_once = [](const char *call, uint32_t nth, uint32_t result) {
        return std::vector<fault>{{.call = call, .nth = nth, .status = result}};
    };
    const auto start = zel_core_term_start, stop = zel_core_term_stop;
    EXPECT_EQ(stop(), 0u);
    EXPECT_FALSE(has_handles());
    collect({"start without handles", {}, start, fails_once("zel_init_attach", 1, 77)});
    EXPECT_FALSE(has_handles());
    collect({"start, UDP without capabilities", {}, start, fails_once("zel_core_ic_ovlin_capabilities_get", 1, 2)});
    EXPECT_EQ(request::udp(70000, 4)(), 0u);
    others.capabilities = {0, 0, {}};
    EXPECT_EQ(zel_handles, nullptr);
    collect({"start, L2TP without capabilities", {}, start, fails_once("zel_core_ic_ovlin_capabilities_get", 2, 2)});
    EXPECT_EQ(zel_handles, zel_getHandles());
    EXPECT_EQ(counts_now(), "2 objects, 2 bindings"); // a start forgets the session, not its objects
    EXPECT_EQ(request::udp(70000, 4)(), 3u);          // and reads the capabilities again

    others.capabilities = {};
    restart();
    EXPECT_EQ(start(), 0u);
    collect("start");
    EXPECT_EQ(zel_handles, zel_getHandles());
    collect({"stop, L2TP failing", {}, stop, fails_once("zel_l2tp_stop", 1, 8)});
    collect({"stop, UDP failing", {}, stop, fails_once("zel_udp_session_stop", 1, 9)});
    EXPECT_TRUE(has_handles());
    restart();
    EXPECT_EQ(stop(), 0u);
    collect("stop");
    EXPECT_FALSE(has_handles());
    EXPECT_EQ(zel_handles, nullptr);
    expect_collected("lifecycle.txt");
}

TEST_F(lifecycle, time_services)
{
    uint64_t frequency = 0;
    EXPECT_EQ(zel_core_term_clock_freq_get(&frequency), 0u);
    EXPECT_EQ(frequency, 256'000'000u);
    const uint64_t first = zel_core_term_time_get();
    EXPECT_GE(zel_core_term_time_get(), first);
#if defined(__x86_64__)
    const uint64_t before = __builtin_ia32_rdtsc(), given = zel_core_term_time_get();
    EXPECT_TRUE(before <= given && given <= __builtin_ia32_rdtsc()); // the processor's counter as it is
#endif

    EXPECT_FALSE(zel::is_delayed(1000, 1000 + 25'600'000));
    EXPECT_TRUE(zel::is_delayed(1000, 1000 + 25'600'001));
    EXPECT_FALSE(zel::is_delayed(UINT64_MAX, UINT64_MAX + 25'600'000)); // the counter starts again from 0
}

// As callers declare them: their parameters are no part of the library's headers.
extern "C" uint32_t zel_ovlin_session_handler_5gc_session_enable(uint32_t, int *);
extern "C" uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping();
extern "C" uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove(const char *, double, uint64_t);
extern "C" uint32_t zel_ovlin_5gc_session_stats_get(void *);

TEST_F(lifecycle, session_handler_entry_points_do_nothing)
{
    int anything = 1;
    EXPECT_EQ(zel_ovlin_session_handler_set_session_type(UINT64_MAX, UINT32_MAX, UINT32_MAX), 0u);
    EXPECT_EQ(zel_ovlin_session_handler_5gc_session_enable(1, &anything), 0u);
    EXPECT_EQ(zel_ovlin_session_handler_5gc_qfi_dscp_mapping(), 0u);
    EXPECT_EQ(zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove("a", 2.0, 3ULL), 0u);
    EXPECT_EQ(zel_ovlin_5gc_session_stats_get(nullptr), 0u);
    EXPECT_EQ(anything, 1);
    zel_tracepoint();
}

} // namespace
