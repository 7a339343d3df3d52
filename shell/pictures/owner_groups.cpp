#include "owner_groups.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

namespace {

enum interest { troubled, beside_trouble, usual };

struct ranked_group {
    owner_group group;
    interest rank = usual;
};

using groups = std::map<std::vector<owner>, ranked_group>;

std::vector<ranked_group> in_order_of_interest(groups by_owners)
{
    std::vector<ranked_group> ordered;
    for (const interest rank : {troubled, beside_trouble, usual})
        for (auto &[who, group] : by_owners)
            if (group.rank == rank)
                ordered.push_back(std::move(group));
    return ordered;
}

std::string plural(owner::kind what)
{
    return to_text(owner{what, 0}).substr(0, to_text(owner{what, 0}).rfind(' ')) + "s ";
}

/// The first so many of those that are drawn; of what nobody owns a part is better than nothing.
std::vector<owner_group> first_groups(std::vector<ranked_group> ranked, std::size_t objects_at_most)
{
    std::vector<owner_group> first;
    for (auto &[group, rank] : ranked) {
        if (group.objects.size() > objects_at_most) {
            if (!group.owners.empty())
                break;
            group.objects.resize(objects_at_most);
        }
        // A dangling handle takes as much room as an object.
        objects_at_most -= std::min(objects_at_most, group.objects.size() + group.dangling.size());
        first.push_back(std::move(group));
        if (objects_at_most == 0)
            break;
    }
    return first;
}

} // namespace

std::string owner_group::title() const
{
    if (owners.empty())
        return "owned by nobody";
    if (owners.size() == 1)
        return to_text(owners.front());
    std::string text = "shared by ";
    for (auto who = owners.begin(); who != owners.end();) {
        const auto next_kind = std::find_if(who, owners.end(), [&](const owner &o) { return o.what != who->what; });
        text += who == owners.begin() ? "" : " and ";
        text += next_kind - who == 1 ? to_text(*who) : plural(who->what) + std::to_string(who->id);
        while (++who != next_kind)
            text += ", " + std::to_string(who->id);
    }
    return text;
}

std::uint64_t interface_of(const data_plane::object &object)
{
    vok_l2tpv3_ingress_flow_record record;
    if (object.kind != VOK_CP_SIM_L2TPV3_INGRESS_FLOW || object.record.size() != sizeof record)
        return 0;
    std::memcpy(&record, object.record.data(), sizeof record);
    return record.ingressInterfaceHandle;
}

std::vector<owner_group> most_interesting_groups(const data_plane &plane, const ownership &owners,
                                                 std::size_t objects_at_most)
{
    groups by_owners;
    std::unordered_map<std::uint64_t, ranked_group *> by_handle;
    for (const auto &object : plane.objects) {
        std::vector<owner> who = owners.of(object);
        ranked_group &owning = by_owners[who];
        if (owning.group.owners.empty()) {
            owning.rank = who.empty() ? troubled : usual;
            owning.group.owners = std::move(who);
        }
        owning.group.objects.push_back(&object);
        by_handle[object.handle] = &owning;
    }
    for (const auto &handle : owners.dangling()) {
        ranked_group &holding = by_owners[{handle.holder}];
        holding.group.owners = {handle.holder};
        holding.group.dangling.push_back(&handle);
        holding.rank = troubled;
    }

    std::vector<std::pair<ranked_group *, ranked_group *>> neighbours;
    const auto at = [&](std::uint64_t handle) -> ranked_group * {
        const auto found = by_handle.find(handle);
        return found != by_handle.end() ? found->second : nullptr;
    };
    for (const auto &binding : plane.bindings) {
        ranked_group *ends[] = {at(binding.record.srcFlowHandle), at(binding.record.destFlowHandle)};
        if (ends[0] != nullptr && ends[1] != nullptr)
            neighbours.emplace_back(ends[0], ends[1]);
        if (owners.of(binding).empty())
            for (ranked_group *end : ends)
                if (end != nullptr)
                    end->rank = troubled;
    }
    for (const auto &object : plane.objects)
        if (ranked_group *interface = at(interface_of(object)); interface != nullptr)
            neighbours.emplace_back(at(object.handle), interface);
    for (const auto &[one, other] : neighbours) {
        if (one->rank == troubled)
            other->rank = std::min(other->rank, beside_trouble);
        if (other->rank == troubled)
            one->rank = std::min(one->rank, beside_trouble);
    }

    return first_groups(in_order_of_interest(std::move(by_owners)), objects_at_most);
}
