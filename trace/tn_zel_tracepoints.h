/// The tracepoint objects of both providers, for programs that put probes of their own on all of them.
#pragma once

#include "tn_zel_init.h"
#include "tn_zel_term.h"

using tracepoint_object = struct lttng_ust_tracepoint; // the plain name is a macro too

inline const tracepoint_object *const tracepoints[] = {
    &lttng_ust_tracepoint_tn_zel_init___EXCEPTION, &lttng_ust_tracepoint_tn_zel_term___API_CALL,
    &lttng_ust_tracepoint_tn_zel_term___ERROR,     &lttng_ust_tracepoint_tn_zel_term___EXCEPTION,
    &lttng_ust_tracepoint_tn_zel_term___FN_ENTER,  &lttng_ust_tracepoint_tn_zel_term___FN_EXIT,
    &lttng_ust_tracepoint_tn_zel_term___LAB,
};
