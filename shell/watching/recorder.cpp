#include "recorder.h"

#include <string_view>

#include "kiv_util.h"
#include "zel_core_term/zel_term.h"

namespace {

constexpr std::uint64_t delay_bound_ticks = 25'600'000;

std::uint64_t ns_since(std::chrono::steady_clock::time_point start)
{
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count());
}

bool takes_down(std::string_view operation)
{
    return operation == "vok_unbind" || operation.ends_with("_delete");
}

} // namespace

recorder::recorder(faults &waiting, std::function<void(const trace_event &)> on_event)
    : waiting_(waiting), on_event_(std::move(on_event)),
      watcher_([this](const auto &call) { return on_call(call); }, [this](const auto &call) { on_outcome(call); }),
      listener_([this](const trace_event &e) {
          if (!is_operating_)
              return;
          last_->course.emplace_back(e);
          on_event_(e);
      })
{
}

std::uint32_t recorder::run(const std::string &line, int line_number, const std::string &name,
                            const std::function<std::uint32_t()> &operation)
{
    last_ = operation_record{line, name, line_number, {}, 0, {}, 0};
    building_failed_ = false;
    is_operating_ = true;
    const clock::time_point began = clock::now();
    last_->result = operation();
    last_->duration_ns = ns_since(began);
    is_operating_ = false;
    last_->result_text = kiv_util_init_rc_str_get(last_->result);
    return last_->result;
}

vok_cp_sim_answer_t recorder::on_call(const watched_call &call)
{
    const vok_cp_sim_answer_t answer = waiting_.on_call(call.operation);
    call_began_ = clock::now();
    call_began_ticks_ = zel_core_term_time_get();
    return answer;
}

void recorder::on_outcome(const watched_call &call)
{
    if (!is_operating_)
        return;
    recorded_call recorded{call, ns_since(call_began_)};
    recorded.is_slow = !call.is_hook() && zel_core_term_time_get() - call_began_ticks_ > delay_bound_ticks;
    recorded.is_undo = building_failed_ && takes_down(call.operation);
    building_failed_ |= call.status != 0 && !takes_down(call.operation);
    last_->course.emplace_back(std::move(recorded));
}
