#include "zel_fmt.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "vok_cp.h"

enum { success = 0, null_argument = 2, bad_argument = 20, text_cut = 21 };

/* A text that was cut fills its buffer to the last byte, so nothing can follow it, not even the end. */
static __attribute__((format(printf, 3, 4))) uint32_t append(char *buf, uint32_t buf_size, const char *format, ...)
{
    va_list args;
    size_t used;
    int wanted;

    if (buf == NULL)
        return null_argument;
    used = strnlen(buf, buf_size);
    if (used == buf_size)
        return bad_argument;
    va_start(args, format);
    wanted = vsnprintf(buf + used, buf_size - used, format, args);
    va_end(args);
    return wanted >= 0 && (size_t)wanted < buf_size - used ? success : text_cut;
}

static uint32_t append_counters(char *buf, uint32_t buf_size, uint8_t fmt_option, const char *association,
                                uint64_t packets, const uint64_t *octets)
{
    static const char *const formats[][2] = {
        {"%s: %" PRIu64 " packets\n", "%s: %" PRIu64 " packets, %" PRIu64 " octets\n"},
        {"%s\n  packets: %" PRIu64 "\n", "%s\n  packets: %" PRIu64 "\n  octets: %" PRIu64 "\n"},
    };
    uint32_t outcome;

    if (fmt_option >= sizeof formats / sizeof formats[0])
        return bad_argument;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (octets == NULL)
        outcome = append(buf, buf_size, formats[fmt_option][0], association, packets);
    else
        outcome = append(buf, buf_size, formats[fmt_option][1], association, packets, *octets);
#pragma GCC diagnostic pop
    return outcome == text_cut ? success : outcome; /* reported by zel_fmt_end() */
}

static uint32_t append_ipv4(char *buf, uint32_t buf_size, uint8_t fmt_option, const char *association,
                            const vok_ip_association_stats *stats)
{
    if (stats == NULL)
        return null_argument;
    return append_counters(buf, buf_size, fmt_option, association, stats->packets, &stats->octets);
}

uint32_t zel_fmt_ipv4_ingress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record)
{
    return append_ipv4(buf, buf_size, fmt_option, "IPv4 ingress", record);
}

uint32_t zel_fmt_ipv4_egress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record)
{
    return append_ipv4(buf, buf_size, fmt_option, "IPv4 egress", record);
}

uint32_t zel_fmt_ipv6_ingress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record)
{
    const vok_ipv6_ingress_association_stats *stats = record;
    uint64_t octets;

    if (stats == NULL)
        return null_argument;
    octets = stats->octets;
    return append_counters(buf, buf_size, fmt_option, "IPv6 ingress", stats->packets, &octets);
}

uint32_t zel_fmt_ipv6_egress_assoc_stats(char *buf, uint32_t buf_size, uint8_t fmt_option, const void *record)
{
    const vok_ipv6_egress_association_stats *stats = record;

    if (stats == NULL)
        return null_argument;
    return append_counters(buf, buf_size, fmt_option, "IPv6 egress", stats->packets, NULL);
}

uint32_t zel_fmt_end(char *buf, uint32_t buf_size)
{
    return append(buf, buf_size, "\n");
}
