/* The tracepoint objects and the probes of provider tn_zel_term. */
#define LTTNG_UST_TRACEPOINT_DEFINE
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#include "tn_zel_term.h"
