/// Watches the library at work: keeps what its last operation did, and lets faults answer the calls that it makes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "event_listener.h"
#include "faults.h"
#include "operation_record.h"
#include "watcher.h"

/// There is one at a time, as there is one data plane.
class recorder {
public:
    /// @param on_event sees each event of the library as it fires
    recorder(faults &waiting, std::function<void(const trace_event &)> on_event);
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;

    /// Watches again after a reset of the data plane.
    void attach() { watcher_.attach(); }

    /// Runs an operation and keeps what it does. @return its result
    std::uint32_t run(const std::string &line, int line_number, const std::string &name,
                      const std::function<std::uint32_t()> &operation);

    /// Replaces the text of the last operation's result, whose code has several meanings.
    void result_means(const std::string &text) { last_->result_text = text; }

    /// What the last operation did; null before the first.
    const operation_record *last() const { return last_ ? &*last_ : nullptr; }

private:
    using clock = std::chrono::steady_clock;

    vok_cp_sim_answer_t on_call(const watched_call &call);
    void on_outcome(const watched_call &call);

    faults &waiting_;
    std::function<void(const trace_event &)> on_event_;
    std::optional<operation_record> last_;
    clock::time_point call_began_;
    std::uint64_t call_began_ticks_ = 0;
    bool is_operating_ = false; ///< otherwise nothing is kept
    bool building_failed_ = false;
    watcher watcher_;
    event_listener listener_;
};
