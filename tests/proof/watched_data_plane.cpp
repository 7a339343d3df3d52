#include "proof/watched_data_plane.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace proof {
namespace {

constexpr std::size_t most_calls = 10'000; ///< of an operation; the modify of all sessions makes some 600

std::vector<uint64_t> handles_in(const watched_call &made)
{
    if (made.is_bind_or_unbind()) {
        const vok_bind_record &r = made.binding();
        return r.bindKind == VOK_BIND_F2F    ? std::vector{r.srcFlowHandle, r.destFlowHandle}
               : r.bindKind == VOK_BIND_F2ID ? std::vector{r.srcFlowHandle}
                                             : std::vector{r.destFlowHandle};
    }
    if (made.operation == "vok_l2tpv3_ingress_flow_create")
        return {reinterpret_cast<const vok_l2tpv3_ingress_flow_record *>(made.record.data())->ingressInterfaceHandle};
    if (made.operation.ends_with("_create") || made.operation.ends_with("_add"))
        return {};
    return {made.handle};
}

} // namespace

bool object::operator==(const object &other) const
{
    const auto all = [](const object &o) {
        const vok_cp_sim_header_t &h = o.header;
        return std::tuple(o.kind, o.rules_or_flow_type, o.path_mtu, h.ip_version, h.protocol, h.vrf_id,
                          std::to_array(h.src_addr), std::to_array(h.dst_addr), h.src_port, h.dst_port,
                          h.l2tp_session_id, h.l2tp_connection_id, h.ttl);
    };
    return all(*this) == all(other);
}

std::pair<uint64_t, object> as_member(const data_plane::object &held)
{
    object seen{.kind = held.kind, .path_mtu = held.path_mtu, .header = held.header};
    if (held.kind != VOK_CP_SIM_IPV6_EGRESS) // which has no rules
        std::memcpy(&seen.rules_or_flow_type, held.record.data(), sizeof seen.rules_or_flow_type);
    return {held.handle, seen};
}

std::pair<vok_bind_record, binding_traits> as_member(const data_plane::binding &held)
{
    return {held.record, {held.record.srcSessionType, held.has_dscp ? held.dscp : -1}};
}

std::string call::text() const
{
    return std::string(operation) + " " + subject_text(*this) + ": " + status_text(*this) +
           (failed() && took_effect ? ", after effect" : "");
}

watched_data_plane::watched_data_plane(choices &decisions)
    : decisions_(decisions),
      watcher_([this](const watched_call &c) { return answer_to(c); }, [this](const watched_call &c) { see(c); })
{
    vok_cp_sim_reset();
    watcher_.attach();
}

watched_data_plane::~watched_data_plane()
{
    vok_cp_sim_reset();
}

vok_cp_sim_answer_t watched_data_plane::answer_to(const watched_call &c)
{
    if (calls.size() == most_calls)
        throw std::runtime_error("an operation makes calls without end");
    if (c.is_hook())
        return {decisions_.next_hook_code(), false, 0};
    for (const uint64_t handle : handles_in(c))
        if (!known_handles_.contains(handle))
            violation = std::string(c.operation) + " is given a handle that was never given or is deleted";
    const answer a = decisions_.next_answer();
    if (a == answer::success)
        return {};
    return {VOK_CP_SIM_INJECTED, a == answer::failure_after_effect, 0};
}

void watched_data_plane::see(const watched_call &seen)
{
    call &c = calls.emplace_back(call{seen});
    if (c.created != 0)
        known_handles_.insert(c.created);
    if (c.created != 0 && !c.failed())
        made[c.kind] = c.created;
    if (c.is_delete() && !c.failed())
        known_handles_.erase(c.handle);
    if (c.is_delete() && c.failed() && c.handle != 0)
        for (const data_plane::binding &b : data_plane::now().bindings)
            if (b.record.srcFlowHandle == c.handle || b.record.destFlowHandle == c.handle)
                c.used_by.push_back(b.record);
    if (c.status == VOK_CP_SIM_UNKNOWN_HANDLE) {
        vok_cp_sim_object_t found;
        for (const uint64_t handle : handles_in(c))
            (handle == 0 ? c.gives_zero : c.gives_missing) |= !vok_cp_sim_find(handle, &found);
    } else if (c.refused() && c.status <= VOK_CP_SIM_PREFIX_NOT_FULL) {
        violation = "malformed call of " + std::string(c.operation);
    }
}

} // namespace proof
