/*
 * Provider tn_zel_term: what the termination component does. One fires an event as
 * lttng_ust_tracepoint(tn_zel_term, FN_ENTER, location, category, message).
 */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER tn_zel_term

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "tn_zel_term.h"

#if !defined(TN_ZEL_TERM_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define TN_ZEL_TERM_H

#include <lttng/tracepoint.h>

#include "tn_zel_events.h"

ZEL_TRACE_PAYLOAD_CLASS(tn_zel_term)
TN_ZEL_TERM_EVENTS(ZEL_TRACE_EVENT)

#endif

#include <lttng/tracepoint-event.h>
