// The commands that make data-plane calls fail or slow.
#include "line_options.h"
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

} // namespace

void commands::add_fault_commands(CLI::App &app, line_options &o)
{
    CLI::App *fault_command = add_command(app, "fault", "make a call of the operations that follow fail, or slow",
                                          "fault vok_bind --nth 2 --status 5");
    add_choice(fault_command, o, "FUNCTION", o.injected.call, "a data-plane function, or the session-type hook",
               functions_that_can_fail());
    CLI::Option *nth = add_number(fault_command, "--nth", o.injected.nth, "which call from now, the next being 1");
    with_default(nth);
    CLI::Option *status = add_number(fault_command, "--status", o.injected.status,
                                     "what the call answers, not 0; default " + std::to_string(default_status) +
                                         ", or success with --ticks");
    add_flag(fault_command, "--after-effect", o.injected.after_effect, "it fails having taken effect");
    add_flag(fault_command, "--every", o.injected.every, "every call from that one on");
    CLI::Option *ticks = add_number(fault_command, "--ticks", o.ticks,
                                    "it takes at least so many ticks; more than 25600000 are reported as slow");
    on_run(fault_command, [this, &o, status, ticks] {
        fault f = o.injected;
        f.ticks = o.ticks;
        f.line_number = line_number_;
        const bool is_hook = f.call == session_type_hook;
        if (f.nth == 0)
            throw bad_line("--nth: the next call is 1");
        if (is_given(status) && f.status == 0)
            throw bad_line("--status: 0 is success");
        if (is_hook && (is_given(ticks) || f.after_effect))
            throw bad_line("the session-type hook takes --status, --nth and --every only");
        if (!is_given(status) && (f.after_effect || !is_given(ticks)))
            f.status = default_status;
        faults_.add(f);
        out_ << f.call << ": " << which_calls(f) << " " << what_it_does(f) << '\n';
    });

    CLI::App *list = add_command(app, "faults", "the faults that were asked for, and how often they acted", "faults");
    CLI::App *clear = add_command(*list, "clear", "forget them", "faults clear");
    on_run(clear, [this] {
        faults_.clear();
        out_ << "no faults\n";
    });
    on_run(list, [this, list] {
        if (names_inner_command(list))
            return;
        text_table table{{"function", "which", "what", "calls seen", "acted on"}};
        for (const fault &f : faults_.all())
            table.add({f.call, which_calls(f), what_it_does(f), std::to_string(f.seen), std::to_string(f.acted)});
        out_ << faults_.all().size() << (faults_.all().size() == 1 ? " fault\n" : " faults\n") << table;
    });
}
