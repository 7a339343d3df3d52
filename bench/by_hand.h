/// The floor: what operations of the library do to the data plane, written by hand. Records are built in place and the
/// tick counter is read around each call, but there is no table, no check and no trace.
///
/// `slot` says where a session's or connection's handles are kept, as its caller would keep them; ids are as the
/// library's operations take them. The first call that fails ends an operation, but for connections: a failed add
/// removes what it made, and a failed modify goes back to the old configuration.
#pragma once

#include <cstdint>

#include "zel_core_term/zel_core_term.h"

namespace by_hand {

constexpr std::uint32_t slot_count = 64;

/// The ovlin ids that an operation is told besides its own.
struct ovlin_ids {
    std::uint32_t pcep, rat_session;
};

bool udp_add(std::uint32_t slot, std::uint32_t id, const zel_core_term_udp_session_cfg_t &cfg, ovlin_ids ids,
             std::uint8_t dscp);
bool udp_release(std::uint32_t slot, const zel_core_term_udp_session_cfg_t &cfg);

/// @param shared the associations are there already and need no call of their own
bool connection_add(std::uint32_t slot, std::uint32_t id, const zel_core_term_l2tp_control_connection_cfg_t &cfg,
                    std::uint32_t connection_id, ovlin_ids ids, std::uint8_t dscp, bool shared);

bool connection_remove(std::uint32_t slot, std::uint32_t id, ovlin_ids ids, bool shared);

/// Moves a connection whose associations nothing shares, with the sessions in the slots from `first_session` on.
bool connection_modify(std::uint32_t slot, std::uint32_t id, const zel_core_term_l2tp_control_connection_cfg_t &cfg,
                       const zel_core_term_l2tp_control_connection_cfg_t &old_cfg, ovlin_ids ids, std::uint8_t dscp,
                       std::uint32_t first_session, std::uint32_t session_count);

bool session_add(std::uint32_t slot, std::uint32_t id, std::uint32_t local_session_id, ovlin_ids ids,
                 std::uint8_t dscp);
bool session_remove(std::uint32_t slot, std::uint32_t id, ovlin_ids ids);

} // namespace by_hand
