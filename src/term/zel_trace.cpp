#include "term/zel_trace.h"

#include <algorithm>
#include <cstdio>

#include "term/platform.h"
#include "term/quick_format.h"

namespace {

constexpr std::size_t message_size = 1024;
constexpr std::size_t prefix_size = 256;

// In the static TLS block, so that a thread's first message does not allocate the buffer when the library
// was loaded by dlopen().
[[gnu::tls_model("initial-exec")]] thread_local char message[message_size];

/// As vsnprintf(); without a format it is an output error.
int vformat(char *text, std::size_t size, const char *fmt, va_list args)
{
    if (fmt == nullptr)
        return -1;
    va_list same_args;
    va_copy(same_args, args);
    const int length = zel::quick_format(text, size, fmt, same_args);
    va_end(same_args);
    return length >= 0 ? length : std::vsnprintf(text, size, fmt, args);
}

/// As snprintf(). NOLINTNEXTLINE(cert-dcl50-cpp): vformat() takes its arguments so
int format(char *text, std::size_t size, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const int length = vformat(text, size, fmt, args);
    va_end(args);
    return length;
}

} // namespace

const char *zel_trace_internal_format_str(const char *prefix_fmt, const char *func, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const char *text = zel_trace_internal_vformat_str(prefix_fmt, func, fmt, args);
    va_end(args);
    return text;
}

const char *zel_trace_internal_vformat_str(const char *prefix_fmt, const char *func, const char *fmt, va_list args)
{
    int length = 0;
    if (func != nullptr)
        length = std::clamp(format(message, prefix_size, prefix_fmt, func), 0, static_cast<int>(prefix_size) - 1);
    if (fmt != nullptr)
        vformat(message + length, message_size - static_cast<std::size_t>(length), fmt, args);
    return message;
}

namespace zel {

#define ZEL_DEFINE_FIRE(provider, event)                                                                               \
    void fire_##provider##_##event(const char *location, const char *category, const char *message)                    \
    {                                                                                                                  \
        lttng_ust_do_tracepoint(provider, event, location, category, message);                                         \
    }
ZEL_FOR_EACH_EVENT(ZEL_DEFINE_FIRE)

traced_function::traced_function(trace_site site, const char *category) : site_(site), category_(category)
{
    ZEL_TRACE(tn_zel_term, FN_ENTER, site_, category_, "%s()", nullptr);
}

traced_function::~traced_function()
{
    ZEL_TRACE(tn_zel_term, FN_EXIT, site_, category_, "%s()", nullptr);
}

u32 report(trace_site site, u32 result_code, const char *concerned)
{
    ZEL_TRACE(tn_zel_init, EXCEPTION, site, category::general, "%s(): ", "%s, %s",
              kiv_util_init_rc_str_get(result_code), concerned);
    return result_code;
}

} // namespace zel
