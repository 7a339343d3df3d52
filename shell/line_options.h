/// The options that commands take, and how they are read.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
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
    std::string on_off, what;
    std::vector<std::string> command;
};

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

/// A required option that takes an address and a port.
CLI::Option *add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// A required option that takes an IPv4 address.
CLI::Option *add_ipv4(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning);

/// @throws bad_line unless both are of one IP version
void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second);
