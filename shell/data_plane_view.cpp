#include "data_plane_view.h"

#include <cstdio>

#include "endpoint.h"
#include "text_table.h"
#include "vok_cp.h"

namespace {

std::string hex(std::uint64_t value, int digits)
{
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof text, "0x%0*lx", digits, value);
    return text;
}

const char *name_of(vok_cp_sim_kind_t kind)
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

std::string protocol_name(unsigned number)
{
    return number == 17 ? "UDP" : number == 115 ? "L2TPv3" : "protocol " + std::to_string(number);
}

/// What a header sets beside its addresses; nothing for one that is only matched.
std::string sending(const vok_cp_sim_header_t &h, std::uint32_t path_mtu)
{
    std::string text;
    if (h.ttl != 0)
        text += (h.ip_version == 4 ? ", ttl " : ", hop limit ") + std::to_string(h.ttl);
    if (path_mtu != 0)
        text += ", path mtu " + std::to_string(path_mtu);
    return text;
}

std::string ovlin_flow(std::uint32_t id)
{
    return "ovlin " + hex(id, 8) + " (pcep " + std::to_string(id >> 20) + ", session " + std::to_string(id & 0xFFFFF) +
           ")";
}

std::string bind_kind(const vok_bind_record &r)
{
    switch (r.bindKind) {
    case VOK_BIND_F2F: return "F2F";
    case VOK_BIND_F2ID: return "F2ID";
    case VOK_BIND_ID2F: return "ID2F";
    default: return "unknown";
    }
}

text_table::row describe(const vok_cp_sim_object_t &o)
{
    const vok_cp_sim_header_t &h = o.header;
    text_table::row row = {hex(o.handle, 0), name_of(o.kind)};
    if (h.ip_version != 0)
        row.insert(row.end(),
                   {std::to_string(h.vrf_id), from_to(h), protocol_name(h.protocol) + sending(h, o.path_mtu)});
    else if (h.l2tp_session_id != 0)
        row.insert(row.end(), {"", "", "session " + std::to_string(h.l2tp_session_id)});
    else if (h.l2tp_connection_id != 0)
        row.insert(row.end(), {"", "", "control connection " + std::to_string(h.l2tp_connection_id)});
    return row;
}

struct counts {
    int objects = 0, interfaces = 0, bindings = 0;
};

counts count_data_plane()
{
    counts c;
    vok_cp_sim_walk_objects(
        [](void *context, const vok_cp_sim_object_t *o) {
            auto &counted = *static_cast<counts *>(context);
            ++counted.objects;
            counted.interfaces += o->kind == VOK_CP_SIM_L2TPV3_INTERFACE;
        },
        &c);
    vok_cp_sim_walk_bindings(
        [](void *context, const vok_cp_sim_binding_t *) { ++static_cast<counts *>(context)->bindings; }, &c);
    return c;
}

} // namespace

void show_data_plane(std::ostream &out)
{
    text_table objects{{"handle", "object", "vrf", "from -> to", "header"}};
    text_table bindings{{"binding", "direction", "from", "to", "dscp"}};

    vok_cp_sim_walk_objects(
        [](void *table, const vok_cp_sim_object_t *o) { static_cast<text_table *>(table)->add(describe(*o)); },
        &objects);
    vok_cp_sim_walk_bindings(
        [](void *table, const vok_cp_sim_binding_t *b) {
            const auto &r = *static_cast<const vok_bind_record *>(b->record);
            static_cast<text_table *>(table)->add(
                {bind_kind(r), r.direction == VOK_INGRESS ? "INGRESS" : "EGRESS",
                 r.srcFlowHandle != 0 ? hex(r.srcFlowHandle, 0) : ovlin_flow(r.srcFlowID),
                 r.destFlowHandle != 0 ? hex(r.destFlowHandle, 0) : ovlin_flow(r.dstFlowID),
                 b->has_dscp ? std::to_string(b->dscp) : ""});
        },
        &bindings);

    out << data_plane_counts() << '\n' << objects << bindings;
}

std::string data_plane_counts()
{
    const counts c = count_data_plane();
    return std::to_string(c.objects) + " objects, " + std::to_string(c.bindings) + " bindings";
}

bool data_plane_is_empty()
{
    const counts c = count_data_plane();
    return c.objects == 0 && c.bindings == 0;
}

bool data_plane_is_only_interface()
{
    const counts c = count_data_plane();
    return c.objects == 1 && c.interfaces == 1 && c.bindings == 0;
}

std::string to_text(const vok_cp_sim_arrival_t &a)
{
    switch (a.fate) {
    case VOK_CP_SIM_FORWARDED: return "ends at " + ovlin_flow(a.ovlin_flow_id) + " through " + hex(a.association, 0);
    case VOK_CP_SIM_NO_ASSOCIATION: return "dropped: no ingress association matches it";
    case VOK_CP_SIM_NO_L2TPV3_FLOW: return "dropped: no L2TPv3 ingress flow has its id";
    case VOK_CP_SIM_NOT_BOUND:
        return "dropped: " + hex(a.association, 0) + " matches it, but no binding leads on to a flow";
    }
    return "unknown fate";
}

std::string to_text(const vok_cp_sim_departure_t &d)
{
    if (d.fate != VOK_CP_SIM_FORWARDED)
        return "dropped: the flow is not bound to an egress association";
    return "leaves through " + hex(d.association, 0) + " as " + from_to(d.header) + ", " +
           protocol_name(d.header.protocol) + ", vrf " + std::to_string(d.header.vrf_id) +
           sending(d.header, d.path_mtu) + (d.binding.has_dscp ? ", dscp " + std::to_string(d.binding.dscp) : "");
}
