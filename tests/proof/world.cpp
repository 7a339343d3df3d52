#include "proof/world.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>
#include <tuple>

#include "zel_core_ic.h"

namespace proof {
namespace {

constexpr uint32_t udp = VOK_SESSION_TYPE_UDP, l2tp = VOK_SESSION_TYPE_L2TP;

constexpr uint32_t flow_id(uint32_t pcep, uint32_t session)
{
    return (pcep << 20) | (session & 0xFFFFF);
}

binding from_flow(uint64_t flow, uint32_t ovlin_flow)
{
    return {VOK_BIND_F2ID, VOK_EGRESS, flow, 0, 0, ovlin_flow};
}

binding to_flow(uint32_t ovlin_flow, uint64_t flow)
{
    return {VOK_BIND_ID2F, VOK_EGRESS, 0, ovlin_flow, flow, 0};
}

binding to_interface(uint64_t association, uint64_t interface)
{
    return {VOK_BIND_F2F, VOK_INGRESS, association, 0, interface, 0};
}

binding to_association(uint64_t flow, uint64_t association)
{
    return {VOK_BIND_F2F, VOK_EGRESS, flow, 0, association, 0};
}

/// The association of a UDP session in one direction.
object udp_association(const zel_core_term_udp_session_cfg_t &cfg, bool egress)
{
    const bool ipv4 = cfg.ip_version == 4;
    object o{.ip_version = cfg.ip_version, .protocol = 17};
    o.kind = ipv4     ? egress ? VOK_CP_SIM_IPV4_EGRESS : VOK_CP_SIM_IPV4_INGRESS
             : egress ? VOK_CP_SIM_IPV6_EGRESS
                      : VOK_CP_SIM_IPV6_INGRESS;
    o.rules_mask = ipv4 ? egress ? 0x6E : 0xFC : egress ? 0 : 0x672;
    o.vrf_id = cfg.vrf_id;
    o.src_port = egress ? cfg.local_port : cfg.remote_port;
    o.dst_port = egress ? cfg.remote_port : cfg.local_port;
    std::memcpy(o.src_addr.data(), egress ? cfg.local_addr : cfg.remote_addr, ipv4 ? 4 : 16);
    std::memcpy(o.dst_addr.data(), egress ? cfg.remote_addr : cfg.local_addr, ipv4 ? 4 : 16);
    if (egress)
        o.ttl = ipv4 || cfg.ttl != 0 ? cfg.ttl : 128;
    if (egress && !ipv4)
        o.path_mtu = cfg.pmtu & 0xFFFF;
    return o;
}

association_key key_of(const zel_core_term_l2tp_control_connection_cfg_t &cfg)
{
    association_key key;
    std::memcpy(key.data(), cfg.local_addr, 4);
    std::memcpy(key.data() + 4, cfg.remote_addr, 4);
    std::memcpy(key.data() + 8, &cfg.vrf_id, 4);
    return key;
}

object l2tp_association(const connection &c, bool egress)
{
    object o{.kind = egress ? VOK_CP_SIM_IPV4_EGRESS : VOK_CP_SIM_IPV4_INGRESS, .ip_version = 4, .protocol = 115};
    o.rules_mask = egress ? 0x0e : 0x9c;
    std::memcpy(o.src_addr.data(), c.key.data() + (egress ? 0 : 4), 4);
    std::memcpy(o.dst_addr.data(), c.key.data() + (egress ? 4 : 0), 4);
    std::memcpy(&o.vrf_id, c.key.data() + 8, 4);
    o.ttl = egress ? c.ttl : 0;
    return o;
}

/// What a failed call makes of the operation that stops at it.
uint32_t code_of(const call &failed)
{
    if (failed.operation == session_type_hook)
        return failed.status;
    return ZEL_CORE_TERM_DATA_PLANE_FAILED;
}

} // namespace

// ---- The frame of an operation

world::world(choices &decisions) : plane_(decisions)
{
    l2tp_control_ingress_interface = 0;
    zel_core_ic_ovlin_capabilities_get(&limits_);
    start();
}

world::~world()
{
    zel_core_term_stop();
    l2tp_control_ingress_interface = 0;
}

void world::begin(std::string_view name, std::initializer_list<uint64_t> arguments)
{
    running_ = name;
    plane_.calls.clear();
    std::string text(name);
    for (const uint64_t argument : arguments)
        text += ' ' + std::to_string(argument);
    history_.push_back(std::move(text));
    if (history_.size() > 20)
        history_.pop_front();
    if (compare)
        before_ = wanted();
}

void world::violated(const std::string &what) const
{
    std::string text = what + "\nafter";
    for (const std::string &operation : history_)
        text += "\n  " + operation;
    text += "\nwhose last one called";
    for (const call &c : calls())
        text += "\n  " + c.text();
    throw std::runtime_error(text);
}

void world::require(bool condition, const char *what) const
{
    if (!condition)
        violated(what);
}

void world::require(bool condition, const char *what, uint64_t which) const
{
    if (!condition)
        violated(what + (" " + std::to_string(which)));
}

/// The end of an operation that makes no call, as of one that refuses its arguments.
uint32_t world::rejected(uint32_t result, uint32_t expected)
{
    require(calls().empty(), "an operation calls that must not");
    return end(result, expected, {});
}

uint32_t world::end(uint32_t result, uint32_t expected, tolerated allowed)
{
    history_.back() += " = " + std::to_string(result);
    if (counts != nullptr)
        ++(*counts)[running_][result];
    require(result == expected, "the result is not", expected);
    require(plane_.violation.empty(), plane_.violation.c_str());
    unsettle();
    excuse_leftovers(allowed);
    if (compare) {
        explain_refusals(allowed);
        compare_data_plane();
        compare_tables();
        compare_udp_queries();
    }
    settle();
    return result;
}

/// The first thing that failed decides the result of whatever stops at a failure.
world::first_failure world::failure() const
{
    for (const call &c : calls())
        if (c.failed())
            return {code_of(c), c.operation == session_type_hook};
    return {0, false};
}

/// The last object of that kind that a create made and gave; 0: none.
uint64_t world::made(vok_cp_sim_kind_t kind) const
{
    uint64_t handle = 0;
    for (const call &c : calls())
        if (c.made(kind) && !c.failed())
            handle = c.handle;
    return handle;
}

void world::expect_hook(bool called, uint32_t pcep, uint32_t session_type) const
{
    for (const call &c : calls())
        if (c.operation == session_type_hook)
            require(called && c.handle == VOK_CP_SIM_OVLIN_FLOW_TYPE && c.pcep_id == pcep &&
                        c.session_type == session_type,
                    "the session-type hook is called with something else, or for no one");
    const auto binds_egress = [](const call &c) {
        return c.operation == "vok_bind" && c.binding.direction == VOK_EGRESS && c.binding.kind != VOK_BIND_F2ID;
    };
    for (std::size_t i = 0; called && i < calls().size(); ++i) {
        const bool hook_accepts = calls()[i].operation == session_type_hook && !calls()[i].failed();
        require(hook_accepts == (i + 1 < calls().size() && binds_egress(calls()[i + 1])),
                "a bind without the session-type hook before it, or a call of the hook without a bind");
    }
}

void world::excuse_leftovers(tolerated allowed)
{
    for (const call &c : calls()) {
        if (c.is("interface_add") && c.took_effect)
            interface_ = c.handle;
        if (!c.failed() || (c.refused() && c.status != VOK_CP_SIM_OBJECT_IN_USE))
            continue;
        if (c.operation == "vok_unbind" || (c.operation == "vok_bind" && c.took_effect && allowed.binds))
            excused_bindings_.insert(c.binding);
        else if (c.is("_delete") || (c.is("attr_modify") && c.took_effect) ||
                 (allowed.associations && (c.made(VOK_CP_SIM_IPV4_INGRESS) || c.made(VOK_CP_SIM_IPV4_EGRESS))))
            excused_objects_.insert(c.handle);
    }
}

/// Whether it was there before the operation's call of that number.
bool world::is_there(const binding &b, std::size_t call_number) const
{
    bool there = std::ranges::any_of(before_.bindings, [&](const auto &held) { return held.first == b; });
    for (const call &c : std::span(calls()).first(call_number))
        if (c.took_effect && c.binding == b)
            there = c.operation == "vok_bind";
    return there;
}

bool world::is_there(uint64_t handle, std::size_t call_number) const
{
    bool there = std::ranges::any_of(before_.objects, [&](const auto &held) { return held.first == handle; });
    for (const call &c : std::span(calls()).first(call_number))
        if (c.took_effect && c.handle == handle && (c.is("_create") || c.is("_add") || c.is("_delete")))
            there = !c.is("_delete");
    return there;
}

/// The data plane refuses only what the operation cannot know better, and no delete is tried of what is bound by a
/// binding that the library could have removed.
void world::explain_refusals(tolerated allowed) const
{
    for (std::size_t i = 0; i < calls().size(); ++i) {
        const call &c = calls()[i];
        const auto is_missing = [&](uint64_t handle) {
            return handle == 0 ? allowed.no_handle : !is_there(handle, i) || allowed.wrong_kind;
        };
        const bool uncertain = uncertain_bindings_.contains(c.binding);
        switch (c.refused() ? c.status : 0) {
        case VOK_CP_SIM_UNKNOWN_HANDLE:
            require(std::ranges::any_of(c.passed, is_missing), "a handle is refused that should be good");
            break;
        case VOK_CP_SIM_NO_SUCH_BINDING:
            require(!is_there(c.binding, i) || uncertain, "an unbind is refused of what should be bound");
            break;
        case VOK_CP_SIM_DUPLICATE_BINDING:
            require(is_there(c.binding, i) || uncertain, "a bind is refused of what should not be bound");
            break;
        case VOK_CP_SIM_DSCP_TOO_LARGE: require(allowed.large_dscp, "a DSCP is refused"); break;
        default: break;
        }
        for (const binding &b : c.used_by)
            require(excused_bindings_.contains(b) || settled_bindings_.contains(b) || uncertain_bindings_.contains(b),
                    "a delete of what a binding still uses that could be removed");
    }
}

/// What a call changed is as it must be again.
void world::unsettle()
{
    for (const call &c : calls()) {
        if (c.took_effect && (c.operation == "vok_bind" || c.operation == "vok_unbind"))
            settled_bindings_.erase(c.binding);
        if (c.took_effect && (c.is("_delete") || c.is("attr_modify")))
            settled_objects_.erase(c.handle);
    }
}

/// What is excused is settled as it is found.
void world::settle()
{
    if (excused_objects_.empty() && excused_bindings_.empty())
        return;
    const holdings found = watched_data_plane::held();
    const auto settle_all = [](auto &excused, const auto &all, auto &settled) {
        for (const auto &key : excused) {
            const auto at = std::ranges::find(all, key, [](const auto &held) { return held.first; });
            settled[key] = at != all.end() ? std::optional(at->second) : std::nullopt;
        }
        excused.clear();
    };
    settle_all(excused_objects_, found.objects, settled_objects_);
    settle_all(excused_bindings_, found.bindings, settled_bindings_);
}

// ---- What must be there

holdings world::wanted() const
{
    std::map<uint64_t, object> objects;
    std::map<binding, binding_traits> bindings;
    const auto bind = [&](const binding &b, uint32_t session_type, int dscp) {
        bindings.emplace(b, binding_traits{session_type, dscp});
    };
    if (interface_ != 0)
        objects[interface_].kind = VOK_CP_SIM_L2TPV3_INTERFACE;
    for (const auto &[id, s] : udp_sessions_) {
        objects[s.ingress] = udp_association(s.cfg, false);
        objects[s.egress] = udp_association(s.cfg, true);
        if (s.uplink_bound)
            bind(to_flow(s.uplink_flow, s.egress), udp, s.dscp);
        if (s.downlink_bound)
            bind(from_flow(s.ingress, s.downlink_flow), udp, -1);
    }
    for (const auto &[id, c] : connections_) {
        if (objects.emplace(c.ingress, l2tp_association(c, false)).second)
            bind(to_interface(c.ingress, interface_), l2tp, -1);
        objects.emplace(c.egress, l2tp_association(c, true));
        if (c.flow != 0) {
            object &flow = objects[c.flow];
            flow = {.kind = VOK_CP_SIM_L2TPV3_INGRESS_FLOW, .flow_type = VOK_L2TPV3_CONTROL_CONNECTION};
            flow.l2tp_connection_id = c.control_connection_id;
            bind(from_flow(c.flow, flow_id(c.pcep, c.rat_session)), l2tp, -1);
        }
        if (c.sends)
            bind(to_flow(flow_id(c.pcep, id), c.egress), l2tp, c.dscp);
    }
    for (const auto &[id, s] : sessions_) {
        object &ingress = objects[s.entry.ingress_flow_handle];
        ingress = {.kind = VOK_CP_SIM_L2TPV3_INGRESS_FLOW, .flow_type = s.flow_type};
        ingress.l2tp_session_id = s.local_session_id;
        if (s.entry.egress_flow_handle != 0)
            objects[s.entry.egress_flow_handle] = {.kind = VOK_CP_SIM_L2TPV3_EGRESS_FLOW, .flow_type = s.flow_type};
        bind(from_flow(s.entry.ingress_flow_handle, s.entry.dst_flow_id), l2tp, -1);
        if (s.sends)
            bind(to_flow(s.entry.src_flow_id, s.entry.egress_flow_handle), l2tp, s.dscp);
        for (const uint64_t association : s.sends_through)
            bind(to_association(s.entry.egress_flow_handle, association), l2tp, s.entry.dscp);
    }
    const auto apply = [](const auto &settled, auto &all) {
        for (const auto &[key, found] : settled) {
            if (found)
                all[key] = *found;
            else
                all.erase(key);
        }
    };
    apply(settled_objects_, objects);
    apply(settled_bindings_, bindings);
    return {{objects.begin(), objects.end()}, {bindings.begin(), bindings.end()}};
}

void world::compare_data_plane() const
{
    const auto compare_all = [this](const auto &must_be, const auto &is, const auto &excused, const std::string &what) {
        auto m = must_be.begin();
        auto i = is.begin();
        while (m != must_be.end() || i != is.end()) {
            const bool missing = i == is.end() || (m != must_be.end() && m->first < i->first);
            const bool extra = m == must_be.end() || (i != is.end() && i->first < m->first);
            const auto &key = missing ? m->first : i->first;
            if ((missing || extra || m->second != i->second) && !excused.contains(key))
                violated(what + to_text(key) + (missing ? " is missing" : extra ? " is too many" : " is another"));
            m += !extra;
            i += !missing;
        }
    };
    std::set<binding> excused_bindings = excused_bindings_;
    excused_bindings.insert(uncertain_bindings_.begin(), uncertain_bindings_.end());
    const holdings must_be = wanted(), is = watched_data_plane::held();
    compare_all(must_be.objects, is.objects, excused_objects_, "the data plane's object ");
    compare_all(must_be.bindings, is.bindings, excused_bindings, "the data plane's binding ");
}

void world::compare_tables() const
{
    l2tp_control_entry control[std::size(l2tp_control_table)] = {};
    for (const auto &[id, c] : connections_)
        control[id] = {0, c.flow, c.ingress, c.egress};
    for (std::size_t i = 0; i < std::size(control); ++i)
        require(std::memcmp(&control[i], &l2tp_control_table[i], sizeof control[i]) == 0,
                "another entry of l2tp_control_table", i);
    l2tp_session_entry table[std::size(l2tp_session_table)] = {};
    for (const auto &[id, s] : sessions_)
        table[id - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN] = s.entry;
    for (std::size_t i = 0; i < std::size(table); ++i)
        require(std::memcmp(&table[i], &l2tp_session_table[i], sizeof table[i]) == 0,
                "another entry of l2tp_session_table", i);
    require(l2tp_control_ingress_interface == interface_, "the ingress interface is another");
    static const zel_handles_t no_handles{};
    require(started_ != (std::memcmp(zel_getHandles(), &no_handles, sizeof no_handles) == 0),
            "the handle block is filled, or is not");
    require(zel_handles == (started_ ? zel_getHandles() : nullptr), "zel_handles is another");
}

void world::compare_udp_queries() const
{
    uint32_t lowest_free = 1, found = 0;
    for (auto s = udp_sessions_.begin(); s != udp_sessions_.end() && s->first == lowest_free; ++s)
        ++lowest_free;
    require(zel_core_term_udp_session_free_id_get(&found) == 0 && found == lowest_free, "another id is free");
    for (const uint32_t id : udp_ids_seen_) {
        const auto s = udp_sessions_.find(id);
        zel_core_term_udp_session_cfg_t cfg;
        const uint32_t result = zel_core_term_udp_session_cfg_get(id, &cfg);
        require(result == (s == udp_sessions_.end() ? udp_rejection(id) : 0),
                "the configuration query answers otherwise for session", id);
        require(result != 0 || std::memcmp(&cfg, &s->second.cfg, sizeof cfg) == 0, "another configuration of session",
                id);
    }
}

// ---- Start and stop

/// What was there stays in the data plane, and nothing of it may be touched any more but the ingress interface.
void world::forget_everything()
{
    const holdings left = watched_data_plane::held();
    for (const auto &[handle, o] : left.objects)
        excused_objects_.insert(handle);
    for (const auto &[b, traits] : left.bindings)
        excused_bindings_.insert(b);
    excused_objects_.erase(interface_);
    plane_.forget_handles_but(interface_);
    udp_sessions_.clear();
    connections_.clear();
    sessions_.clear();
}

uint32_t world::start()
{
    begin("start", {});
    const uint32_t result = zel_core_term_start();
    started_ = true;
    forget_everything();
    return rejected(result, 0);
}

uint32_t world::stop()
{
    begin("stop", {});
    const uint32_t result = zel_core_term_stop();
    started_ = false;
    forget_everything();
    return rejected(result, 0);
}

// ---- UDP sessions

uint32_t world::udp_rejection(uint32_t id) const
{
    if (id == 0 || id > ZEL_CORE_TERM_UDP_SESSION_ID_MAX)
        return ZEL_CORE_TERM_OUT_OF_RANGE;
    return udp_sessions_.contains(id) ? 0 : ZEL_CORE_TERM_SESSION_FREE;
}

uint32_t world::udp_add(const udp_add_request &r)
{
    begin("udp_add",
          {r.id, r.cfg.ip_version, r.uplink_pcep, r.downlink_pcep, r.rat_session, r.dscp, r.session_type_flag});
    udp_ids_seen_.insert(r.id);
    const uint32_t result = zel_core_term_udp_session_add(r.id, &r.cfg, r.uplink_pcep, r.downlink_pcep, r.rat_session,
                                                          r.dscp, r.session_type_flag);
    const uint32_t rejection = udp_rejection(r.id) == 0                            ? ZEL_CORE_TERM_SESSION_IN_USE
                               : udp_rejection(r.id) == ZEL_CORE_TERM_OUT_OF_RANGE ? ZEL_CORE_TERM_OUT_OF_RANGE
                               : r.rat_session > limits_.max_rat_ovlin_session_id  ? ZEL_CORE_TERM_OUT_OF_RANGE
                               : std::max(r.uplink_pcep, r.downlink_pcep) > limits_.max_tn_pcep_id
                                   ? ZEL_CORE_TERM_OUT_OF_RANGE
                               : r.cfg.ip_version != 4 && r.cfg.ip_version != 6 ? ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION
                               : !started_                                      ? ZEL_CORE_TERM_DATA_PLANE_FAILED
                                                                                : 0;
    if (rejection != 0)
        return rejected(result, rejection);
    expect_hook(r.session_type_flag != 0, r.uplink_pcep, udp);
    const first_failure failed = failure();
    if (failed.result == 0 || failed.is_hooks(3) || failed.is_hooks(5)) {
        udp_session s{.cfg = r.cfg, .dscp = r.dscp};
        s.uplink_flow = flow_id(r.uplink_pcep, r.id);
        s.downlink_flow = flow_id(r.downlink_pcep, r.rat_session);
        s.ingress = made(r.cfg.ip_version == 4 ? VOK_CP_SIM_IPV4_INGRESS : VOK_CP_SIM_IPV6_INGRESS);
        s.egress = made(r.cfg.ip_version == 4 ? VOK_CP_SIM_IPV4_EGRESS : VOK_CP_SIM_IPV6_EGRESS);
        s.uplink_bound = s.downlink_bound = failed.result == 0;
        udp_sessions_[r.id] = s;
    }
    return end(result, failed.result, {.large_dscp = r.dscp > 63});
}

template <typename Value>
uint32_t world::udp_modify(uint32_t result, uint32_t id, Value zel_core_term_udp_session_cfg_t::*attribute, Value value)
{
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(result, rejection);
    udp_session &s = udp_sessions_.at(id);
    if (s.cfg.ip_version != 6)
        return rejected(result, ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION);
    if (failure().result == 0)
        s.cfg.*attribute = value;
    return end(result, failure().result, {});
}

uint32_t world::udp_modify_pmtu(uint32_t id, uint32_t pmtu)
{
    begin("udp_modify_pmtu", {id, pmtu});
    return udp_modify(zel_core_term_udp_session_modify_pmtu(id, pmtu), id, &zel_core_term_udp_session_cfg_t::pmtu,
                      pmtu);
}

uint32_t world::udp_modify_ttl(uint32_t id, uint8_t ttl)
{
    begin("udp_modify_ttl", {id, ttl});
    return udp_modify(zel_core_term_udp_session_modify_ttl(id, ttl), id, &zel_core_term_udp_session_cfg_t::ttl, ttl);
}

uint32_t world::udp_disconnect(uint32_t id)
{
    begin("udp_disconnect", {id});
    const uint32_t result = zel_core_term_udp_session_disconnect(id);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(result, rejection);
    udp_session &s = udp_sessions_.at(id);
    s.uplink_bound = s.uplink_bound && s.uplink_flow == 0; // a flow of 0 counts as not bound
    s.downlink_bound = s.downlink_bound && s.downlink_flow == 0;
    return end(result, 0, {});
}

uint32_t world::udp_release(uint32_t id)
{
    begin("udp_release", {id});
    const uint32_t result = zel_core_term_udp_session_release(id);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(result, rejection);
    const udp_session &s = udp_sessions_.at(id);
    if (s.uplink_bound) // a release removes no binding
        excused_bindings_.insert(to_flow(s.uplink_flow, s.egress));
    if (s.downlink_bound)
        excused_bindings_.insert(from_flow(s.ingress, s.downlink_flow));
    udp_sessions_.erase(id);
    return end(result, 0, {});
}

uint32_t world::udp_statistics(uint32_t result, uint32_t id, int ip_version)
{
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(result, rejection);
    return end(result, failure().result,
               {.wrong_kind = ip_version != 0 && ip_version != udp_sessions_.at(id).cfg.ip_version});
}

uint32_t world::udp_statistics_ipv4(uint32_t id)
{
    begin("udp_statistics_ipv4", {id});
    zel_udp_session_ipv4_stats_t stats;
    return udp_statistics(zel_udp_session_get_stats(id, &stats), id, 4);
}

uint32_t world::udp_statistics_ipv6(uint32_t id)
{
    begin("udp_statistics_ipv6", {id});
    zel_udp_session_ipv6_stats_t stats;
    return udp_statistics(zel_ipv6_udp_session_get_stats(id, &stats), id, 6);
}

uint32_t world::udp_statistics_text(uint32_t id)
{
    begin("udp_statistics_text", {id});
    char text[200];
    return udp_statistics(zel_core_term_udp_session_fmt_stats_get(id, text, sizeof text, 0), id, 0);
}

// ---- L2TP control connections

uint32_t world::l2tp_rejection(uint32_t connection) const
{
    return connection > ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX ? ZEL_CORE_TERM_OUT_OF_RANGE
           : !started_                                               ? ZEL_CORE_TERM_DATA_PLANE_FAILED
                                                                     : 0;
}

/// A connection with that key, other than `but`, or null.
const connection *world::sharing(const association_key &key, uint32_t but) const
{
    for (const auto &[id, c] : connections_)
        if (id != but && c.key == key)
            return &c;
    return nullptr;
}

/// Whether the connections other than `but` use as many associations each way as there can be.
bool world::associations_full(uint32_t but) const
{
    std::set<association_key> keys;
    for (const auto &[id, c] : connections_)
        if (id != but)
            keys.insert(c.key);
    return keys.size() == 48;
}

/// Shared with another connection, or made by this operation.
void world::take_associations(connection &c, uint32_t id, uint8_t ttl)
{
    const connection *const other = sharing(c.key, id);
    c.ingress = other != nullptr ? other->ingress : made(VOK_CP_SIM_IPV4_INGRESS);
    c.egress = other != nullptr ? other->egress : made(VOK_CP_SIM_IPV4_EGRESS);
    c.ttl = other != nullptr ? other->ttl : ttl;
}

uint32_t world::connection_add(const connection_add_request &r)
{
    const association_key key = key_of(r.cfg);
    begin("connection_add", {r.id, key[7], key[8], r.cfg.ttl, r.control_connection_id, r.pcep, r.rat_session, r.dscp,
                             r.session_type_flag});
    auto cfg = r.cfg;
    const uint32_t result = zel_core_term_l2tp_control_connection_add(r.id, &cfg, r.control_connection_id, r.pcep,
                                                                      r.rat_session, r.dscp, r.session_type_flag);
    if (r.rat_session > limits_.max_rat_ovlin_session_id || r.pcep > limits_.max_tn_pcep_id)
        return rejected(result, ZEL_CORE_TERM_OUT_OF_RANGE);
    if (const uint32_t rejection = l2tp_rejection(r.id))
        return rejected(result, rejection);
    if (connections_.contains(r.id))
        return rejected(result, ZEL_CORE_TERM_SESSION_IN_USE);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    const connection *const other = sharing(key, r.id);
    first_failure failed = failure();
    if (other == nullptr && associations_full(r.id))
        failed = {ZEL_CORE_TERM_DATA_PLANE_FAILED, false};
    if (failed.result == 0 || failed.is_hooks(3)) {
        connection c{.key = key, .control_connection_id = r.control_connection_id, .pcep = r.pcep};
        take_associations(c, r.id, r.cfg.ttl);
        c.rat_session = r.rat_session;
        c.dscp = r.dscp;
        c.flow = made(VOK_CP_SIM_L2TPV3_INGRESS_FLOW);
        c.sends = failed.result == 0;
        connections_[r.id] = c;
    } else if (other != nullptr && calls().front().is("flow_create") && calls().front().failed()) {
        uncertain_bindings_.insert(to_interface(other->ingress, interface_)); // it loses one request for that
    }
    return end(result, failed.result, {.binds = false, .associations = true, .large_dscp = r.dscp > 63});
}

/// Sessions that still send through a connection's egress association keep it from being deleted with its last user.
void world::strand_sessions(const connection &c, uint32_t id, const std::vector<uint32_t> &leaving)
{
    if (sharing(c.key, id) != nullptr)
        return;
    for (const auto &[session_id, s] : sessions_)
        if (s.sends_through.contains(c.egress) && std::ranges::find(leaving, session_id) == leaving.end())
            excused_bindings_.insert(to_association(s.entry.egress_flow_handle, c.egress));
}

void world::forget_connection(uint32_t id, uint32_t pcep, uint32_t rat_session, const std::vector<uint32_t> &leaving)
{
    const auto found = connections_.find(id);
    if (found == connections_.end())
        return;
    const connection c = found->second;
    strand_sessions(c, id, leaving);
    if (pcep != c.pcep || rat_session != c.rat_session) // other bindings are asked for
        excused_bindings_.insert(from_flow(c.flow, flow_id(c.pcep, c.rat_session)));
    if (pcep != c.pcep)
        excused_bindings_.insert(to_flow(flow_id(c.pcep, id), c.egress));
    connections_.erase(found);
}

uint32_t world::connection_remove(uint32_t id, uint32_t pcep, uint32_t rat_session)
{
    begin("connection_remove", {id, pcep, rat_session});
    const uint32_t result = zel_core_term_l2tp_control_connection_rem(id, pcep, rat_session);
    if (l2tp_rejection(id) != 0)
        return rejected(result, 0);
    const tolerated allowed{.no_handle = !connections_.contains(id) || connections_.at(id).flow == 0};
    forget_connection(id, pcep, rat_session, {});
    return end(result, 0, allowed);
}

/// In turn: the sessions are unbound, the connection is set up anew, once more in the old place if that failed, and the
/// sessions are bound. What fails for good decides.
world::modify_end world::expected_modify_end(const connection_modify_request &r, const association_key &old_key) const
{
    std::size_t at = 0;
    for (const uint32_t id : r.sessions) {
        if (const uint32_t rejection = session_rejection(r.id, id))
            return {rejection, false};
        require(at < calls().size() && calls()[at].operation == "vok_unbind", "a session is not unbound");
        if (calls()[at++].failed())
            return {ZEL_CORE_TERM_DATA_PLANE_FAILED, false};
    }
    // With no room for a new association an attempt ends with the first create, whether that fails or not.
    const bool full = associations_full(r.id);
    const bool no_room = full && sharing(key_of(r.cfg), r.id) == nullptr;
    const bool no_old_room = full && sharing(old_key, r.id) == nullptr;
    bool fell_back = false, connected = false;
    for (; at < calls().size(); ++at) {
        const call &c = calls()[at];
        const bool ends_attempt = no_room && !fell_back && c.is("_create");
        if (ends_attempt || (c.failed() && c.operation != "vok_unbind" && !c.is("_delete"))) {
            if (fell_back || connected)
                return {code_of(c), fell_back};
            fell_back = true;
            if (no_old_room)
                return {ZEL_CORE_TERM_DATA_PLANE_FAILED, true};
        }
        connected = connected || (c.operation == "vok_bind" && c.binding.kind == VOK_BIND_ID2F && !c.failed());
    }
    return {fell_back ? ZEL_CORE_TERM_FELL_BACK : ZEL_CORE_TERM_SUCCESS, fell_back};
}

uint32_t world::connection_modify(const connection_modify_request &r)
{
    begin("connection_modify", {r.id, r.cfg.remote_addr[3], r.pcep, r.rat_session, r.dscp, r.old_dscp,
                                r.old_remote_addr[3], r.session_type_flag});
    for (const uint32_t id : r.sessions)
        history_.back() += ", " + std::to_string(id);
    auto [cfg, sessions, old_remote_addr] = std::tuple(r.cfg, r.sessions, r.old_remote_addr);
    const uint32_t result = zel_core_term_l2tp_control_connection_modify(
        r.id, sessions.data(), static_cast<uint32_t>(r.sessions.size()), &cfg, r.pcep, r.rat_session, r.dscp,
        r.old_dscp, old_remote_addr.data(), r.session_type_flag);
    if (const uint32_t rejection = l2tp_rejection(r.id))
        return rejected(result, rejection);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    zel_core_term_l2tp_control_connection_cfg_t old_place = r.cfg;
    std::memcpy(old_place.remote_addr, r.old_remote_addr.data(), 4);
    const modify_end expected = expected_modify_end(r, key_of(old_place));
    const auto &in_force = expected.fell_back ? old_place : r.cfg;
    require(std::memcmp(&cfg, &in_force, sizeof cfg) == 0, "the caller's configuration is not the one tried last");

    tolerated allowed{.binds = false, .associations = true};
    allowed.large_dscp = r.dscp > 63 || r.old_dscp > 63;
    // A connection that is not there, or no more after a failure, has no handles; nor has a session that is not there.
    allowed.no_handle = !connections_.contains(r.id) || connections_.at(r.id).flow == 0 ||
                        (expected.result != ZEL_CORE_TERM_SUCCESS) ||
                        std::ranges::any_of(r.sessions, [this](uint32_t id) { return !has_flows(id); });
    // The hook's refusals are other codes than these.
    if (expected.result == ZEL_CORE_TERM_SUCCESS || expected.result == ZEL_CORE_TERM_FELL_BACK) {
        const auto before = connections_.find(r.id);
        connection c{};
        if (before != connections_.end()) {
            c = before->second;
            strand_sessions(c, r.id, r.sessions);
        }
        const uint64_t old_egress = c.egress;
        c.key = key_of(in_force);
        c.dscp = expected.fell_back ? r.old_dscp : r.dscp;
        c.sends = true;
        c.pcep = r.pcep;
        c.rat_session = r.rat_session;
        take_associations(c, r.id, in_force.ttl);
        connections_[r.id] = c;
        for (const uint32_t id : r.sessions) {
            sessions_.at(id).sends_through.erase(old_egress);
            sessions_.at(id).sends_through.insert(c.egress);
        }
    } else {
        for (const uint32_t id : r.sessions)
            forget_session(r.id, id);
        forget_connection(r.id, r.pcep, r.rat_session, {});
    }
    return end(result, expected.result, allowed);
}

// ---- L2TP sessions

uint64_t world::egress_of(uint32_t connection) const
{
    const auto found = connections_.find(connection);
    return found != connections_.end() ? found->second.egress : 0;
}

/// Whether the session is there with both of its flows.
bool world::has_flows(uint32_t id) const
{
    const auto found = sessions_.find(id);
    return found != sessions_.end() && found->second.entry.egress_flow_handle != 0;
}

uint32_t world::session_rejection(uint32_t connection, uint32_t id) const
{
    if (connection <= ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX &&
        (id < ZEL_CORE_TERM_L2TP_SESSION_ID_MIN || id > ZEL_CORE_TERM_L2TP_SESSION_ID_MAX))
        return ZEL_CORE_TERM_OUT_OF_RANGE;
    return l2tp_rejection(connection);
}

void world::excuse_session(const session &s)
{
    const l2tp_session_entry &e = s.entry;
    excused_objects_.insert({e.ingress_flow_handle, e.egress_flow_handle});
    excused_bindings_.insert(
        {from_flow(e.ingress_flow_handle, e.dst_flow_id), to_flow(e.src_flow_id, e.egress_flow_handle)});
    for (const uint64_t association : s.sends_through)
        excused_bindings_.insert(to_association(e.egress_flow_handle, association));
}

/// Removed by way of a connection, which must be the one that it sends through.
void world::forget_session(uint32_t connection, uint32_t id)
{
    const auto found = sessions_.find(id);
    if (found == sessions_.end())
        return;
    for (const uint64_t association : found->second.sends_through)
        if (association != egress_of(connection))
            excused_bindings_.insert(to_association(found->second.entry.egress_flow_handle, association));
    sessions_.erase(found);
}

uint32_t world::session_add(const session_add_request &r)
{
    begin("session_add",
          {r.dscp, r.crc, r.pcep, r.rat_session, r.local_session_id, r.connection, r.id, r.session_type_flag});
    const uint32_t result = zel_core_term_l2tp_session_add(r.dscp, r.crc, r.pcep, r.rat_session, r.local_session_id,
                                                           r.connection, r.id, r.session_type_flag);
    if (std::max({r.rat_session, r.connection, r.id}) > limits_.max_rat_ovlin_session_id ||
        r.pcep > limits_.max_tn_pcep_id)
        return rejected(result, ZEL_CORE_TERM_OUT_OF_RANGE);
    if (const uint32_t rejection = session_rejection(r.connection, r.id))
        return rejected(result, rejection);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    const tolerated allowed{.binds = false,
                            .no_handle = interface_ == 0 || egress_of(r.connection) == 0 || sessions_.contains(r.id),
                            .large_dscp = r.dscp > 63};
    const first_failure failed = failure();
    session s{
        .dscp = r.dscp, .flow_type = r.crc != 0 ? uint8_t{1} : uint8_t{2}, .local_session_id = r.local_session_id};
    if (const auto overwritten = sessions_.find(r.id); overwritten != sessions_.end()) {
        excuse_session(overwritten->second);
        s.entry = overwritten->second.entry;
        sessions_.erase(overwritten);
    }
    s.entry.dst_flow_id = flow_id(r.pcep, r.rat_session);
    s.entry.ingress_flow_handle = made(VOK_CP_SIM_L2TPV3_INGRESS_FLOW);
    s.entry.egress_flow_handle = made(VOK_CP_SIM_L2TPV3_EGRESS_FLOW);
    s.sends = std::ranges::any_of(calls(),
                                  [](const call &c) { return c.binding.is(VOK_BIND_ID2F, VOK_EGRESS) && !c.failed(); });
    if (s.sends)
        s.entry.src_flow_id = flow_id(r.pcep, r.id);
    if (failed.result == 0) {
        s.entry.dscp = r.dscp;
        s.sends_through = {egress_of(r.connection)};
        sessions_[r.id] = s;
    } else if (failed.is_hooks(3)) {
        sessions_[r.id] = s;
    } else if (s.entry.dst_flow_id == 0) { // counts as not bound
        excused_bindings_.insert(from_flow(s.entry.ingress_flow_handle, 0));
    }
    return end(result, failed.result, allowed);
}

uint32_t world::session_remove(uint32_t connection, uint32_t id)
{
    begin("session_remove", {connection, id});
    const uint32_t result = zel_core_term_l2tp_session_rem(connection, id);
    if (session_rejection(connection, id) != 0)
        return rejected(result, 0);
    const tolerated allowed{.no_handle = !has_flows(id) || egress_of(connection) == 0};
    forget_session(connection, id);
    return end(result, 0, allowed);
}

uint32_t world::session_unbind_part(uint32_t connection, uint32_t id)
{
    begin("session_unbind_part", {connection, id});
    const uint32_t result = zel_l2tp_session_modify_unbind_part(connection, id);
    if (const uint32_t rejection = session_rejection(connection, id))
        return rejected(result, rejection);
    if (failure().result == 0)
        sessions_.at(id).sends_through.erase(egress_of(connection));
    return end(result, failure().result, {.no_handle = !has_flows(id) || egress_of(connection) == 0});
}

uint32_t world::session_bind_part(uint32_t connection, uint32_t id, uint32_t pcep, uint8_t session_type_flag)
{
    begin("session_bind_part", {connection, id, pcep, session_type_flag});
    const uint32_t result = zel_l2tp_session_modify_bind_part(connection, id, pcep, session_type_flag);
    if (const uint32_t rejection = session_rejection(connection, id))
        return rejected(result, rejection);
    expect_hook(session_type_flag != 0, pcep, l2tp);
    if (failure().result == 0)
        sessions_.at(id).sends_through.insert(egress_of(connection));
    return end(result, failure().result, {.no_handle = !has_flows(id) || egress_of(connection) == 0});
}

} // namespace proof
