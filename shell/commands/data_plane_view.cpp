#include "data_plane_view.h"

#include <algorithm>
#include <iterator>

#include "text_table.h"

namespace {

std::string in_words(const data_plane::object &o)
{
    return to_text(o) + (o.header.ip_version != 0 ? ", " + header_text(o) : "");
}

std::string in_words(const data_plane::binding &b)
{
    return to_text(b.record) + (b.has_dscp ? ", dscp " + std::to_string(b.dscp) : "");
}

/// A line for each of `these` that is not among `others`.
template <typename Things> void show_missing(std::ostream &out, const char *mark, Things these, Things others)
{
    std::ranges::sort(these);
    std::ranges::sort(others);
    Things missing;
    std::ranges::set_difference(these, others, std::back_inserter(missing));
    for (const auto &thing : missing)
        out << mark << in_words(thing) << '\n';
}

} // namespace

void show(std::ostream &out, const data_plane &plane)
{
    text_table objects{{"handle", "object", "vrf", "from -> to", "header"}};
    for (const data_plane::object &o : plane.objects) {
        const bool has_addresses = o.header.ip_version != 0;
        objects.add({handle_text(o.handle), kind_name(o.kind), has_addresses ? std::to_string(o.header.vrf_id) : "",
                     has_addresses ? from_to(o.header) : "", header_text(o)});
    }
    text_table bindings{{"binding", "direction", "from", "to", "dscp"}};
    for (const auto &[r, has_dscp, dscp] : plane.bindings)
        bindings.add({bind_kind_text(r), direction_text(r), source_text(r), destination_text(r),
                      has_dscp ? std::to_string(dscp) : ""});
    out << counts_now() << '\n' << objects << bindings;
}

void show_difference(std::ostream &out, const data_plane &before, const data_plane &after)
{
    show_missing(out, "  gone: ", before.objects, after.objects);
    show_missing(out, "  gone: ", before.bindings, after.bindings);
    show_missing(out, "  new: ", after.objects, before.objects);
    show_missing(out, "  new: ", after.bindings, before.bindings);
}

std::string to_text(const vok_cp_sim_arrival_t &a)
{
    switch (a.fate) {
    case VOK_CP_SIM_FORWARDED:
        return "ends at " + ovlin_flow_text(a.ovlin_flow_id) + " through " + handle_text(a.association);
    case VOK_CP_SIM_NO_ASSOCIATION: return "dropped: no ingress association matches it";
    case VOK_CP_SIM_NO_L2TPV3_FLOW: return "dropped: no L2TPv3 ingress flow has its id";
    case VOK_CP_SIM_NOT_BOUND:
        return "dropped: " + handle_text(a.association) + " matches it, but no binding leads on to a flow";
    }
    return "unknown fate";
}

std::string to_text(const vok_cp_sim_departure_t &d)
{
    if (d.fate != VOK_CP_SIM_FORWARDED)
        return "dropped: the flow is not bound to an egress association";
    return "leaves through " + handle_text(d.association) + " as " + whole_header_text(d.header, d.path_mtu) +
           (d.binding.has_dscp ? ", dscp " + std::to_string(d.binding.dscp) : "");
}
