/// The options that commands take, and how they are read.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <map>
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
    std::uint32_t connection = 0, connection_id = 0, local_session_id = 0, pcep = 0;
    bool crc = false;
    std::uint32_t count = 0;
    fault injected;
    std::uint32_t ticks = 0;
    bool durations = false;
    std::string choice, event, text, file;
    std::vector<std::string> command;

    std::map<const CLI::Option *, std::vector<std::string>> choices; ///< of the options for which there is a list
};

/// A command of `parent`, with an example for its help.
CLI::App *add_command(CLI::App &parent, const std::string &name, const std::string &meaning,
                      const std::string &example);

/// A group of commands.
CLI::App *add_group(CLI::App &parent, const std::string &name, const std::string &meaning);

/// The command of that name directly below, or null.
CLI::App *command_below(CLI::App &app, const std::string &name);

/// The names of the commands directly below, separated by commas.
std::string names_of_commands(const CLI::App &app);

/// "udp add"
std::string full_name(const CLI::App &command);

/// The message for a word that is no command of `app`.
std::string unknown_command(const CLI::App &app, const std::string &word);

/// What can stand at the end of a line that begins with `words`: commands, options, and values of which there is a
/// list.
std::vector<std::string> choices_after(CLI::App &app, const commands::line_options &options,
                                       const std::vector<std::string> &words);

/// Reads a decimal number, or a hexadecimal one after 0x.
std::optional<std::uint32_t> parse_number(const std::string &text);

/// Reads an ovlin flow ID, written as a number or as PCEP/SESSION.
/// @throws std::invalid_argument with what is wrong
std::uint32_t parse_flow(const std::string &text);

/// Accepts what `parse` reads, and otherwise says what it says.
template <typename Parse> CLI::Validator readable_by(Parse parse)
{
    return {[parse](std::string &text) {
                try {
                    parse(text);
                    return std::string{};
                } catch (const std::invalid_argument &wrong) {
                    return std::string(wrong.what());
                }
            },
            ""};
}

/// An option that takes a number from 0 to `max`.
CLI::Option *add_number(CLI::App *command, const std::string &name, std::uint32_t &number, const std::string &meaning,
                        std::uint32_t max = UINT32_MAX);

/// The ids that a map of the ledger knows, for completion.
template <typename Map> std::vector<std::string> ids_of(const Map &known)
{
    std::vector<std::string> ids;
    ids.reserve(known.size());
    for (const auto &[id, entry] : known)
        ids.push_back(std::to_string(id));
    return ids;
}

/// A required option that takes one of a few words.
CLI::Option *add_choice(CLI::App *command, commands::line_options &options, const std::string &name, std::string &word,
                        const std::string &meaning, const std::vector<std::string> &words);

/// A required option that takes an address and a port.
CLI::Option *add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// A required option that takes an IPv4 address.
CLI::Option *add_ipv4(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// @throws bad_line unless both are of one IP version
void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second);
