/// Operations with valid, edge and invalid arguments, as a source of decisions has them.
#pragma once

#include "proof/world.h"

namespace proof {

class random_operations {
public:
    random_operations(world &w, choices &decisions);

    /// One operation, and what it needs before it.
    void step();

private:
    /// Mostly one of the first few, so that operations meet.
    uint32_t id_from(uint32_t first, uint32_t last);
    bool rarely(uint32_t once_in) { return decisions_.below(once_in) == once_in - 1; }
    uint32_t up_to(uint32_t limit);
    uint8_t dscp() { return static_cast<uint8_t>(decisions_.below(rarely(16) ? 256 : 64)); }
    uint8_t flag() { return rarely(4) ? static_cast<uint8_t>(1 + decisions_.below(255)) : 0; }

    uint32_t udp_id();
    uint32_t connection_id() { return id_from(0, ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX); }
    uint32_t session_id();
    uint32_t connection_of(uint32_t session);
    zel_core_term_udp_session_cfg_t udp_cfg();
    zel_core_term_l2tp_control_connection_cfg_t l2tp_cfg();

    void restart();
    void udp_add();
    void udp_release();
    void connection_add();
    void connection_remove();
    void connection_modify();
    void session_add();
    void session_remove(uint32_t id);
    void session_unbind_part();
    void session_bind_part();

    world &world_;
    choices &decisions_;
    uint32_t ids_;   ///< how many are in use at most, apart from the edges
    uint32_t peers_; ///< how many remote addresses there are for connections
};

} // namespace proof
