/// The tracepoint objects of both providers, for programs that put probes of their own on all of them.
#pragma once

#include "tn_zel_init.h"
#include "tn_zel_term.h"

using tracepoint_object = struct lttng_ust_tracepoint; // the plain name is a macro too

#define TN_ZEL_OBJECT(provider, event, level) &lttng_ust_tracepoint_##provider##___##event,
inline const tracepoint_object *const tracepoints[] = {TN_ZEL_INIT_EVENTS(TN_ZEL_OBJECT)
                                                           TN_ZEL_TERM_EVENTS(TN_ZEL_OBJECT)};
#undef TN_ZEL_OBJECT
