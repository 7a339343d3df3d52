/// What a control program has to remember of what it asked the library for, because the library does not keep it.
#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "zel_core_term/zel_l2tp_control_connection.h"

struct ledger {
    /// What a control connection was added with, or moved to.
    struct connection {
        zel_core_term_l2tp_control_connection_cfg_t cfg;
        std::uint32_t pcep, rat_session;
        std::uint8_t dscp, session_type;
    };

    std::set<std::uint32_t> udp_sessions; ///< the ids in use
    std::map<std::uint32_t, connection> connections;
    std::map<std::uint32_t, std::uint32_t> l2tp_sessions; ///< by id: the control connection that carries it
};
