/// What a control program has to remember of what it asked the library for, because the library does not keep it or does
/// not show it.
#pragma once

#include <cstdint>
#include <map>

#include "zel_core_term/zel_l2tp_control_connection.h"

struct ledger {
    struct udp_session {
        std::uint64_t ingress_handle, egress_handle; ///< of its associations
    };

    /// What a control connection was added with, or moved to.
    struct connection {
        zel_core_term_l2tp_control_connection_cfg_t cfg;
        std::uint32_t pcep, rat_session;
        std::uint8_t dscp, session_type;
    };

    std::map<std::uint32_t, udp_session> udp_sessions; ///< by id: those in use
    std::map<std::uint32_t, connection> connections;
    std::map<std::uint32_t, std::uint32_t> l2tp_sessions; ///< by id: the control connection that carries it
};
