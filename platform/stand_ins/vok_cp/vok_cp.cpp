// The operations: each is shown to the observer, takes the time that it asks for, and acts on the model.
#include "vok_cp.h"

#include "model.h"

namespace {

using vok_cp::status;

vok_cp::model data_plane;
vok_cp_sim_observer_t observer;
void *observer_context;
vok_cp_sim_outcome_observer_t outcome_observer;
void *outcome_observer_context;

constexpr std::uint64_t system_handle_value = 0x5a5a0000'00000001;

std::uint64_t ticks_now()
{
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#elif defined(__aarch64__)
    std::uint64_t ticks;
    asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
    return ticks;
#else
#error "no tick counter is known for this machine"
#endif
}

vok_cp_sim_answer_t observe(const vok_cp_sim_call_t &call)
{
    if (observer == nullptr)
        return {};
    const vok_cp_sim_answer_t answer = observer(observer_context, &call);
    for (const std::uint64_t start = ticks_now(); ticks_now() - start < answer.ticks;) {
    }
    return answer;
}

/// @param created where the effect writes the handle of an object that it makes, or null
template <typename Effect>
status perform(const vok_cp_sim_call_t &call, Effect effect, const std::uint64_t *created = nullptr)
{
    const vok_cp_sim_answer_t answer = observe(call);
    vok_cp_sim_outcome_t outcome{answer.status, false, 0};
    if (answer.status == VOK_CP_SIM_OK || answer.after_effect) {
        const status refusal = effect();
        outcome.took_effect = refusal == VOK_CP_SIM_OK;
        if (!outcome.took_effect)
            outcome.status = refusal;
        else if (created != nullptr)
            outcome.created = *created;
    }
    if (outcome_observer != nullptr)
        outcome_observer(outcome_observer_context, &call, &outcome);
    return outcome.status;
}

template <typename Record> std::span<const std::byte> bytes_of(const Record *record)
{
    return {reinterpret_cast<const std::byte *>(record), record != nullptr ? sizeof(Record) : 0};
}

template <typename Record>
vok_cp_sim_call_t call_with(const char *operation, std::uint64_t type, const Record *record,
                            vok_cp_sim_kind_t kind = {}, std::uint64_t handle = 0)
{
    return {operation, type, record, record != nullptr ? sizeof(Record) : 0, handle, 0, kind};
}

vok_cp_sim_call_t call_on(const char *operation, std::uint64_t type, vok_cp_sim_kind_t kind, std::uint64_t handle)
{
    return {operation, type, nullptr, 0, handle, 0, kind};
}

vok_cp_sim_object_t shown(std::uint64_t handle, const vok_cp::object &o)
{
    return {handle,
            o.kind,
            o.record.data(),
            o.record.size(),
            static_cast<std::uint32_t>(o.bindings.size()),
            vok_cp::header_of(o),
            vok_cp::path_mtu_of(o)};
}

template <typename Record>
status create(const char *operation, vok_cp_sim_kind_t kind, std::uint64_t type, const Record *record,
              std::uint64_t *handle)
{
    return perform(
        call_with(operation, type, record, kind),
        [=] { return data_plane.create(kind, type, bytes_of(record), handle); }, handle);
}

status remove(const char *operation, vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle)
{
    return perform(call_on(operation, type, kind, handle), [=] { return data_plane.remove(kind, type, handle); });
}

void fill(vok_ip_association_stats &stats, const vok_cp::object &o)
{
    stats = {o.packets, o.octets, {}};
}

void fill(vok_ipv6_ingress_association_stats &stats, const vok_cp::object &o)
{
    stats = {static_cast<std::uint32_t>(o.packets), static_cast<std::uint32_t>(o.octets)};
}

void fill(vok_ipv6_egress_association_stats &stats, const vok_cp::object &o)
{
    stats = {static_cast<std::uint32_t>(o.packets)};
}

template <typename Stats>
status read_stats(const char *operation, vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle, Stats *stats)
{
    return perform(call_on(operation, type, kind, handle), [=]() -> status {
        if (stats == nullptr)
            return VOK_CP_SIM_NULL_ARGUMENT;
        vok_cp::object *found = nullptr;
        if (const status wrong = data_plane.look_up(kind, type, handle, found))
            return wrong;
        fill(*stats, *found);
        return VOK_CP_SIM_OK;
    });
}

} // namespace

status vok_ip_ingress_association_create(std::uint64_t type, const vok_ip_ingress_record *record, std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_IPV4_INGRESS, type, record, handle);
}

status vok_ip_egress_association_create(std::uint64_t type, const vok_ip_egress_record *record, std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_IPV4_EGRESS, type, record, handle);
}

status vok_ipv6_ingress_association_create(std::uint64_t type, const vok_ipv6_ingress_record *record,
                                           std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_IPV6_INGRESS, type, record, handle);
}

status vok_ipv6_egress_association_create(std::uint64_t type, const vok_ipv6_egress_record *record,
                                          std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_IPV6_EGRESS, type, record, handle);
}

status vok_ip_ingress_association_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_IPV4_INGRESS, type, handle);
}

status vok_ip_egress_association_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_IPV4_EGRESS, type, handle);
}

status vok_ipv6_ingress_association_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_IPV6_INGRESS, type, handle);
}

status vok_ipv6_egress_association_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_IPV6_EGRESS, type, handle);
}

status vok_ipv6_egress_association_attr_modify(std::uint64_t type, const vok_ipv6_egress_record *record,
                                               std::uint64_t handle)
{
    return perform(call_with(__func__, type, record, VOK_CP_SIM_IPV6_EGRESS, handle),
                   [=] { return data_plane.modify_ipv6_egress(type, bytes_of(record), handle); });
}

status vok_ip_ingress_association_stats_get(std::uint64_t type, std::uint64_t handle, vok_ip_association_stats *stats)
{
    return read_stats(__func__, VOK_CP_SIM_IPV4_INGRESS, type, handle, stats);
}

status vok_ip_egress_association_stats_get(std::uint64_t type, std::uint64_t handle, vok_ip_association_stats *stats)
{
    return read_stats(__func__, VOK_CP_SIM_IPV4_EGRESS, type, handle, stats);
}

status vok_ipv6_ingress_association_statistics_get(std::uint64_t type, std::uint64_t handle,
                                                   vok_ipv6_ingress_association_stats *stats)
{
    return read_stats(__func__, VOK_CP_SIM_IPV6_INGRESS, type, handle, stats);
}

status vok_ipv6_egress_association_statistics_get(std::uint64_t type, std::uint64_t handle,
                                                  vok_ipv6_egress_association_stats *stats)
{
    return read_stats(__func__, VOK_CP_SIM_IPV6_EGRESS, type, handle, stats);
}

status vok_l2tpv3_ingress_interface_add(std::uint64_t type, const vok_l2tpv3_ingress_interface_record *record,
                                        std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_L2TPV3_INTERFACE, type, record, handle);
}

status vok_l2tpv3_ingress_flow_create(std::uint64_t type, const vok_l2tpv3_ingress_flow_record *record,
                                      std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_L2TPV3_INGRESS_FLOW, type, record, handle);
}

status vok_l2tpv3_egress_flow_create(std::uint64_t type, const vok_l2tpv3_egress_flow_record *record,
                                     std::uint64_t *handle)
{
    return create(__func__, VOK_CP_SIM_L2TPV3_EGRESS_FLOW, type, record, handle);
}

status vok_l2tpv3_ingress_flow_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_L2TPV3_INGRESS_FLOW, type, handle);
}

status vok_l2tpv3_egress_flow_delete(std::uint64_t type, std::uint64_t handle)
{
    return remove(__func__, VOK_CP_SIM_L2TPV3_EGRESS_FLOW, type, handle);
}

status vok_bind(std::uint64_t instance, const vok_bind_record *record)
{
    return perform(call_with(__func__, instance, record), [=] { return data_plane.bind(instance, record); });
}

status vok_unbind(std::uint64_t instance, const vok_bind_record *record)
{
    return perform(call_with(__func__, instance, record), [=] { return data_plane.unbind(instance, record); });
}

status vok_syshandle_get(std::uint32_t first, std::uint32_t second, std::uint64_t *handle)
{
    observe({__func__, 0, nullptr, 0, 0, 0, {}});
    if (handle == nullptr)
        return VOK_CP_SIM_NULL_ARGUMENT;
    if (first != 0 || second != 1)
        return VOK_CP_SIM_WRONG_CONSTANT;
    *handle = system_handle_value;
    return VOK_CP_SIM_OK;
}

const char *vok_sys_status_get(std::uint64_t system_handle, std::uint32_t status)
{
    observe({__func__, 0, nullptr, 0, system_handle, status, {}});
    if (system_handle != system_handle_value)
        return "wrong system handle";
    switch (status) {
    case VOK_CP_SIM_OK: return "ok";
    case VOK_CP_SIM_WRONG_INSTANCE: return "wrong instance handle";
    case VOK_CP_SIM_WRONG_TYPE_HANDLE: return "wrong type handle";
    case VOK_CP_SIM_UNKNOWN_HANDLE: return "unknown handle";
    case VOK_CP_SIM_NULL_ARGUMENT: return "null argument";
    case VOK_CP_SIM_WRONG_CONSTANT: return "malformed record: a constant field has another value";
    case VOK_CP_SIM_RESERVED_NOT_ZERO: return "malformed record: a byte that must be zero is not";
    case VOK_CP_SIM_PREFIX_NOT_FULL: return "malformed record: a prefix length is not full";
    case VOK_CP_SIM_DUPLICATE_BINDING: return "the binding exists already";
    case VOK_CP_SIM_NO_SUCH_BINDING: return "no such binding";
    case VOK_CP_SIM_OBJECT_IN_USE: return "a binding still uses the object";
    case VOK_CP_SIM_DSCP_TOO_LARGE: return "a DSCP has at most 6 bits";
    case VOK_CP_SIM_INJECTED: return "injected fault";
    default: return "unknown status";
    }
}

void vok_cp_sim_observe(vok_cp_sim_observer_t new_observer, void *context)
{
    observer = new_observer;
    observer_context = context;
}

void vok_cp_sim_observe_outcomes(vok_cp_sim_outcome_observer_t new_observer, void *context)
{
    outcome_observer = new_observer;
    outcome_observer_context = context;
}

void vok_cp_sim_reset(void)
{
    data_plane.clear();
    vok_cp_sim_observe(nullptr, nullptr);
    vok_cp_sim_observe_outcomes(nullptr, nullptr);
}

vok_cp_sim_object_t vok_cp_sim_describe(vok_cp_sim_kind_t kind, const void *record, size_t record_size)
{
    const auto *bytes = static_cast<const std::byte *>(record);
    vok_cp_sim_object_t described = shown(0, {kind, {bytes, bytes + record_size}});
    described.record = record;
    return described;
}

void vok_cp_sim_walk_objects(void (*visit)(void *, const vok_cp_sim_object_t *), void *context)
{
    for (const auto &[handle, object] : data_plane.objects()) {
        const vok_cp_sim_object_t o = shown(handle, object);
        visit(context, &o);
    }
}

void vok_cp_sim_walk_bindings(void (*visit)(void *, const vok_cp_sim_binding_t *), void *context)
{
    for (const auto &[key, binding] : data_plane.bindings()) {
        const vok_cp_sim_binding_t shown = vok_cp::shown(binding);
        visit(context, &shown);
    }
}

bool vok_cp_sim_find(std::uint64_t handle, vok_cp_sim_object_t *found)
{
    const auto at = data_plane.objects().find(handle);
    if (at == data_plane.objects().end())
        return false;
    *found = shown(handle, at->second);
    return true;
}

void vok_cp_sim_walk_bindings_of(std::uint64_t handle, void (*visit)(void *, const vok_cp_sim_binding_t *),
                                 void *context)
{
    const auto at = data_plane.objects().find(handle);
    for (const vok_cp::binding *binding :
         at != data_plane.objects().end() ? at->second.bindings : std::vector<const vok_cp::binding *>{}) {
        const vok_cp_sim_binding_t shown = vok_cp::shown(*binding);
        visit(context, &shown);
    }
}

vok_cp_sim_counts_t vok_cp_sim_count(void)
{
    return {data_plane.objects().size(), data_plane.bindings().size()};
}

vok_cp_sim_arrival_t vok_cp_sim_receive(const vok_cp_sim_header_t *header, std::uint32_t octets)
{
    return data_plane.receive(*header, octets);
}

vok_cp_sim_departure_t vok_cp_sim_send(std::uint32_t ovlin_flow_id, std::uint32_t octets)
{
    return data_plane.send(ovlin_flow_id, octets);
}
