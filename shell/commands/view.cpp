// The commands that look at the data plane and at the last operation.
#include <algorithm>

#include "picture.h"
#include "shell.h"
#include "text_table.h"

namespace {

std::string answer_of(const recorded_call &call)
{
    std::string text = call.status == 0 ? "ok" : std::to_string(call.status) + ", " + status_text(call);
    if (call.status != 0 && call.took_effect)
        text += ", after its effect";
    if (call.created != 0)
        text += ", made " + handle_text(call.created);
    return text;
}

/// What is special about a call: it undoes, a fault made it fail or slow.
std::string mark_text(const recorded_call &call)
{
    const std::string fault = !call.is_answered ? "" : call.status != 0 ? "fault" : "slow";
    return call.is_undo && !fault.empty() ? "undo, " + fault : call.is_undo ? "undo" : fault;
}

void show_calls(shell &s, const arguments &given)
{
    const operation_record &last = s.last_operation();
    const bool with_durations = given.has("--durations");
    text_table table{{"", "call", "of", "answer", with_durations ? "took" : ""}};
    const std::vector<const recorded_call *> calls = calls_of(last);
    for (const recorded_call *call : calls)
        table.add({mark_text(*call), std::string(call->operation), subject_text(*call), answer_of(*call),
                   with_durations ? duration_text(call->duration_ns) : ""});
    s.out << last.name << ": " << last.result << " (" << last.result_text << "), " << calls.size()
          << (calls.size() == 1 ? " call\n" : " calls\n") << table;
}

bool has_address(const vok_cp_sim_header_t &h, const endpoint &e)
{
    return h.ip_version == e.ip_version &&
           (std::ranges::equal(h.src_addr, e.address) || std::ranges::equal(h.dst_addr, e.address));
}

/// @param whose "UDP session 5: ", or nothing
void show_objects(shell &s, const std::string &whose, const data_plane &plane)
{
    s.out << whose;
    if (plane.objects.empty() && !whose.empty()) {
        s.out << "nothing in the data plane\n";
        return;
    }
    const ownership owners(s.known);
    text_table objects{{"handle", "object", "vrf", "from -> to", "header", "owner"}};
    for (const data_plane::object &o : plane.objects) {
        const bool has_addresses = o.header.ip_version != 0;
        objects.add({handle_text(o.handle), kind_name(o.kind), has_addresses ? std::to_string(o.header.vrf_id) : "",
                     has_addresses ? from_to(o.header) : "", header_text(o), to_text(owners.of(o))});
    }
    text_table bindings{{"binding", "direction", "from", "to", "dscp"}};
    for (const auto &[r, has_dscp, dscp] : plane.bindings)
        bindings.add({bind_kind_text(r), direction_text(r), source_text(r), destination_text(r),
                      has_dscp ? std::to_string(dscp) : ""});
    s.out << count_text(plane.objects.size(), "object") << ", " << count_text(plane.bindings.size(), "binding") << '\n'
          << objects << bindings;
}

template <owner::kind kind>
command objects_of(const char *name, const char *meaning, const char *example,
                   std::vector<std::string> (*ids)(const shell &))
{
    return {name,
            meaning,
            example,
            {with_choices(required(number("ID", "whose")), ids)},
            [](shell &s, const arguments &given) {
                const owner who{kind, given.number("ID")};
                show_objects(s, to_text(who) + ": ", data_plane::of(ownership(s.known).held_by(who)));
            }};
}

void show_objects(shell &s, const arguments &given)
{
    if (!given.has("WHAT"))
        return show_objects(s, "", data_plane::now());
    const auto what = parse_handle_or_address(given.text("WHAT"));
    std::set<std::uint64_t> handles;
    if (const auto *const handle = std::get_if<std::uint64_t>(&what))
        handles.insert(*handle);
    else
        for (const data_plane::object &o : data_plane::now().objects)
            if (has_address(o.header, std::get<endpoint>(what)))
                handles.insert(o.handle);
    show_objects(s, given.text("WHAT") + ": ", data_plane::of(handles));
}

void graph(shell &s, const arguments &given)
{
    draw_data_plane(data_plane::now(), ownership(s.known), given.text("FILE"));
    s.out << "wrote " << given.text("FILE") << '\n';
}

void ladder(shell &s, const arguments &given)
{
    draw_ladder(s.last_operation(), given.text("FILE"));
    s.out << "wrote " << given.text("FILE") << '\n';
}

} // namespace

std::vector<command> view_commands()
{
    parameter what = text("WHAT", "a handle, as 0x100000001, or an address");
    what.check = parse_handle_or_address;
    const parameter picture = file("the picture; its extension is the format: .svg, .png, .pdf or .dot");
    return {
        {"objects",
         "the data plane's objects and bindings, or those of a handle, an address or an endpoint",
         "objects 192.0.2.1",
         {what},
         show_objects},
        objects_of<owner::kind::udp_session>("objects udp", "those of a UDP session", "objects udp 1", udp_sessions),
        objects_of<owner::kind::l2tp_connection>("objects l2tp connection", "those of a control connection",
                                                 "objects l2tp connection 1", l2tp_connections),
        objects_of<owner::kind::l2tp_session>("objects l2tp session", "those of an L2TP session",
                                              "objects l2tp session 100", l2tp_sessions),
        plain("audit", "what is wrong between the library's tables and the data plane, and who left it",
              [](shell &s, const arguments &) { s.whole_audit().show(s.out); }),
        {"calls",
         "the data-plane calls of the last operation",
         "calls --durations",
         {flag("--durations", "with how long each took")},
         show_calls},
        {"graph", "draw the data plane", "graph graph.svg", {picture}, graph},
        {"ladder", "draw the last operation as a sequence of calls", "ladder ladder.svg", {picture}, ladder},
        {"trace",
         "show each trace event as it fires, only what went wrong, or none",
         "trace exceptions",
         {one_of("SWITCH", "on, exceptions (EXCEPTION and ERROR) or off", {"on", "exceptions", "off"})},
         [](shell &s, const arguments &given) { s.shown_events = given.text("SWITCH"); }},
    };
}
