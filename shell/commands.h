/// The shell's commands.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "audit.h"
#include "data_plane.h"
#include "faults.h"
#include "kept_output.h"
#include "ledger.h"
#include "recorder.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

/// A line that cannot be carried out as it is written, in which case nothing was done, or an expectation that does not
/// hold.
struct bad_line : std::runtime_error {
    explicit bad_line(const std::string &what, int number = 0) : std::runtime_error(what), line_number(number) {}
    int line_number; ///< 0: the one that was to be carried out
};

class commands {
public:
    /// Everything that the commands show goes to `out`.
    /// @param strict a result other than 0 has to be stated by an `expect` before the next operation
    /// @param shows_progress `out` is a terminal
    commands(std::ostream &out, bool strict, bool shows_progress);

    /// Carries out one line. What an operation of the library answers is shown, whatever it is.
    /// @throws bad_line
    void execute(const std::string &line, int line_number);

    /// All lines have been carried out.
    /// @throws bad_line when the last result was not expected, or a fault never acted
    void finish() const;

    /// A line asked to end.
    bool wants_to_quit() const { return wants_to_quit_; }

    /// What can stand at the end of a line that begins with these words; nothing when it can be a file's name.
    std::optional<std::vector<std::string>> choices_after(const std::vector<std::string> &words);

    struct line_options;

private:
    void add_all(CLI::App &app, line_options &options);
    void add_library_commands(CLI::App &app, line_options &options);
    void add_udp_commands(CLI::App &app, line_options &options);
    void add_l2tp_commands(CLI::App &app, line_options &options);
    void add_connection_commands(CLI::App &l2tp, line_options &options);
    void add_connection_modify(CLI::App &group, line_options &options);
    void add_session_commands(CLI::App &l2tp, line_options &options);
    void add_packet_commands(CLI::App &app, line_options &options);
    void add_fault_commands(CLI::App &app, line_options &options);
    void add_view_commands(CLI::App &app, line_options &options);
    void add_expect_commands(CLI::App &app, line_options &options);
    void add_shell_commands(CLI::App &app, line_options &options);

    /// Has the library carry out an operation and shows what it answers.
    std::uint32_t operate(const std::string &name, const std::function<std::uint32_t()> &operation);

    /// The same without showing it, as one of many.
    std::uint32_t record(const std::string &name, const std::function<std::uint32_t()> &operation);
    void show_result();

    /// @throws bad_line
    const operation_record &last_operation() const;
    void require_expected() const;
    void state_result_in_scenario();

    void expect_result(std::uint32_t code);
    void expect_unchanged();
    void expect_event(const std::string &name, const std::string &text);
    void show_udp_sessions();
    void show_calls(bool with_durations);
    void note_udp_session(std::uint32_t id);
    void fill_udp_sessions(std::uint32_t count);
    void clear_udp_sessions(std::uint32_t below);
    void forget_removed();
    void save(const std::string &file);

    kept_output out_; ///< kept of the last command that is no `expect`
    bool strict_, shows_progress_;
    bool wants_to_quit_ = false;
    std::string shown_events_ = "off"; ///< as the `trace` command was given
    std::string line_;                 ///< as it goes into the scenario: what of it was done when it was interrupted
    int line_number_ = 0;
    bool last_result_is_expected_ = true;
    std::string changed_by_;                ///< what the current line did to the data plane; empty: nothing
    std::vector<std::string> scenario_;     ///< the lines that were carried out, with what they answered
    std::size_t lines_up_to_operation_ = 0; ///< how many of them up to the last operation

    faults faults_;
    recorder recorder_;
    ledger known_;
    audit audit_;
    std::optional<data_plane> mark_;
};
