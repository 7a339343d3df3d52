/**
 * @file
 * The whole interface of libzel-core-term, for C11 and C++20.
 */
#ifndef ZEL_CORE_TERM_ZEL_CORE_TERM_H
#define ZEL_CORE_TERM_ZEL_CORE_TERM_H

#include "zel_l2tp_control_connection.h"
#include "zel_l2tp_session.h"
#include "zel_ovlin_session_handler.h"
#include "zel_term.h"
#include "zel_udp_session.h"

#endif
