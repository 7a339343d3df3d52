#include "picture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

#include "graphviz.h"

namespace {

using graphviz::escaped;
using style::in_bold;
using style::in_colour;

constexpr std::size_t objects_at_most = 200; ///< more would not be readable

/// As packets come in from the network.
enum rank { network, association, interface, l2tpv3_flow };

struct look {
    rank where;
    bool is_ingress;
    const char *attributes;
};

const look &look_of(vok_cp_sim_kind_t kind)
{
    static const look in{association, true, R"(fillcolor="#e4eefb", color="#6f9bd1")"},
        out{association, false, R"(fillcolor="#e5f4e7", color="#6fae7c")"},
        on{interface, true, R"(fillcolor="#eee8f7", color="#9c86c4", shape=component)"},
        flow_in{l2tpv3_flow, true, R"(fillcolor="#e4eefb", color="#6f9bd1", style="rounded,filled")"},
        flow_out{l2tpv3_flow, false, R"(fillcolor="#e5f4e7", color="#6fae7c", style="rounded,filled")"};
    switch (kind) {
    case VOK_CP_SIM_L2TPV3_INTERFACE: return on;
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW: return flow_in;
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: return flow_out;
    case VOK_CP_SIM_IPV4_INGRESS:
    case VOK_CP_SIM_IPV6_INGRESS: return in;
    default: return out;
    }
}

/// Behind other attributes, in their place.
constexpr char in_alarm[] = R"(, color="#c62828", fontcolor="#c62828", penwidth=2)";

std::string quoted(const std::string &text)
{
    return '"' + text + '"';
}

/// What the same owners own.
struct owner_group {
    std::vector<owner> owners; ///< none: what nobody owns
    std::vector<const data_plane::object *> objects;
    std::vector<held_handle> dangling; ///< that name nothing
    bool is_troubled = false;          ///< has to do with what nobody owns, or with a handle that names nothing
};

/// The L2TPv3 ingress interface that an ingress flow was created on, or 0.
std::uint64_t interface_of(const data_plane::object &object)
{
    vok_l2tpv3_ingress_flow_record record;
    if (object.kind != VOK_CP_SIM_L2TPV3_INGRESS_FLOW || object.record.size() != sizeof record)
        return 0;
    std::memcpy(&record, object.record.data(), sizeof record);
    return record.ingressInterfaceHandle;
}

/// The groups, up to so many objects: first those that are troubled, then the others by owner.
std::vector<owner_group> most_interesting_groups(const data_plane &plane, const ownership &owners)
{
    std::map<std::vector<owner>, owner_group> by_owners;
    std::map<std::uint64_t, owner_group *> by_handle;
    for (const auto &object : plane.objects) {
        const std::vector<owner> who = owners.of(object);
        owner_group &owning = by_owners[who];
        owning.owners = who;
        owning.is_troubled |= who.empty();
        owning.objects.push_back(&object);
        by_handle[object.handle] = &owning;
    }
    for (const held_handle &held : owners.dangling()) {
        owner_group &holding = by_owners[{held.holder}];
        holding.owners = {held.holder};
        holding.dangling.push_back(held);
        holding.is_troubled = true;
    }
    for (const auto &binding : plane.bindings)
        if (owners.of(binding).empty())
            for (const std::uint64_t handle : {binding.record.srcFlowHandle, binding.record.destFlowHandle})
                if (const auto end = by_handle.find(handle); end != by_handle.end())
                    end->second->is_troubled = true;

    std::vector<owner_group> first;
    std::size_t room = objects_at_most;
    for (const bool troubled_ones : {true, false})
        for (auto &[who, group] : by_owners)
            if (group.is_troubled == troubled_ones && room != 0) {
                if (who.empty()) // of what nobody owns a part is better than nothing
                    group.objects.resize(std::min(group.objects.size(), room));
                // A dangling handle takes as much room as an object.
                room -= std::min(room, group.objects.size() + group.dangling.size());
                first.push_back(std::move(group));
            }
    return first;
}

bool is_udp_session(const owner_group &group)
{
    return !group.owners.empty() && group.owners.front().what == owner::kind::udp_session;
}

class data_plane_picture {
public:
    data_plane_picture(const data_plane &plane, const ownership &owners)
        : plane_(plane), owners_(owners), groups_(most_interesting_groups(plane, owners))
    {
    }

    std::string dot()
    {
        for (const owner_group &group : groups_)
            for (const auto *object : group.objects)
                drawn_[object->handle] = look_of(object->kind).where;
        const bool has_l2tpv3 = std::ranges::any_of(drawn_, [](const auto &one) { return one.second > association; });
        drawn_[0] = has_l2tpv3 ? l2tpv3_flow + 1 : association + 1; // the ovlin flows
        // Unconnected groups are laid out from bottom to top.
        std::vector<owner_group> joined, separate;
        for (owner_group &group : groups_)
            (is_udp_session(group) ? separate : joined).push_back(std::move(group));
        groups_ = std::move(joined);
        std::move(separate.rbegin(), separate.rend(), std::back_inserter(groups_));
        for (const owner_group &group : groups_)
            draw(group);
        for (const auto &binding : plane_.bindings)
            draw(binding);
        spread();
        return style::head + "graph [rankdir=LR, ranksep=0.3, nodesep=0.15, labelloc=t, labeljust=l, label=<" +
               title() + ">];\nnode [shape=box, style=filled, margin=\"0.12,0.05\"];\n" + graph_ + "}";
    }

private:
    /// Lays unconnected groups out in columns, by invisible edges between neighbours.
    void spread()
    {
        std::vector<std::string> separate;
        for (const owner_group &group : groups_)
            if (group.objects.empty())
                separate.push_back(to_text(group.dangling.front()));
            else if (is_udp_session(group))
                separate.push_back(handle_text(group.objects.front()->handle));
        std::ranges::reverse(separate);
        const auto rows =
            static_cast<std::size_t>(std::max(5.0, std::ceil(2 * std::sqrt(static_cast<double>(separate.size())))));
        for (std::size_t i = rows; i < separate.size(); ++i)
            draw_edge({separate[i - rows], 0}, {separate[i], drawn_.at(0) + 1}, "style=invis, weight=0");
    }

    using end = std::pair<std::string, int>; ///< a node's name and rank

    static end end_at(const data_plane::object &object)
    {
        return {handle_text(object.handle), look_of(object.kind).where};
    }

    void draw_node(const std::string &name, const std::string &label, const std::string &attributes)
    {
        graph_ += quoted(name) + " [label=<" + label + ">, " + attributes + "];\n";
    }

    /// From left to right, whichever way it leads.
    void draw_edge(end tail, end head, const std::string &attributes)
    {
        const bool leads_back = tail.second > head.second;
        if (leads_back)
            std::swap(tail, head);
        graph_ += quoted(tail.first) + ":e -> " + quoted(head.first) + ":w [" + attributes +
                  ", minlen=" + std::to_string(head.second - tail.second) + (leads_back ? ", dir=back];\n" : "];\n");
    }

    void draw(const owner_group &group)
    {
        const bool is_owned = !group.owners.empty();
        graph_ += "subgraph " + quoted("cluster " + std::to_string(++clusters_)) + " {\ngraph [label=<" +
                  in_bold(to_text(group.owners)) + R"(>, style="rounded,filled", fillcolor=")" +
                  (is_owned ? R"(#f1f3f6", color="#cdd5de"])" : style::alarm_fill + '"' + in_alarm + ']') + ";\n";
        for (const auto *object : group.objects)
            draw(*object, is_owned);
        const auto rank_at = [](const auto *object) { return look_of(object->kind).where; };
        const auto first = std::ranges::min_element(group.objects, {}, rank_at);
        for (const auto *object : group.objects) // in a cluster only its own edges make ranks
            if (rank_at(object) > rank_at(*first))
                draw_edge(end_at(**first), end_at(*object), "style=invis, weight=0");
        for (const held_handle &held : group.dangling)
            draw_node(to_text(held),
                      in_bold(field_name(held)) + style::gap + handle_text(held.handle) + "<br/>not there",
                      std::string(R"(style="dashed,filled", fillcolor=white)") + in_alarm);
        graph_ += "}\n";
        for (const auto *object : group.objects)
            draw_source(*object);
    }

    void draw(const data_plane::object &object, bool is_owned)
    {
        std::string label = in_bold(kind_name(object.kind)) + style::gap + handle_text(object.handle);
        if (object.header.ip_version != 0)
            label += "<br/>" + escaped(from_to(object.header));
        if (const std::string header = header_text(object); !header.empty())
            label += "<br/>" + in_colour(style::faint_ink, escaped(header));
        draw_node(handle_text(object.handle), label,
                  look_of(object.kind).attributes + (is_owned ? "" : std::string(in_alarm) + ", fillcolor=white"));
    }

    /// Beside the bindings packets come from or go to the network, and from the interface that a flow was created on.
    void draw_source(const data_plane::object &object)
    {
        const end there = end_at(object);
        if (there.second == association) {
            const std::string vrf = "vrf " + std::to_string(object.header.vrf_id);
            const end source{"network of " + std::to_string(clusters_) + " in " + vrf, network};
            const bool is_ingress = look_of(object.kind).is_ingress;
            draw_node(source.first, in_bold("network") + "<br/>" + vrf, "style=\"\", color=none");
            draw_edge(is_ingress ? source : there, is_ingress ? there : source, "color=\"#8895a4\"");
        } else if (const std::uint64_t handle = interface_of(object); handle != 0 && drawn_.contains(handle)) {
            draw_edge({handle_text(handle), interface}, there, "color=\"#b4bfcb\"");
        }
    }

    void draw(const data_plane::binding &binding)
    {
        const vok_bind_record &r = binding.record;
        const auto source = drawn_.find(r.srcFlowHandle), destination = drawn_.find(r.destFlowHandle);
        if (source == drawn_.end() || destination == drawn_.end())
            return;
        const std::string from = source_text(r), to = destination_text(r);
        for (const std::string &name : {from, to})
            if (const std::size_t gap = name.find(" ("); gap != std::string::npos) // of an ovlin flow
                draw_node(name,
                          in_bold(name.substr(0, gap)) + "<br/>" +
                              in_colour(style::faint_ink, name.substr(gap + 2, name.size() - gap - 3)),
                          R"(style="rounded,filled", fillcolor="#fcf1da", color="#cfa24a")");
        ++bindings_;
        const std::string dscp = binding.has_dscp ? ", dscp " + std::to_string(binding.dscp) : "";
        draw_edge({from, source->second}, {to, destination->second},
                  "label=<" + bind_kind_text(r) + " " + direction_text(r) + dscp + ">, color=\"" + style::faint_ink +
                      '"' + (owners_.of(binding).empty() ? in_alarm : ""));
    }

    std::string title() const
    {
        std::string text = style::title("Data plane");
        const auto add = [&](const std::string &colour, const std::string &line) {
            text += R"(<br align="left"/>)" + in_colour(colour, line);
        };
        const auto ownerless = [this](const auto &all) {
            return std::ranges::count_if(all, [this](const auto &one) { return owners_.of(one).empty(); });
        };
        const auto counts = [](auto objects, auto bindings) {
            return std::to_string(objects) + " of the objects, " + std::to_string(bindings) + " of the bindings";
        };
        const bool is_empty = plane_.objects.empty() && plane_.bindings.empty();
        add(style::ink, is_empty ? "the data plane is empty" : counts_now());
        const auto objects = ownerless(plane_.objects), bindings = ownerless(plane_.bindings);
        if (objects + bindings != 0)
            add(style::alarm, "owned by nobody: " + counts(objects, bindings));
        std::size_t handles_left_out = owners_.dangling().size();
        if (handles_left_out != 0)
            add(style::alarm, "handles in tables that name nothing: " + std::to_string(handles_left_out));
        for (const owner_group &group : groups_)
            handles_left_out -= group.dangling.size();
        if (const std::size_t left_out = plane_.objects.size() + 1 - drawn_.size(); left_out != 0)
            add(style::warning, "left out of the picture: " + counts(left_out, plane_.bindings.size() - bindings_));
        if (handles_left_out != 0)
            add(style::warning, "left out of the picture: " + std::to_string(handles_left_out) + " of these handles");
        return text + R"(<br align="left"/>)";
    }

    const data_plane &plane_;
    const ownership &owners_;
    std::vector<owner_group> groups_;
    std::map<std::uint64_t, int> drawn_; ///< ranks, by handle; 0 is an ovlin flow
    int clusters_ = 0;
    std::size_t bindings_ = 0;
    std::string graph_;
};

} // namespace

void draw_data_plane(const data_plane &plane, const ownership &owners, const std::string &file)
{
    graphviz::render(data_plane_picture(plane, owners).dot(), file);
}
