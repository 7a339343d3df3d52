/// IP addresses and ports as people write them.
#pragma once

#include <array>
#include <cstdint>
#include <string>

/// An address in network byte order, IPv4 in the first 4 bytes, with a UDP port.
struct endpoint {
    int ip_version; ///< 4 or 6
    std::array<std::uint8_t, 16> address;
    std::uint16_t port;
};

/// Reads "192.0.2.1:2152" or "[2001:db8::1]:2152".
/// @throws std::invalid_argument with what is wrong
endpoint parse_endpoint(const std::string &text);

/// Reads "192.0.2.1"; the port is 0.
/// @throws std::invalid_argument with what is wrong
endpoint parse_ipv4(const std::string &text);
