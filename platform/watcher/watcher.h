/// Watches the stand-in data plane at work: decides how each call is answered, and sees what came of it. The library's
/// session-type hook is watched as if it were a call of the data plane.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "vok_cp.h"
#include "vok_cp_sim.h"

inline constexpr const char *session_type_hook = "zel_ovlin_session_handler_set_session_type";

struct watched_call {
    std::string_view operation;
    vok_cp_sim_kind_t kind{};                    ///< of the object, where there is one
    std::uint64_t handle = 0;                    ///< the object that it was given; the hook's type handle
    std::vector<std::byte> record{};             ///< that it was given; a binding's dscpRef is 0
    std::optional<std::uint8_t> dscp{};          ///< of a bind
    std::uint32_t pcep_id = 0, session_type = 0; ///< the hook's arguments

    // The outcome; not set yet when the answer is decided.
    std::uint32_t status = 0;
    bool took_effect = false;  ///< can be true even if the call failed
    std::uint64_t created = 0; ///< the object that it made
    bool is_answered = false;  ///< by the watcher, and not by the data plane

    bool is_hook() const { return operation == session_type_hook; }
    bool is_bind_or_unbind() const { return operation == "vok_bind" || operation == "vok_unbind"; }
    bool is_delete() const { return operation.ends_with("_delete"); }

    /// What a bind or an unbind was given.
    const vok_bind_record &binding() const { return *reinterpret_cast<const vok_bind_record *>(record.data()); }
};

/// There is one at a time, as there is one data plane.
class watcher {
public:
    /// All zero: the call goes on. A status other than 0 is what the session-type hook returns.
    using answerer = std::function<vok_cp_sim_answer_t(const watched_call &)>;
    using handler = std::function<void(const watched_call &)>;

    /// @param answer called before a call takes effect
    /// @param seen   called when its outcome is known
    watcher(answerer answer, handler seen);
    ~watcher();
    watcher(const watcher &) = delete;
    watcher &operator=(const watcher &) = delete;

    /// Watches again after a reset of the data plane.
    void attach();

    std::function<void(std::string_view operation)> on_text; ///< sees vok_syshandle_get() and vok_sys_status_get()

    std::uint32_t hook_called(std::uint64_t type, std::uint32_t pcep_id, std::uint32_t session_type);

private:
    static vok_cp_sim_answer_t on_call(void *self, const vok_cp_sim_call_t *made);
    static void on_outcome(void *self, const vok_cp_sim_call_t *made, const vok_cp_sim_outcome_t *outcome);

    answerer answer_;
    handler seen_;
    std::deque<watched_call> running_; ///< more than one when a call comes back to the caller
};
