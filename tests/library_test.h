/// What the tests share: a started library over an empty stand-in data plane, a record of everything that it does,
/// and faults.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "event_listener.h"
#include "vok_cp_sim.h"
#include "zel_core_ic.h"
#include "zel_core_term/zel_core_term.h"

/// What the test program's own definitions of the library's collaborators answer; empty: as the original does.
/// They stand in front of the originals because the library calls them through the dynamic symbol.
struct interposed {
    std::optional<uint32_t> attach_result;
    std::deque<uint32_t> capabilities_result; ///< of the next calls, first one first
    std::optional<ovlin_capabilities_t> capabilities;
    std::optional<uint32_t> udp_stop_result, l2tp_stop_result;
    uint32_t session_type_result = 0;
    int session_types_set = 0;                    ///< calls of the hook
    int binds = 0;                                ///< calls of the data plane's vok_bind()
    std::function<uint32_t(int bind)> after_bind; ///< answers in the data plane's place
    int texts_asked = 0;                          ///< calls of kiv_util_init_rc_str_get()
    int messages_formatted = 0;                   ///< calls of zel_trace_internal_vformat_str()
};
extern interposed interposed;

class library_test : public testing::Test {
protected:
    library_test();
    ~library_test() override;

    /// Everything since the last call, in order, a line each: data-plane calls, calls of the session-type hook and
    /// trace events. The calls that get a failure's text stand behind the failing call. Handles are shown as #1, #2, …
    /// in the order of their creation since record(), trace locations without their line. Delay warnings are left out,
    /// since a preempted call can truly be slow, unless they are asked for.
    std::string trail();

    std::vector<std::string> keep_delays_of; ///< delay warnings with one of these texts are kept
    bool dump_records = false;               ///< true: each call is followed by its record and DSCP
    bool listen = true;                      ///< false: no event is enabled while trail() collects

    /// A library that was just started over an empty data plane.
    static void reset();

    /// Starts to collect anew. The n-th data-plane call from now, those that only serve a failure's text not
    /// counted, is answered as `faults` says.
    void record(std::map<int, vok_cp_sim_answer_t> faults = {});
    void stop_recording();

    /// While recording: the n-th data-plane call from now is answered as `faults` says.
    void count_calls_anew(std::map<int, vok_cp_sim_answer_t> faults);
    std::function<void(int number)> on_call; ///< called before a data-plane call takes effect

    /// One operation on session 1 of an otherwise empty data plane.
    struct operation_row {
        const char *what;
        std::vector<int> ip_versions;
        std::function<uint32_t(int ip_version)> operation;
        std::map<int, vok_cp_sim_answer_t> faults; ///< as for record()
        uint32_t session_type_result;              ///< of the session-type hook
    };

    /// Collects, for expect_collected(), the trail of the operation, its result and what it leaves.
    /// @param what whether session 1 was added before
    enum class before { nothing, session_1 };
    void run(const operation_row &row, before what);

    /// An add that can fail at each of its data-plane calls.
    struct failing_add {
        std::string what;
        int call_count;
        std::function<void()> prepare;
        std::function<uint32_t()> add;
    };

    /// Collects the trails of the add with each of its calls failing: once with all undos working and once with all
    /// failing.
    void fail_each_call(const failing_add &tried);

    /// Collects a heading and what trail() then has; takes it from there.
    void collect(const std::string &heading);

    /// Compares all that was collected with tests/expected/`file`. With ZEL_WRITE_EXPECTED in the environment the file
    /// is written instead, to be read before it is kept.
    void expect_collected(const char *file);

    /// The bytes as hexadecimal lines with their offsets; lines of zeroes are left out, and the handles at
    /// `handle_offsets` are shown by their number.
    std::string dump(std::vector<uint8_t> bytes, const std::vector<std::size_t> &handle_offsets) const;

    /// A session with uplink flow 1/id and downlink flow 2/5.
    static uint32_t add(uint32_t id, const zel_core_term_udp_session_cfg_t &cfg, uint8_t session_type = 0);

    static zel_core_term_udp_session_cfg_t cfg(int ip_version);
    static std::string data_plane(); ///< "objects, bindings" by number

private:
    friend uint32_t(::zel_ovlin_session_handler_set_session_type)(uint64_t, uint32_t, uint32_t);
    static vok_cp_sim_answer_t observe(void *self, const vok_cp_sim_call_t *call);
    void add_line(const std::string &line) { trail_ += line + "\n"; }
    std::string name(uint64_t handle) const;
    std::string with_handles_by_number(std::string message) const;

    uint64_t handles_before_ = 0; ///< the last handle that the data plane gave before record()
    std::map<int, vok_cp_sim_answer_t> faults_;
    int calls_counted_ = 0;
    std::string trail_, collected_;
    std::optional<event_listener> listener_;
};

inline constexpr vok_cp_sim_answer_t failing{VOK_CP_SIM_INJECTED, false, 0};
inline constexpr vok_cp_sim_answer_t failing_after_effect{VOK_CP_SIM_INJECTED, true, 0};
