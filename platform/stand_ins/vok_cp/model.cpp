#include "model.h"

#include <algorithm>
#include <cstring>

namespace vok_cp {

const kind_traits &traits(vok_cp_sim_kind_t kind)
{
    static const kind_traits table[] = {
        {VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, ip_ingress_fields},
        {VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, ip_egress_fields},
        {VOK_CP_SIM_IPV6_ASSOCIATION_TYPE, ipv6_ingress_fields},
        {VOK_CP_SIM_IPV6_ASSOCIATION_TYPE, ipv6_egress_create_fields},
        {VOK_CP_SIM_L2TPV3_FLOW_TYPE, l2tpv3_ingress_interface_fields},
        {VOK_CP_SIM_L2TPV3_FLOW_TYPE, l2tpv3_ingress_flow_fields},
        {VOK_CP_SIM_L2TPV3_FLOW_TYPE, l2tpv3_egress_flow_fields},
    };
    return table[kind];
}

namespace {

std::span<const std::byte> bytes_of(const vok_bind_record &record)
{
    return std::as_bytes(std::span(&record, 1));
}

binding_key key_of(const vok_bind_record &r)
{
    return {r.bindKind, r.direction, r.srcFlowHandle, r.srcFlowID, r.destFlowHandle, r.dstFlowID};
}

/// A set of kinds, as bits.
template <typename... Kinds> constexpr unsigned kinds(Kinds... k)
{
    return (0u | ... | (1u << k));
}

/// What a binding of a kind and a direction may join; no kinds at an end: an ovlin flow ID.
struct binding_rule {
    std::uint32_t kind, direction;
    unsigned sources, destinations;
};

constexpr binding_rule binding_rules[] = {
    {VOK_BIND_F2F, VOK_INGRESS, kinds(VOK_CP_SIM_IPV4_INGRESS), kinds(VOK_CP_SIM_L2TPV3_INTERFACE)},
    {VOK_BIND_F2F, VOK_EGRESS, kinds(VOK_CP_SIM_L2TPV3_EGRESS_FLOW), kinds(VOK_CP_SIM_IPV4_EGRESS)},
    {VOK_BIND_F2ID, VOK_EGRESS, kinds(VOK_CP_SIM_IPV4_INGRESS, VOK_CP_SIM_IPV6_INGRESS, VOK_CP_SIM_L2TPV3_INGRESS_FLOW),
     kinds()},
    {VOK_BIND_ID2F, VOK_EGRESS, kinds(),
     kinds(VOK_CP_SIM_IPV4_EGRESS, VOK_CP_SIM_IPV6_EGRESS, VOK_CP_SIM_L2TPV3_EGRESS_FLOW)},
};

} // namespace

status model::create(vok_cp_sim_kind_t kind, std::uint64_t type, std::span<const std::byte> record,
                     std::uint64_t *handle)
{
    if (type != traits(kind).type_handle)
        return VOK_CP_SIM_WRONG_TYPE_HANDLE;
    if (record.data() == nullptr || handle == nullptr)
        return VOK_CP_SIM_NULL_ARGUMENT;
    if (const status wrong = check_record(record, traits(kind).fields))
        return wrong;
    if (const status wrong = check_flow_record(kind, record))
        return wrong;
    *handle = next_handle_++;
    const auto made = objects_.emplace(*handle, object{kind, {record.begin(), record.end()}}).first;
    if (receives(kind))
        receivers_.emplace(receiver_key_of(header_of(made->second)), *handle);
    return VOK_CP_SIM_OK;
}

status model::remove(vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle)
{
    object *found = nullptr;
    if (const status wrong = look_up(kind, type, handle, found))
        return wrong;
    if (!found->bindings.empty())
        return VOK_CP_SIM_OBJECT_IN_USE;
    if (receives(kind)) {
        const auto [begin, end] = receivers_.equal_range(receiver_key_of(header_of(*found)));
        receivers_.erase(std::find_if(begin, end, [=](const auto &receiver) { return receiver.second == handle; }));
    }
    objects_.erase(handle);
    return VOK_CP_SIM_OK;
}

status model::modify_ipv6_egress(std::uint64_t type, std::span<const std::byte> record, std::uint64_t handle)
{
    object *found = nullptr;
    if (const status wrong = look_up(VOK_CP_SIM_IPV6_EGRESS, type, handle, found))
        return wrong;
    if (record.data() == nullptr)
        return VOK_CP_SIM_NULL_ARGUMENT;
    if (const status wrong = check_record(record, ipv6_egress_modify_fields))
        return wrong;
    found->record.assign(record.begin(), record.end());
    return VOK_CP_SIM_OK;
}

status model::look_up(vok_cp_sim_kind_t kind, std::uint64_t type, std::uint64_t handle, object *&found)
{
    if (type != traits(kind).type_handle)
        return VOK_CP_SIM_WRONG_TYPE_HANDLE;
    const auto at = objects_.find(handle);
    if (at == objects_.end() || at->second.kind != kind)
        return VOK_CP_SIM_UNKNOWN_HANDLE;
    found = &at->second;
    return VOK_CP_SIM_OK;
}

status model::bind(std::uint64_t instance, const vok_bind_record *record)
{
    if (const status wrong = check_binding(instance, record))
        return wrong;
    const auto *const dscp = reinterpret_cast<const std::uint8_t *>(record->dscpRef);
    if (dscp != nullptr && *dscp > 63)
        return VOK_CP_SIM_DSCP_TOO_LARGE;
    binding made{*record, dscp != nullptr, dscp != nullptr ? *dscp : std::uint8_t{0}};
    made.record.dscpRef = 0;
    const auto stored = bindings_.emplace(key_of(*record), made);
    if (!stored.second)
        return VOK_CP_SIM_DUPLICATE_BINDING;
    for_each_end(*record, [&](object &o) { o.bindings.push_back(&stored.first->second); });
    return VOK_CP_SIM_OK;
}

status model::unbind(std::uint64_t instance, const vok_bind_record *record)
{
    if (const status wrong = check_binding(instance, record))
        return wrong;
    if (record->dscpRef != 0)
        return VOK_CP_SIM_WRONG_CONSTANT;
    const auto at = bindings_.find(key_of(*record));
    if (at == bindings_.end())
        return VOK_CP_SIM_NO_SUCH_BINDING;
    for_each_end(*record, [&](object &o) { std::erase(o.bindings, &at->second); });
    bindings_.erase(at);
    return VOK_CP_SIM_OK;
}

void model::clear()
{
    bindings_.clear();
    receivers_.clear();
    objects_.clear();
}

status model::check_flow_record(vok_cp_sim_kind_t kind, std::span<const std::byte> record) const
{
    const auto flow_type = static_cast<unsigned>(record[0]);
    if (kind == VOK_CP_SIM_L2TPV3_EGRESS_FLOW)
        return flow_type == VOK_L2TPV3_SESSION_WITH_CRC || flow_type == VOK_L2TPV3_SESSION ? VOK_CP_SIM_OK
                                                                                           : VOK_CP_SIM_WRONG_CONSTANT;
    if (kind != VOK_CP_SIM_L2TPV3_INGRESS_FLOW)
        return VOK_CP_SIM_OK;
    if (flow_type < VOK_L2TPV3_SESSION_WITH_CRC || flow_type > VOK_L2TPV3_CONTROL_CONNECTION)
        return VOK_CP_SIM_WRONG_CONSTANT;
    vok_l2tpv3_ingress_flow_record flow;
    std::memcpy(&flow, record.data(), sizeof flow);
    const auto interface = objects_.find(flow.ingressInterfaceHandle);
    return interface != objects_.end() && interface->second.kind == VOK_CP_SIM_L2TPV3_INTERFACE
               ? VOK_CP_SIM_OK
               : VOK_CP_SIM_UNKNOWN_HANDLE;
}

status model::check_flow_end(std::uint64_t type, std::uint64_t handle, std::uint32_t flow_id, unsigned kinds) const
{
    if (kinds == 0) {
        if (type != VOK_CP_SIM_OVLIN_FLOW_TYPE)
            return VOK_CP_SIM_WRONG_TYPE_HANDLE;
        return handle == 0 ? VOK_CP_SIM_OK : VOK_CP_SIM_RESERVED_NOT_ZERO;
    }
    if (flow_id != 0)
        return VOK_CP_SIM_RESERVED_NOT_ZERO;
    const auto found = objects_.find(handle);
    if (found == objects_.end() || (kinds & 1u << found->second.kind) == 0)
        return VOK_CP_SIM_UNKNOWN_HANDLE;
    return traits(found->second.kind).type_handle == type ? VOK_CP_SIM_OK : VOK_CP_SIM_WRONG_TYPE_HANDLE;
}

status model::check_binding(std::uint64_t instance, const vok_bind_record *record) const
{
    if (instance != VOK_CP_SIM_INSTANCE)
        return VOK_CP_SIM_WRONG_INSTANCE;
    if (record == nullptr)
        return VOK_CP_SIM_NULL_ARGUMENT;
    if (const status wrong = check_record(bytes_of(*record), bind_fields))
        return wrong;
    const vok_bind_record &r = *record;
    const bool session_type_known =
        r.srcSessionType == VOK_SESSION_TYPE_L2TP || r.srcSessionType == VOK_SESSION_TYPE_UDP;
    if (!session_type_known || r.srcSessionType != r.dstSessionType)
        return VOK_CP_SIM_WRONG_CONSTANT;
    for (const binding_rule &rule : binding_rules) {
        if (rule.kind != r.bindKind || rule.direction != r.direction)
            continue;
        if (const status wrong = check_flow_end(r.srcTypeHandle, r.srcFlowHandle, r.srcFlowID, rule.sources))
            return wrong;
        return check_flow_end(r.dstTypeHandle, r.destFlowHandle, r.dstFlowID, rule.destinations);
    }
    return VOK_CP_SIM_WRONG_CONSTANT;
}

/// Visits the objects that a binding uses.
void model::for_each_end(const vok_bind_record &record, const std::function<void(object &)> &visit)
{
    for (const std::uint64_t handle : {record.srcFlowHandle, record.destFlowHandle})
        if (const auto found = objects_.find(handle); found != objects_.end())
            visit(found->second);
}

} // namespace vok_cp
