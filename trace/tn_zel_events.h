/*
 * The events of both providers, the payload that each carries, and the shape of an event's definition.
 * Included by the providers' headers, which the tracing headers read several times: no include guard.
 */
/* clang-format off */
#undef TN_ZEL_TERM_EVENTS
#undef TN_ZEL_INIT_EVENTS
#undef ZEL_TRACE_PAYLOAD
#undef ZEL_TRACE_PAYLOAD_CLASS
#undef ZEL_TRACE_EVENT

#define TN_ZEL_TERM_EVENTS(EVENT)                                                                        \
    EVENT(tn_zel_term, FN_ENTER, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_FUNCTION)                           \
    EVENT(tn_zel_term, FN_EXIT, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_FUNCTION)                            \
    EVENT(tn_zel_term, EXCEPTION, LTTNG_UST_TRACEPOINT_LOGLEVEL_ERR)                                     \
    EVENT(tn_zel_term, ERROR, LTTNG_UST_TRACEPOINT_LOGLEVEL_CRIT)                                        \
    EVENT(tn_zel_term, API_CALL, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG_MODULE)                             \
    EVENT(tn_zel_term, LAB, LTTNG_UST_TRACEPOINT_LOGLEVEL_DEBUG)

#define TN_ZEL_INIT_EVENTS(EVENT) EVENT(tn_zel_init, EXCEPTION, LTTNG_UST_TRACEPOINT_LOGLEVEL_ERR)

#define ZEL_TRACE_PAYLOAD                                                                                \
    LTTNG_UST_TP_ARGS(const char *, location, const char *, category, const char *, message)

/* Once a provider: the three fields, in this order. */
#define ZEL_TRACE_PAYLOAD_CLASS(provider)                                                                \
    LTTNG_UST_TRACEPOINT_EVENT_CLASS(provider, text, ZEL_TRACE_PAYLOAD,                                  \
        LTTNG_UST_TP_FIELDS(                                                                             \
            lttng_ust_field_string(location, location)                                                   \
            lttng_ust_field_string(category, category)                                                   \
            lttng_ust_field_string(message, message)))

#define ZEL_TRACE_EVENT(provider, event, level)                                                          \
    LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(provider, text, provider, event, ZEL_TRACE_PAYLOAD)              \
    LTTNG_UST_TRACEPOINT_LOGLEVEL(provider, event, level)
