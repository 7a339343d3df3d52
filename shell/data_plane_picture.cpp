#include "picture.h"

#include <algorithm>
#include <map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "graphviz.h"
#include "owner_groups.h"
#include "picture_style.h"

namespace {

using graphviz::escaped;
using style::in_bold;
using style::in_colour;

constexpr std::size_t objects_at_most = 200; ///< drawn in a second or two; many more nobody looks through

/// Left to right, as packets come in from the network.
enum column { network, association, interface, l2tpv3_flow, ovlin_flow };

struct look {
    column place;
    const char *shape, *outlines, *fill, *border;
};

constexpr char in_fill[] = "#e4eefb", in_border[] = "#6f9bd1"; ///< of what packets from the network come to
constexpr char out_fill[] = "#e5f4e7", out_border[] = "#6fae7c";

look look_of(vok_cp_sim_kind_t kind)
{
    switch (kind) {
    case VOK_CP_SIM_IPV4_INGRESS:
    case VOK_CP_SIM_IPV6_INGRESS: return {association, "box", "filled", in_fill, in_border};
    case VOK_CP_SIM_IPV4_EGRESS:
    case VOK_CP_SIM_IPV6_EGRESS: return {association, "box", "filled", out_fill, out_border};
    case VOK_CP_SIM_L2TPV3_INTERFACE: return {interface, "component", "filled", "#eee8f7", "#9c86c4"};
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW: return {l2tpv3_flow, "box", "rounded,filled", in_fill, in_border};
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: return {l2tpv3_flow, "box", "rounded,filled", out_fill, out_border};
    }
    return {association, "box", "filled", "white", style::line};
}

std::string label_of(const data_plane::object &object)
{
    std::string text = in_bold(kind_name(object.kind)) + " " + escaped(handle_text(object.handle));
    if (object.header.ip_version != 0)
        text += "<br/>" + escaped(from_to(object.header));
    if (const std::string header = header_text(object); !header.empty())
        text += "<br/>" + in_colour(style::faint_ink, escaped(header));
    return text;
}

/// "ovlin 0x00200005" above "pcep 2, session 5"
std::string label_of_ovlin_flow(std::uint32_t id)
{
    std::string text = ovlin_flow_text(id);
    const std::size_t bracket = text.find(" (");
    if (bracket == std::string::npos)
        return in_bold(text);
    const std::string parts = text.substr(bracket + 2, text.size() - bracket - 3);
    return in_bold(text.substr(0, bracket)) + "<br/>" + in_colour(style::faint_ink, escaped(parts));
}

std::string label_of(const data_plane::binding &binding)
{
    std::string text = escaped(bind_kind_text(binding.record) + " " + direction_text(binding.record));
    if (binding.has_dscp)
        text += "<br/>dscp " + std::to_string(binding.dscp);
    return text;
}

class data_plane_picture {
public:
    data_plane_picture(const data_plane &plane, const ownership &owners)
        : plane_(plane), owners_(owners), groups_(most_interesting_groups(plane, owners, objects_at_most))
    {
        for (const auto &object : plane.objects) {
            exists_.insert(object.handle);
            has_l2tpv3_ = has_l2tpv3_ || look_of(object.kind).place > association;
        }
    }

    void draw(const std::string &file)
    {
        for (const owner_group &group : groups_)
            draw(group);
        for (const owner_group &group : groups_)
            for (const auto *object : group.objects)
                draw_to_interface(*object);
        for (const auto &binding : plane_.bindings)
            draw(binding);
        hold_columns();
        if (places_.empty())
            graph_.node("empty", {{"label", "the data plane is empty"}, {"shape", "plain"}, {"fontsize", "14"}});
        draw_title();
        graph_.render("dot", file);
    }

private:
    void draw(const owner_group &group)
    {
        const bool is_owned = !group.owners.empty();
        auto box = graph_.add_cluster({{"label", in_bold(group.title())},
                                       {"style", "rounded,filled"},
                                       {"fillcolor", is_owned ? "#f1f3f6" : style::alarm_fill},
                                       {"color", is_owned ? "#cdd5de" : style::alarm},
                                       {"fontcolor", is_owned ? style::ink : style::alarm},
                                       {"labeljust", "l"},
                                       {"margin", "12"}});
        for (const auto *object : group.objects) {
            const look as = look_of(object->kind);
            const std::string name = handle_text(object->handle);
            box.node(name, {{"label", label_of(*object)},
                            {"shape", as.shape},
                            {"style", as.outlines},
                            {"fillcolor", is_owned ? as.fill : "white"},
                            {"color", is_owned ? as.border : style::alarm},
                            {"fontcolor", is_owned ? style::ink : style::alarm},
                            {"penwidth", is_owned ? "1" : "2"}});
            places_[name] = as.place;
        }
        for (const auto *dangling : group.dangling)
            draw(*dangling, box);
        for (const auto *object : group.objects)
            if (look_of(object->kind).place == association)
                draw_network(*object, group);
        objects_drawn_ += group.objects.size();
    }

    /// A handle of a table that names nothing.
    void draw(const dangling_handle &dangling, graphviz::graph::cluster &box)
    {
        const std::string name = handle_text(dangling.handle) + " of " + to_text(dangling.holder);
        box.node(name, {{"label", in_bold(dangling.field) + " " + handle_text(dangling.handle) + "<br/>not there"},
                        {"shape", "box"},
                        {"style", "dashed"},
                        {"color", style::alarm},
                        {"fontcolor", style::alarm}});
        places_[name] = dangling.field.find("interface") != std::string::npos ? interface
                        : dangling.field.find("flow") != std::string::npos     ? l2tpv3_flow
                                                                               : association;
    }

    /// Where an association's packets come from or go to: for each group a network of its own, so that no arrows cross
    /// the picture.
    void draw_network(const data_plane::object &object, const owner_group &group)
    {
        const std::string vrf = "vrf " + std::to_string(object.header.vrf_id);
        const std::string name = "network, " + vrf + ", of " + group.title();
        const bool is_egress = object.kind == VOK_CP_SIM_IPV4_EGRESS || object.kind == VOK_CP_SIM_IPV6_EGRESS;
        if (places_.emplace(name, network).second)
            graph_.node(name, {{"label", "network<br/>" + vrf},
                               {"shape", "none"},
                               {"margin", "0.06,0.02"},
                               {"fontcolor", style::faint_ink}});
        graph_.edge(name, handle_text(object.handle),
                    {{"dir", is_egress ? "back" : "forward"}, {"color", style::line}, {"weight", "4"}});
    }

    /// No binding leads from the interface to its flows: they were created on it.
    void draw_to_interface(const data_plane::object &object)
    {
        const std::string from = handle_text(interface_of(object)), to = handle_text(object.handle);
        if (places_.contains(from))
            draw_arrow(from, to, {{"style", "dotted"}, {"color", style::line}});
    }

    void draw(const data_plane::binding &binding)
    {
        const vok_bind_record &r = binding.record;
        if (is_left_out(r.srcFlowHandle) || is_left_out(r.destFlowHandle))
            return;
        const bool is_owned = !owners_.of(binding).empty();
        ++bindings_drawn_;
        draw_arrow(end(r.srcFlowHandle, r.srcFlowID), end(r.destFlowHandle, r.dstFlowID),
                   {{"label", label_of(binding)},
                    {"color", is_owned ? style::faint_ink : style::alarm},
                    {"fontcolor", is_owned ? style::ink : style::alarm},
                    {"penwidth", is_owned ? "1" : "2"}});
    }

    bool is_left_out(std::uint64_t handle) const
    {
        return exists_.contains(handle) && !places_.contains(handle_text(handle));
    }

    /// The node at an end of a binding.
    std::string end(std::uint64_t handle, std::uint32_t flow_id)
    {
        if (handle != 0) {
            const std::string name = handle_text(handle);
            if (places_.emplace(name, association).second)
                graph_.node(name, {{"label", escaped(name) + "<br/>not there"},
                                   {"shape", "box"},
                                   {"style", "dashed"},
                                   {"color", style::alarm},
                                   {"fontcolor", style::alarm}});
            return name;
        }
        const std::string name = ovlin_flow_text(flow_id);
        if (places_.emplace(name, ovlin_flow).second)
            graph_.node(name, {{"label", label_of_ovlin_flow(flow_id)},
                               {"shape", "box"},
                               {"style", "rounded,filled"},
                               {"fillcolor", "#fcf1da"},
                               {"color", "#cfa24a"}});
        return name;
    }

    /// Columns of this picture are ranks: without L2TPv3 there are none between associations and ovlin flows.
    int rank(const std::string &name) const
    {
        const column place = places_.at(name);
        return place == ovlin_flow && !has_l2tpv3_ ? interface : place;
    }

    /// The layout knows edges from left to right only, so an arrow to the left is one whose head is at its tail.
    void draw_arrow(std::string from, std::string to, graphviz::attributes attributes)
    {
        if (rank(from) > rank(to)) {
            std::swap(from, to);
            attributes["dir"] = "back";
        }
        attributes["minlen"] = std::to_string(rank(to) - rank(from));
        graph_.edge(from, to, attributes);
    }

    /// Each column is kept together, whatever leads to its nodes, and stands to the right of those before it.
    void hold_columns()
    {
        std::map<int, std::vector<std::string>> columns;
        for (const auto &[name, place] : places_)
            columns[rank(name)].push_back(name);
        for (auto it = columns.begin(), before = columns.end(); it != columns.end(); before = it++) {
            graph_.put_in_one_rank(it->second);
            if (before != columns.end())
                graph_.edge(before->second.front(), it->second.front(),
                            {{"style", "invis"}, {"minlen", std::to_string(it->first - before->first)}});
        }
    }

    void draw_title()
    {
        std::string title =
            "<font point-size=\"16\">" + in_bold("Data plane") + "</font>   " + escaped(plane_.counts());
        const auto line = [&](const char *colour, const std::string &text) {
            title += "<br align=\"left\"/>" + in_colour(colour, escaped(text));
        };
        const auto ownerless = [this](const auto &all) {
            return std::ranges::count_if(all, [this](const auto &one) { return owners_.of(one).empty(); });
        };
        const auto objects = ownerless(plane_.objects), bindings = ownerless(plane_.bindings);
        if (objects + bindings != 0)
            line(style::alarm, "nobody owns " + std::to_string(objects) + " of the objects and " +
                                   std::to_string(bindings) + " of the bindings");
        if (!owners_.dangling().empty())
            line(style::alarm, "handles of nothing in tables: " + std::to_string(owners_.dangling().size()));
        if (const std::size_t left_out = plane_.objects.size() - objects_drawn_; left_out != 0)
            line(style::warning, "left out: " + std::to_string(left_out) + " objects and " +
                                     std::to_string(plane_.bindings.size() - bindings_drawn_) + " bindings");
        graph_.set_label(title + "<br align=\"left\"/>");
    }

    const data_plane &plane_;
    const ownership &owners_;
    std::vector<owner_group> groups_;
    std::unordered_set<std::uint64_t> exists_;
    bool has_l2tpv3_ = false;
    std::map<std::string, column> places_; ///< of the nodes, by name
    std::size_t objects_drawn_ = 0, bindings_drawn_ = 0;
    graphviz::graph graph_{{{"rankdir", "LR"},
                            {"newrank", "true"},
                            {"bgcolor", style::ground},
                            {"fontname", style::font},
                            {"fontcolor", style::ink},
                            {"fontsize", "11"},
                            {"labelloc", "t"},
                            {"labeljust", "l"},
                            {"pad", "0.3"},
                            {"nodesep", "0.18"},
                            {"ranksep", "0.35"}},
                           {{"fontname", style::font},
                            {"fontsize", "10"},
                            {"fontcolor", style::ink},
                            {"margin", "0.12,0.06"},
                            {"height", "0.1"}},
                           {{"fontname", style::font}, {"fontsize", "9"}, {"arrowsize", "0.7"}}};
};

} // namespace

void draw_data_plane(const data_plane &plane, const ownership &owners, const std::string &file)
{
    data_plane_picture(plane, owners).draw(file);
}
