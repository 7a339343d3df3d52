#include "watcher.h"

#include <dlfcn.h>

#include <stdexcept>
#include <utility>

namespace {

watcher *watching; ///< which hears of calls of the session-type hook

watched_call call_of(const vok_cp_sim_call_t &made)
{
    watched_call call{.operation = made.operation, .kind = made.kind, .handle = made.handle};
    const auto *bytes = static_cast<const std::byte *>(made.record);
    call.record.assign(bytes, bytes + made.record_size);
    if (call.is_bind_or_unbind() && !call.record.empty()) {
        std::uint64_t &dscp = reinterpret_cast<vok_bind_record *>(call.record.data())->dscpRef;
        if (dscp != 0)
            call.dscp = *reinterpret_cast<const std::uint8_t *>(dscp);
        dscp = 0;
    }
    return call;
}

} // namespace

watcher::watcher(answerer answer, handler seen) : answer_(std::move(answer)), seen_(std::move(seen))
{
    if (watching != nullptr)
        throw std::logic_error("the data plane is watched already");
    watching = this;
    attach();
}

watcher::~watcher()
{
    vok_cp_sim_observe(nullptr, nullptr);
    vok_cp_sim_observe_outcomes(nullptr, nullptr);
    watching = nullptr;
}

void watcher::attach()
{
    vok_cp_sim_observe(on_call, this);
    vok_cp_sim_observe_outcomes(on_outcome, this);
}

vok_cp_sim_answer_t watcher::on_call(void *self, const vok_cp_sim_call_t *made)
{
    auto &w = *static_cast<watcher *>(self);
    if (std::string_view(made->operation).starts_with("vok_sys")) {
        if (w.on_text)
            w.on_text(made->operation);
        return {};
    }
    watched_call &call = w.running_.emplace_back(call_of(*made));
    const vok_cp_sim_answer_t answer = w.answer_(call);
    call.is_answered = answer.status != 0 || answer.ticks != 0;
    return answer;
}

void watcher::on_outcome(void *self, const vok_cp_sim_call_t *, const vok_cp_sim_outcome_t *outcome)
{
    auto &w = *static_cast<watcher *>(self);
    watched_call call = std::move(w.running_.back());
    w.running_.pop_back();
    call.status = outcome->status;
    call.took_effect = outcome->took_effect;
    call.created = outcome->created;
    w.seen_(call);
}

std::uint32_t watcher::hook_called(std::uint64_t type, std::uint32_t pcep_id, std::uint32_t session_type)
{
    static const auto next = reinterpret_cast<std::uint32_t (*)(std::uint64_t, std::uint32_t, std::uint32_t)>(
        dlsym(RTLD_NEXT, session_type_hook));
    watched_call call{.operation = session_type_hook, .handle = type};
    call.pcep_id = pcep_id;
    call.session_type = session_type;
    call.status = answer_(call).status;
    call.is_answered = call.status != 0;
    call.took_effect = !call.is_answered;
    if (!call.is_answered)
        call.status = next(type, pcep_id, session_type);
    seen_(call);
    return call.status;
}

/// In front of the library's own, which the library calls through its dynamic symbol, and of a preloaded one.
extern "C" __attribute__((visibility("default"))) std::uint32_t zel_ovlin_session_handler_set_session_type(
    std::uint64_t type, std::uint32_t pcep_id, std::uint32_t session_type)
{
    return watching != nullptr ? watching->hook_called(type, pcep_id, session_type) : 0;
}
