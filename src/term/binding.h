/// The bindings between flows and ovlin flows, as the data plane's bind and unbind take them.
#pragma once

#include "term/platform.h"
#include "term/timed_call.h"

namespace zel {

/// The ovlin side of a binding: 12 bits of PCEP id, 20 bits of ovlin session id.
constexpr u32 ovlin_flow_id(u32 pcep_id, u32 ovlin_session_id)
{
    return (pcep_id << 20) | (ovlin_session_id & 0xFFFFF);
}

/// One side of a binding.
struct binding_end {
    u64 type_handle;
    u64 flow_handle; ///< 0 for an ovlin flow ID
    u32 flow_id;     ///< 0 for a handle
};

/// An association or a flow.
constexpr binding_end flow_end(u64 type_handle, u64 flow_handle)
{
    return {type_handle, flow_handle, 0};
}

constexpr binding_end ovlin_end(u64 type_handle, u32 flow_id)
{
    return {type_handle, 0, flow_id};
}

/// The record of a binding without DSCP: it serves to unbind as it is, and to bind after adding the DSCP if there is
/// one.
inline vok_bind_record binding(u32 kind, u32 direction, u32 session_type, binding_end source, binding_end destination)
{
    vok_bind_record record{};
    record.bindKind = kind;
    record.direction = direction;
    record.param08 = 1;
    record.srcTypeHandle = source.type_handle;
    record.srcFlowHandle = source.flow_handle;
    record.srcFlowID = source.flow_id;
    record.srcSessionType = session_type;
    record.dstTypeHandle = destination.type_handle;
    record.destFlowHandle = destination.flow_handle;
    record.dstFlowID = destination.flow_id;
    record.dstSessionType = session_type;
    record.param54 = 1;
    return record;
}

/// The dscpRef of a binding with that DSCP; the data plane reads it only during the call.
inline u64 dscp_reference(const u8 &dscp)
{
    return reinterpret_cast<u64>(&dscp);
}

inline u32 bind(trace_site site, const char *description, u64 instance, const vok_bind_record &record)
{
    return timed_call(site, description, vok_bind, instance, address_of(record));
}

inline u32 unbind(trace_site site, const char *description, u64 instance, const vok_bind_record &record)
{
    return timed_call(site, description, vok_unbind, instance, address_of(record));
}

} // namespace zel
