/*
 * What callers declare who know the functions but not this interface's headers; it must agree with them, in C and in
 * C++. The last four have the parameters that their callers give them.
 */
#include <zel_core_term/zel_core_term.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t zel_core_term_clock_freq_get(uint64_t *);
const char *zel_trace_internal_format_str(const char *, const char *, const char *, ...);
const char *zel_trace_internal_vformat_str(const char *, const char *, const char *, va_list);
uint32_t zel_core_term_udp_session_free_id_get(uint32_t *);
uint32_t zel_core_term_udp_session_cfg_get(uint32_t, zel_core_term_udp_session_cfg_t *);
uint32_t zel_core_term_udp_session_add(uint32_t, const zel_core_term_udp_session_cfg_t *, uint32_t, uint32_t, uint32_t,
                                       uint8_t, bool);
uint32_t zel_core_term_udp_session_modify_pmtu(uint32_t, uint32_t);
uint32_t zel_core_term_udp_session_modify_ttl(uint32_t, uint8_t);
uint32_t zel_udp_session_get_stats(uint32_t, zel_udp_session_ipv4_stats_t *);
uint32_t zel_ipv6_udp_session_get_stats(uint32_t, zel_udp_session_ipv6_stats_t *);
uint32_t zel_core_term_udp_session_fmt_stats_get(uint32_t, char *, uint32_t, uint8_t);
uint32_t zel_core_term_l2tp_control_connection_add(uint32_t, zel_core_term_l2tp_control_connection_cfg_t *, uint32_t,
                                                   uint32_t, uint32_t, uint8_t, uint8_t);
uint32_t zel_core_term_l2tp_control_connection_modify(uint32_t, uint32_t *, uint32_t,
                                                      zel_core_term_l2tp_control_connection_cfg_t *, uint32_t, uint32_t,
                                                      uint8_t, uint8_t, uint8_t *, uint8_t);
uint32_t zel_core_term_l2tp_session_add(uint8_t, uint8_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint8_t);
uint32_t zel_l2tp_session_modify_bind_part(uint32_t, uint32_t, uint32_t, uint8_t);
uint32_t zel_ovlin_session_handler_set_session_type(uint64_t, uint32_t, uint32_t);

uint32_t zel_ovlin_session_handler_5gc_session_enable(uint32_t, const void *);
uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping(uint8_t, uint8_t);
uint32_t zel_ovlin_session_handler_5gc_qfi_dscp_mapping_remove(void);
uint32_t zel_ovlin_5gc_session_stats_get(uint64_t *);

#ifdef __cplusplus
}
#endif
