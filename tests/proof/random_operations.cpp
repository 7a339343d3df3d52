#include "proof/random_operations.h"

#include <algorithm>
#include <cstring>

namespace proof {

random_operations::random_operations(world &w, choices &decisions) : world_(w), decisions_(decisions)
{
    const bool crowded = rarely(16); // as many connections and associations as there can be
    ids_ = crowded ? 49 : 2 + decisions_.below(5);
    peers_ = crowded ? 60 : 1 + decisions_.below(3);
    for (uint32_t id = 0; crowded && id < 48; ++id) {
        connection_add_request r{.id = id, .cfg = l2tp_cfg(), .control_connection_id = id};
        r.cfg.remote_addr[3] = static_cast<uint8_t>(1 + id);
        world_.connection_add(r);
    }
}

void random_operations::step()
{
    if (rarely(512))
        return restart();
    // Adds come oftener than what takes down, so that there is something to work on.
    switch (decisions_.below(32)) {
    case 0: world_.udp_modify_pmtu(udp_id(), decisions_.below(140'000)); return;
    case 1: world_.udp_modify_ttl(udp_id(), static_cast<uint8_t>(decisions_.below(256))); return;
    case 2: world_.udp_statistics_ipv4(udp_id()); return;
    case 3: world_.udp_statistics_ipv6(udp_id()); return;
    case 4: world_.udp_statistics_text(udp_id()); return;
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
    case 16: return session_unbind_part();
    case 17: return session_bind_part();
    case 18:
    case 19:
    case 20:
    case 21:
    case 22: return udp_add();
    case 23:
    case 24:
    case 25:
    case 26: return connection_add();
    default: return session_add();
    }
}

void random_operations::restart()
{
    if (rarely(2)) {
        world_.stop();
        for (uint32_t i = decisions_.below(4); i > 0; --i)
            step();
    }
    world_.start();
}

uint32_t random_operations::id_from(uint32_t first, uint32_t last)
{
    if (!rarely(16))
        return first + decisions_.below(std::min(ids_, last - first + 1));
    const uint32_t edges[] = {first - 1, first, last, last + 1, UINT32_MAX};
    return edges[decisions_.below(std::size(edges))];
}

uint32_t random_operations::up_to(uint32_t limit)
{
    if (!rarely(8))
        return decisions_.below(8);
    const uint32_t edges[] = {0, limit, limit + 1, UINT32_MAX};
    return edges[decisions_.below(rarely(4) ? 4 : 2)];
}

uint32_t random_operations::udp_id()
{
    return id_from(1, ZEL_CORE_TERM_UDP_SESSION_ID_MAX);
}

uint32_t random_operations::session_id()
{
    return id_from(ZEL_CORE_TERM_L2TP_SESSION_ID_MIN, ZEL_CORE_TERM_L2TP_SESSION_ID_MAX);
}

/// Mostly the connection that carries the session.
uint32_t random_operations::connection_of(uint32_t session)
{
    const auto s = world_.sessions().find(session);
    if (s != world_.sessions().end() && !rarely(8))
        for (const auto &[id, c] : world_.connections())
            if (s->second.sends_through.contains(c.egress))
                return id;
    return connection_id();
}

zel_core_term_udp_session_cfg_t random_operations::udp_cfg()
{
    zel_core_term_udp_session_cfg_t cfg;
    auto *const bytes = reinterpret_cast<uint8_t *>(&cfg);
    const auto any = static_cast<uint8_t>(decisions_.below(256));
    for (std::size_t i = 0; i < sizeof cfg; ++i)
        bytes[i] = static_cast<uint8_t>(any * (2 * i + 1)); // reserved bytes too
    cfg.ip_version = rarely(16) ? static_cast<uint8_t>(decisions_.below(256)) : rarely(2) ? 6 : 4;
    cfg.ttl = rarely(4) ? 0 : any;
    return cfg;
}

zel_core_term_l2tp_control_connection_cfg_t random_operations::l2tp_cfg()
{
    zel_core_term_l2tp_control_connection_cfg_t cfg{};
    std::memcpy(cfg.local_addr, "\xc0\x00\x02\x01", 4);
    std::memcpy(cfg.remote_addr, "\xc6\x33\x64", 3);
    cfg.remote_addr[3] = static_cast<uint8_t>(1 + decisions_.below(peers_));
    cfg.local_addr[3] = rarely(8) ? 2 : 1;
    cfg.vrf_id = rarely(8) ? 1 : 0;
    cfg.ttl = static_cast<uint8_t>(decisions_.below(256));
    return cfg;
}

void random_operations::udp_add()
{
    udp_add_request r{.id = udp_id(), .cfg = udp_cfg()};
    r.uplink_pcep = up_to(world_.limits().max_tn_pcep_id);
    r.downlink_pcep = up_to(world_.limits().max_tn_pcep_id);
    r.rat_session = up_to(world_.limits().max_rat_ovlin_session_id);
    r.dscp = dscp();
    r.session_type_flag = flag();
    world_.udp_add(r);
}

void random_operations::udp_release()
{
    const uint32_t id = udp_id();
    if (!rarely(8))
        world_.udp_disconnect(id);
    world_.udp_release(id);
}

void random_operations::connection_add()
{
    connection_add_request r{.id = connection_id(), .cfg = l2tp_cfg()};
    r.control_connection_id = decisions_.below(256);
    r.pcep = up_to(world_.limits().max_tn_pcep_id);
    r.rat_session = up_to(world_.limits().max_rat_ovlin_session_id);
    r.dscp = dscp();
    r.session_type_flag = flag();
    world_.connection_add(r);
}

void random_operations::connection_remove()
{
    const uint32_t id = connection_id();
    const auto c = world_.connections().find(id);
    if (c == world_.connections().end() || rarely(16))
        world_.connection_remove(id, decisions_.below(8), decisions_.below(8));
    else
        world_.connection_remove(id, c->second.pcep, c->second.rat_session);
}

void random_operations::connection_modify()
{
    connection_modify_request r{.id = connection_id(), .sessions = {}, .cfg = l2tp_cfg()};
    r.dscp = dscp();
    r.old_dscp = dscp();
    r.session_type_flag = flag();
    r.pcep = decisions_.below(8);
    const auto c = world_.connections().find(r.id);
    if (c != world_.connections().end()) {
        r.pcep = c->second.pcep;
        r.rat_session = c->second.rat_session;
        std::memcpy(r.old_remote_addr.data(), c->second.key.data() + 4, 4);
        for (const auto &[id, s] : world_.sessions())
            if (s.sends_through.contains(c->second.egress) && !rarely(16))
                r.sessions.push_back(id);
    }
    if (rarely(16))
        r.sessions.push_back(session_id());
    world_.connection_modify(r);
}

void random_operations::session_add()
{
    session_add_request r{.dscp = dscp(), .crc = flag()};
    r.pcep = up_to(world_.limits().max_tn_pcep_id);
    r.rat_session = up_to(world_.limits().max_rat_ovlin_session_id);
    r.local_session_id = decisions_.below(256);
    r.connection = connection_id();
    if (!world_.connections().contains(r.connection) && !rarely(4) && !world_.connections().empty())
        r.connection = world_.connections().begin()->first;
    r.id = session_id();
    r.session_type_flag = flag();
    if (world_.sessions().contains(r.id) && !rarely(4)) // an add that overwrites is the exception
        session_remove(r.id);
    world_.session_add(r);
}

void random_operations::session_remove(uint32_t id)
{
    world_.session_remove(connection_of(id), id);
}

void random_operations::session_unbind_part()
{
    const uint32_t id = session_id();
    world_.session_unbind_part(connection_of(id), id);
}

void random_operations::session_bind_part()
{
    const uint32_t id = session_id();
    world_.session_bind_part(connection_of(id), id, up_to(world_.limits().max_tn_pcep_id), flag());
}

} // namespace proof
