/*
 * Provider tn_zel_init: rejected arguments and failed steps, with the result code's text. One fires an event
 * as lttng_ust_tracepoint(tn_zel_init, EXCEPTION, location, category, message).
 */
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER tn_zel_init

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "tn_zel_init.h"

#if !defined(TN_ZEL_INIT_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define TN_ZEL_INIT_H

#include <lttng/tracepoint.h>

#include "tn_zel_events.h"

ZEL_TRACE_PAYLOAD_CLASS(tn_zel_init)
TN_ZEL_INIT_EVENTS(ZEL_TRACE_EVENT)

#endif

#include <lttng/tracepoint-event.h>
