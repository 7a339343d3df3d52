// The commands that look at the data plane and at the last operation.
#include "data_plane_view.h"
#include "line_options.h"
#include "ownership.h"
#include "picture.h"
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

/// What is special about a call: it undoes, a fault answers it.
std::string mark_text(const recorded_call &call)
{
    return call.is_undo && call.is_answered ? "undo, fault" : call.is_undo ? "undo" : call.is_answered ? "fault" : "";
}

} // namespace

void commands::add_view_commands(CLI::App &app, line_options &o)
{
    on_run(add_command(app, "objects", "the data plane's objects and bindings", "objects"),
           [this] { show(out_, data_plane::now()); });

    on_run(add_command(app, "audit", "what is wrong between the library's tables and the data plane, and who left it",
                       "audit"),
           [this] { audit_.show(out_, data_plane::now()); });

    CLI::App *calls = add_command(app, "calls", "the data-plane calls of the last operation", "calls --durations");
    add_flag(calls, "--durations", o.durations, "with how long each took");
    on_run(calls, [this, &o] { show_calls(o.durations); });

    const auto add_picture = [&](const std::string &name, const std::string &meaning, auto draw) {
        CLI::App *command = add_command(app, name, meaning, name + " " + name + ".svg");
        required(
            add_text(command, "FILE", o.file, "of which the extension tells the format: .svg, .png, .pdf or .dot"));
        on_run(command, [this, &o, draw] {
            try {
                draw(o.file);
            } catch (const std::runtime_error &wrong) {
                throw bad_line(wrong.what());
            }
            out_ << "wrote " << o.file << '\n';
        });
    };
    add_picture("graph", "draw the data plane", [this](const std::string &file) {
        const data_plane plane = data_plane::now();
        draw_data_plane(plane, ownership(known_, plane), file);
    });
    add_picture("ladder", "draw the last operation as a sequence of calls",
                [this](const std::string &file) { draw_ladder(last_operation(), file); });

    CLI::App *trace = add_command(app, "trace", "show each trace event as it fires, or stop to", "trace exceptions");
    add_choice(trace, o, "SWITCH", o.choice, "on, exceptions (those events only) or off", {"on", "exceptions", "off"});
    on_run(trace, [this, &o] { shown_events_ = o.choice; });
}

void commands::show_calls(bool with_durations)
{
    const operation_record &last = last_operation();
    text_table table{{"", "call", "of", "answer", with_durations ? "took" : ""}};
    const std::vector<const recorded_call *> calls = calls_of(last);
    for (const recorded_call *call : calls)
        table.add({mark_text(*call), std::string(call->operation), subject_text(*call), answer_of(*call),
                   with_durations ? duration_text(call->duration_ns) : ""});
    out_ << last.name << ": " << last.result << " (" << last.result_text << "), " << calls.size()
         << (calls.size() == 1 ? " call\n" : " calls\n") << table;
}
