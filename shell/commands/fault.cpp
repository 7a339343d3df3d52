// The commands that make data-plane calls fail or slow.
#include "shell.h"
#include "text_table.h"

namespace {

constexpr std::uint32_t default_status = VOK_CP_SIM_INJECTED;

std::string what_it_does(const fault &f)
{
    std::string text =
        f.status == 0 ? "" : "fails with " + std::to_string(f.status) + ", " + status_text(f.call, f.status);
    if (f.after_effect)
        text += ", after its effect";
    if (f.ticks != 0)
        text += (text.empty() ? "" : ", ") + ("takes " + std::to_string(f.ticks) + " ticks");
    return text;
}

std::string which_calls(const fault &f)
{
    const std::string nth = std::to_string(f.nth);
    return f.every ? f.nth == 1 ? "every call" : "every call from number " + nth : "call number " + nth;
}

void add(shell &s, const arguments &given)
{
    fault f{.call = given.text("FUNCTION"), .nth = given.number("--nth"), .every = given.has("--every")};
    f.status = given.number("--status", 0);
    f.after_effect = given.has("--after-effect");
    f.ticks = given.number("--ticks", 0);
    f.line_number = s.line_number();
    if (f.nth == 0)
        throw bad_line("--nth: the next call is 1");
    if (given.has("--status") && f.status == 0)
        throw bad_line("--status: 0 is success");
    if (f.call == session_type_hook && (given.has("--ticks") || f.after_effect))
        throw bad_line("the session-type hook takes --status, --nth and --every only");
    if (!given.has("--status") && (f.after_effect || !given.has("--ticks")))
        f.status = default_status;
    s.waiting.add(f);
    s.out << f.call << ": " << which_calls(f) << " " << what_it_does(f) << '\n';
}

void list(shell &s, const arguments &)
{
    const std::vector<fault> &all = s.waiting.all();
    text_table table{{"function", "which", "what", "calls seen", "fired"}};
    for (const fault &f : all)
        table.add({f.call, which_calls(f), what_it_does(f), std::to_string(f.seen), std::to_string(f.acted)});
    s.out << all.size() << (all.size() == 1 ? " fault\n" : " faults\n") << table;
}

void clear(shell &s, const arguments &)
{
    s.waiting.clear();
    s.out << "no faults\n";
}

} // namespace

std::vector<command> fault_commands()
{
    const std::string status =
        "what the call answers, not 0; default " + std::to_string(default_status) + ", or success with --ticks";
    return {
        {"fault",
         "make a call of the operations that follow fail, or slow",
         "fault vok_bind --nth 2 --status 5",
         {one_of("FUNCTION", "a data-plane function, or the session-type hook", functions_that_can_fail()),
          number("--nth", "which call from now, the next being 1", "1"), number("--status", status.c_str()),
          flag("--after-effect", "it fails having taken effect"), flag("--every", "every call from that one on"),
          number("--ticks", "it takes at least so many ticks; more than 25600000 are reported as slow")},
         add},
        plain("faults", "the faults that were asked for, and how often they fired", list),
        plain("faults clear", "forget all faults", clear),
    };
}
