#include "event_listener.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "tn_zel_tracepoints.h"

namespace {

std::string name_of(const tracepoint_object &t)
{
    return std::string(t.provider_name) + ":" + t.event_name;
}

const event_listener::handler *listening; ///< the handler of the one listener

/// The runtime holds locks and blocks signals around it: an exception would leave both so, and the process hanging.
void probe(void *tracepoint, const char *location, const char *category, const char *message) noexcept
{
    (*listening)({name_of(*static_cast<const tracepoint_object *>(tracepoint)), location, category, message});
}

void (*const registered_probe)() = reinterpret_cast<void (*)()>(probe);

void *probe_data(const tracepoint_object *tracepoint)
{
    return const_cast<tracepoint_object *>(tracepoint);
}

} // namespace

event_listener::event_listener(handler on_event) : on_event_(std::move(on_event))
{
    if (listening != nullptr)
        throw std::logic_error("there is an event listener already");
    listening = &on_event_;
    for (const auto *t : tracepoints)
        if (lttng_ust_tracepoint_provider_register(t->provider_name, t->event_name, registered_probe, probe_data(t),
                                                   t->signature) != 0)
            throw std::runtime_error("the tracing runtime takes no probe");
}

event_listener::~event_listener()
{
    for (const auto *t : tracepoints)
        lttng_ust_tracepoint_provider_unregister(t->provider_name, t->event_name, registered_probe, probe_data(t));
    listening = nullptr;
}

std::vector<std::string> names_of_events()
{
    std::vector<std::string> names;
    for (const auto *t : tracepoints)
        names.push_back(name_of(*t));
    std::ranges::sort(names);
    return names;
}
