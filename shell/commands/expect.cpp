// The commands that state what a scenario must come to.
#include <algorithm>
#include <iterator>
#include <sstream>

#include "shell.h"

namespace {

std::string came_of(const operation_record &last)
{
    return "of " + last.name + " in line " + std::to_string(last.line_number);
}

void expect_result(shell &s, const arguments &given)
{
    const std::vector<std::string> words = given.texts("RESULT");
    std::uint32_t code = 0;
    try {
        if (words.size() != 1)
            throw std::invalid_argument("");
        code = parse_number(words.front());
    } catch (const std::invalid_argument &) {
        throw bad_line("expected a result code, or one of empty, only-interface, objects, bindings, audit, unchanged, "
                       "shown, event");
    }
    const operation_record &last = s.last_operation();
    if (last.result != code)
        throw bad_line("expected " + std::to_string(code) + ", came " + std::to_string(last.result) + " (" +
                       last.result_text + ") " + came_of(last));
    s.expect_last_result();
    s.out << "the result is " << code << ", as expected\n";
}

void expect_empty(shell &s, const arguments &)
{
    const vok_cp_sim_counts_t held = vok_cp_sim_count();
    if (held.objects + held.bindings != 0)
        throw bad_line("expected empty, and the data plane holds " + counts_now());
    s.out << "the data plane is empty\n";
}

void expect_only_interface(shell &s, const arguments &)
{
    vok_cp_sim_object_t found;
    const vok_cp_sim_counts_t held = vok_cp_sim_count();
    if (held.objects != 1 || held.bindings != 0 || !vok_cp_sim_find(l2tp_control_ingress_interface, &found))
        throw bad_line("expected only-interface, and the data plane holds " + counts_now());
    s.out << "the data plane is empty but for the L2TPv3 ingress interface\n";
}

void expect_count(shell &s, const arguments &given, const char *name, std::size_t came)
{
    if (came != given.number("COUNT"))
        throw bad_line(std::string("expected ") + name + " " + std::to_string(given.number("COUNT")) +
                       ", and there are " + std::to_string(came));
    s.out << name << ": " << came << ", as expected\n";
}

std::string in_words(const data_plane::object &o)
{
    return to_text(o) + (o.header.ip_version != 0 ? ", " + header_text(o) : "");
}

std::string in_words(const data_plane::binding &b)
{
    return to_text(b.record) + (b.has_dscp ? ", dscp " + std::to_string(b.dscp) : "");
}

/// A line for each of `these` that is not among `others`.
template <typename Things> void show_missing(std::ostream &out, const char *mark, Things these, Things others)
{
    std::ranges::sort(these);
    std::ranges::sort(others);
    Things missing;
    std::ranges::set_difference(these, others, std::back_inserter(missing));
    for (const auto &thing : missing)
        out << mark << in_words(thing) << '\n';
}

/// What `after` has and `before` lacks, and the reverse, a line each.
void show_difference(std::ostream &out, const data_plane &before, const data_plane &after)
{
    show_missing(out, "  gone: ", before.objects, after.objects);
    show_missing(out, "  gone: ", before.bindings, after.bindings);
    show_missing(out, "  new: ", after.objects, before.objects);
    show_missing(out, "  new: ", after.bindings, before.bindings);
}

void expect_unchanged(shell &s, const arguments &)
{
    if (!s.mark)
        throw bad_line("there is no mark to compare with; 'mark' makes one");
    const data_plane plane = data_plane::now();
    if (plane == *s.mark) {
        s.out << "the data plane is as it was at the mark\n";
        return;
    }
    std::ostringstream difference;
    show_difference(difference, *s.mark, plane);
    throw bad_line("expected the data plane unchanged since the mark, and it is not:\n" + difference.str());
}

void expect_shown(shell &s, const arguments &given)
{
    if (s.out.kept().find(given.text("TEXT")) == std::string::npos)
        throw bad_line("expected \"" + given.text("TEXT") + "\", and what was shown is\n" + s.out.kept());
    s.out << "that was shown\n";
}

void expect_event(shell &s, const arguments &given)
{
    const operation_record &last = s.last_operation();
    const std::string &name = given.text("NAME"), &text = given.text("TEXT");
    std::string fired;
    for (const auto &happened : last.course) {
        const auto *event = std::get_if<trace_event>(&happened);
        if (event == nullptr)
            continue;
        if (event->name == name && event->message.find(text) != std::string::npos) {
            s.out << "the event was fired: " << event->message << '\n';
            return;
        }
        fired += "\n  " + event->name + "  " + event->message;
    }
    throw bad_line("expected an event " + name + (text.empty() ? "" : " with \"" + text + "\"") + " " + came_of(last) +
                   (fired.empty() ? ", which fired none" : ", which fired:" + fired));
}

void mark(shell &s, const arguments &)
{
    s.mark = data_plane::now();
    s.out << "marked: " << counts_now() << '\n';
}

} // namespace

std::vector<command> expect_commands()
{
    const parameter count = required(number("COUNT", "how many"));
    return {
        plain("mark", "remember the data plane for 'expect unchanged'", mark),
        {"expect",
         "fail unless the last operation returned RESULT",
         "expect 13",
         {several(text("RESULT", "result code, as 13"))},
         expect_result},
        plain("expect empty", "fail unless the data plane is empty", expect_empty),
        plain("expect only-interface", "fail unless it holds one L2TPv3 ingress interface and nothing else",
              expect_only_interface),
        {"expect objects",
         "fail unless the data plane holds so many objects",
         "expect objects 0",
         {count},
         [](shell &s, const arguments &given) { expect_count(s, given, "objects", vok_cp_sim_count().objects); }},
        {"expect bindings",
         "fail unless the data plane holds so many bindings",
         "expect bindings 0",
         {count},
         [](shell &s, const arguments &given) { expect_count(s, given, "bindings", vok_cp_sim_count().bindings); }},
        {"expect audit",
         "fail unless the audit finds so many things wrong",
         "expect audit 0",
         {count},
         [](shell &s, const arguments &given) { expect_count(s, given, "audit", s.whole_audit().count()); }},
        plain("expect unchanged", "fail unless the data plane is as it was at the mark", expect_unchanged),
        {"expect shown",
         "fail unless the last command that is no expectation showed that text",
         "expect shown \"packet ends at\"",
         {required(text("TEXT", "a part of it, without line ends"))},
         expect_shown},
        {"expect event",
         "fail unless the last operation fired such an event",
         "expect event tn_zel_init:EXCEPTION \"udp_session_connect_ul\"",
         {one_of("NAME", "provider and event", names_of_events()), text("TEXT", "that its message contains")},
         expect_event},
    };
}
