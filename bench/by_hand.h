/// The floor: what the operations of the library do to the data plane, written by hand. Records are built in place and
/// the tick counter is read around each call, but there is no table, no check and no trace.
///
/// `slot` says where a session's or connection's handles are kept, as its caller would keep them; ids are as the
/// library's operations take them. A call that fails is undone as the library does it, with the same calls.
#pragma once

#include <cstdint>

#include "zel_core_term/zel_core_term.h"

namespace by_hand {

constexpr std::uint32_t slot_count = 64;

using udp_cfg = zel_core_term_udp_session_cfg_t;
using connection_cfg = zel_core_term_l2tp_control_connection_cfg_t;

/// The ovlin ids that an operation is told besides its own.
struct ovlin_ids {
    std::uint32_t pcep, rat_session;
};

// ---- UDP sessions

void udp_add(std::uint32_t slot, std::uint32_t id, const udp_cfg &cfg, ovlin_ids ids, std::uint8_t dscp);
void udp_modify(std::uint32_t slot, const udp_cfg &cfg);
void udp_disconnect(std::uint32_t slot, std::uint32_t id, const udp_cfg &cfg, ovlin_ids ids);
void udp_release(std::uint32_t slot, const udp_cfg &cfg);
void udp_stats(std::uint32_t slot, zel_udp_session_ipv4_stats_t &stats);
void udp_stats(std::uint32_t slot, zel_udp_session_ipv6_stats_t &stats);
/// With the formatters' calls.
void udp_formatted_stats(std::uint32_t slot, char *text, std::uint32_t text_size);

// ---- L2TPv3 control connections

/// @param shared the associations are there already and need no call of their own
void connection_add(std::uint32_t slot, std::uint32_t id, const connection_cfg &cfg, std::uint32_t connection_id,
                    ovlin_ids ids, std::uint8_t dscp, bool shared);
void connection_remove(std::uint32_t slot, std::uint32_t id, ovlin_ids ids, bool shared);
/// Moves a connection that shares nothing and the sessions in `session_slots` slots from `first_session_slot` on.
void connection_modify(std::uint32_t slot, std::uint32_t id, const connection_cfg &cfg, ovlin_ids ids,
                       std::uint8_t dscp, const std::uint8_t *old_remote_addr, std::uint32_t first_session_slot,
                       std::uint32_t session_slots);

// ---- L2TPv3 sessions

void session_add(std::uint32_t slot, std::uint32_t id, std::uint32_t local_session_id, ovlin_ids ids,
                 std::uint8_t dscp);
void session_remove(std::uint32_t slot, std::uint32_t id, ovlin_ids ids);
void session_unbind(std::uint32_t slot);
void session_bind(std::uint32_t slot, std::uint8_t dscp);

} // namespace by_hand
