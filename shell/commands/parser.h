/// Reads lines by the table of commands. Only its source includes CLI11, whose headers take seconds to compile.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command.h"

namespace CLI {
class App;
}

class parser {
public:
    explicit parser(std::vector<command> rows);
    ~parser();

    struct request {
        const command *what; ///< null: the line asks for help
        arguments given;
        std::string help;
    };

    /// @throws bad_line
    request read(const std::vector<std::string> &words);

    /// Lists the commands whose names begin with these words, or the parameters of one.
    /// @throws bad_line
    std::string help(const std::vector<std::string> &words);

    /// The commands, options and known values that can follow these words.
    /// @return nothing when a file's name can
    std::optional<std::vector<std::string>> choices_after(const std::vector<std::string> &words, const shell &asking);

private:
    struct place {
        std::size_t depth;              ///< how many of the words name a command or a group
        std::string name;               ///< these words
        const command *named;           ///< null: a group, or no word at all
        std::vector<std::string> below; ///< the words that can follow
    };
    std::vector<std::string> words_below(const std::string &group) const;
    place find(const std::vector<std::string> &words) const;
    CLI::App &app_of(const command &row);
    std::string help(const place &asked);

    std::vector<command> rows_;
    std::vector<std::unique_ptr<CLI::App>> apps_; ///< by row, made at its first use
};
