/**
 * @file
 * The whole interface of libzel-core-term, for C11 and C++20.
 *
 * Include it as `#include <zel_core_term/zel_core_term.h>` and build with the flags that
 * `pkg-config --cflags --libs zel-core-term` prints. Its parts:
 *
 * - zel_term.h: start and stop, time and tracing
 * - zel_udp_session.h: UDP sessions
 * - zel_l2tp_control_connection.h: L2TPv3 control connections
 * - zel_l2tp_session.h: the sessions that they carry
 * - zel_ovlin_session_handler.h: the session handler's entry points
 * - zel_term_api.h: the result codes
 *
 * Each function, data object and record has a manual page of its own name, which says what state each result leaves.
 *
 * Addresses are in network byte order; all other integers, in records and arguments, are in the machine's. An ovlin
 * flow ID is 12 bits of PCEP id and 20 bits of ovlin session id. "Must be valid" means that the pointer is not checked.
 */
#ifndef ZEL_CORE_TERM_ZEL_CORE_TERM_H
#define ZEL_CORE_TERM_ZEL_CORE_TERM_H

#include "zel_l2tp_control_connection.h"
#include "zel_l2tp_session.h"
#include "zel_ovlin_session_handler.h"
#include "zel_term.h"
#include "zel_udp_session.h"

#endif
