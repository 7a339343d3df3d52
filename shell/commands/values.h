/// Numbers, addresses and flows as people write them. Each parse throws std::invalid_argument with what is wrong.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

/// An address in network byte order, IPv4 in the first 4 bytes, with a UDP port.
struct endpoint {
    int ip_version; ///< 4 or 6
    std::array<std::uint8_t, 16> address;
    std::uint16_t port;
};

/// "7", or hexadecimal "0x7".
std::uint32_t parse_number(const std::string &text, std::uint32_t max = UINT32_MAX);

/// "192.0.2.1:2152" or "[2001:db8::1]:2152".
endpoint parse_endpoint(const std::string &text);

/// "192.0.2.1"; the port is 0.
endpoint parse_ipv4(const std::string &text);

/// A handle, "0x100000001", or an address of either version, whose port is 0.
std::variant<std::uint64_t, endpoint> parse_handle_or_address(const std::string &text);

/// An ovlin flow ID, "0x00100005" or "1/5" (PCEP/SESSION).
std::uint32_t parse_flow(const std::string &text);
