/// What a control program has to remember about its requests, because the library does not keep it or does not show it.
#pragma once

#include <cstdint>
#include <map>
#include <unordered_map>

#include "zel_core_term/zel_l2tp_control_connection.h"

/// The UDP sessions in use, with the handles of their associations.
class known_udp_sessions {
public:
    struct handles {
        std::uint64_t ingress = 0, egress = 0;
    };

    void add(std::uint32_t id, const handles &of_it)
    {
        remove(id);
        by_id_[id] = of_it;
        for (const std::uint64_t handle : {of_it.ingress, of_it.egress})
            if (handle != 0)
                by_handle_[handle] = id;
    }

    void remove(std::uint32_t id)
    {
        const auto found = by_id_.find(id);
        if (found == by_id_.end())
            return;
        by_handle_.erase(found->second.ingress);
        by_handle_.erase(found->second.egress);
        by_id_.erase(found);
    }

    const std::map<std::uint32_t, handles> &all() const { return by_id_; }

    /// The session that has the handle, or 0.
    std::uint32_t with(std::uint64_t handle) const
    {
        const auto found = by_handle_.find(handle);
        return found != by_handle_.end() ? found->second : 0;
    }

private:
    std::map<std::uint32_t, handles> by_id_;
    std::unordered_map<std::uint64_t, std::uint32_t> by_handle_;
};

struct ledger {
    /// What a control connection was added with, or moved to.
    struct connection {
        zel_core_term_l2tp_control_connection_cfg_t cfg;
        std::uint32_t pcep, rat_session;
        std::uint8_t dscp, session_type;
    };

    known_udp_sessions udp_sessions;
    std::map<std::uint32_t, connection> connections;
    std::map<std::uint32_t, std::uint32_t> l2tp_sessions; ///< by id: the control connection that carries it
};
