// The commands that state what a scenario must come to.
#include <sstream>

#include "data_plane_view.h"
#include "line_options.h"

namespace {

bool is_empty(const data_plane &plane)
{
    return plane.objects.empty() && plane.bindings.empty();
}

bool is_only_interface(const data_plane &plane)
{
    return plane.objects.size() == 1 && plane.objects.front().kind == VOK_CP_SIM_L2TPV3_INTERFACE &&
           plane.bindings.empty();
}

std::string came_of(const operation_record &last)
{
    return "of " + last.name + " in line " + std::to_string(last.line_number);
}

} // namespace

void commands::add_expect_commands(CLI::App &app, line_options &o)
{
    on_run(add_command(app, "mark", "remember the data plane for 'expect unchanged'", "mark"), [this] {
        mark_ = data_plane::now();
        out_ << "marked: " << mark_->counts() << '\n';
    });

    CLI::App *expect = add_command(app, "expect", "fail unless the last operation's result is that", "expect 13");
    add_text(expect, "RESULT", o.result, "result code, as 13");
    on_run(expect, [this, &o, expect] {
        const bool is_another = names_inner_command(expect);
        if (is_another && o.result.empty())
            return;
        const std::optional<std::uint32_t> code = parse_number(o.result);
        if (is_another || !code)
            throw bad_line("expected a result code, or one of " + names_of_commands(*expect));
        expect_result(*code);
    });

    const auto add_state = [&](const std::string &name, const std::string &meaning, bool (*holds)(const data_plane &),
                               const std::string &then) {
        on_run(add_command(*expect, name, meaning, "expect " + name), [this, name, holds, then] {
            const data_plane plane = data_plane::now();
            if (!holds(plane))
                throw bad_line("expected " + name + ", and the data plane holds " + plane.counts());
            out_ << then << '\n';
        });
    };
    add_state("empty", "fail unless the data plane is empty", is_empty, "the data plane is empty");
    add_state("only-interface", "fail unless it holds one L2TPv3 ingress interface and nothing else", is_only_interface,
              "the data plane is empty but for the L2TPv3 ingress interface");

    const auto add_count = [&](const std::string &name, const std::string &meaning, std::size_t (*count)(commands &)) {
        CLI::App *command = add_command(*expect, name, meaning, "expect " + name + " 0");
        required(add_number(command, "COUNT", o.count, "how many"));
        on_run(command, [this, &o, name, count] {
            const std::size_t came = count(*this);
            if (came != o.count)
                throw bad_line("expected " + name + " " + std::to_string(o.count) + ", and there are " +
                               std::to_string(came));
            out_ << name << ": " << came << ", as expected\n";
        });
    };
    add_count("objects", "fail unless the data plane holds so many objects",
              [](commands &) { return data_plane::now().objects.size(); });
    add_count("bindings", "fail unless the data plane holds so many bindings",
              [](commands &) { return data_plane::now().bindings.size(); });
    add_count("audit", "fail unless the audit finds so many things wrong",
              [](commands &self) { return self.audit_.count(); });

    on_run(add_command(*expect, "unchanged", "fail unless the data plane is as it was at the mark", "expect unchanged"),
           [this] { expect_unchanged(); });

    CLI::App *shown =
        add_command(*expect, "shown", "fail unless the last command that is no expectation showed that text",
                    "expect shown \"packet ends at\"");
    required(add_text(shown, "TEXT", o.text, "a part of it, without line ends"));
    on_run(shown, [this, &o] {
        if (out_.kept().find(o.text) == std::string::npos)
            throw bad_line("expected \"" + o.text + "\", and what was shown is\n" + out_.kept());
        out_ << "that was shown\n";
    });

    CLI::App *event = add_command(*expect, "event", "fail unless the last operation fired such an event",
                                  "expect event tn_zel_init:EXCEPTION \"udp_session_connect_ul\"");
    add_choice(event, o, "NAME", o.event, "provider and event", names_of_events());
    add_text(event, "TEXT", o.text, "that its message contains");
    on_run(event, [this, &o] { expect_event(o.event, o.text); });
}

void commands::expect_result(std::uint32_t code)
{
    const operation_record &last = last_operation();
    if (last.result != code)
        throw bad_line("expected " + std::to_string(code) + ", came " + std::to_string(last.result) + " (" +
                       last.result_text + ") " + came_of(last));
    last_result_is_expected_ = true;
    out_ << "the result is " << code << ", as expected\n";
}

void commands::expect_unchanged()
{
    if (!mark_)
        throw bad_line("there is no mark to compare with; 'mark' makes one");
    const data_plane plane = data_plane::now();
    if (plane == *mark_) {
        out_ << "the data plane is as it was at the mark\n";
        return;
    }
    std::ostringstream difference;
    show_difference(difference, *mark_, plane);
    throw bad_line("expected the data plane unchanged since the mark, and it is not:\n" + difference.str());
}

void commands::expect_event(const std::string &name, const std::string &text)
{
    const operation_record &last = last_operation();
    std::string fired;
    for (const auto &happened : last.course) {
        const auto *event = std::get_if<trace_event>(&happened);
        if (event == nullptr)
            continue;
        if (event->name == name && event->message.find(text) != std::string::npos) {
            out_ << "the event was fired: " << event->message << '\n';
            return;
        }
        fired += "\n  " + event->name + "  " + event->message;
    }
    throw bad_line("expected an event " + name + (text.empty() ? "" : " with \"" + text + "\"") + " " + came_of(last) +
                   (fired.empty() ? ", which fired none" : ", which fired:" + fired));
}
