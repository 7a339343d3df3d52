#include "command.h"

#include <algorithm>

parameter text(const char *name, const char *meaning)
{
    return {.name = name, .type = "TEXT", .meaning = meaning};
}

parameter file(const char *meaning)
{
    return required(text("FILE", meaning));
}

parameter flag(const char *name, const char *meaning)
{
    return {.name = name, .type = "", .meaning = meaning};
}

parameter number(const char *name, const char *meaning, const char *fallback, std::uint32_t max)
{
    parameter p{.name = name, .type = "NUMBER", .meaning = meaning, .fallback = fallback};
    p.check = [max](const std::string &value) { parse_number(value, max); };
    return p;
}

parameter byte(const char *name, const char *meaning, const char *fallback)
{
    return number(name, meaning, fallback, UINT8_MAX);
}

parameter address(const char *name, const char *meaning)
{
    parameter p{.name = name, .type = "ADDRESS", .meaning = meaning, .is_required = true};
    p.check = parse_ipv4;
    return p;
}

parameter address_and_port(const char *name, const char *meaning)
{
    parameter p{.name = name, .type = "ADDRESS:PORT", .meaning = meaning, .is_required = true};
    p.check = parse_endpoint;
    return p;
}

parameter one_of(const char *name, const char *meaning, const std::vector<std::string> &words)
{
    parameter p = with_choices(required(text(name, meaning)), [words](const shell &) { return words; });
    p.check = [words](const std::string &value) {
        if (std::ranges::find(words, value) != words.end())
            return;
        std::string all;
        for (const std::string &word : words)
            all += (all.empty() ? "" : ", ") + word;
        throw std::invalid_argument("'" + value + "' is none of " + all);
    };
    return p;
}

parameter required(parameter p)
{
    p.is_required = true;
    return p;
}

parameter several(parameter p)
{
    p.takes_several = true;
    return p;
}

parameter with_choices(parameter p, choices_of choices)
{
    p.choices = std::move(choices);
    return p;
}

const std::string &arguments::text(const char *name) const
{
    if (const auto found = given_.find(name); found != given_.end())
        return found->second.front();
    return std::ranges::find(read_.parameters, name, &parameter::name)->fallback;
}

std::vector<std::string> arguments::texts(const char *name) const
{
    const auto found = given_.find(name);
    return found != given_.end() ? found->second : std::vector<std::string>{};
}

void require_same_version(const char *first_name, const endpoint &first, const char *second_name,
                          const endpoint &second)
{
    if (first.ip_version != second.ip_version)
        throw bad_line(std::string(first_name) + " is IPv" + std::to_string(first.ip_version) + " and " + second_name +
                       " is IPv" + std::to_string(second.ip_version));
}

command plain(const char *name, const char *meaning, void (*run)(shell &, const arguments &))
{
    return {name, meaning, name, {}, run};
}
