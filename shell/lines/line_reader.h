/// Reads lines from a person at a terminal.
#pragma once

#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// With editing, completion, and a history kept in ~/.zel_term_shell_history or in the file that
/// ZEL_TERM_SHELL_HISTORY names. There can be one at a time.
///
/// The terminal's settings are changed only while a line is typed, and restored by whatever signal stops or ends the
/// program.
class line_reader {
public:
    /// Gives the candidates for the word after these.
    /// @return nothing when it can be a file's name
    using completer = std::function<std::optional<std::vector<std::string>>(const std::vector<std::string> &)>;

    explicit line_reader(completer choices_after);
    ~line_reader();
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;

    /// ^C discards what is typed so far. A returned line is in the history file already.
    /// @return nothing at the end of the input
    std::optional<std::string> next();

private:
    void handle_signal();
    static void stop_and_continue();
    void keep(const std::string &line);

    std::string history_file_; ///< empty: no history is kept
    std::string latest_;       ///< a repeated line is kept once
    sigset_t signals_;         ///< blocked while a line is typed ...
    int waiting_signals_;      ///< ... and are read here
};
