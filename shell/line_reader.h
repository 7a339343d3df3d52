/// The lines that a person types.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// With editing, completion, and a history that is kept from one run to the next in
/// ~/.zel_term_shell_history, or in the file that ZEL_TERM_SHELL_HISTORY names. There is one at a time.
class terminal_reader {
public:
    /// What can stand at the end of a line that begins with these words.
    using completer = std::function<std::vector<std::string>(const std::vector<std::string> &)>;

    explicit terminal_reader(completer choices_after);
    ~terminal_reader();
    terminal_reader(const terminal_reader &) = delete;
    terminal_reader &operator=(const terminal_reader &) = delete;

    /// @return false at the end
    bool read(std::string &line);

private:
    std::string history_file_; ///< empty: none is kept
};
