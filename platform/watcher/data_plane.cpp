#include "data_plane.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "kiv_util.h"

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

void keep_binding(void *bindings, const vok_cp_sim_binding_t *b)
{
    static_cast<std::vector<data_plane::binding> *>(bindings)->push_back(
        {*static_cast<const vok_bind_record *>(b->record), b->has_dscp, b->dscp});
}

} // namespace

std::strong_ordering data_plane::object::operator<=>(const object &other) const
{
    return std::tie(handle, kind, record) <=> std::tie(other.handle, other.kind, other.record);
}

std::strong_ordering data_plane::binding::operator<=>(const binding &other) const
{
    const int records = std::memcmp(&record, &other.record, sizeof record);
    return std::tie(records, has_dscp, dscp) <=> std::forward_as_tuple(0, other.has_dscp, other.dscp);
}

data_plane::object data_plane::object::from(const vok_cp_sim_object_t &shown)
{
    const auto *record = static_cast<const std::byte *>(shown.record);
    return {shown.handle, shown.kind, {record, record + shown.record_size}, shown.header, shown.path_mtu};
}

data_plane data_plane::now()
{
    data_plane plane;
    vok_cp_sim_walk_objects(
        [](void *context, const vok_cp_sim_object_t *o) {
            static_cast<std::vector<object> *>(context)->push_back(object::from(*o));
        },
        &plane.objects);
    vok_cp_sim_walk_bindings(keep_binding, &plane.bindings);
    return plane;
}

data_plane data_plane::of(const std::set<std::uint64_t> &handles)
{
    data_plane plane;
    for (const std::uint64_t handle : handles)
        if (vok_cp_sim_object_t found; vok_cp_sim_find(handle, &found)) {
            plane.objects.push_back(object::from(found));
            vok_cp_sim_walk_bindings_of(handle, keep_binding, &plane.bindings);
        }
    std::ranges::sort(plane.bindings);
    const auto repeated = std::unique(plane.bindings.begin(), plane.bindings.end()); // between two of the objects
    plane.bindings.erase(repeated, plane.bindings.end());
    return plane;
}

std::string count_text(std::size_t count, const char *what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string counts_now()
{
    const vok_cp_sim_counts_t held = vok_cp_sim_count();
    return count_text(held.objects, "object") + ", " + count_text(held.bindings, "binding");
}

std::string address_text(int ip_version, const std::uint8_t (&address)[16])
{
    char text[INET6_ADDRSTRLEN] = "?";
    inet_ntop(ip_version == 6 ? AF_INET6 : AF_INET, address, text, sizeof text);
    return text;
}

std::string to_text(int ip_version, const std::uint8_t (&address)[16], std::uint16_t port)
{
    const std::string text = address_text(ip_version, address);
    return (ip_version == 6 ? "[" + text + "]" : text) + ":" + std::to_string(port);
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
    if (h.l2tp_session_id != 0)
        return "session " + std::to_string(h.l2tp_session_id);
    if (h.l2tp_connection_id != 0)
        return "control connection " + std::to_string(h.l2tp_connection_id);
    if (h.ip_version == 0)
        return "";
    std::string text = protocol_name(h.protocol);
    if (h.ttl != 0)
        text += (h.ip_version == 4 ? ", ttl " : ", hop limit ") + std::to_string(h.ttl);
    if (path_mtu != 0)
        text += ", path mtu " + std::to_string(path_mtu);
    return text;
}

std::string header_text(const data_plane::object &o)
{
    return header_text(o.header, o.path_mtu);
}

std::string whole_header_text(const vok_cp_sim_header_t &h, std::uint32_t path_mtu)
{
    const std::string text = header_text(h, path_mtu);
    return h.ip_version == 0 ? text : from_to(h) + ", " + text + ", vrf " + std::to_string(h.vrf_id);
}

std::string ttl_text(std::uint8_t given, std::uint64_t association)
{
    vok_cp_sim_object_t found;
    const bool differs = vok_cp_sim_find(association, &found) && found.header.ttl != given;
    return std::to_string(given) + (differs ? " (" + std::to_string(found.header.ttl) + " in force)" : "");
}

std::string ovlin_flow_text(std::uint32_t id)
{
    return "ovlin " + hex(id, 8) + " (pcep " + std::to_string(id >> 20) + ", session " + std::to_string(id & 0xFFFFF) +
           ")";
}

std::string bind_kind_text(const vok_bind_record &r)
{
    switch (r.bindKind) {
    case VOK_BIND_F2F: return "F2F";
    case VOK_BIND_F2ID: return "F2ID";
    case VOK_BIND_ID2F: return "ID2F";
    default: return "unknown";
    }
}

std::string direction_text(const vok_bind_record &r)
{
    return r.direction == VOK_INGRESS ? "INGRESS" : "EGRESS";
}

std::string source_text(const vok_bind_record &r)
{
    return r.bindKind == VOK_BIND_ID2F ? ovlin_flow_text(r.srcFlowID) : handle_text(r.srcFlowHandle);
}

std::string destination_text(const vok_bind_record &r)
{
    return r.bindKind == VOK_BIND_F2ID ? ovlin_flow_text(r.dstFlowID) : handle_text(r.destFlowHandle);
}

std::string handle_text(std::uint64_t handle)
{
    return hex(handle, 0);
}

std::string to_text(const data_plane::object &o)
{
    std::string text = std::string(kind_name(o.kind)) + " " + handle_text(o.handle);
    if (o.header.ip_version != 0)
        text += " (" + from_to(o.header) + ")";
    else if (const std::string header = header_text(o); !header.empty())
        text += " (" + header + ")";
    return text;
}

std::string to_text(const vok_bind_record &r)
{
    return bind_kind_text(r) + " " + direction_text(r) + " " + source_text(r) + " -> " + destination_text(r);
}

std::string subject_text(const watched_call &call)
{
    if (call.is_hook())
        return "pcep " + std::to_string(call.pcep_id) + ", session type " + std::to_string(call.session_type);
    if (call.record.empty())
        return handle_text(call.handle);
    if (call.is_bind_or_unbind())
        return to_text(call.binding());
    const vok_cp_sim_object_t o = vok_cp_sim_describe(call.kind, call.record.data(), call.record.size());
    return whole_header_text(o.header, o.path_mtu);
}

std::string status_text(const watched_call &call)
{
    return status_text(call.operation, call.status);
}

std::string status_text(std::string_view operation, std::uint32_t status)
{
    if (operation == session_type_hook)
        return kiv_util_init_rc_str_get(status);
    std::uint64_t system_handle = 0;
    vok_syshandle_get(0, 1, &system_handle);
    return vok_sys_status_get(system_handle, status);
}
