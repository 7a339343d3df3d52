#include "data_plane.h"

#include <cstdio>
#include <cstring>
#include <tuple>

#include "endpoint.h"

namespace {

std::string hex(std::uint64_t value, int digits)
{
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof text, "0x%0*lx", digits, value);
    return text;
}

std::string protocol_name(unsigned number)
{
    return number == 17 ? "UDP" : number == 115 ? "L2TPv3" : "protocol " + std::to_string(number);
}

} // namespace

bool data_plane::object::operator==(const object &other) const
{
    return handle == other.handle && kind == other.kind && record == other.record;
}

bool data_plane::binding::operator==(const binding &other) const
{
    const auto key = [](const vok_bind_record &r) {
        return std::tie(r.bindKind, r.direction, r.srcFlowHandle, r.srcFlowID, r.destFlowHandle, r.dstFlowID);
    };
    return key(record) == key(other.record) && has_dscp == other.has_dscp && dscp == other.dscp;
}

data_plane data_plane::now()
{
    data_plane plane;
    vok_cp_sim_walk_objects(
        [](void *context, const vok_cp_sim_object_t *o) {
            const auto *bytes = static_cast<const std::byte *>(o->record);
            static_cast<data_plane *>(context)->objects.push_back(
                {o->handle, o->kind, {bytes, bytes + o->record_size}, o->header, o->path_mtu});
        },
        &plane);
    vok_cp_sim_walk_bindings(
        [](void *context, const vok_cp_sim_binding_t *b) {
            static_cast<data_plane *>(context)->bindings.push_back(
                {*static_cast<const vok_bind_record *>(b->record), b->has_dscp, b->dscp});
        },
        &plane);
    return plane;
}

std::string data_plane::counts() const
{
    const auto count = [](std::size_t number, const char *what) {
        return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
    };
    return count(objects.size(), "object") + ", " + count(bindings.size(), "binding");
}

const char *kind_name(vok_cp_sim_kind_t kind)
{
    switch (kind) {
    case VOK_CP_SIM_IPV4_INGRESS: return "IPv4 ingress";
    case VOK_CP_SIM_IPV4_EGRESS: return "IPv4 egress";
    case VOK_CP_SIM_IPV6_INGRESS: return "IPv6 ingress";
    case VOK_CP_SIM_IPV6_EGRESS: return "IPv6 egress";
    case VOK_CP_SIM_L2TPV3_INTERFACE: return "L2TPv3 ingress interface";
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW: return "L2TPv3 ingress flow";
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: return "L2TPv3 egress flow";
    }
    return "unknown";
}

std::string from_to(const vok_cp_sim_header_t &h)
{
    if (h.protocol != 17)
        return address_text(h.ip_version, h.src_addr) + " -> " + address_text(h.ip_version, h.dst_addr);
    return to_text(h.ip_version, h.src_addr, h.src_port) + " -> " + to_text(h.ip_version, h.dst_addr, h.dst_port);
}

std::string header_text(const vok_cp_sim_header_t &h, std::uint32_t path_mtu)
{
    if (h.ip_version == 0)
        return h.l2tp_session_id != 0      ? "session " + std::to_string(h.l2tp_session_id)
               : h.l2tp_connection_id != 0 ? "control connection " + std::to_string(h.l2tp_connection_id)
                                           : "";
    std::string text = protocol_name(h.protocol);
    if (h.ttl != 0)
        text += (h.ip_version == 4 ? ", ttl " : ", hop limit ") + std::to_string(h.ttl);
    if (path_mtu != 0)
        text += ", path mtu " + std::to_string(path_mtu);
    return text;
}

std::string header_text(const data_plane::object &object)
{
    return header_text(object.header, object.path_mtu);
}

std::string whole_header_text(const vok_cp_sim_header_t &header, std::uint32_t path_mtu)
{
    return from_to(header) + ", " + header_text(header, path_mtu) + ", vrf " + std::to_string(header.vrf_id);
}

std::string ovlin_flow_text(std::uint32_t id)
{
    return "ovlin " + hex(id, 8) + " (pcep " + std::to_string(id >> 20) + ", session " + std::to_string(id & 0xFFFFF) +
           ")";
}

std::string bind_kind_text(const vok_bind_record &binding)
{
    switch (binding.bindKind) {
    case VOK_BIND_F2F: return "F2F";
    case VOK_BIND_F2ID: return "F2ID";
    case VOK_BIND_ID2F: return "ID2F";
    default: return "unknown";
    }
}

std::string direction_text(const vok_bind_record &binding)
{
    return binding.direction == VOK_INGRESS ? "INGRESS" : "EGRESS";
}

std::string source_text(const vok_bind_record &r)
{
    return r.srcFlowHandle != 0 ? handle_text(r.srcFlowHandle) : ovlin_flow_text(r.srcFlowID);
}

std::string destination_text(const vok_bind_record &r)
{
    return r.destFlowHandle != 0 ? handle_text(r.destFlowHandle) : ovlin_flow_text(r.dstFlowID);
}

std::string handle_text(std::uint64_t handle)
{
    return hex(handle, 0);
}

std::string to_text(const data_plane::object &object)
{
    const std::string text = std::string(kind_name(object.kind)) + " " + handle_text(object.handle);
    return object.header.ip_version == 0 ? text : text + " (" + from_to(object.header) + ")";
}

std::string to_text(const vok_bind_record &binding)
{
    return bind_kind_text(binding) + " " + direction_text(binding) + " " + source_text(binding) + " -> " +
           destination_text(binding);
}
