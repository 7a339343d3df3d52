/// How the library reports: LTTng-UST events with a location, a category and a message.
///
/// Each source file that reports defines ZEL_MODULE, its own name without extension, as a literal.
#pragma once

#include "term/types.h"
#include "tn_zel_init.h"
#include "tn_zel_term.h"
#include "zel_core_term/zel_term.h"

namespace zel {

/// The reporting statement: its function, as named in messages, and its "module:line".
struct trace_site {
    const char *function;
    const char *location;
};

#define ZEL_LITERAL_OF(token) #token
#define ZEL_LITERAL(macro) ZEL_LITERAL_OF(macro)

/// The trace site of the current statement; not for use in a lambda, which has another __func__. For a statement of
/// several lines the compiler decides whether the line is the first or the last.
#define ZEL_HERE (::zel::trace_site{__func__, ZEL_MODULE ":" ZEL_LITERAL(__LINE__)})

namespace category {

inline constexpr char general[] = "GENERAL";
inline constexpr char session_api_delay[] = "SESSION_API_DELAY";
inline constexpr char udp_session[] = "UDP_SESSION";
inline constexpr char l2tp_control_connection[] = "L2TP_CONTROL_CONNECTION";
inline constexpr char l2tp_session[] = "L2TP_SESSION";

} // namespace category

/// Passes a formatted event to its probes; one cold function per event, named fire_PROVIDER_EVENT.
#define ZEL_DECLARE_FIRE(provider, event)                                                                              \
    [[gnu::cold]] void fire_##provider##_##event(const char *location, const char *category, const char *message);
#define ZEL_FOR_EACH_EVENT(apply)                                                                                      \
    apply(tn_zel_term, FN_ENTER) apply(tn_zel_term, FN_EXIT) apply(tn_zel_term, EXCEPTION) apply(tn_zel_term, ERROR)   \
        apply(tn_zel_term, API_CALL) apply(tn_zel_term, LAB) apply(tn_zel_init, EXCEPTION)
ZEL_FOR_EACH_EVENT(ZEL_DECLARE_FIRE)

/// Fires an event whose message is `prefix_format` with the site's function, then the printf format and its
/// values. Nothing after `category` is evaluated unless the event is enabled. The test is here because the tracing
/// header's macro evaluates its arguments before its own test in some builds.
#define ZEL_TRACE(provider, event, site, category, prefix_format, ...)                                                 \
    do {                                                                                                               \
        if (lttng_ust_tracepoint_enabled(provider, event)) [[unlikely]]                                                \
            ::zel::fire_##provider##_##event(                                                                          \
                (site).location, category,                                                                             \
                zel_trace_internal_format_str(prefix_format, (site).function, __VA_ARGS__));                           \
    } while (false)

/// A handle as the messages print it, with %p.
inline const void *as_pointer(u64 handle)
{
    return reinterpret_cast<const void *>(handle);
}

/// Reports entry to a function and, on every path, the return from it.
class traced_function {
public:
    traced_function(trace_site site, const char *category);
    ~traced_function();
    traced_function(const traced_function &) = delete;
    traced_function &operator=(const traced_function &) = delete;

private:
    trace_site site_;
    const char *category_;
};

/// Reports a result code other than 0 with the argument or step that it concerns, and returns it. The code's text is
/// looked up only if the event is enabled.
[[gnu::cold]] u32 report(trace_site site, u32 result_code, const char *concerned);

} // namespace zel
