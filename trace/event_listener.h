/// Sees the library's trace events as they fire, in this process, without a tracing session.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct trace_event {
    std::string name; ///< "provider:EVENT"
    std::string location;
    std::string category;
    std::string message;

    /// Whether something went wrong: an EXCEPTION or an ERROR.
    bool is_trouble() const { return name.ends_with(":EXCEPTION") || name.ends_with(":ERROR"); }
};

/// Registers a probe of its own with the tracing runtime for every event of both providers, which enables them, and
/// takes them back when it ends. One at a time. Other tracing sessions of the process are not disturbed.
class event_listener {
public:
    using handler = std::function<void(const trace_event &)>;

    explicit event_listener(handler on_event);
    ~event_listener();
    event_listener(const event_listener &) = delete;
    event_listener &operator=(const event_listener &) = delete;

private:
    handler on_event_;
};

/// "provider:EVENT" of every event, in alphabetical order.
std::vector<std::string> names_of_events();
