#include "owner_groups.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

namespace {

struct ranked_group {
    owner_group group;
    bool is_troubled = false;
};

} // namespace

std::string owner_group::title() const
{
    constexpr std::size_t names_at_most = 4;
    std::string text = owners.empty() ? "owned by nobody" : owners.size() == 1 ? "" : "shared by ";
    for (std::size_t i = 0; i < owners.size() && i < names_at_most; ++i)
        text += (i == 0 ? "" : ", ") + to_text(owners[i]);
    return owners.size() <= names_at_most ? text
                                          : text + " and " + std::to_string(owners.size() - names_at_most) + " more";
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
    std::map<std::vector<owner>, ranked_group> by_owners;
    std::map<std::uint64_t, ranked_group *> by_handle;
    for (const auto &object : plane.objects) {
        const std::vector<owner> who = owners.of(object);
        ranked_group &owning = by_owners[who];
        owning.group.owners = who;
        owning.is_troubled |= who.empty();
        owning.group.objects.push_back(&object);
        by_handle[object.handle] = &owning;
    }
    for (const auto &handle : owners.dangling()) {
        ranked_group &holding = by_owners[{handle.holder}];
        holding.group.owners = {handle.holder};
        holding.group.dangling.push_back(&handle);
        holding.is_troubled = true;
    }
    for (const auto &binding : plane.bindings)
        if (owners.of(binding).empty())
            for (const std::uint64_t handle : {binding.record.srcFlowHandle, binding.record.destFlowHandle})
                if (const auto end = by_handle.find(handle); end != by_handle.end())
                    end->second->is_troubled = true;

    std::vector<owner_group> first;
    for (const bool is_troubled : {true, false})
        for (auto &[who, ranked] : by_owners)
            if (ranked.is_troubled == is_troubled && objects_at_most != 0) {
                owner_group &group = first.emplace_back(std::move(ranked.group));
                if (who.empty()) // of what nobody owns a part is better than nothing
                    group.objects.resize(std::min(group.objects.size(), objects_at_most));
                // A dangling handle takes as much room as an object.
                objects_at_most -= std::min(objects_at_most, group.objects.size() + group.dangling.size());
            }
    return first;
}
