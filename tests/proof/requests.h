/// Requests that differ in what the proofs are about, and are alike in all else.
#pragma once

#include <cstring>
#include <utility>
#include <vector>

#include "proof/world.h"

namespace proof {

inline constexpr uint32_t pcep = 3, rat_session = 11;

inline udp_add_request udp(uint32_t id, uint8_t ip_version, uint8_t session_type_flag = 0)
{
    udp_add_request r{.id = id, .cfg = {}, .uplink_pcep = 1, .downlink_pcep = 2, .rat_session = 5};
    r.cfg.ip_version = ip_version;
    std::memcpy(r.cfg.local_addr, "\x20\x01\x0d\xb8 the local one", 16);
    std::memcpy(r.cfg.remote_addr, "\x20\x01\x0d\xb8 a remote one", 16);
    r.cfg.local_port = 2152;
    r.cfg.remote_port = static_cast<uint16_t>(40000 + id);
    r.cfg.pmtu = 1500;
    r.dscp = 46;
    r.session_type_flag = session_type_flag;
    return r;
}

inline zel_core_term_l2tp_control_connection_cfg_t to_peer(uint8_t peer)
{
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    std::memcpy(cfg.local_addr, "\xc0\x00\x02\x01", 4);
    std::memcpy(cfg.remote_addr, "\xc6\x33\x64", 3);
    cfg.remote_addr[3] = peer;
    cfg.ttl = 64;
    return cfg;
}

inline connection_add_request connect(uint32_t id, uint8_t peer, uint8_t session_type_flag = 0)
{
    return {id, to_peer(peer), 1000 + id, pcep, rat_session, 48, session_type_flag};
}

inline session_add_request session_of(uint32_t connection, uint32_t id, uint8_t session_type_flag = 0)
{
    return {46, 0, 5, 6, 50000 + id, connection, id, session_type_flag};
}

inline connection_modify_request move(uint32_t id, uint8_t peer, std::vector<uint32_t> sessions,
                                      uint8_t session_type_flag = 0)
{
    connection_modify_request r{.id = id, .sessions = std::move(sessions), .cfg = to_peer(peer), .pcep = pcep};
    r.rat_session = rat_session;
    r.dscp = 40;
    r.old_dscp = 48;
    std::memcpy(r.old_remote_addr.data(), to_peer(1).remote_addr, 4);
    r.session_type_flag = session_type_flag;
    return r;
}

} // namespace proof
