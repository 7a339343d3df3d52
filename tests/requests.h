/// What the proofs, the tests and the benchmarks ask the library for: requests that differ in what matters, and are
/// alike in all else.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "zel_core_term/zel_core_term.h"

namespace request {

struct udp_add {
    uint32_t id = 0;
    zel_core_term_udp_session_cfg_t cfg{};
    uint32_t uplink_pcep = 1, downlink_pcep = 2, rat_session = 5;
    uint8_t dscp = 46, session_type_flag = 0;

    uint32_t operator()() const
    {
        return zel_core_term_udp_session_add(id, &cfg, uplink_pcep, downlink_pcep, rat_session, dscp,
                                             session_type_flag);
    }
};

struct connection_add {
    uint32_t id = 0;
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    uint32_t control_connection_id = 0, pcep = 0, rat_session = 0;
    uint8_t dscp = 0, session_type_flag = 0;

    uint32_t operator()() const
    {
        auto mine = cfg;
        return zel_core_term_l2tp_control_connection_add(id, &mine, control_connection_id, pcep, rat_session, dscp,
                                                         session_type_flag);
    }
};

/// Four bytes at the end of what can be read.
inline uint8_t *last_four_bytes()
{
    static uint8_t *const end = [] {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void *const two = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        auto *const second = static_cast<uint8_t *>(two) + page;
        mprotect(second, page, PROT_NONE);
        return second;
    }();
    return end - 4;
}

struct connection_modify {
    uint32_t id = 0;
    std::vector<uint32_t> sessions{};
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    uint32_t pcep = 0, rat_session = 0;
    uint8_t dscp = 0, old_dscp = 0;
    std::array<uint8_t, 4> old_remote_addr{};
    uint8_t session_type_flag = 0;

    /// @param written the caller's configuration, as the library leaves it
    uint32_t operator()(zel_core_term_l2tp_control_connection_cfg_t &written) const
    {
        written = cfg;
        auto ids = sessions;
        uint8_t *const old = last_four_bytes();
        std::memcpy(old, old_remote_addr.data(), old_remote_addr.size());
        return zel_core_term_l2tp_control_connection_modify(id, ids.data(), static_cast<uint32_t>(ids.size()), &written,
                                                            pcep, rat_session, dscp, old_dscp, old, session_type_flag);
    }
};

struct session_add {
    uint8_t dscp = 0, crc = 0;
    uint32_t pcep = 0, rat_session = 0, local_session_id = 0, connection = 0, id = 0;
    uint8_t session_type_flag = 0;

    uint32_t operator()() const
    {
        return zel_core_term_l2tp_session_add(dscp, crc, pcep, rat_session, local_session_id, connection, id,
                                              session_type_flag);
    }
};

inline constexpr uint32_t pcep = 3, rat_session = 11; ///< of the control connections

inline udp_add udp(uint32_t id, uint8_t ip_version, uint8_t session_type_flag = 0)
{
    udp_add r{.id = id, .session_type_flag = session_type_flag};
    r.cfg.ip_version = ip_version;
    std::memcpy(r.cfg.local_addr, "\x20\x01\x0d\xb8 the local one", 16);
    std::memcpy(r.cfg.remote_addr, "\x20\x01\x0d\xb8 a remote one", 16);
    r.cfg.local_port = 2152;
    r.cfg.remote_port = static_cast<uint16_t>(40000 + id);
    r.cfg.pmtu = 1500;
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

inline connection_add connect(uint32_t id, uint8_t peer, uint8_t session_type_flag = 0)
{
    return {id, to_peer(peer), 1000 + id, pcep, rat_session, 48, session_type_flag};
}

inline session_add session_of(uint32_t connection, uint32_t id, uint8_t session_type_flag = 0)
{
    return {46, 0, 5, 6, 50000 + id, connection, id, session_type_flag};
}

/// Of a connection that was added for peer 1.
inline connection_modify move(uint32_t id, uint8_t peer, std::vector<uint32_t> sessions, uint8_t session_type_flag = 0)
{
    connection_modify r{.id = id, .sessions = std::move(sessions), .cfg = to_peer(peer), .pcep = pcep};
    r.rat_session = rat_session;
    r.dscp = 40;
    r.old_dscp = 48;
    std::memcpy(r.old_remote_addr.data(), to_peer(1).remote_addr, 4);
    r.session_type_flag = session_type_flag;
    return r;
}

} // namespace request
