#include "data_plane_view.h"

#include <cstdio>

#include "endpoint.h"
#include "text_table.h"
#include "vok_cp_sim.h"

namespace {

std::string hex(std::uint64_t value, int digits)
{
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof text, "0x%0*lx", digits, value);
    return text;
}

template <typename Record> const Record &record_of(const vok_cp_sim_object_t &object)
{
    return *static_cast<const Record *>(object.record);
}

std::string protocol(unsigned number)
{
    return number == 17 ? "UDP" : "protocol " + std::to_string(number);
}

text_table::row describe(const char *kind, std::uint32_t vrf, const std::string &from, const std::string &to,
                         const std::string &rest)
{
    return {kind, std::to_string(vrf), from + " -> " + to, rest};
}

text_table::row describe(const vok_cp_sim_object_t &object)
{
    switch (object.kind) {
    case VOK_CP_SIM_IPV4_INGRESS: {
        const auto &r = record_of<vok_ip_ingress_record>(object);
        return describe("IPv4 ingress", r.ipVrdId, to_text(r.srcAddr, r.srcPort), to_text(r.dstAddr, r.dstPort),
                        protocol(r.prot));
    }
    case VOK_CP_SIM_IPV4_EGRESS: {
        const auto &r = record_of<vok_ip_egress_record>(object);
        return describe("IPv4 egress", r.ipVrdId, to_text(r.srcAddr, r.srcPort), to_text(r.dstAddr, r.dstPort),
                        "ttl " + std::to_string(r.ttl));
    }
    case VOK_CP_SIM_IPV6_INGRESS: {
        const auto &r = record_of<vok_ipv6_ingress_record>(object);
        return describe("IPv6 ingress", r.ipVrdId, to_text(r.srcAddr, r.srcPort), to_text(r.dstAddr, r.dstPort),
                        protocol(r.nextHeader));
    }
    case VOK_CP_SIM_IPV6_EGRESS: {
        const auto &r = record_of<vok_ipv6_egress_record>(object);
        return describe("IPv6 egress", r.ipVrdId, to_text(r.srcAddr, r.srcPort), to_text(r.dstAddr, r.dstPort),
                        "hop limit " + std::to_string(r.hopLimit) + ", path mtu " + std::to_string(r.mtu));
    }
    }
    return {"unknown"};
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

} // namespace

void show_data_plane(std::ostream &out)
{
    struct view {
        int object_count = 0, binding_count = 0;
        text_table objects{{"handle", "object", "vrf", "from -> to", "header"}};
        text_table bindings{{"binding", "direction", "from", "to", "dscp"}};
    } shown;

    vok_cp_sim_walk_objects(
        [](void *context, const vok_cp_sim_object_t *object) {
            auto &v = *static_cast<view *>(context);
            text_table::row row = describe(*object);
            row.insert(row.begin(), hex(object->handle, 0));
            v.objects.add(std::move(row));
            ++v.object_count;
        },
        &shown);
    vok_cp_sim_walk_bindings(
        [](void *context, const vok_cp_sim_binding_t *binding) {
            auto &v = *static_cast<view *>(context);
            const auto &r = *static_cast<const vok_bind_record *>(binding->record);
            v.bindings.add({bind_kind(r), r.direction == VOK_INGRESS ? "INGRESS" : "EGRESS",
                            r.srcFlowHandle != 0 ? hex(r.srcFlowHandle, 0) : ovlin_flow(r.srcFlowID),
                            r.destFlowHandle != 0 ? hex(r.destFlowHandle, 0) : ovlin_flow(r.dstFlowID),
                            binding->has_dscp ? std::to_string(binding->dscp) : ""});
            ++v.binding_count;
        },
        &shown);

    out << shown.object_count << " objects, " << shown.binding_count << " bindings\n";
    if (shown.object_count != 0)
        out << shown.objects;
    if (shown.binding_count != 0)
        out << shown.bindings;
}
