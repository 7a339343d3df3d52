#include "data_plane_layout.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_map>

namespace {

constexpr double row_gap = 9;
constexpr double group_gap = 14;
constexpr double title_width = 240; ///< of a group that shares an association
constexpr char line[] = "-";

} // namespace

data_plane_layout::data_plane_layout(const data_plane &plane, const ownership &owners,
                                     const std::vector<owner_group> &groups, const sizes &size_of)
    : bands_(groups.size())
{
    fill_bands(plane, owners, groups);
    for (std::size_t i = 0; i < groups.size(); ++i)
        place(i, size_of);
    place_networks(groups, size_of);
    place_columns(size_of);
}

std::string data_plane_layout::name_of(const data_plane::object &object)
{
    return handle_text(object.handle);
}

std::string data_plane_layout::name_of(const dangling_handle &dangling)
{
    return dangling.field + " " + handle_text(dangling.handle) + " of " + to_text(dangling.holder);
}

std::string data_plane_layout::name_of_ovlin_flow(std::uint32_t id)
{
    return ovlin_flow_text(id);
}

std::string data_plane_layout::name_of_network(const owner_group &group, std::uint32_t vrf)
{
    return "network of " + group.title() + " in vrf " + std::to_string(vrf);
}

data_plane_layout::column data_plane_layout::column_of(vok_cp_sim_kind_t kind)
{
    switch (kind) {
    case VOK_CP_SIM_L2TPV3_INTERFACE: return interface;
    case VOK_CP_SIM_L2TPV3_INGRESS_FLOW:
    case VOK_CP_SIM_L2TPV3_EGRESS_FLOW: return l2tpv3_flow;
    default: return association;
    }
}

data_plane_layout::row &data_plane_layout::row_with_room(band &in, std::initializer_list<column> for_these)
{
    const auto has_room = [&](const row &r) {
        return std::ranges::all_of(for_these, [&](column c) { return r.in[c].empty(); });
    };
    const auto found = std::ranges::find_if(in.rows, has_room);
    return found != in.rows.end() ? *found : in.rows.emplace_back();
}

void data_plane_layout::fill_bands(const data_plane &plane, const ownership &owners,
                                   const std::vector<owner_group> &groups)
{
    std::unordered_map<std::uint64_t, std::size_t> group_of;
    std::unordered_map<std::uint64_t, column> column_of_handle;
    std::map<std::vector<owner>, std::size_t> group_of_owners;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        group_of_owners[groups[i].owners] = i;
        for (const auto *object : groups[i].objects) {
            group_of[object->handle] = i;
            column_of_handle[object->handle] = column_of(object->kind);
        }
    }

    // A binding to or from an ovlin flow takes a row of its owner's band.
    struct way {
        std::size_t group;
        std::uint64_t handle;
        std::uint32_t flow_id;
    };
    std::vector<way> to_ovlin;
    std::set<std::uint64_t> with_ovlin;
    for (const auto &binding : plane.bindings) {
        const vok_bind_record &r = binding.record;
        const auto source = group_of.find(r.srcFlowHandle), destination = group_of.find(r.destFlowHandle);
        if ((r.srcFlowHandle != 0 && source == group_of.end()) ||
            (r.destFlowHandle != 0 && destination == group_of.end()))
            continue;
        bindings_.push_back(&binding);
        if (r.srcFlowHandle != 0 && r.destFlowHandle != 0) {
            if (source->second != destination->second && r.direction == VOK_EGRESS)
                bands_[destination->second].attached.push_back(source->second);
            continue;
        }
        const auto [handle, group] = r.srcFlowHandle != 0 ? *source : *destination;
        const auto own = group_of_owners.find(owners.of(binding));
        const std::size_t band_of = own != group_of_owners.end() ? own->second : group;
        to_ovlin.push_back({band_of, handle, r.srcFlowHandle != 0 ? r.dstFlowID : r.srcFlowID});
        if (band_of == group)
            with_ovlin.insert(handle);
        else
            bands_[group].attached.push_back(band_of);
    }

    for (band &b : bands_)
        std::ranges::sort(b.attached);

    std::unordered_map<std::uint64_t, std::pair<std::size_t, std::size_t>> row_of; ///< by handle: group and row
    for (std::size_t i = 0; i < groups.size(); ++i) {
        band &b = bands_[i];
        const auto take = [&](column c, const std::string &name, bool leads_on) -> row & {
            row &r = !leads_on          ? row_with_room(b, {c})
                     : c == association ? row_with_room(b, {association, l2tpv3_flow, ovlin_flow})
                                        : row_with_room(b, {c, ovlin_flow});
            r.in[c] = name;
            b.first = std::min(b.first, c);
            b.last = std::max(b.last, c);
            return r;
        };
        for (const auto *object : groups[i].objects) {
            const column c = column_of(object->kind);
            const bool leads_on = with_ovlin.contains(object->handle);
            row &r = take(c, name_of(*object), leads_on);
            if (leads_on && c == association)
                r.in[l2tpv3_flow] = line;
            row_of[object->handle] = {i, static_cast<std::size_t>(&r - b.rows.data())};
        }
        for (const auto *dangling : groups[i].dangling)
            take(dangling->field.find("interface") != std::string::npos ? interface
                 : dangling->field.find("flow") != std::string::npos    ? l2tpv3_flow
                                                                        : association,
                 name_of(*dangling), false);
    }

    // A line to an association needs a row without a flow, so what associations are bound to comes first; a flow's line
    // to an ovlin flow of another row bends behind it.
    std::ranges::stable_sort(to_ovlin, {}, [&](const way &w) { return column_of_handle.at(w.handle); });
    std::set<std::uint32_t> placed;
    for (const auto &[group, handle, flow_id] : to_ovlin) {
        if (!placed.insert(flow_id).second)
            continue;
        band &b = bands_[group];
        const auto [group_of_handle, row_number] = row_of.at(handle);
        row *r = group_of_handle == group ? &b.rows[row_number] : nullptr;
        if (r == nullptr || !r->in[ovlin_flow].empty()) {
            r = &row_with_room(b, {association, l2tpv3_flow, ovlin_flow});
            r->in[l2tpv3_flow] = line;
        }
        r->in[ovlin_flow] = name_of_ovlin_flow(flow_id);
        b.leads_to_ovlin = true;
    }
}

double data_plane_layout::height_of(const band &measured, const sizes &size_of) const
{
    double height = title_height + padding - row_gap;
    for (const row &r : measured.rows) {
        double tallest = 0;
        for (const std::string &name : r.in)
            if (!name.empty() && name != line)
                tallest = std::max(tallest, size_of(name).height);
        height += tallest + row_gap;
    }
    return height;
}

void data_plane_layout::put(band &placed, double top, const sizes &size_of)
{
    placed.top = top;
    double y = top + title_height;
    for (const row &r : placed.rows) {
        double tallest = 0;
        for (const std::string &name : r.in)
            if (!name.empty() && name != line)
                tallest = std::max(tallest, size_of(name).height);
        for (std::size_t c = 0; c < columns; ++c)
            if (!r.in[c].empty() && r.in[c] != line)
                nodes_[r.in[c]] = {static_cast<column>(c), y + tallest / 2, size_of(r.in[c]).height};
        y += tallest + row_gap;
    }
    placed.bottom = y - row_gap + padding;
}

void data_plane_layout::place(std::size_t group, const sizes &size_of)
{
    band &b = bands_[group];
    if (b.is_placed)
        return;
    b.is_placed = true;
    const auto place_attached = [&] {
        for (const std::size_t other : b.attached)
            place(other, size_of);
    };
    const auto bottom = [this](column first, column last) {
        return *std::max_element(bottoms_.begin() + first, bottoms_.begin() + last + 1);
    };
    const column last = b.leads_to_ovlin ? ovlin_flow : b.last;

    double top = bottom(b.first, last);
    if (last == association) { // those that send through it stand to the right of it, half of them above its middle
        const double first_attached = bottom(interface, ovlin_flow);
        place_attached();
        const double middle = (first_attached + bottom(interface, ovlin_flow)) / 2;
        top = std::max(top, middle - height_of(b, size_of) / 2);
    }
    put(b, top, size_of);
    // All lines to and from associations pass below the interface.
    const bool is_barrier = b.last == interface;
    for (std::size_t c = is_barrier ? network : b.first; c <= (is_barrier ? ovlin_flow : last); ++c)
        bottoms_[c] = b.bottom + group_gap;
    place_attached();
}

void data_plane_layout::place_networks(const std::vector<owner_group> &groups, const sizes &size_of)
{
    for (const owner_group &group : groups) {
        std::map<std::uint32_t, std::vector<double>> y_by_vrf;
        for (const auto *object : group.objects)
            if (column_of(object->kind) == association)
                y_by_vrf[object->header.vrf_id].push_back(nodes_.at(name_of(*object)).y);
        for (const auto &[vrf, y] : y_by_vrf) {
            const std::string name = name_of_network(group, vrf);
            const double mean = std::accumulate(y.begin(), y.end(), 0.0) / static_cast<double>(y.size());
            nodes_[name] = {network, mean, size_of(name).height};
        }
    }
}

void data_plane_layout::place_columns(const sizes &size_of)
{
    for (const auto &[name, placed] : nodes_)
        width_[placed.where] = std::max(width_[placed.where], size_of(name).width);
    if (width_[association] > 0)
        width_[association] = std::max(width_[association], title_width);
    const bool has_l2tpv3 = width_[interface] + width_[l2tpv3_flow] > 0;
    double x = 0;
    for (std::size_t c = network; c < columns; ++c) {
        left_[c] = x;
        const bool is_missing = !has_l2tpv3 && (c == interface || c == l2tpv3_flow);
        if (!is_missing)
            x += width_[c] + (c == network ? bend_width : label_width + bend_width);
    }
}

data_plane_layout::box data_plane_layout::frame(std::size_t group) const
{
    const band &b = bands_[group];
    return {left(b.first) - padding, b.top, right(b.last) + padding, b.bottom};
}
