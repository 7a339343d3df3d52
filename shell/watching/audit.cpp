#include "audit.h"

#include "text_table.h"

/// What is wrong with one handle: its object, the bindings that it decides about, the entries that hold it. Of bindings
/// that are missing only that of a shared ingress association is wrong: a removal elsewhere can take it away, the
/// others only their own endpoint.
audit::findings audit::found_at(std::uint64_t handle, const ownership &owners)
{
    struct search {
        std::uint64_t handle;
        const ownership &owners;
        findings found{};
        bool is_bound_to_interface = false;
    } seen{handle, owners};
    const std::vector<held_handle> holding = owners.holding(handle);
    const auto add = [&](int what, const held_handle &held, const std::string &text) {
        const auto kind = static_cast<std::uint64_t>(held.holder.what), field = static_cast<std::uint64_t>(held.field);
        seen.found[{what, {kind, held.holder.id, field}}].text = text;
    };
    vok_cp_sim_object_t object;
    if (!vok_cp_sim_find(handle, &object)) {
        for (const held_handle &held : holding)
            add(2, held, to_text(held) + " names nothing");
        return seen.found;
    }
    if (holding.empty())
        seen.found[{0, {handle}}].text = to_text(data_plane::object::from(object)) + " has no owner";
    vok_cp_sim_walk_bindings_of(
        handle,
        [](void *context, const vok_cp_sim_binding_t *b) {
            auto &all = *static_cast<search *>(context);
            const auto &r = *static_cast<const vok_bind_record *>(b->record);
            all.is_bound_to_interface |= r.destFlowHandle == l2tp_control_ingress_interface;
            if (deciding_handle(r) == all.handle && all.owners.of(r).empty())
                all.found[{1, {r.bindKind, r.direction, r.srcFlowHandle, r.srcFlowID, r.destFlowHandle, r.dstFlowID}}]
                    .text = "binding " + to_text(r) + " has no owner";
        },
        &seen);
    if (object.kind == VOK_CP_SIM_IPV4_INGRESS && !seen.is_bound_to_interface)
        for (const held_handle &held : holding)
            if (held.holder.what == owner::kind::l2tp_connection)
                add(3, held,
                    to_text(held) + " is no longer bound: the connection and its sessions receive nothing; remove and "
                                    "add all connections that share it");
    return seen.found;
}

void audit::look_at(const std::set<std::uint64_t> &handles, const std::string &operation, const ownership &owners)
{
    for (const std::uint64_t handle : handles) {
        findings found = found_at(handle, owners);
        const auto before = findings_.find(handle);
        for (auto &[what, now] : found) {
            const bool is_new = before == findings_.end() || !before->second.contains(what);
            now.left_by = is_new ? operation : before->second.at(what).left_by;
        }
        if (!found.empty())
            findings_[handle] = std::move(found);
        else if (before != findings_.end())
            findings_.erase(before);
    }
}

void audit::look_at_all(const std::string &operation, const ownership &owners)
{
    std::set<std::uint64_t> handles;
    for (const held_handle &held : owners.all())
        handles.insert(held.handle);
    for (const auto &[handle, found] : findings_)
        handles.insert(handle);
    vok_cp_sim_walk_objects(
        [](void *all, const vok_cp_sim_object_t *o) { static_cast<std::set<std::uint64_t> *>(all)->insert(o->handle); },
        &handles);
    look_at(handles, operation, owners);
}

std::size_t audit::count() const
{
    std::size_t all = 0;
    for (const auto &[handle, found] : findings_)
        all += found.size();
    return all;
}

void audit::show(std::ostream &out) const
{
    findings in_order;
    for (const auto &[handle, found] : findings_)
        in_order.insert(found.begin(), found.end());
    if (in_order.empty()) {
        out << "audit: nothing is wrong: " << counts_now() << ", each with an owner, and every handle names one\n";
        return;
    }
    text_table table{{"what is wrong", "left by"}};
    for (const auto &[what, found] : in_order)
        table.add({found.text, found.left_by});
    out << "audit: " << in_order.size() << (in_order.size() == 1 ? " thing is wrong\n" : " things are wrong\n")
        << table;
}
