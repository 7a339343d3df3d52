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
#include "vok_cp_sim.h"

/// There is one at a time, as there is one data plane.
class recorder {
public:
    /// @param on_event sees each event of the library as it fires
    recorder(faults &waiting, std::function<void(const trace_event &)> on_event);
    ~recorder();
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;

    /// Watches the data plane again that was reset.
    void attach();

    void begin(const std::string &line, int line_number, const std::string &name);
    void end(std::uint32_t result);

    /// What the last operation did; null before the first.
    const operation_record *last() const { return last_ ? &*last_ : nullptr; }

    /// The session-type hook is called, which would be `next` without the shell.
    std::uint32_t hook_called(std::uint64_t ovlin_flow_type, std::uint32_t pcep_id, std::uint32_t session_type,
                              std::uint32_t (*next)(std::uint64_t, std::uint32_t, std::uint32_t));

    /// While it lives nothing is recorded and no event is seen.
    class pause {
    public:
        explicit pause(recorder &paused) : paused_(paused), was_watching_(paused.watching_)
        {
            paused.watching_ = false;
        }
        ~pause() { paused_.watching_ = was_watching_; }
        pause(const pause &) = delete;
        pause &operator=(const pause &) = delete;

    private:
        recorder &paused_;
        bool was_watching_;
    };

private:
    using clock = std::chrono::steady_clock;

    static vok_cp_sim_answer_t on_call(void *self, const vok_cp_sim_call_t *call);
    static void on_outcome(void *self, const vok_cp_sim_call_t *call, const vok_cp_sim_outcome_t *outcome);
    void record(recorded_call call);

    faults &waiting_;
    std::function<void(const trace_event &)> on_event_;
    bool watching_ = true;
    std::optional<operation_record> last_;
    clock::time_point operation_began_, call_began_;
    std::uint64_t call_began_ticks_ = 0;
    bool call_is_answered_ = false; ///< by a fault
    bool building_failed_ = false;
    event_listener listener_;
};
