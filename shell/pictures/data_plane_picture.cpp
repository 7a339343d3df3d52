#include "picture.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "data_plane_layout.h"
#include "graphviz.h"
#include "owner_groups.h"
#include "picture_style.h"

namespace {

using graphviz::escaped;
using graphviz::number;
using style::in_bold;
using style::in_colour;
using column = data_plane_layout::column;

constexpr std::size_t objects_at_most = 200; ///< many more nobody looks through
constexpr double font_size = 10, line_height = 13;

struct look {
    const char *shape, *outlines, *fill, *border;
};

constexpr char in_fill[] = "#e4eefb", in_border[] = "#6f9bd1"; ///< of what packets from the network come to
constexpr char out_fill[] = "#e5f4e7", out_border[] = "#6fae7c";

look look_of(vok_cp_sim_kind_t kind)
{
    switch (kind) {
    case VOK_CP_SIM_IPV4_INGRESS:
    case VOK_CP_SIM_IPV6_INGRESS: return {"box", "filled", in_fill, in_border};
    case VOK_CP_SIM_IPV4_EGRESS:
    case VOK_CP_SIM_IPV6_EGRESS: return {"box", "filled", out_fill, out_border};
    case VOK_CP_SIM_L2TPV3_INTERFACE: return {"component", "filled", "#eee8f7", "#9c86c4"};
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW: return {"box", "rounded,filled", in_fill, in_border};
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: return {"box", "rounded,filled", out_fill, out_border};
    }
    return {"box", "filled", "white", style::line};
}

/// What a node says.
struct node_text {
    std::string heading, handle;
    std::vector<std::string> lines;
    std::string faint_line;

    std::string html() const
    {
        std::string all = handle.empty() ? in_bold(heading) : style::as_heading(heading) + escaped(handle);
        for (const std::string &line : lines)
            all += "<br/>" + escaped(line);
        return all + (faint_line.empty() ? "" : "<br/>" + in_colour(style::faint_ink, escaped(faint_line)));
    }

    /// With a margin around it. A heading's bold letters are wider.
    data_plane_layout::size size() const
    {
        std::size_t longest = std::max(faint_line.size(), heading.size() * 11 / 10 + 2 + handle.size());
        for (const std::string &line : lines)
            longest = std::max(longest, line.size());
        const std::size_t count = 1 + lines.size() + (faint_line.empty() ? 0 : 1);
        return {static_cast<double>(longest) * 0.6 * font_size + 14, static_cast<double>(count) * line_height + 9};
    }
};

node_text text_of(const data_plane::object &object)
{
    node_text text{kind_name(object.kind), handle_text(object.handle), {}, header_text(object)};
    if (object.header.ip_version == 0)
        return text;
    const std::string both = from_to(object.header);
    const std::size_t arrow = both.find(" -> ");
    if (both.size() > 60 && arrow != std::string::npos)
        text.lines = {both.substr(0, arrow), both.substr(arrow + 1)};
    else
        text.lines = {both};
    return text;
}

/// "ovlin 0x00200005" above "pcep 2, session 5"
node_text text_of_ovlin_flow(std::uint32_t id)
{
    const std::string both = ovlin_flow_text(id);
    const std::size_t bracket = both.find(" (");
    if (bracket == std::string::npos)
        return {both, "", {}, ""};
    return {both.substr(0, bracket), "", {}, both.substr(bracket + 2, both.size() - bracket - 3)};
}

std::string label_of(const data_plane::binding &binding)
{
    std::string label = bind_kind_text(binding.record) + " " + direction_text(binding.record);
    if (binding.has_dscp)
        label += ", dscp " + std::to_string(binding.dscp);
    return escaped(label);
}

struct point {
    double x, y;
};

/// A line from one point to another, level first as far as `level_to`, then in a bend.
std::vector<point> way(point from, double level_to, point to)
{
    const point knee{level_to, from.y};
    const double third = (knee.x - from.x) / 3, middle = (knee.x + to.x) / 2;
    return {
        from, {from.x + third, from.y}, {knee.x - third, from.y}, knee, {middle, from.y}, {middle, to.y}, to,
    };
}

std::vector<point> reversed(std::vector<point> points)
{
    std::ranges::reverse(points);
    return points;
}

/// Graphviz's form of a line, with an arrow's head at its last point.
std::string spline_of(std::vector<point> points)
{
    const auto in_text = [](const point &p) { return number(p.x) + "," + number(-p.y); };
    constexpr double head_length = 7;
    const point tip = points.back();
    points.back().x += points[points.size() - 2].x < tip.x ? -head_length : head_length;
    std::string text = "e," + in_text(tip);
    for (const point &p : points)
        text += ' ' + in_text(p);
    return text;
}

/// What all L2TPv3 packets pass, what nobody owns, the rest of L2TP, UDP.
std::vector<owner_group> in_reading_order(std::vector<owner_group> groups)
{
    const auto place = [](const owner_group &group) {
        if (group.owners.empty())
            return 1;
        const owner::kind first = group.owners.front().what;
        return first == owner::kind::library ? 0 : first == owner::kind::udp_session ? 3 : 2;
    };
    std::ranges::sort(groups, {}, [&](const owner_group &group) { return std::pair(place(group), group.owners); });
    return groups;
}

class data_plane_picture {
public:
    data_plane_picture(const data_plane &plane, const ownership &owners)
        : plane_(plane), owners_(owners),
          groups_(in_reading_order(most_interesting_groups(plane, owners, objects_at_most))), texts_(texts()),
          layout_(plane, owners, groups_, [this](const std::string &name) { return texts_.at(name).size(); })
    {
    }

    void draw(const std::string &file)
    {
        for (std::size_t i = 0; i < groups_.size(); ++i)
            draw(groups_[i], layout_.frame(i));
        draw_ovlin_flows();
        for (const owner_group &group : groups_)
            for (const auto *object : group.objects)
                draw_from_interface(*object);
        for (const auto *binding : layout_.bindings()) {
            const std::string from = source_text(binding->record), to = destination_text(binding->record);
            if (layout_.nodes().at(from).where == column::association)
                ++associations_at_[to];
            if (layout_.nodes().at(to).where == column::association)
                ++associations_at_[from];
        }
        for (const bool is_owned : {true, false}) // what nobody owns is above all else
            for (const auto *binding : layout_.bindings())
                if (owners_.of(*binding).empty() != is_owned)
                    draw(*binding, is_owned);
        draw_title();
        graph_.render("nop2", file);
    }

private:
    /// Of all nodes that there may be, by name.
    std::map<std::string, node_text> texts() const
    {
        std::map<std::string, node_text> all;
        for (const owner_group &group : groups_) {
            for (const auto *object : group.objects) {
                all[data_plane_layout::name_of(*object)] = text_of(*object);
                const std::uint32_t vrf = object->header.vrf_id;
                all[data_plane_layout::name_of_network(group, vrf)] = {"network", "", {}, "vrf " + std::to_string(vrf)};
            }
            for (const auto *dangling : group.dangling)
                all[data_plane_layout::name_of(*dangling)] = {
                    dangling->field, handle_text(dangling->handle), {"not there"}, ""};
        }
        for (const auto &binding : plane_.bindings)
            for (const auto &[handle, id] : {std::pair(binding.record.srcFlowHandle, binding.record.srcFlowID),
                                             std::pair(binding.record.destFlowHandle, binding.record.dstFlowID)})
                if (handle == 0)
                    all[data_plane_layout::name_of_ovlin_flow(id)] = text_of_ovlin_flow(id);
        return all;
    }

    graphviz::attributes at_its_place(const std::string &name, graphviz::attributes attributes) const
    {
        const auto &[where, y, height] = layout_.nodes().at(name);
        attributes["label"] = texts_.at(name).html();
        attributes.merge(graphviz::placed((layout_.left(where) + layout_.right(where)) / 2, y,
                                          layout_.right(where) - layout_.left(where), height));
        return attributes;
    }

    void draw(const owner_group &group, const data_plane_layout::box &frame)
    {
        const bool is_owned = !group.owners.empty();
        std::string title = group.title();
        const auto room = static_cast<std::size_t>((frame.right - frame.left) / (0.64 * (font_size + 1)));
        if (title.size() > room)
            title = title.substr(0, room - 1) + "…";
        const auto title_width = static_cast<long>(title.size()) * 8;
        auto box = graph_.add_cluster(
            {{"label", R"(<table border="0" cellpadding="0"><tr><td align="left" width=")" +
                           std::to_string(title_width) + R"(">)" + in_bold(title) + "</td></tr></table>"},
             {"bb",
              number(frame.left) + "," + number(-frame.bottom) + "," + number(frame.right) + "," + number(-frame.top)},
             {"lp", number(frame.left + 8 + static_cast<double>(title_width) / 2) + "," +
                        number(-frame.top - data_plane_layout::title_height / 2)},
             {"style", "rounded,filled"},
             {"fillcolor", is_owned ? "#f1f3f6" : style::alarm_fill},
             {"color", is_owned ? "#cdd5de" : style::alarm},
             {"fontcolor", is_owned ? style::ink : style::alarm}});
        for (const auto *object : group.objects) {
            const look as = look_of(object->kind);
            const std::string name = data_plane_layout::name_of(*object);
            box.node(name, at_its_place(name, {{"shape", as.shape},
                                               {"style", as.outlines},
                                               {"fillcolor", is_owned ? as.fill : "white"},
                                               {"color", is_owned ? as.border : style::alarm},
                                               {"fontcolor", is_owned ? style::ink : style::alarm},
                                               {"penwidth", is_owned ? "1" : "2"}}));
            if (data_plane_layout::column_of(object->kind) == column::association)
                draw_network(*object, group);
        }
        for (const auto *dangling : group.dangling) {
            const std::string name = data_plane_layout::name_of(*dangling);
            box.node(name, at_its_place(name, {{"style", "dashed,filled"},
                                               {"fillcolor", "white"},
                                               {"color", style::alarm},
                                               {"fontcolor", style::alarm}}));
        }
    }

    /// Where an association's packets come from or go to.
    void draw_network(const data_plane::object &object, const owner_group &group)
    {
        const std::string network = data_plane_layout::name_of_network(group, object.header.vrf_id);
        const std::string association = data_plane_layout::name_of(object);
        graph_.node(network, at_its_place(network, {{"fontcolor", style::faint_ink}}));
        const point at_network{layout_.right(column::network), layout_.nodes().at(network).y};
        const point at_association{layout_.left(column::association), layout_.nodes().at(association).y};
        const std::vector<point> inwards = way(at_network, at_network.x, at_association);
        if (object.kind == VOK_CP_SIM_IPV4_INGRESS || object.kind == VOK_CP_SIM_IPV6_INGRESS)
            draw_arrow(network, association, inwards, {{"color", style::line}});
        else
            draw_arrow(association, network, reversed(inwards), {{"color", style::line}});
    }

    void draw_ovlin_flows()
    {
        for (const auto &[name, placed] : layout_.nodes())
            if (placed.where == column::ovlin_flow)
                graph_.node(
                    name,
                    at_its_place(name, {{"style", "rounded,filled"}, {"fillcolor", "#fcf1da"}, {"color", "#cfa24a"}}));
    }

    /// No binding leads from the interface to its flows: they were created on it.
    void draw_from_interface(const data_plane::object &object)
    {
        const std::string interface = handle_text(interface_of(object)), flow = data_plane_layout::name_of(object);
        const auto found = layout_.nodes().find(interface);
        if (found == layout_.nodes().end())
            return;
        const point from{layout_.right(column::interface), found->second.y};
        const point to{layout_.left(column::l2tpv3_flow), layout_.nodes().at(flow).y};
        draw_arrow(interface, flow, reversed(way(to, to.x - data_plane_layout::label_width, from)),
                   {{"color", "#b4bfcb"}});
    }

    /// The label stands on the level part of the line, at the end that has the fewer bindings.
    void draw(const data_plane::binding &binding, bool is_owned)
    {
        const std::string from = source_text(binding.record), to = destination_text(binding.record);
        const auto &source = layout_.nodes().at(from), &destination = layout_.nodes().at(to);
        const bool rightwards = source.where < destination.where;
        const auto &at_left = rightwards ? source : destination, &at_right = rightwards ? destination : source;
        const point left_end{layout_.right(at_left.where), at_left.y};
        const point right_end{layout_.left(at_right.where), at_right.y};

        // Beside an ovlin flow lines may bend to other rows, and labels keep off.
        constexpr double label_width = data_plane_layout::label_width, bend_width = data_plane_layout::bend_width;
        const bool at_ovlin_flow = at_right.where == column::ovlin_flow;
        const bool from_association = at_left.where == column::association;
        const bool has_own_row =
            !at_ovlin_flow || at_left.y == at_right.y || associations_at_[rightwards ? to : from] == 1;
        const bool label_at_left =
            at_left.where == column::l2tpv3_flow || at_right.where == column::interface || !has_own_row;
        const point labelled = label_at_left ? left_end : right_end;
        double level_to =
            label_at_left ? labelled.x + label_width : labelled.x - label_width - (at_ovlin_flow ? bend_width : 0);
        if (from_association && at_ovlin_flow && !label_at_left) // goes on past the flows
            level_to = std::clamp(layout_.left(column::l2tpv3_flow) - label_width, left_end.x, level_to);
        std::vector<point> points =
            label_at_left ? way(left_end, level_to, right_end) : way(right_end, level_to, left_end);
        if (label_at_left != rightwards)
            points = reversed(points);

        constexpr double padding = data_plane_layout::padding;
        const double label_x = label_at_left   ? labelled.x + (label_width + padding) / 2
                               : at_ovlin_flow ? labelled.x - bend_width - (label_width - padding) / 2
                                               : labelled.x - (label_width + padding) / 2;
        draw_arrow(from, to, std::move(points),
                   {{"label", label_of(binding)},
                    {"lp", number(label_x) + "," + number(-labelled.y + 7)},
                    {"color", is_owned ? style::faint_ink : style::alarm},
                    {"fontcolor", is_owned ? style::ink : style::alarm},
                    {"penwidth", is_owned ? "1" : "2"}});
    }

    void draw_arrow(const std::string &from, const std::string &to, std::vector<point> points,
                    graphviz::attributes attributes)
    {
        attributes["pos"] = spline_of(std::move(points));
        graph_.edge(from, to, attributes);
    }

    void draw_title()
    {
        std::vector<std::string> lines = {R"(<font point-size="16">)" + in_bold("Data plane") + "</font>"};
        const auto add = [&](const char *colour, const std::string &line) {
            lines.push_back(in_colour(colour, escaped(line)));
        };
        const bool is_empty = plane_.objects.empty() && plane_.bindings.empty();
        add(style::ink, is_empty ? "the data plane is empty" : plane_.counts());
        const auto ownerless = [this](const auto &all) {
            return std::ranges::count_if(all, [this](const auto &one) { return owners_.of(one).empty(); });
        };
        const auto objects = ownerless(plane_.objects), bindings = ownerless(plane_.bindings);
        if (objects + bindings != 0)
            add(style::alarm, "owned by nobody: " + std::to_string(objects) + " of the objects, " +
                                  std::to_string(bindings) + " of the bindings");
        if (!owners_.dangling().empty())
            add(style::alarm, "handles in tables that name nothing: " + std::to_string(owners_.dangling().size()));
        std::size_t objects_left_out = plane_.objects.size(), handles_left_out = owners_.dangling().size();
        for (const owner_group &group : groups_) {
            objects_left_out -= group.objects.size();
            handles_left_out -= group.dangling.size();
        }
        if (objects_left_out != 0)
            add(style::warning, "left out of the picture: " + std::to_string(objects_left_out) + " of the objects, " +
                                    std::to_string(plane_.bindings.size() - layout_.bindings().size()) +
                                    " of the bindings");
        if (handles_left_out != 0)
            add(style::warning, "left out of the picture: " + std::to_string(handles_left_out) + " of these handles");

        const double width = 380, height = 10 + 16 * static_cast<double>(lines.size());
        std::string table = R"(<table border="0" cellborder="0" cellspacing="0" cellpadding="1">)";
        for (const std::string &line : lines)
            table += R"(<tr><td align="left" width=")" + std::to_string(std::lround(width) - 2) + R"(">)" + line +
                     "</td></tr>";
        graphviz::attributes title{{"label", table + "</table>"}, {"fontsize", "11"}};
        title.merge(graphviz::placed(width / 2, -height / 2 - 12, width, height));
        graph_.node("title", title);
    }

    const data_plane &plane_;
    const ownership &owners_;
    std::vector<owner_group> groups_;
    std::map<std::string, node_text> texts_;
    data_plane_layout layout_;
    std::map<std::string, int> associations_at_; ///< how many are bound to a node
    graphviz::graph graph_{{{"bgcolor", style::ground},
                            {"fontname", style::font},
                            {"fontsize", number(font_size + 1)},
                            {"pad", "0.3"},
                            {"outputorder", "nodesfirst"}},
                           {{"fontname", style::font},
                            {"fontsize", number(font_size)},
                            {"fontcolor", style::ink},
                            {"shape", "box"},
                            {"style", ""},
                            {"color", "transparent"},
                            {"fixedsize", "true"},
                            {"margin", "0"}},
                           {{"fontname", style::font}, {"fontsize", "9"}, {"arrowsize", "0.7"}}};
};

} // namespace

void draw_data_plane(const data_plane &plane, const ownership &owners, const std::string &file)
{
    data_plane_picture(plane, owners).draw(file);
}
