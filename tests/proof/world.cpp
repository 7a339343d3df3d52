#include "proof/world.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

#include "zel_core_ic.h"

namespace proof {
namespace {

constexpr uint32_t udp = VOK_SESSION_TYPE_UDP, l2tp = VOK_SESSION_TYPE_L2TP;

// ---- Bindings, as far as what names them

vok_bind_record binding(uint32_t kind, uint32_t direction, uint64_t source, uint32_t source_flow, uint64_t destination,
                        uint32_t destination_flow)
{
    vok_bind_record r{};
    r.bindKind = kind;
    r.direction = direction;
    r.srcFlowHandle = source;
    r.srcFlowID = source_flow;
    r.destFlowHandle = destination;
    r.dstFlowID = destination_flow;
    return r;
}

vok_bind_record from_flow(uint64_t flow, uint32_t ovlin_flow)
{
    return binding(VOK_BIND_F2ID, VOK_EGRESS, flow, 0, 0, ovlin_flow);
}

vok_bind_record to_flow(uint32_t ovlin_flow, uint64_t flow)
{
    return binding(VOK_BIND_ID2F, VOK_EGRESS, 0, ovlin_flow, flow, 0);
}

vok_bind_record to_interface(uint64_t association, uint64_t interface)
{
    return binding(VOK_BIND_F2F, VOK_INGRESS, association, 0, interface, 0);
}

vok_bind_record to_association(uint64_t flow, uint64_t association)
{
    return binding(VOK_BIND_F2F, VOK_EGRESS, flow, 0, association, 0);
}

// ---- Objects

association_key key_of(const zel_core_term_l2tp_control_connection_cfg_t &cfg)
{
    association_key key;
    std::memcpy(key.data(), cfg.local_addr, 4);
    std::memcpy(key.data() + 4, cfg.remote_addr, 4);
    std::memcpy(key.data() + 8, &cfg.vrf_id, 4);
    return key;
}

/// What an egress association sends, apart from the ports.
template <typename Cfg> vok_cp_sim_header_t sent_by(const Cfg &cfg, uint8_t ip_version, uint8_t protocol, uint8_t ttl)
{
    vok_cp_sim_header_t h{};
    h.ip_version = ip_version;
    h.protocol = protocol;
    h.vrf_id = cfg.vrf_id;
    std::memcpy(h.src_addr, cfg.local_addr, ip_version == 4 ? 4 : 16);
    std::memcpy(h.dst_addr, cfg.remote_addr, ip_version == 4 ? 4 : 16);
    h.ttl = ttl;
    return h;
}

vok_cp_sim_header_t answer_to(vok_cp_sim_header_t sent)
{
    std::swap(sent.src_addr, sent.dst_addr);
    std::swap(sent.src_port, sent.dst_port);
    sent.ttl = 0; // not looked at
    return sent;
}

object l2tp_flow(vok_cp_sim_kind_t kind, uint16_t flow_type, uint32_t session_id, uint32_t connection_id)
{
    object o{.kind = kind, .rules_or_flow_type = flow_type};
    o.header.l2tp_session_id = session_id;
    o.header.l2tp_connection_id = connection_id;
    return o;
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
    plane_.begin_operation();
    std::string text(name);
    for (const uint64_t argument : arguments)
        text += ' ' + std::to_string(argument);
    history_.push_back(std::move(text));
    if (history_.size() > 20)
        history_.pop_front();
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

void world::require(bool condition, const char *what, std::optional<uint64_t> which) const
{
    if (!condition)
        violated(std::string(what) + (which ? " " : "") + (which ? std::to_string(*which) : ""));
}

/// The end of an operation that makes no call, as of one that refuses its arguments.
uint32_t world::rejected(uint32_t expected)
{
    require(calls().empty(), "an operation calls that must not");
    return end(expected);
}

uint32_t world::end(uint32_t expected, tolerated allowed)
{
    history_.back() += " = " + std::to_string(result_);
    if (counts != nullptr) {
        ++counts->results[running_][result_];
        ++counts->operations;
    }
    require(result_ == expected, "the result is not", expected);
    require(plane_.violation.empty(), plane_.violation.c_str());
    learn_from_calls(allowed);
    if (compare) {
        explain_refusals(allowed);
        compare_data_plane();
        compare_tables();
        compare_udp_queries();
    }
    return result_;
}

/// What the first call that failed makes of whatever stops at a failure: 13, or the session-type hook's code.
uint32_t world::failure() const
{
    for (const call &c : calls())
        if (c.failed())
            return c.code();
    return 0;
}

void world::expect_hook(bool called, uint32_t pcep, uint32_t session_type) const
{
    const auto binds_egress = [](const call &c) {
        return c.operation == "vok_bind" && c.binding().direction == VOK_EGRESS &&
               c.binding().bindKind != VOK_BIND_F2ID;
    };
    bool accepted = false;
    for (const call &c : calls()) {
        require(!c.is_hook() || (called && c.handle == VOK_CP_SIM_OVLIN_FLOW_TYPE && c.pcep_id == pcep &&
                                 c.session_type == session_type),
                "the session-type hook is called with something else, or for no one");
        require(!called || accepted == binds_egress(c),
                "a bind without the session-type hook before it, or a call of the hook without a bind");
        accepted = c.is_hook() && !c.failed();
    }
    require(!accepted, "a call of the session-type hook without a bind");
}

/// What a call changed is as it must be again, and what it failed to change may be either.
void world::learn_from_calls(tolerated allowed)
{
    for (const call &c : calls()) {
        if (c.makes(VOK_CP_SIM_L2TPV3_INTERFACE))
            interface_ = c.created;
        if (c.took_effect && c.is_bind_or_unbind())
            loose_bindings_.erase(c.binding());
        if (c.took_effect && c.changes_object())
            loose_objects_.erase(c.handle);
    }
    for (const call &c : calls()) {
        if (!c.failed() || (c.refused() && c.status != VOK_CP_SIM_OBJECT_IN_USE))
            continue;
        if (c.operation == "vok_unbind" || (c.operation == "vok_bind" && c.took_effect && !allowed.l2tp_undo))
            excused_bindings_.insert(c.binding());
        else if (c.is_delete() || (c.changes_object() && c.took_effect))
            excused_objects_.insert(c.handle);
        else if (allowed.l2tp_undo && c.makes_association())
            excused_objects_.insert(c.created);
    }
    loose_objects_.merge(excused_objects_);
    loose_bindings_.merge(excused_bindings_);
    loose_bindings_.insert(uncertain_bindings_.begin(), uncertain_bindings_.end());
    excused_objects_.clear();
    excused_bindings_.clear();
}

/// The data plane refuses only what the operation cannot know better, and no delete is tried of what is bound by a
/// binding that the library could have removed.
void world::explain_refusals(tolerated allowed) const
{
    for (const call &c : calls()) {
        if (c.status == VOK_CP_SIM_UNKNOWN_HANDLE)
            require(c.gives_missing || (c.gives_zero ? allowed.no_handle : allowed.wrong_kind),
                    "a handle is refused that should be good");
        require(c.status != VOK_CP_SIM_DSCP_TOO_LARGE || allowed.large_dscp, "a DSCP is refused");
        for (const vok_bind_record &b : c.used_by)
            require(loose_bindings_.contains(b), "a delete of what a binding still uses that could be removed");
    }
}

// ---- What must be there

std::pair<object_map, binding_map> world::wanted() const
{
    object_map objects;
    binding_map bindings;
    if (interface_ != 0)
        objects[interface_].kind = VOK_CP_SIM_L2TPV3_INTERFACE;
    for (const auto &[id, s] : udp_sessions_) {
        const zel_core_term_udp_session_cfg_t &cfg = s.added.cfg;
        const bool ipv4 = cfg.ip_version == 4;
        vok_cp_sim_header_t sent = sent_by(cfg, cfg.ip_version, 17, ipv4 || cfg.ttl != 0 ? cfg.ttl : 128);
        sent.src_port = cfg.local_port;
        sent.dst_port = cfg.remote_port;
        if (ipv4) {
            objects[s.ingress] = {VOK_CP_SIM_IPV4_INGRESS, 0xFC, 0, answer_to(sent)};
            objects[s.egress] = {VOK_CP_SIM_IPV4_EGRESS, 0x6E, 0, sent};
        } else {
            objects[s.ingress] = {VOK_CP_SIM_IPV6_INGRESS, 0x672, 0, answer_to(sent)};
            objects[s.egress] = {VOK_CP_SIM_IPV6_EGRESS, 0, cfg.pmtu & 0xFFFF, sent};
        }
        if (s.uplink_bound)
            bindings[to_flow(s.uplink_flow(), s.egress)] = {udp, s.added.dscp};
        if (s.downlink_bound)
            bindings[from_flow(s.ingress, s.downlink_flow())] = {udp, -1};
    }
    for (const auto &[id, c] : connections_) {
        const vok_cp_sim_header_t sent = sent_by(c.added.cfg, 4, 115, c.added.cfg.ttl);
        objects[c.ingress] = {VOK_CP_SIM_IPV4_INGRESS, 0x9c, 0, answer_to(sent)};
        objects[c.egress] = {VOK_CP_SIM_IPV4_EGRESS, 0x0e, 0, sent};
        bindings[to_interface(c.ingress, interface_)] = {l2tp, -1};
        if (c.flow != 0) {
            objects[c.flow] = l2tp_flow(VOK_CP_SIM_L2TPV3_INGRESS_FLOW, VOK_L2TPV3_CONTROL_CONNECTION, 0,
                                        c.added.control_connection_id);
            bindings[from_flow(c.flow, flow_id(c.added.pcep, c.added.rat_session))] = {l2tp, -1};
        }
        if (c.sends)
            bindings[to_flow(flow_id(c.added.pcep, id), c.egress)] = {l2tp, c.added.dscp};
    }
    for (const auto &[id, s] : sessions_) {
        const l2tp_session_entry &e = s.entry;
        const uint16_t flow_type = s.added.crc != 0 ? 1 : 2;
        objects[e.ingress_flow_handle] =
            l2tp_flow(VOK_CP_SIM_L2TPV3_INGRESS_FLOW, flow_type, s.added.local_session_id, 0);
        if (e.egress_flow_handle != 0)
            objects[e.egress_flow_handle] = l2tp_flow(VOK_CP_SIM_L2TPV3_EGRESS_FLOW, flow_type, 0, 0);
        bindings[from_flow(e.ingress_flow_handle, e.dst_flow_id)] = {l2tp, -1};
        if (s.sends)
            bindings[to_flow(e.src_flow_id, e.egress_flow_handle)] = {l2tp, s.added.dscp};
        for (const uint64_t association : s.sends_through)
            bindings[to_association(e.egress_flow_handle, association)] = {l2tp, e.dscp};
    }
    return {std::move(objects), std::move(bindings)};
}

void world::compare_data_plane() const
{
    const data_plane found = data_plane::now();
    auto [objects, bindings] = wanted();
    const auto compare_all = [this](auto &missing, const auto &all, const auto &loose, const auto &text) {
        for (const auto &held : all) {
            const auto [key, what] = as_member(held);
            const auto at = missing.find(key);
            if ((at == missing.end() || at->second != what) && !loose.contains(key))
                violated(text(key) + (at == missing.end() ? " is too many" : " is another") + " in the data plane");
            if (at != missing.end())
                missing.erase(at);
        }
        for (const auto &[key, what] : missing)
            if (!loose.contains(key))
                violated(text(key) + " is missing in the data plane");
    };
    compare_all(objects, found.objects, loose_objects_, handle_text);
    compare_all(bindings, found.bindings, loose_bindings_, [](const vok_bind_record &b) { return to_text(b); });
}

void world::compare_tables() const
{
    l2tp_control_entry control[std::size(l2tp_control_table)] = {};
    for (const auto &[id, c] : connections_)
        control[id] = {0, c.flow, c.ingress, c.egress};
    require(std::memcmp(control, l2tp_control_table, sizeof control) == 0, "l2tp_control_table is another");
    l2tp_session_entry table[std::size(l2tp_session_table)] = {};
    for (const auto &[id, s] : sessions_)
        table[id - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN] = s.entry;
    require(std::memcmp(table, l2tp_session_table, sizeof table) == 0, "l2tp_session_table is another");
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
        require(result != 0 || std::memcmp(&cfg, &s->second.added.cfg, sizeof cfg) == 0,
                "another configuration of session", id);
    }
}

// ---- Start and stop

/// What was there stays in the data plane, and nothing of it may be touched any more but the ingress interface.
uint32_t world::switch_to(bool started)
{
    run(started ? "start" : "stop", started ? zel_core_term_start : zel_core_term_stop);
    started_ = started;
    const data_plane left = data_plane::now();
    for (const data_plane::object &o : left.objects)
        if (o.handle != interface_)
            excused_objects_.insert(o.handle);
    for (const data_plane::binding &b : left.bindings)
        excused_bindings_.insert(b.record);
    plane_.forget_handles_but(interface_);
    udp_sessions_.clear();
    connections_.clear();
    sessions_.clear();
    return rejected(0);
}

// ---- UDP sessions

uint32_t world::udp_rejection(uint32_t id) const
{
    if (id == 0 || id > ZEL_CORE_TERM_UDP_SESSION_ID_MAX)
        return ZEL_CORE_TERM_OUT_OF_RANGE;
    return udp_sessions_.contains(id) ? 0 : ZEL_CORE_TERM_SESSION_FREE;
}

uint32_t world::udp_add(const request::udp_add &r)
{
    begin("udp_add",
          {r.id, r.cfg.ip_version, r.uplink_pcep, r.downlink_pcep, r.rat_session, r.dscp, r.session_type_flag});
    udp_ids_seen_.insert(r.id);
    result_ = r();
    const bool ipv4 = r.cfg.ip_version == 4;
    if (udp_rejection(r.id) == 0)
        return rejected(ZEL_CORE_TERM_SESSION_IN_USE);
    if (udp_rejection(r.id) == ZEL_CORE_TERM_OUT_OF_RANGE || r.rat_session > limits_.max_rat_ovlin_session_id ||
        std::max(r.uplink_pcep, r.downlink_pcep) > limits_.max_tn_pcep_id)
        return rejected(ZEL_CORE_TERM_OUT_OF_RANGE);
    if (!ipv4 && r.cfg.ip_version != 6)
        return rejected(ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION);
    if (!started_)
        return rejected(ZEL_CORE_TERM_DATA_PLANE_FAILED);
    expect_hook(r.session_type_flag != 0, r.uplink_pcep, udp);
    if (const uint32_t code = failure(); code == 0 || code == 3 || code == 5) {
        udp_session &s = udp_sessions_[r.id] = {.added = r};
        s.ingress = plane_.made[ipv4 ? VOK_CP_SIM_IPV4_INGRESS : VOK_CP_SIM_IPV6_INGRESS];
        s.egress = plane_.made[ipv4 ? VOK_CP_SIM_IPV4_EGRESS : VOK_CP_SIM_IPV6_EGRESS];
        s.uplink_bound = s.downlink_bound = code == 0;
    }
    return end(failure(), {.large_dscp = r.dscp > 63});
}

uint32_t world::udp_modify(attribute which, uint32_t id, uint32_t value)
{
    const auto ttl = static_cast<uint8_t>(value);
    if (which == attribute::pmtu)
        run("udp_modify_pmtu", zel_core_term_udp_session_modify_pmtu, id, value);
    else
        run("udp_modify_ttl", zel_core_term_udp_session_modify_ttl, id, ttl);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(rejection);
    zel_core_term_udp_session_cfg_t &cfg = udp_sessions_.at(id).added.cfg;
    if (cfg.ip_version != 6)
        return rejected(ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION);
    if (failure() == 0 && which == attribute::pmtu)
        cfg.pmtu = value;
    if (failure() == 0 && which == attribute::ttl)
        cfg.ttl = ttl;
    return end(failure());
}

uint32_t world::udp_disconnect(uint32_t id)
{
    run("udp_disconnect", zel_core_term_udp_session_disconnect, id);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(rejection);
    udp_session &s = udp_sessions_.at(id);
    s.uplink_bound = s.uplink_bound && s.uplink_flow() == 0; // a flow of 0 counts as not bound
    s.downlink_bound = s.downlink_bound && s.downlink_flow() == 0;
    return end(0);
}

uint32_t world::udp_release(uint32_t id)
{
    run("udp_release", zel_core_term_udp_session_release, id);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(rejection);
    const udp_session &s = udp_sessions_.at(id);
    if (s.uplink_bound || s.downlink_bound) // a release removes no binding
        excused_bindings_.insert({to_flow(s.uplink_flow(), s.egress), from_flow(s.ingress, s.downlink_flow())});
    udp_sessions_.erase(id);
    return end(0);
}

uint32_t world::udp_statistics(statistics form, uint32_t id)
{
    constexpr const char *names[] = {"udp_statistics_ipv4", "udp_statistics_ipv6", "udp_statistics_text"};
    zel_udp_session_ipv4_stats_t ipv4;
    zel_udp_session_ipv6_stats_t ipv6;
    char text[200];
    begin(names[static_cast<std::size_t>(form)], {id});
    result_ = form == statistics::ipv4   ? zel_udp_session_get_stats(id, &ipv4)
              : form == statistics::ipv6 ? zel_ipv6_udp_session_get_stats(id, &ipv6)
                                         : zel_core_term_udp_session_fmt_stats_get(id, text, sizeof text, 0);
    if (const uint32_t rejection = udp_rejection(id))
        return rejected(rejection);
    const auto of_the_other = udp_sessions_.at(id).added.cfg.ip_version == 4 ? statistics::ipv6 : statistics::ipv4;
    return end(failure(), {.wrong_kind = form == of_the_other});
}

// ---- L2TP control connections

uint32_t world::l2tp_rejection(uint32_t connection) const
{
    if (connection > ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX)
        return ZEL_CORE_TERM_OUT_OF_RANGE;
    return started_ ? 0 : ZEL_CORE_TERM_DATA_PLANE_FAILED;
}

/// A connection with that key, other than `but`, or null.
const connection *world::sharing(const association_key &key, uint32_t but) const
{
    for (const auto &[id, c] : connections_)
        if (id != but && key_of(c.added.cfg) == key)
            return &c;
    return nullptr;
}

/// Whether there can be associations for that key beside those of the connections other than `but`.
bool world::has_room(const association_key &key, uint32_t but) const
{
    std::set<association_key> keys{key};
    for (const auto &[id, c] : connections_)
        if (id != but)
            keys.insert(key_of(c.added.cfg));
    return keys.size() <= 48;
}

/// Shared with another connection, or made by this operation.
void world::take_associations(connection &c)
{
    const connection *const other = sharing(key_of(c.added.cfg), c.added.id);
    c.ingress = other != nullptr ? other->ingress : plane_.made[VOK_CP_SIM_IPV4_INGRESS];
    c.egress = other != nullptr ? other->egress : plane_.made[VOK_CP_SIM_IPV4_EGRESS];
    if (other != nullptr)
        c.added.cfg.ttl = other->added.cfg.ttl;
}

uint32_t world::connection_add(const request::connection_add &r)
{
    const association_key key = key_of(r.cfg);
    begin("connection_add", {r.id, key[7], key[8], r.cfg.ttl, r.control_connection_id, r.pcep, r.rat_session, r.dscp,
                             r.session_type_flag});
    result_ = r();
    if (r.rat_session > limits_.max_rat_ovlin_session_id || r.pcep > limits_.max_tn_pcep_id)
        return rejected(ZEL_CORE_TERM_OUT_OF_RANGE);
    if (const uint32_t rejection = l2tp_rejection(r.id))
        return rejected(rejection);
    if (connections_.contains(r.id))
        return rejected(ZEL_CORE_TERM_SESSION_IN_USE);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    const uint32_t expected = has_room(key, r.id) ? failure() : uint32_t{ZEL_CORE_TERM_DATA_PLANE_FAILED};
    const connection *const other = sharing(key, r.id);
    if (expected == 0 || expected == 3) {
        connection &c = connections_[r.id] = {.added = r, .flow = plane_.made[VOK_CP_SIM_L2TPV3_INGRESS_FLOW]};
        c.sends = expected == 0;
        take_associations(c);
    } else if (other != nullptr && calls().front().is("flow_create") && calls().front().failed()) {
        uncertain_bindings_.insert(to_interface(other->ingress, interface_)); // it loses one request for that
    }
    return end(expected, {.l2tp_undo = true, .large_dscp = r.dscp > 63});
}

/// Sessions that still send through a connection's egress association keep it from being deleted with its last user.
void world::strand_sessions(const connection &c, const std::vector<uint32_t> &leaving)
{
    if (sharing(key_of(c.added.cfg), c.added.id) != nullptr)
        return;
    for (const auto &[id, s] : sessions_)
        if (s.sends_through.contains(c.egress) && std::ranges::find(leaving, id) == leaving.end())
            excused_bindings_.insert(to_association(s.entry.egress_flow_handle, c.egress));
}

void world::forget_connection(uint32_t id, uint32_t pcep, uint32_t rat_session)
{
    const auto found = connections_.find(id);
    if (found == connections_.end())
        return;
    const connection &c = found->second;
    strand_sessions(c, {});
    const request::connection_add &added = c.added;
    if (pcep != added.pcep || rat_session != added.rat_session) // other bindings are asked for
        excused_bindings_.insert(from_flow(c.flow, flow_id(added.pcep, added.rat_session)));
    if (pcep != added.pcep)
        excused_bindings_.insert(to_flow(flow_id(added.pcep, id), c.egress));
    connections_.erase(found);
}

uint32_t world::connection_remove(uint32_t id, uint32_t pcep, uint32_t rat_session)
{
    run("connection_remove", zel_core_term_l2tp_control_connection_rem, id, pcep, rat_session);
    if (l2tp_rejection(id) != 0)
        return rejected(0);
    const tolerated allowed{.no_handle = !connections_.contains(id) || connections_.at(id).flow == 0};
    forget_connection(id, pcep, rat_session);
    return end(0, allowed);
}

/// In turn: the sessions are unbound, the connection is set up anew, once more in the old place if that failed, and the
/// sessions are bound. What fails for good decides.
/// @return the result, and whether the old place was tried
std::pair<uint32_t, bool> world::expected_modify_end(const request::connection_modify &r,
                                                     const association_key &old_key) const
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
    const bool no_room = !has_room(key_of(r.cfg), r.id);
    bool fell_back = false, connected = false;
    for (const call &c : std::span(calls()).subspan(at)) {
        const bool ends_attempt = no_room && !fell_back && c.is("_create");
        if (ends_attempt || (c.failed() && c.operation != "vok_unbind" && !c.is_delete())) {
            if (fell_back || connected)
                return {c.code(), fell_back};
            fell_back = true;
            if (!has_room(old_key, r.id))
                return {ZEL_CORE_TERM_DATA_PLANE_FAILED, true};
        }
        connected = connected || (c.operation == "vok_bind" && c.binding().bindKind == VOK_BIND_ID2F && !c.failed());
    }
    return {fell_back ? ZEL_CORE_TERM_FELL_BACK : ZEL_CORE_TERM_SUCCESS, fell_back};
}

uint32_t world::connection_modify(const request::connection_modify &r)
{
    begin("connection_modify", {r.id, r.cfg.remote_addr[3], r.pcep, r.rat_session, r.dscp, r.old_dscp,
                                r.old_remote_addr[3], r.session_type_flag});
    for (const uint32_t id : r.sessions)
        history_.back() += ", " + std::to_string(id);
    zel_core_term_l2tp_control_connection_cfg_t written;
    result_ = r(written);
    if (const uint32_t rejection = l2tp_rejection(r.id))
        return rejected(rejection);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    zel_core_term_l2tp_control_connection_cfg_t old_place = r.cfg;
    std::memcpy(old_place.remote_addr, r.old_remote_addr.data(), 4);
    const auto [expected, fell_back] = expected_modify_end(r, key_of(old_place));
    const auto &in_force = fell_back ? old_place : r.cfg;
    require(std::memcmp(&written, &in_force, sizeof written) == 0,
            "the caller's configuration is not the one tried last");

    tolerated allowed{.l2tp_undo = true, .large_dscp = r.dscp > 63 || r.old_dscp > 63};
    // A connection that is not there, or no more after a failure, has no handles; nor has a session that is not there.
    allowed.no_handle = !connections_.contains(r.id) || connections_.at(r.id).flow == 0 ||
                        expected != ZEL_CORE_TERM_SUCCESS ||
                        std::ranges::any_of(r.sessions, [this](uint32_t id) { return !has_flows(id); });
    // The hook's refusals are other codes than these.
    if (expected == ZEL_CORE_TERM_SUCCESS || expected == ZEL_CORE_TERM_FELL_BACK) {
        if (const auto before = connections_.find(r.id); before != connections_.end())
            strand_sessions(before->second, r.sessions);
        connection &c = connections_[r.id];
        const uint64_t old_egress = c.egress;
        c.added = {r.id, in_force, c.added.control_connection_id, r.pcep, r.rat_session};
        c.added.dscp = fell_back ? r.old_dscp : r.dscp;
        c.sends = true;
        take_associations(c);
        for (const uint32_t id : r.sessions) {
            sessions_.at(id).sends_through.erase(old_egress);
            sessions_.at(id).sends_through.insert(c.egress);
        }
    } else {
        for (const uint32_t id : r.sessions)
            forget_session(r.id, id);
        forget_connection(r.id, r.pcep, r.rat_session);
    }
    return end(expected, allowed);
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
    if (id < ZEL_CORE_TERM_L2TP_SESSION_ID_MIN || id > ZEL_CORE_TERM_L2TP_SESSION_ID_MAX)
        return ZEL_CORE_TERM_OUT_OF_RANGE;
    return l2tp_rejection(connection);
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

uint32_t world::session_add(const request::session_add &r)
{
    begin("session_add",
          {r.dscp, r.crc, r.pcep, r.rat_session, r.local_session_id, r.connection, r.id, r.session_type_flag});
    result_ = r();
    if (std::max({r.rat_session, r.connection, r.id}) > limits_.max_rat_ovlin_session_id ||
        r.pcep > limits_.max_tn_pcep_id)
        return rejected(ZEL_CORE_TERM_OUT_OF_RANGE);
    if (const uint32_t rejection = session_rejection(r.connection, r.id))
        return rejected(rejection);
    expect_hook(r.session_type_flag != 0, r.pcep, l2tp);

    const tolerated allowed{.l2tp_undo = true,
                            .no_handle = interface_ == 0 || egress_of(r.connection) == 0 || sessions_.contains(r.id),
                            .large_dscp = r.dscp > 63};
    session s{.added = r};
    if (const auto overwritten = sessions_.find(r.id); overwritten != sessions_.end()) {
        const l2tp_session_entry &e = s.entry = overwritten->second.entry;
        excused_objects_.insert({e.ingress_flow_handle, e.egress_flow_handle});
        excused_bindings_.insert(from_flow(e.ingress_flow_handle, e.dst_flow_id));
        excused_bindings_.insert(to_flow(e.src_flow_id, e.egress_flow_handle));
        for (const uint64_t association : overwritten->second.sends_through)
            excused_bindings_.insert(to_association(e.egress_flow_handle, association));
        sessions_.erase(overwritten);
    }
    s.entry.dst_flow_id = flow_id(r.pcep, r.rat_session);
    s.entry.ingress_flow_handle = plane_.made[VOK_CP_SIM_L2TPV3_INGRESS_FLOW];
    s.entry.egress_flow_handle = plane_.made[VOK_CP_SIM_L2TPV3_EGRESS_FLOW];
    s.sends = std::ranges::any_of(calls(), [](const call &c) {
        return c.is_bind_or_unbind() && c.binding().bindKind == VOK_BIND_ID2F && !c.failed();
    });
    if (s.sends)
        s.entry.src_flow_id = flow_id(r.pcep, r.id);
    if (failure() == 0) {
        s.entry.dscp = r.dscp;
        s.sends_through = {egress_of(r.connection)};
    }
    if (failure() == 0 || failure() == 3) {
        sessions_[r.id] = s;
    } else if (s.entry.dst_flow_id == 0) { // counts as not bound
        excused_bindings_.insert(from_flow(s.entry.ingress_flow_handle, 0));
    }
    return end(failure(), allowed);
}

uint32_t world::session_remove(uint32_t connection, uint32_t id)
{
    run("session_remove", zel_core_term_l2tp_session_rem, connection, id);
    if (session_rejection(connection, id) != 0)
        return rejected(0);
    const tolerated allowed{.no_handle = !can_bind(connection, id)};
    forget_session(connection, id);
    return end(0, allowed);
}

uint32_t world::session_unbind_part(uint32_t connection, uint32_t id)
{
    run("session_unbind_part", zel_l2tp_session_modify_unbind_part, connection, id);
    if (const uint32_t rejection = session_rejection(connection, id))
        return rejected(rejection);
    if (failure() == 0)
        sessions_.at(id).sends_through.erase(egress_of(connection));
    return end(failure(), {.no_handle = !can_bind(connection, id)});
}

uint32_t world::session_bind_part(uint32_t connection, uint32_t id, uint32_t pcep, uint8_t session_type_flag)
{
    run("session_bind_part", zel_l2tp_session_modify_bind_part, connection, id, pcep, session_type_flag);
    if (const uint32_t rejection = session_rejection(connection, id))
        return rejected(rejection);
    expect_hook(session_type_flag != 0, pcep, l2tp);
    if (failure() == 0)
        sessions_.at(id).sends_through.insert(egress_of(connection));
    return end(failure(), {.no_handle = !can_bind(connection, id)});
}

} // namespace proof
