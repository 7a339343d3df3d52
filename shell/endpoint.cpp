#include "endpoint.h"

#include <arpa/inet.h>

#include <charconv>
#include <stdexcept>

namespace {

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
