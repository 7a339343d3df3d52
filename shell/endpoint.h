/// IP addresses and ports as people write them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "vok_cp.h"

/// An address in network byte order, IPv4 in the first 4 bytes, with a UDP port.
struct endpoint {
    int ip_version; ///< 4 or 6
    std::array<std::uint8_t, 16> address;
    std::uint16_t port;
};

/// Reads "192.0.2.1:2152" or "[2001:db8::1]:2152".
/// @throws std::invalid_argument with what is wrong
endpoint parse_endpoint(const std::string &text);

/// The reverse of parse_endpoint().
std::string to_text(const endpoint &e);

/// The same from the data plane's host-order words.
std::string to_text(std::uint32_t ipv4_word, std::uint16_t port);
std::string to_text(const vok_ipv6_address &ipv6_words, std::uint16_t port);
