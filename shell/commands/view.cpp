// The commands that look at the data plane and at the last operation.
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

void show_objects(shell &s, const arguments &)
{
    const data_plane plane = data_plane::now();
    text_table objects{{"handle", "object", "vrf", "from -> to", "header"}};
    for (const data_plane::object &o : plane.objects) {
        const bool has_addresses = o.header.ip_version != 0;
        objects.add({handle_text(o.handle), kind_name(o.kind), has_addresses ? std::to_string(o.header.vrf_id) : "",
                     has_addresses ? from_to(o.header) : "", header_text(o)});
    }
    text_table bindings{{"binding", "direction", "from", "to", "dscp"}};
    for (const auto &[r, has_dscp, dscp] : plane.bindings)
        bindings.add({bind_kind_text(r), direction_text(r), source_text(r), destination_text(r),
                      has_dscp ? std::to_string(dscp) : ""});
    s.out << counts_now() << '\n' << objects << bindings;
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
    const parameter picture = file("the picture; its extension is the format: .svg, .png, .pdf or .dot");
    return {
        plain("objects", "the data plane's objects and bindings", show_objects),
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
