#include "ownership.h"

#include <algorithm>
#include <iterator>

#include "zel_core_term/zel_l2tp_session.h"

using kind = owner::kind;

std::string to_text(const owner &who)
{
    const std::string id = std::to_string(who.id);
    switch (who.what) {
    case kind::library: return "the library";
    case kind::udp_session: return "UDP session " + id;
    case kind::l2tp_connection: return "L2TP connection " + id;
    case kind::l2tp_session: return "L2TP session " + id;
    }
    return "unknown";
}

std::string to_text(const std::vector<owner> &owners)
{
    constexpr std::size_t names_at_most = 4;
    std::string text = owners.empty() ? "owned by nobody" : owners.size() == 1 ? "" : "shared by ";
    for (std::size_t i = 0; i < owners.size() && i < names_at_most; ++i)
        text += (i == 0 ? "" : ", ") + to_text(owners[i]);
    return owners.size() <= names_at_most ? text
                                          : text + " and " + std::to_string(owners.size() - names_at_most) + " more";
}

std::string to_text(const held_handle &held)
{
    return field_name(held) + " " + handle_text(held.handle) + " of " + to_text(held.holder);
}

std::string field_name(const held_handle &held)
{
    static const std::vector<const char *> names[] = {
        {"ingress interface"},
        {"ingress association", "egress association"},
        {"ingress flow", "ingress association", "egress association"},
        {"ingress flow", "egress flow"},
    };
    return names[static_cast<std::size_t>(held.holder.what)][static_cast<std::size_t>(held.field)];
}

std::vector<held_handle> l2tp_handles()
{
    std::vector<held_handle> all;
    const auto add = [&](const owner &holder, std::initializer_list<std::uint64_t> handles) {
        int field = 0;
        for (const std::uint64_t handle : handles) {
            if (handle != 0)
                all.push_back({holder, field, handle});
            ++field;
        }
    };
    add({kind::library, 0}, {l2tp_control_ingress_interface});
    for (std::uint32_t id = 0; id < std::size(l2tp_control_table); ++id) {
        const l2tp_control_entry &entry = l2tp_control_table[id];
        add({kind::l2tp_connection, id}, {entry.l2tp_ingress_flow_handle, entry.ipv4_ingress_association_handle,
                                          entry.ipv4_egress_association_handle});
    }
    for (std::uint32_t i = 0; i < std::size(l2tp_session_table); ++i) {
        const l2tp_session_entry &entry = l2tp_session_table[i];
        add({kind::l2tp_session, i + ZEL_CORE_TERM_L2TP_SESSION_ID_MIN},
            {entry.ingress_flow_handle, entry.egress_flow_handle});
    }
    return all;
}

std::uint64_t deciding_handle(const vok_bind_record &binding)
{
    return binding.bindKind == VOK_BIND_ID2F ? binding.destFlowHandle : binding.srcFlowHandle;
}

ownership::ownership(const ledger &known) : known_(known), l2tp_(l2tp_handles())
{
    for (const held_handle &held : l2tp_)
        l2tp_by_handle_.emplace(held.handle, held);
}

std::vector<owner> ownership::of(const data_plane::object &object) const
{
    return holders(object.handle);
}

/// If several endpoints share the association that a binding leads to, the one that sends for its ovlin flow owns the
/// binding.
std::vector<owner> ownership::of(const vok_bind_record &binding) const
{
    std::vector<owner> owners = holders(deciding_handle(binding));
    if (binding.bindKind == VOK_BIND_ID2F)
        std::erase_if(owners, [&](const owner &who) { return !sends(who, binding.srcFlowID); });
    return owners;
}

std::vector<held_handle> ownership::holding(std::uint64_t handle) const
{
    std::vector<held_handle> all;
    const auto [begin, end] = l2tp_by_handle_.equal_range(handle);
    std::transform(begin, end, std::back_inserter(all), [](const auto &entry) { return entry.second; });
    if (const std::uint32_t id = known_.udp_sessions.with(handle))
        all.push_back({{kind::udp_session, id}, handle == known_.udp_sessions.all().at(id).ingress ? 0 : 1, handle});
    std::ranges::sort(all, {}, &held_handle::holder);
    return all;
}

std::set<std::uint64_t> ownership::held_by(const owner &who) const
{
    std::set<std::uint64_t> handles;
    const auto &sessions = known_.udp_sessions.all();
    if (const auto session = sessions.find(who.id); who.what == kind::udp_session && session != sessions.end())
        handles = {session->second.ingress, session->second.egress};
    for (const held_handle &held : l2tp_)
        if (held.holder == who)
            handles.insert(held.handle);
    return handles;
}

std::vector<held_handle> ownership::all() const
{
    std::vector<held_handle> all = l2tp_;
    for (const auto &[id, handles] : known_.udp_sessions.all()) {
        all.push_back({{kind::udp_session, id}, 0, handles.ingress});
        all.push_back({{kind::udp_session, id}, 1, handles.egress});
    }
    std::erase_if(all, [](const held_handle &held) { return held.handle == 0; });
    return all;
}

std::vector<held_handle> ownership::dangling() const
{
    std::vector<held_handle> all_of_them = all();
    std::erase_if(all_of_them, [](const held_handle &held) {
        vok_cp_sim_object_t found;
        return vok_cp_sim_find(held.handle, &found);
    });
    return all_of_them;
}

std::vector<owner> ownership::holders(std::uint64_t handle) const
{
    std::vector<owner> owners;
    for (const held_handle &held : holding(handle))
        owners.push_back(held.holder);
    return owners;
}

/// Whether the ovlin flow is the one that the endpoint sends for. Its low 20 bits are the endpoint's own id. The PCEP
/// matters where a later endpoint of that id can come to the same object: an association that others share.
bool ownership::sends(const owner &who, std::uint32_t ovlin_flow_id) const
{
    if (const auto connection = known_.connections.find(who.id);
        who.what == kind::l2tp_connection && connection != known_.connections.end())
        return ovlin_flow_id == (connection->second.pcep << 20 | who.id);
    return (ovlin_flow_id & 0xFFFFF) == who.id;
}
