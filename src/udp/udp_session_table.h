/// The table of UDP sessions.
#pragma once

#include <cstring>

#include "udp/id_set.h"
#include "zel_core_term/zel_udp_session.h"

namespace zel {

/// A session, or all zero when its id is free.
struct udp_session_entry {
    u32 udp_session_id; ///< its own index while in use, the only sign of use
    u32 ul_flow_id;     ///< set by the uplink bind, and kept until the entry is freed
    u32 dl_flow_id;     ///< set by the downlink bind, and kept until the entry is freed
    u32 reserved_0c;
    u64 ingress_flow_handle; ///< written by the data plane's create
    u64 egress_flow_handle;
    zel_core_term_udp_session_cfg_t cfg;

    bool in_use() const { return udp_session_id != 0; }
};
static_assert(sizeof(udp_session_entry) == 88);

/// One entry for each id from 0 to 70,000 (0 is never used), and the set of ids in use.
class udp_session_entries {
public:
    static constexpr u32 last_id = ZEL_CORE_TERM_UDP_SESSION_ID_MAX;

    static constexpr bool is_valid(u32 id) { return id - 1 < last_id; }

    /// `id` must be valid.
    udp_session_entry &operator[](u32 id) { return entries_[id]; }

    /// Takes a free entry for a session that is being built.
    void take(u32 id, const zel_core_term_udp_session_cfg_t &cfg)
    {
        entries_[id].udp_session_id = id;
        entries_[id].cfg = cfg;
        used_.insert(id - 1);
    }

    /// Frees an entry, whatever it holds.
    void free(u32 id)
    {
        entries_[id] = {};
        used_.erase(id - 1);
    }

    /// Frees all entries; unused ones are already zero and are not touched.
    void free_all()
    {
        used_.take_all([this](u32 number, u32 count) {
            std::memset(&entries_[number + 1], 0, count * sizeof(udp_session_entry));
        });
    }

    /// `last_id` + 1 when all are in use.
    u32 lowest_free() const { return used_.lowest_missing() + 1; }

private:
    udp_session_entry entries_[last_id + 1];
    id_set<last_id> used_;
};

} // namespace zel
