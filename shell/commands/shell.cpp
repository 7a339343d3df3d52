#include "shell.h"

#include "words.h"
#include "zel_core_term/zel_term.h"

namespace {

std::vector<command> all_commands()
{
    std::vector<command> all;
    for (const auto &of_one_kind : {library_commands, udp_commands, l2tp_commands, packet_commands, fault_commands,
                                    view_commands, expect_commands, scenario_commands})
        for (command &row : of_one_kind())
            all.push_back(std::move(row));
    return all;
}

template <typename Map> std::vector<std::string> ids_of(const Map &known)
{
    std::vector<std::string> ids;
    ids.reserve(known.size());
    for (const auto &[id, entry] : known)
        ids.push_back(std::to_string(id));
    return ids;
}

} // namespace

std::vector<std::string> udp_sessions(const shell &s)
{
    return ids_of(s.known.udp_sessions.all());
}

std::vector<std::string> l2tp_connections(const shell &s)
{
    return ids_of(s.known.connections);
}

std::vector<std::string> l2tp_sessions(const shell &s)
{
    return ids_of(s.known.l2tp_sessions);
}

shell::shell(std::ostream &real_out, bool strict, bool is_at_terminal)
    : out(real_out), shows_progress(is_at_terminal),
      watch(waiting,
            [this](const trace_event &e) {
                if (shown_events == "on" || (shown_events == "exceptions" && e.is_trouble()))
                    out << "  " << e.name << "  " << e.location << "  " << e.category << "  " << e.message << '\n';
            }),
      lines(all_commands()), strict_(strict)
{
}

void shell::execute(const std::string &line, int line_number)
{
    if (line.find('\0') != std::string::npos)
        throw bad_line("the line holds a NUL byte");
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#')
        return;
    const split_line split_words = split(line);
    if (split_words.unclosed)
        throw bad_line("a quote is not closed: " + *split_words.unclosed);
    if (split_words.words.empty())
        throw bad_line("a command is missing");
    const parser::request asked = lines.read(split_words.words);
    const bool is_aside = asked.what == nullptr || asked.what->name == "save" || asked.what->name == "help";
    out.keep(!is_aside && !asked.what->name.starts_with("expect"));
    if (asked.what == nullptr) {
        out << asked.help;
        return;
    }

    line_ = line;
    line_number_ = line_number;
    has_operated_ = false;
    changed_by_.clear();
    try {
        asked.what->run(*this, asked.given);
    } catch (const bad_line &) {
        throw;
    } catch (const std::runtime_error &wrong) { // of files
        throw bad_line(wrong.what());
    }
    if (!changed_by_.empty()) {
        const std::string blamed = "line " + std::to_string(line_number) + ": " + changed_by_;
        if (everything_changed_)
            audit_.look_at_all(blamed, ownership(known));
        else
            audit_.look_at(touched_, blamed, ownership(known));
        everything_changed_ = false;
        touched_.clear();
    }
    if (is_aside) // does not go into the scenario
        return;
    if (has_operated_)
        operation_line_ = scenario_.size();
    scenario_.push_back({line_, std::nullopt});
    if (has_operated_ && !last_result_is_expected_)
        scenario_.back().unstated_result = last_operation().result;
    else if (last_result_is_expected_ && operation_line_ < scenario_.size())
        scenario_[operation_line_].unstated_result.reset();
}

std::uint32_t shell::record(const std::string &name, const std::function<std::uint32_t()> &operation)
{
    require_expected();
    const std::uint32_t result = watch.run(line_, line_number_, name, operation);
    last_result_is_expected_ = result == ZEL_CORE_TERM_SUCCESS;
    has_operated_ = true;
    changed_by_ = name;
    note_touched();
    return result;
}

std::uint32_t shell::operate(const std::string &name, const std::function<std::uint32_t()> &operation)
{
    const std::uint32_t result = record(name, operation);
    show_result();
    if (result != ZEL_CORE_TERM_SUCCESS && zel_handles == nullptr)
        out << "the library is not started\n";
    return result;
}

/// The audit looks again at what the calls were given and made, and at what came into the L2TP tables or left them.
void shell::note_touched()
{
    for (const recorded_call *call : calls_of(last_operation())) {
        touched_.insert({call->handle, call->created});
        if (call->is_bind_or_unbind())
            touched_.insert({call->binding().srcFlowHandle, call->binding().destFlowHandle});
    }
    std::vector<held_handle> held = l2tp_handles();
    if (held == l2tp_before_)
        return;
    for (const auto *all : {&held, &l2tp_before_})
        for (const held_handle &one : *all)
            touched_.insert(one.handle);
    l2tp_before_ = std::move(held);
}

void shell::show_result()
{
    const operation_record &last = last_operation();
    out << last.name << ": " << last.result << " (" << last.result_text << ")\n";
}

const operation_record &shell::last_operation() const
{
    if (watch.last() == nullptr)
        throw bad_line("there was no operation yet");
    return *watch.last();
}

void shell::require_expected() const
{
    if (!strict_ || last_result_is_expected_)
        return;
    const operation_record &last = last_operation();
    throw bad_line(last.name + " gave " + std::to_string(last.result) + " (" + last.result_text + "), and no 'expect " +
                       std::to_string(last.result) + "' follows it",
                   last.line_number);
}

void shell::finish() const
{
    require_expected();
    for (const fault &f : waiting.all())
        if (f.acted == 0)
            throw bad_line("the fault on " + f.call + " never fired: there were " + std::to_string(f.seen) + " calls",
                           f.line_number);
}

std::vector<std::string> shell::scenario() const
{
    std::vector<std::string> all;
    for (const scenario_line &line : scenario_) {
        all.push_back(line.text);
        if (line.unstated_result)
            all.push_back("expect " + std::to_string(*line.unstated_result));
    }
    return all;
}

const audit &shell::whole_audit()
{
    const operation_record *last = watch.last();
    audit_.look_at_all(last != nullptr ? "line " + std::to_string(last->line_number) + ": " + last->name : "nothing",
                       ownership(known));
    return audit_;
}
