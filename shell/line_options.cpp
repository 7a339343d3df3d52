#include "line_options.h"

#include <charconv>

std::optional<std::uint32_t> parse_number(const std::string &text)
{
    const bool hexadecimal = text.starts_with("0x");
    std::uint32_t number = 0;
    const char *begin = text.data() + (hexadecimal ? 2 : 0), *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

CLI::Option *add_number(CLI::App *command, const std::string &name, std::uint32_t &number, const std::string &meaning,
                        std::uint32_t max)
{
    const CLI::Validator to_decimal(
        [max](std::string &text) {
            const std::optional<std::uint32_t> value = parse_number(text);
            if (!value || *value > max)
                return "'" + text + "' is not a number from 0 to " + std::to_string(max);
            text = std::to_string(*value);
            return std::string{};
        },
        "");
    return command->add_option(name, number, meaning)->type_name("NUMBER")->transform(to_decimal);
}

std::uint32_t parse_flow(const std::string &text)
{
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) {
        if (const auto id = parse_number(text))
            return *id;
    } else {
        const auto pcep = parse_number(text.substr(0, slash)), session = parse_number(text.substr(slash + 1));
        if (pcep && session && *pcep <= 0xFFF && *session <= 0xFFFFF)
            return *pcep << 20 | *session;
    }
    throw std::invalid_argument("'" + text + "' is not an ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)");
}

CLI::Option *add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    return command->add_option(name, text, meaning)
        ->type_name("ADDRESS:PORT")
        ->required()
        ->check(readable_by(parse_endpoint));
}

CLI::Option *add_ipv4(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    return command->add_option(name, text, meaning)->type_name("ADDRESS")->required()->check(readable_by(parse_ipv4));
}

void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second)
{
    if (first.ip_version != second.ip_version)
        throw bad_line(first_name + " is IPv" + std::to_string(first.ip_version) + " and " + second_name + " is IPv" +
                       std::to_string(second.ip_version));
}
