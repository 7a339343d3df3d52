#include "proof/random_operations.h"

#include <algorithm>
#include <cstring>

namespace proof {
namespace {

class random_world {
public:
    random_world(choices &decisions, tally *counts) : decisions_(decisions), world_(decisions)
    {
        world_.counts = counts;
        const bool crowded = rarely(16); // as many connections and associations as there can be
        ids_ = crowded ? 49 : 2 + decisions_.below(5);
        peers_ = crowded ? 60 : 1 + decisions_.below(3);
        for (uint32_t id = 0; crowded && id < 48; ++id) {
            auto cfg = l2tp_cfg();
            cfg.remote_addr[3] = static_cast<uint8_t>(1 + id);
            world_.connection_add({id, cfg, id});
        }
    }

    void step()
    {
        if (rarely(512))
            return restart();
        // Adds come oftener than what takes down, so that there is something to work on.
        switch (decisions_.below(32)) {
        case 0: world_.udp_modify(attribute::pmtu, udp_id(), decisions_.below(140'000)); return;
        case 1: world_.udp_modify(attribute::ttl, udp_id(), byte()); return;
        case 2: world_.udp_statistics(statistics::ipv4, udp_id()); return;
        case 3: world_.udp_statistics(statistics::ipv6, udp_id()); return;
        case 4: world_.udp_statistics(statistics::text, udp_id()); return;
        case 5:
        case 6: world_.udp_disconnect(udp_id()); return;
        case 7:
        case 8: return udp_release();
        case 9:
        case 10: return connection_remove();
        case 11:
        case 12:
        case 13: return connection_modify();
        case 14:
        case 15: return session_remove(session_id());
        case 16: return session_unbind_part(session_id());
        case 17: return session_bind_part(session_id());
        case 18:
        case 19:
        case 20:
        case 21:
        case 22: world_.udp_add({udp_id(), udp_cfg(), pcep(), pcep(), rat_session(), dscp(), flag()}); return;
        case 23:
        case 24:
        case 25:
        case 26:
            world_.connection_add({connection_id(), l2tp_cfg(), byte(), pcep(), rat_session(), dscp(), flag()});
            return;
        default: return session_add();
        }
    }

private:
    // ---- Arguments

    bool rarely(uint32_t once_in) { return decisions_.below(once_in) == once_in - 1; }
    uint8_t byte() { return static_cast<uint8_t>(decisions_.below(256)); }
    uint8_t dscp() { return static_cast<uint8_t>(decisions_.below(rarely(16) ? 256 : 64)); }
    uint8_t flag() { return rarely(4) ? static_cast<uint8_t>(1 + decisions_.below(255)) : 0; }
    uint32_t pcep() { return up_to(world_.limits().max_tn_pcep_id); }
    uint32_t rat_session() { return up_to(world_.limits().max_rat_ovlin_session_id); }
    uint32_t udp_id() { return id_from(1, ZEL_CORE_TERM_UDP_SESSION_ID_MAX); }
    uint32_t connection_id() { return id_from(0, ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX); }
    uint32_t session_id() { return id_from(ZEL_CORE_TERM_L2TP_SESSION_ID_MIN, ZEL_CORE_TERM_L2TP_SESSION_ID_MAX); }

    uint32_t up_to(uint32_t limit)
    {
        if (!rarely(8))
            return decisions_.below(8);
        const uint32_t edges[] = {0, limit, limit + 1, UINT32_MAX};
        return edges[decisions_.below(rarely(4) ? 4 : 2)];
    }

    /// Mostly one of the first few, so that operations meet.
    uint32_t id_from(uint32_t first, uint32_t last)
    {
        if (!rarely(16))
            return first + decisions_.below(std::min(ids_, last - first + 1));
        const uint32_t edges[] = {first - 1, first, last, last + 1, UINT32_MAX};
        return edges[decisions_.below(std::size(edges))];
    }

    /// Mostly the connection that carries the session.
    uint32_t connection_of(uint32_t session)
    {
        const auto s = world_.sessions().find(session);
        if (s != world_.sessions().end() && !rarely(8))
            for (const auto &[id, c] : world_.connections())
                if (s->second.sends_through.contains(c.egress))
                    return id;
        return connection_id();
    }

    zel_core_term_udp_session_cfg_t udp_cfg()
    {
        zel_core_term_udp_session_cfg_t cfg;
        auto *const bytes = reinterpret_cast<uint8_t *>(&cfg);
        const uint8_t any = byte();
        for (std::size_t i = 0; i < sizeof cfg; ++i)
            bytes[i] = static_cast<uint8_t>(any * (2 * i + 1)); // reserved bytes too
        cfg.ip_version = rarely(16) ? byte() : rarely(2) ? 6 : 4;
        cfg.ttl = rarely(4) ? 0 : any;
        return cfg;
    }

    zel_core_term_l2tp_control_connection_cfg_t l2tp_cfg()
    {
        auto cfg = request::to_peer(static_cast<uint8_t>(1 + decisions_.below(peers_)));
        cfg.local_addr[3] = rarely(8) ? 2 : 1;
        cfg.vrf_id = rarely(8) ? 1 : 0;
        cfg.ttl = byte();
        return cfg;
    }

    // ---- Operations

    void restart()
    {
        if (rarely(2)) {
            world_.stop();
            for (uint32_t i = decisions_.below(4); i > 0; --i)
                step();
        }
        world_.start();
    }

    void udp_release()
    {
        const uint32_t id = udp_id();
        if (!rarely(8))
            world_.udp_disconnect(id);
        world_.udp_release(id);
    }

    void connection_remove()
    {
        const uint32_t id = connection_id();
        const auto c = world_.connections().find(id);
        if (c == world_.connections().end() || rarely(16))
            world_.connection_remove(id, decisions_.below(8), decisions_.below(8));
        else
            world_.connection_remove(id, c->second.added.pcep, c->second.added.rat_session);
    }

    void connection_modify()
    {
        request::connection_modify r{.id = connection_id(), .cfg = l2tp_cfg()};
        r.dscp = dscp();
        r.old_dscp = dscp();
        r.session_type_flag = flag();
        r.pcep = decisions_.below(8);
        const auto c = world_.connections().find(r.id);
        if (c != world_.connections().end()) {
            r.pcep = c->second.added.pcep;
            r.rat_session = c->second.added.rat_session;
            std::memcpy(r.old_remote_addr.data(), c->second.added.cfg.remote_addr, 4);
            for (const auto &[id, s] : world_.sessions())
                if (s.sends_through.contains(c->second.egress) && !rarely(16))
                    r.sessions.push_back(id);
        }
        if (rarely(16))
            r.sessions.push_back(session_id());
        world_.connection_modify(r);
    }

    void session_add()
    {
        request::session_add r{dscp(), flag(), pcep(), rat_session(), byte(), connection_id()};
        if (!world_.connections().contains(r.connection) && !rarely(4) && !world_.connections().empty())
            r.connection = world_.connections().begin()->first;
        r.id = session_id();
        r.session_type_flag = flag();
        if (world_.sessions().contains(r.id) && !rarely(4)) // an add that overwrites is the exception
            session_remove(r.id);
        world_.session_add(r);
    }

    void session_remove(uint32_t id) { world_.session_remove(connection_of(id), id); }
    void session_unbind_part(uint32_t id) { world_.session_unbind_part(connection_of(id), id); }
    void session_bind_part(uint32_t id) { world_.session_bind_part(connection_of(id), id, pcep(), flag()); }

    choices &decisions_;
    world world_;
    uint32_t ids_;   ///< how many are in use at most, apart from the edges
    uint32_t peers_; ///< how many remote addresses there are for connections
};

} // namespace

void random_operations(choices &decisions, tally *counts, const std::function<bool()> &is_next_step)
{
    random_world world(decisions, counts);
    while (is_next_step())
        world.step();
}

} // namespace proof
