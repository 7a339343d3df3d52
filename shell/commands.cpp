// How a line is read and carried out. What the commands do stands in the files named after them.
#include "commands.h"

#include <sstream>

#include "line_options.h"

namespace {

std::string first_word(const std::string &line)
{
    std::string word;
    std::istringstream(line) >> word;
    return word;
}

} // namespace

commands::commands(std::ostream &out, bool strict, bool shows_progress)
    : out_(out), strict_(strict), shows_progress_(shows_progress), recorder_(faults_, [this](const trace_event &e) {
          if (shown_events_ == "on" || (shown_events_ == "exceptions" && e.name.ends_with(":EXCEPTION")))
              out_ << "  " << e.name << "  " << e.location << "  " << e.category << "  " << e.message << '\n';
      })
{
}

void commands::add_all(CLI::App &app, line_options &options)
{
    add_library_commands(app, options);
    add_udp_commands(app, options);
    add_l2tp_commands(app, options);
    add_packet_commands(app, options);
    add_fault_commands(app, options);
    add_view_commands(app, options);
    add_expect_commands(app, options);
    add_shell_commands(app, options);
}

void commands::execute(const std::string &line, int line_number)
{
    line_ = line;
    line_number_ = line_number;
    changed_by_.clear();
    const std::string first = first_word(line);
    out_.keep(first != "expect");

    const std::shared_ptr<CLI::App> parser = new_parser();
    line_options options;
    add_all(*parser, options);
    if (const CLI::App *asked = parse_line(*parser, line)) {
        out_ << help_text(*asked);
        return;
    }
    if (!changed_by_.empty())
        audit_.after("line " + std::to_string(line_number) + ": " + changed_by_, known_, data_plane::now());
    if (first != "save" && first != "help")
        scenario_.push_back(line_);
}

std::uint32_t commands::record(const std::string &name, const std::function<std::uint32_t()> &operation)
{
    require_expected();
    state_result_in_scenario();
    recorder_.begin(line_, line_number_, name);
    const std::uint32_t result = operation();
    recorder_.end(result);
    last_result_is_expected_ = result == ZEL_CORE_TERM_SUCCESS;
    lines_up_to_operation_ = scenario_.size() + 1; // the current one goes there when it is done
    changed_by_ = name;
    return result;
}

std::uint32_t commands::operate(const std::string &name, const std::function<std::uint32_t()> &operation)
{
    const std::uint32_t result = record(name, operation);
    show_result();
    return result;
}

void commands::show_result()
{
    const operation_record &last = last_operation();
    out_ << last.name << ": " << last.result << " (" << last.result_text << ")\n";
}

const operation_record &commands::last_operation() const
{
    if (recorder_.last() == nullptr)
        throw bad_line("there was no operation yet");
    return *recorder_.last();
}

void commands::require_expected() const
{
    if (!strict_ || last_result_is_expected_)
        return;
    const operation_record &last = last_operation();
    throw bad_line(last.name + " gave " + std::to_string(last.result) + " (" + last.result_text + "), and no 'expect " +
                       std::to_string(last.result) + "' follows it",
                   last.line_number);
}

void commands::finish() const
{
    require_expected();
    for (const fault &f : faults_.all())
        if (f.acted == 0)
            throw bad_line("the fault of " + f.call + " never acted: there were " + std::to_string(f.seen) + " calls",
                           f.line_number);
}

std::optional<std::vector<std::string>> commands::choices_after(const std::vector<std::string> &words)
{
    const std::shared_ptr<CLI::App> parser = new_parser();
    line_options options;
    add_all(*parser, options);
    return ::choices_after(*parser, options, words);
}
