/// The lines that a person types.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// With editing, completion, and a history that is kept from one run to the next in ~/.zel_term_shell_history, or in
/// the file that ZEL_TERM_SHELL_HISTORY names. There is one at a time.
class line_reader {
public:
    /// What can stand at the end of a line that begins with these words.
    /// @return nothing when it can be a file's name
    using completer = std::function<std::optional<std::vector<std::string>>(const std::vector<std::string> &)>;

    explicit line_reader(completer choices_after);
    ~line_reader();
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;

    /// ^C takes back what is typed so far.
    /// @return nothing at the end
    std::optional<std::string> next();

private:
    std::string history_file_; ///< empty: none is kept
    std::string latest_;       ///< a line that is typed twice is kept once
};
