/// The options that commands take, and how lines are read. Only the source of this knows the parser, CLI11, whose
/// headers cost seconds wherever they are included.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "endpoint.h"

/// The options of one line, as the parser fills them.
struct commands::line_options {
    std::uint32_t id = 0;
    std::string local, remote;
    std::uint32_t vrf = 0, pmtu = 1500, ttl = 0;
    std::uint32_t uplink_pcep = 0, downlink_pcep = 0, rat_session = 0, dscp = 0;
    bool session_type = false;
    bool fields = false;
    std::string flow;
    std::uint32_t octets = 100;
    std::vector<std::uint32_t> sessions;
    std::uint32_t connection = 0, connection_id = 0, local_session_id = 0, pcep = 0;
    bool crc = false;
    std::uint32_t count = 0, below = UINT32_MAX;
    fault injected;
    std::uint32_t ticks = 0;
    bool durations = false;
    std::string choice, event, text, result, file;
    std::vector<std::string> command;

    std::map<const CLI::Option *, std::vector<std::string>> choices; ///< of the options for which there is a list
};

/// A line's parser without commands.
std::shared_ptr<CLI::App> new_parser();

/// Reads a line and runs the command that it names.
/// @return the command of which the line asks for help, or null
/// @throws bad_line
const CLI::App *parse_line(CLI::App &parser, const std::string &line);

/// A command of `parent`, with an example for its help.
CLI::App *add_command(CLI::App &parent, const std::string &name, const std::string &meaning,
                      const std::string &example);

/// A group of commands.
CLI::App *add_group(CLI::App &parent, const std::string &name, const std::string &meaning);

/// What the command does.
void on_run(CLI::App *command, std::function<void()> run);

/// Whether the line goes on to one of the command's own commands.
bool names_inner_command(const CLI::App *command);

/// The command of that name directly below, or null.
CLI::App *command_below(CLI::App &app, const std::string &name);

/// The names of the commands directly below, separated by commas.
std::string names_of_commands(const CLI::App &app);

/// The message for a word that is no command of `app`.
std::string unknown_command(const CLI::App &app, const std::string &word);

/// All commands below a group, or the options of a command.
std::string help_text(const CLI::App &asked);

/// What can stand at the end of a line that begins with `words`: commands, options, and values of which there is a
/// list.
/// @return nothing when it can be a file's name
std::optional<std::vector<std::string>> choices_after(CLI::App &app, const commands::line_options &options,
                                                      const std::vector<std::string> &words);

/// Reads a decimal number, or a hexadecimal one after 0x.
std::optional<std::uint32_t> parse_number(const std::string &text);

/// Reads an ovlin flow ID, written as a number or as PCEP/SESSION.
/// @throws std::invalid_argument with what is wrong
std::uint32_t parse_flow(const std::string &text);

CLI::Option *required(CLI::Option *option);

/// The help tells the value that an option has when it is not given.
CLI::Option *with_default(CLI::Option *option);

bool is_given(const CLI::Option *option);

CLI::Option *add_text(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);
void add_words(CLI::App *command, const std::string &name, std::vector<std::string> &words, const std::string &meaning);
void add_flag(CLI::App *command, const std::string &name, bool &flag, const std::string &meaning);

/// An option that takes a number from 0 to `max`.
CLI::Option *add_number(CLI::App *command, const std::string &name, std::uint32_t &number, const std::string &meaning,
                        std::uint32_t max = UINT32_MAX);

/// An option that takes one such number or several.
CLI::Option *add_numbers(CLI::App *command, const std::string &name, std::vector<std::uint32_t> &numbers,
                         const std::string &meaning);

/// The ids that a map of the ledger knows, for completion.
template <typename Map> std::vector<std::string> ids_of(const Map &known)
{
    std::vector<std::string> ids;
    ids.reserve(known.size());
    for (const auto &[id, entry] : known)
        ids.push_back(std::to_string(id));
    return ids;
}

/// The required id of something that there is.
void add_known_id(CLI::App *command, commands::line_options &options, const std::string &meaning,
                  std::vector<std::string> ids);

/// A required option that takes one of a few words.
void add_choice(CLI::App *command, commands::line_options &options, const std::string &name, std::string &word,
                const std::string &meaning, const std::vector<std::string> &words);

/// A required option that takes an address and a port.
void add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// A required option that takes an ovlin flow ID.
void add_flow(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// A required option that takes an IPv4 address.
void add_ipv4(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// @throws bad_line unless both are of one IP version
void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second);
