/**
 * @file
 * The statistics formatters: readable text of the data plane's association counters.
 *
 * A text is made by any number of record formatters, each of which appends to what stands in the buffer,
 * and one zel_fmt_end(). The buffer must hold a NUL-terminated text, the empty one at first. Nothing is
 * written past its size and it stays NUL-terminated; what does not fit is cut.
 */
#ifndef ZEL_FMT_H
#define ZEL_FMT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Appends one association's counters.
 *
 * @param buf        the text so far
 * @param buf_size   bytes of the whole buffer, its NUL included
 * @param fmt_option 0: one line; 1: a heading and each field with its name on a line of its own
 * @param record     the statistics record of that kind of association
 * @return 0; 2 when a pointer is NULL; 20 when the buffer holds no terminated text or the option is unknown
 */
uint32_t zel_fmt_ipv4_ingress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record);
uint32_t zel_fmt_ipv4_egress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record);
uint32_t zel_fmt_ipv6_ingress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record);
uint32_t zel_fmt_ipv6_egress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record);

/**
 * Closes the text with an empty line.
 *
 * @return 0; 2 when `buf` is NULL; 20 when the buffer holds no terminated text; 21 when the text was cut
 */
uint32_t zel_fmt_end(char *buf, uint32_t buf_size);

#ifdef __cplusplus
}
#endif

#endif
