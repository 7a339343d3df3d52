#include "data_plane_layout.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <unordered_map>

namespace {

constexpr double row_gap = 9;
constexpr double group_gap = 14;
constexpr double title_width = 240; ///< of a group that shares an association
constexpr char line = '-';

/// Of what a row has in a column.
bool is_node(const std::string &name)
{
    return !name.empty() && name.front() != line;
}

} // namespace

/// Finds a row of the groups' bands for each object, dangling handle and ovlin flow.
class data_plane_layout::band_filler {
public:
    band_filler(data_plane_layout &layout, const ownership &owners, const std::vector<owner_group> &groups)
        : layout_(layout), owners_(owners), groups_(groups)
    {
    }

    void fill(const data_plane &plane)
    {
        note_objects();
        for (const auto &binding : plane.bindings)
            note(binding);
        for (band &b : layout_.bands_)
            std::ranges::sort(b.attached);
        for (std::size_t i = 0; i < groups_.size(); ++i)
            place_members(groups_[i], layout_.bands_[i]);
        place_ovlin_flows();
    }

private:
    struct object_place {
        std::size_t group;
        column where;
        bool leads_to_ovlin = false; ///< in its own band
        std::size_t row = 0;         ///< of the band
    };

    /// A binding to or from an ovlin flow, which takes a row of its owner's band.
    struct ovlin_end {
        std::size_t group;
        const object_place *bound_to;
        std::uint32_t flow_id;
    };

    void note_objects()
    {
        for (std::size_t i = 0; i < groups_.size(); ++i) {
            group_of_owners_[groups_[i].owners] = i;
            for (const auto *object : groups_[i].objects)
                objects_[object->handle] = {i, column_of(object->kind)};
        }
    }

    object_place *object_at(std::uint64_t handle)
    {
        const auto found = objects_.find(handle);
        return found != objects_.end() ? &found->second : nullptr;
    }

    void note(const data_plane::binding &binding)
    {
        const vok_bind_record &r = binding.record;
        object_place *const source = object_at(r.srcFlowHandle), *const destination = object_at(r.destFlowHandle);
        const bool is_whole =
            (source != nullptr || r.srcFlowHandle == 0) && (destination != nullptr || r.destFlowHandle == 0);
        if (!is_whole)
            return;
        layout_.bindings_.push_back(&binding);
        if (source == nullptr)
            note_ovlin_end(binding, *destination, r.srcFlowID);
        else if (destination == nullptr)
            note_ovlin_end(binding, *source, r.dstFlowID);
        else if (source->group != destination->group && r.direction == VOK_EGRESS)
            layout_.bands_[destination->group].attached.push_back(source->group);
    }

    void note_ovlin_end(const data_plane::binding &binding, object_place &object, std::uint32_t flow_id)
    {
        const auto own = group_of_owners_.find(owners_.of(binding));
        const std::size_t group = own != group_of_owners_.end() ? own->second : object.group;
        ovlin_ends_.insert({object.where, {group, &object, flow_id}});
        if (group == object.group)
            object.leads_to_ovlin = true;
        else
            layout_.bands_[object.group].attached.push_back(group);
    }

    void place_members(const owner_group &group, band &into)
    {
        const auto put = [&into](std::size_t row, column c, const std::string &name) {
            into.rows[row].in[c] = name;
            into.first = std::min(into.first, c);
            into.last = std::max(into.last, c);
        };
        for (const auto *object : group.objects) {
            object_place &place = objects_.at(object->handle);
            place.row = place.leads_to_ovlin ? row_to_ovlin(into, place.where) : row_with_room(into, {place.where});
            put(place.row, place.where, name_of(*object));
        }
        for (const auto *dangling : group.dangling) {
            const column c = column_for(*dangling);
            put(row_with_room(into, {c}), c, name_of(*dangling));
        }
    }

    /// A line to an association needs a row without a flow, so what associations are bound to comes first; a flow's
    /// line to an ovlin flow of another row bends behind it.
    void place_ovlin_flows()
    {
        std::set<std::uint32_t> placed;
        for (const auto &[where, end] : ovlin_ends_) {
            const auto &[group, bound_to, flow_id] = end;
            if (!placed.insert(flow_id).second)
                continue;
            band &b = layout_.bands_[group];
            const bool has_room_beside = bound_to->group == group && b.rows[bound_to->row].in[ovlin_flow].empty();
            const std::size_t row = has_room_beside ? bound_to->row : row_to_ovlin(b, association);
            b.rows[row].in[ovlin_flow] = name_of_ovlin_flow(flow_id);
            b.leads_to_ovlin = true;
        }
    }

    static column column_for(const dangling_handle &dangling)
    {
        const auto is_of = [&](const char *what) { return dangling.field.find(what) != std::string::npos; };
        return is_of("interface") ? interface : is_of("flow") ? l2tpv3_flow : association;
    }

    static std::size_t row_with_room(band &in, std::initializer_list<column> for_these)
    {
        const auto has_room = [&](const row &r) {
            return std::ranges::all_of(for_these, [&](column c) { return r.in[c].empty(); });
        };
        const auto found = std::ranges::find_if(in.rows, has_room);
        const auto row = static_cast<std::size_t>(found - in.rows.begin());
        if (found == in.rows.end())
            in.rows.emplace_back();
        return row;
    }

    /// A row with room in that column and for the line from there to an ovlin flow.
    static std::size_t row_to_ovlin(band &in, column from)
    {
        if (from != association)
            return row_with_room(in, {from, ovlin_flow});
        const std::size_t row = row_with_room(in, {association, l2tpv3_flow, ovlin_flow});
        in.rows[row].in[l2tpv3_flow] = line;
        return row;
    }

    data_plane_layout &layout_;
    const ownership &owners_;
    const std::vector<owner_group> &groups_;
    std::map<std::vector<owner>, std::size_t> group_of_owners_;
    std::unordered_map<std::uint64_t, object_place> objects_; ///< by handle
    std::multimap<column, ovlin_end> ovlin_ends_;             ///< by the column of what they are bound to
};

data_plane_layout::data_plane_layout(const data_plane &plane, const ownership &owners,
                                     const std::vector<owner_group> &groups, const sizes &size_of)
    : bands_(groups.size())
{
    band_filler(*this, owners, groups).fill(plane);
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

double data_plane_layout::height_of(const row &measured, const sizes &size_of)
{
    double tallest = 0;
    for (const std::string &name : measured.in)
        if (is_node(name))
            tallest = std::max(tallest, size_of(name).height);
    return tallest;
}

double data_plane_layout::height_of(const band &measured, const sizes &size_of)
{
    double height = title_height + padding - row_gap;
    for (const row &r : measured.rows)
        height += height_of(r, size_of) + row_gap;
    return height;
}

void data_plane_layout::put(band &placed, double top, const sizes &size_of)
{
    placed.top = top;
    double y = top + title_height;
    for (const row &r : placed.rows) {
        const double height = height_of(r, size_of);
        for (std::size_t c = 0; c < columns; ++c)
            if (is_node(r.in[c]))
                nodes_[r.in[c]] = {static_cast<column>(c), y + height / 2, size_of(r.in[c]).height};
        y += height + row_gap;
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
