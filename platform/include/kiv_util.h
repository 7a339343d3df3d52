/**
 * @file
 * The utility library, as far as the termination component uses it.
 */
#ifndef KIV_UTIL_H
#define KIV_UTIL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The text of a result code.
 *
 * @param result_code any value
 * @return a constant NUL-terminated text, never NULL
 */
const char *kiv_util_init_rc_str_get(uint32_t result_code);

#ifdef __cplusplus
}
#endif

#endif
