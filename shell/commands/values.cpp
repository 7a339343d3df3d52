#include "values.h"

#include <arpa/inet.h>

#include <charconv>
#include <optional>
#include <stdexcept>

namespace {

template <typename Number = std::uint32_t> std::optional<Number> number_in(const std::string &text)
{
    const bool hexadecimal = text.starts_with("0x");
    Number number = 0;
    const char *begin = text.data() + (hexadecimal ? 2 : 0), *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

std::uint16_t parse_port(const std::string &text)
{
    std::uint16_t port = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc{} || stop != end)
        throw std::invalid_argument("'" + text + "' is not a port from 0 to 65535");
    return port;
}

endpoint parse_address(int ip_version, const std::string &text, std::uint16_t port)
{
    endpoint e{ip_version, {}, port};
    if (inet_pton(ip_version == 6 ? AF_INET6 : AF_INET, text.c_str(), e.address.data()) != 1)
        throw std::invalid_argument("'" + text + "' is not an IPv" + std::to_string(ip_version) + " address");
    return e;
}

} // namespace

std::uint32_t parse_number(const std::string &text, std::uint32_t max)
{
    const std::optional<std::uint32_t> number = number_in(text);
    if (!number || *number > max)
        throw std::invalid_argument("'" + text + "' is not a number from 0 to " + std::to_string(max));
    return *number;
}

endpoint parse_endpoint(const std::string &text)
{
    const std::size_t colon = text.rfind(':');
    const bool bracketed = text.starts_with('[') && colon != std::string::npos && colon > 0 && text[colon - 1] == ']';
    if (colon == std::string::npos || (!bracketed && text.find(':') != colon))
        throw std::invalid_argument("'" + text + "' is not ADDRESS:PORT (IPv6: [ADDRESS]:PORT)");

    const std::uint16_t port = parse_port(text.substr(colon + 1));
    return bracketed ? parse_address(6, text.substr(1, colon - 2), port)
                     : parse_address(4, text.substr(0, colon), port);
}

endpoint parse_ipv4(const std::string &text)
{
    return parse_address(4, text, 0);
}

std::variant<std::uint64_t, endpoint> parse_handle_or_address(const std::string &text)
{
    if (const auto handle = number_in<std::uint64_t>(text))
        return *handle;
    if (text.find_first_of(".:") == std::string::npos)
        throw std::invalid_argument("'" + text + "' is neither a handle, as 0x100000001, nor an address");
    return parse_address(text.find(':') != std::string::npos ? 6 : 4, text, 0);
}

std::uint32_t parse_flow(const std::string &text)
{
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        if (const auto id = number_in(text))
            return *id;
    } else {
        const auto pcep = number_in(text.substr(0, slash)), session = number_in(text.substr(slash + 1));
        if (pcep && session && *pcep <= 0xFFF && *session <= 0xFFFFF)
            return *pcep << 20 | *session;
    }
    throw std::invalid_argument("'" + text + "' is not an ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)");
}
