/// The data plane's association records of a UDP session, made from its configuration.
#pragma once

#include "term/platform.h"
#include "zel_core_term/zel_udp_session.h"

namespace zel {

vok_ip_ingress_record ipv4_ingress_record(const zel_core_term_udp_session_cfg_t &cfg);
vok_ip_egress_record ipv4_egress_record(const zel_core_term_udp_session_cfg_t &cfg);
vok_ipv6_ingress_record ipv6_ingress_record(const zel_core_term_udp_session_cfg_t &cfg);

/// @param next_header UDP for a create, 0 for a modify
vok_ipv6_egress_record ipv6_egress_record(const zel_core_term_udp_session_cfg_t &cfg, u8 next_header);

/// IP protocol number
inline constexpr u8 protocol_udp = 17;

} // namespace zel
