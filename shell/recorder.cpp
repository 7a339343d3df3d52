#include "recorder.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string_view>

#include "data_plane.h"
#include "kiv_util.h"
#include "zel_core_term/zel_ovlin_session_handler.h"
#include "zel_core_term/zel_term.h"

namespace {

constexpr std::uint64_t delay_bound_ticks = 25'600'000;

recorder *the_recorder;

std::uint64_t ns_since(std::chrono::steady_clock::time_point start)
{
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count());
}

std::string subject_of(const vok_cp_sim_call_t &call)
{
    if (call.record == nullptr)
        return handle_text(call.handle);
    if (std::string_view(call.operation).ends_with("bind"))
        return to_text(*static_cast<const vok_bind_record *>(call.record));
    const vok_cp_sim_object_t o = vok_cp_sim_describe(call.kind, call.record, call.record_size);
    return whole_header_text(o.header, o.path_mtu);
}

bool takes_down(std::string_view operation)
{
    return operation == "vok_unbind" || operation.ends_with("_delete");
}

} // namespace

recorder::recorder(faults &waiting, std::function<void(const trace_event &)> on_event)
    : waiting_(waiting), on_event_(std::move(on_event)), listener_([this](const trace_event &e) {
          if (!watching_)
              return;
          if (last_)
              last_->course.emplace_back(e);
          on_event_(e);
      })
{
    if (the_recorder != nullptr)
        throw std::logic_error("there is a recorder already");
    the_recorder = this;
    attach();
}

recorder::~recorder()
{
    vok_cp_sim_observe(nullptr, nullptr);
    vok_cp_sim_observe_outcomes(nullptr, nullptr);
    the_recorder = nullptr;
}

void recorder::attach()
{
    vok_cp_sim_observe(on_call, this);
    vok_cp_sim_observe_outcomes(on_outcome, this);
}

void recorder::begin(const std::string &line, int line_number, const std::string &name)
{
    last_ = operation_record{line, name, line_number, {}, 0, {}, 0};
    building_failed_ = false;
    operation_began_ = clock::now();
}

void recorder::end(std::uint32_t result)
{
    last_->duration_ns = ns_since(operation_began_);
    last_->result = result;
    last_->result_text = kiv_util_init_rc_str_get(result);
}

vok_cp_sim_answer_t recorder::on_call(void *self, const vok_cp_sim_call_t *call)
{
    auto &r = *static_cast<recorder *>(self);
    const faults::answer answer = r.waiting_.on_call(call->operation);
    r.call_is_answered_ = answer.acts();
    r.call_began_ = clock::now();
    r.call_began_ticks_ = zel_core_term_time_get();
    return {answer.status, answer.after_effect, answer.ticks};
}

void recorder::on_outcome(void *self, const vok_cp_sim_call_t *call, const vok_cp_sim_outcome_t *outcome)
{
    auto &r = *static_cast<recorder *>(self);
    if (!r.watching_)
        return;
    const bool is_slow = zel_core_term_time_get() - r.call_began_ticks_ > delay_bound_ticks;
    const std::uint64_t duration_ns = ns_since(r.call_began_);
    const bool answered = r.call_is_answered_; // before the text is asked for, which is a call too
    r.record({call->operation, subject_of(*call), outcome->created, outcome->status,
              answer_text(call->operation, outcome->status), outcome->took_effect, answered, duration_ns, is_slow,
              false});
}

std::uint32_t recorder::hook_called(std::uint64_t ovlin_flow_type, std::uint32_t pcep_id, std::uint32_t session_type,
                                    std::uint32_t (*next)(std::uint64_t, std::uint32_t, std::uint32_t))
{
    const faults::answer answer = waiting_.on_call(session_type_hook);
    const std::uint32_t result = answer.acts() ? answer.status : next(ovlin_flow_type, pcep_id, session_type);
    record({session_type_hook, "pcep " + std::to_string(pcep_id) + ", session type " + std::to_string(session_type), 0,
            result, answer_text(session_type_hook, result), !answer.acts(), answer.acts(), 0, false, false});
    return result;
}

void recorder::record(recorded_call call)
{
    call.is_undo = building_failed_ && takes_down(call.operation);
    building_failed_ |= call.status != 0 && !takes_down(call.operation);
    if (last_)
        last_->course.emplace_back(std::move(call));
}

/// In front of the library's own, which is called through its dynamic symbol, and of a preloaded one: so that it can be
/// made to fail too.
extern "C" __attribute__((visibility("default"))) std::uint32_t zel_ovlin_session_handler_set_session_type(
    std::uint64_t ovlin_flow_type, std::uint32_t pcep_id, std::uint32_t session_type)
{
    static const auto next =
        reinterpret_cast<decltype(&zel_ovlin_session_handler_set_session_type)>(dlsym(RTLD_NEXT, session_type_hook));
    return the_recorder->hook_called(ovlin_flow_type, pcep_id, session_type, next);
}
