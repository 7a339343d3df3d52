/// A line's words.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct split_line {
    std::vector<std::string> words;
    std::optional<std::string> unclosed; ///< what follows a quote that is not closed
};

/// Words are separated by blanks; quotes, single or double, hold a word with blanks together, and "" is none.
split_line split(const std::string &line);
