#include "proof/watched_data_plane.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "zel_core_term/zel_ovlin_session_handler.h"

namespace proof {
namespace {

watched_data_plane *watched; ///< which hears of calls of the session-type hook

binding binding_of(const void *record)
{
    const auto &r = *static_cast<const vok_bind_record *>(record);
    return {r.bindKind, r.direction, r.srcFlowHandle, r.srcFlowID, r.destFlowHandle, r.dstFlowID};
}

std::vector<uint64_t> handles_in(const vok_cp_sim_call_t &call)
{
    if (std::strstr(call.operation, "bind") != nullptr) {
        const binding b = binding_of(call.record);
        return b.kind == VOK_BIND_F2F    ? std::vector{b.source, b.destination}
               : b.kind == VOK_BIND_F2ID ? std::vector{b.source}
                                         : std::vector{b.destination};
    }
    if (std::strcmp(call.operation, "vok_l2tpv3_ingress_flow_create") == 0)
        return {static_cast<const vok_l2tpv3_ingress_flow_record *>(call.record)->ingressInterfaceHandle};
    if (std::strstr(call.operation, "_create") != nullptr || std::strstr(call.operation, "_add") != nullptr)
        return {};
    return {call.handle};
}

bool is_binding(const call &c)
{
    return c.operation == "vok_bind" || c.operation == "vok_unbind";
}

} // namespace

std::string to_text(uint64_t handle)
{
    char text[sizeof "0x0123456789abcdef"];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(handle));
    return text;
}

std::string to_text(const binding &b)
{
    const char *const kind = b.kind == VOK_BIND_F2F ? "F2F " : b.kind == VOK_BIND_F2ID ? "F2ID " : "ID2F ";
    const auto end = [](uint64_t handle, uint32_t flow_id) {
        return flow_id != 0 ? "ovlin " + to_text(flow_id) : to_text(handle);
    };
    return kind + end(b.source, b.source_flow_id) + " -> " + end(b.destination, b.destination_flow_id);
}

std::string call::text() const
{
    const std::string subject = binding == proof::binding{} ? to_text(handle) : to_text(binding);
    const std::string of_what = std::string(operation) + " " + subject + ": ";
    if (operation == session_type_hook)
        return of_what + std::to_string(status);
    uint64_t system_handle = 0;
    vok_syshandle_get(0, 1, &system_handle);
    return of_what + vok_sys_status_get(system_handle, status) + (failed() && took_effect ? ", after effect" : "");
}

watched_data_plane::watched_data_plane(choices &decisions) : decisions_(decisions)
{
    if (watched != nullptr)
        throw std::logic_error("the data plane is watched already");
    watched = this;
    vok_cp_sim_reset();
    vok_cp_sim_observe(on_call, this);
    vok_cp_sim_observe_outcomes(on_outcome, this);
}

watched_data_plane::~watched_data_plane()
{
    vok_cp_sim_reset();
    watched = nullptr;
}

holdings watched_data_plane::held()
{
    holdings all;
    vok_cp_sim_walk_objects(
        [](void *context, const vok_cp_sim_object_t *o) {
            const vok_cp_sim_header_t &h = o->header;
            object seen{.kind = o->kind, .ip_version = h.ip_version, .protocol = h.protocol, .ttl = h.ttl};
            if (o->kind == VOK_CP_SIM_L2TPV3_INGRESS_FLOW)
                seen.flow_type = static_cast<const vok_l2tpv3_ingress_flow_record *>(o->record)->flowType;
            if (o->kind == VOK_CP_SIM_IPV4_INGRESS || o->kind == VOK_CP_SIM_IPV4_EGRESS ||
                o->kind == VOK_CP_SIM_IPV6_INGRESS)
                std::memcpy(&seen.rules_mask, o->record, sizeof seen.rules_mask); // where each of their records begins
            if (o->kind == VOK_CP_SIM_L2TPV3_EGRESS_FLOW)
                seen.flow_type = static_cast<const vok_l2tpv3_egress_flow_record *>(o->record)->flowType;
            seen.src_port = h.src_port;
            seen.dst_port = h.dst_port;
            seen.vrf_id = h.vrf_id;
            seen.path_mtu = o->path_mtu;
            seen.l2tp_session_id = h.l2tp_session_id;
            seen.l2tp_connection_id = h.l2tp_connection_id;
            std::memcpy(seen.src_addr.data(), h.src_addr, 16);
            std::memcpy(seen.dst_addr.data(), h.dst_addr, 16);
            static_cast<holdings *>(context)->objects.emplace_back(o->handle, seen);
        },
        &all);
    vok_cp_sim_walk_bindings(
        [](void *context, const vok_cp_sim_binding_t *b) {
            const uint32_t session_type = static_cast<const vok_bind_record *>(b->record)->srcSessionType;
            static_cast<holdings *>(context)->bindings.push_back(
                {binding_of(b->record), {session_type, b->has_dscp ? b->dscp : -1}});
        },
        &all);
    std::ranges::sort(all.bindings, {}, [](const auto &b) { return b.first; });
    return all;
}

uint32_t watched_data_plane::hook_called(uint64_t type, uint32_t pcep_id, uint32_t session_type)
{
    call seen{.operation = session_type_hook, .status = decisions_.next_hook_code(), .handle = type};
    seen.pcep_id = pcep_id;
    seen.session_type = session_type;
    calls.push_back(seen);
    return seen.status;
}

vok_cp_sim_answer_t watched_data_plane::on_call(void *self, const vok_cp_sim_call_t *call)
{
    if (std::strncmp(call->operation, "vok_sys", 7) == 0)
        return {};
    auto &plane = *static_cast<watched_data_plane *>(self);
    for (const uint64_t handle : handles_in(*call))
        if (!plane.known_handles_.contains(handle))
            plane.violation = std::string(call->operation) + " is given a handle that was never given or is deleted";
    const answer a = plane.decisions_.next_answer();
    if (a == answer::success)
        return {};
    return {VOK_CP_SIM_INJECTED, a == answer::failure_after_effect, 0};
}

void watched_data_plane::on_outcome(void *self, const vok_cp_sim_call_t *made, const vok_cp_sim_outcome_t *outcome)
{
    auto &plane = *static_cast<watched_data_plane *>(self);
    call seen{.operation = made->operation,
              .status = outcome->status,
              .took_effect = outcome->took_effect,
              .handle = outcome->created != 0 ? outcome->created : made->handle,
              .passed = handles_in(*made),
              .kind = made->kind};
    if (is_binding(seen))
        seen.binding = binding_of(made->record);
    if (outcome->created != 0)
        plane.known_handles_.insert(outcome->created);
    if (seen.is("_delete") && !seen.failed())
        plane.known_handles_.erase(seen.handle);
    if (seen.is("_delete") && seen.failed() && seen.handle != 0)
        for (const auto &[used, traits] : held().bindings)
            if (used.uses(seen.handle))
                seen.used_by.push_back(used);
    if (seen.status >= VOK_CP_SIM_WRONG_INSTANCE && seen.status <= VOK_CP_SIM_PREFIX_NOT_FULL &&
        seen.status != VOK_CP_SIM_UNKNOWN_HANDLE)
        plane.violation = "malformed call of " + std::string(seen.operation);
    plane.calls.push_back(std::move(seen));
}

} // namespace proof

// In front of the library's own, which calls it through the dynamic symbol.
extern "C" __attribute__((visibility("default"))) uint32_t zel_ovlin_session_handler_set_session_type(
    uint64_t type, uint32_t pcep_id, uint32_t session_type)
{
    return proof::watched != nullptr ? proof::watched->hook_called(type, pcep_id, session_type) : 0;
}
