/// The state that the commands work on: the library under watch, what is known of its sessions, the scenario so far.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "audit.h"
#include "command.h"
#include "data_plane.h"
#include "faults.h"
#include "kept_output.h"
#include "ledger.h"
#include "parser.h"
#include "recorder.h"

class shell {
public:
    /// The commands write to `real_out`.
    /// @param strict a result other than 0 needs an `expect` before the next operation
    /// @param is_at_terminal long work shows its progress
    shell(std::ostream &real_out, bool strict, bool is_at_terminal);

    /// Carries out one line. An empty line or a comment does nothing.
    /// @throws bad_line
    void execute(const std::string &line, int line_number);

    /// To be called after the last line.
    /// @throws bad_line when the last result was not expected, or a fault never fired
    void finish() const;

    // ---- For the commands

    /// Runs an operation of the library and shows its result.
    std::uint32_t operate(const std::string &name, const std::function<std::uint32_t()> &operation);

    /// The same without showing its result.
    std::uint32_t record(const std::string &name, const std::function<std::uint32_t()> &operation);
    void show_result();

    /// @throws bad_line when there was none
    const operation_record &last_operation() const;

    void expect_last_result() { last_result_is_expected_ = true; }

    /// Names what the current line changed, in place of its last operation.
    void changed_by(const std::string &what) { changed_by_ = what; }
    void everything_changed() { everything_changed_ = true; }

    /// The scenario gets this in place of the current line, which was interrupted.
    void replace_line(const std::string &line) { line_ = line; }
    int line_number() const { return line_number_; }

    /// The lines that were carried out, with an `expect` for each result other than 0 that has none.
    std::vector<std::string> scenario() const;

    /// The audit of everything, as of now.
    const audit &whole_audit();

    kept_output out; ///< keeps the output of the last command other than `expect`
    const bool shows_progress;
    bool wants_to_quit = false;
    std::string shown_events = "off"; ///< as the `trace` command was given
    faults waiting;
    recorder watch;
    ledger known;
    std::optional<data_plane> mark;
    parser lines;

private:
    struct scenario_line {
        std::string text;
        std::optional<std::uint32_t> unstated_result; ///< of its operation, other than 0
    };

    void require_expected() const;
    void note_touched();

    const bool strict_;
    std::string line_; ///< as the scenario gets it
    int line_number_ = 0;
    bool last_result_is_expected_ = true;
    bool has_operated_ = false;      ///< the current line
    std::size_t operation_line_ = 0; ///< the last scenario line with an operation
    std::vector<scenario_line> scenario_;

    std::string changed_by_; ///< empty: nothing was done
    bool everything_changed_ = false;
    std::set<std::uint64_t> touched_;      ///< handles that the current line involved
    std::vector<held_handle> l2tp_before_; ///< what the L2TP tables held after the last operation
    audit audit_;
};
