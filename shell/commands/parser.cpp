#include "parser.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

#include "text_table.h"

namespace {

/// "a, b, c"
std::string joined(const std::vector<std::string> &words)
{
    return CLI::detail::join(words, ", ");
}

/// Accepts what `check` accepts, and otherwise says what it says.
CLI::Validator validator_of(const std::function<void(const std::string &)> &check)
{
    return {[check](std::string &text) {
                try {
                    check(text);
                    return std::string{};
                } catch (const std::invalid_argument &wrong) {
                    return std::string(wrong.what());
                }
            },
            ""};
}

void add_parameter(CLI::App &app, const parameter &p)
{
    if (p.type.empty()) {
        app.add_flag(p.name, p.meaning)->disable_flag_override();
        return;
    }
    CLI::Option *option = app.add_option(p.name, p.meaning)->type_name(p.type)->required(p.is_required);
    if (p.takes_several)
        option->expected(-1)->allow_extra_args()->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (!p.fallback.empty())
        option->default_str(p.fallback);
    if (p.check)
        option->check(validator_of(p.check));
}

/// "; expected --pmtu, --ttl", or nothing.
std::string expected_options(const command &row)
{
    std::vector<std::string> names;
    for (const parameter &p : row.parameters)
        if (p.is_option())
            names.push_back(p.name);
    return names.empty() ? "" : "; expected " + joined(names);
}

/// The message for a word that the place does not take.
std::string not_expected(const std::string &word, const std::vector<std::string> &below, const command *row)
{
    if (!below.empty() && !word.starts_with("--"))
        return "unknown command '" + word + "'; expected " + joined(below);
    return "not expected: " + word + (row != nullptr && word.starts_with("--") ? expected_options(*row) : "");
}

bool asks_for_help(const std::string &word)
{
    return word == "--help" || word == "-h";
}

} // namespace

parser::parser(std::vector<command> rows) : rows_(std::move(rows)), apps_(rows_.size())
{
}
parser::~parser() = default;

/// The words that can follow a group's name, or begin a line.
std::vector<std::string> parser::words_below(const std::string &group) const
{
    const std::string beginning = group.empty() ? "" : group + " ";
    std::vector<std::string> words;
    for (const command &row : rows_) {
        if (!row.name.starts_with(beginning))
            continue;
        const std::string rest = row.name.substr(beginning.size());
        const std::string next = rest.substr(0, rest.find(' '));
        if (std::ranges::find(words, next) == words.end())
            words.push_back(next);
    }
    return words;
}

/// As far as the words lead.
parser::place parser::find(const std::vector<std::string> &words) const
{
    place found{0, "", nullptr, words_below("")};
    for (const std::string &word : words) {
        if (std::ranges::find(found.below, word) == found.below.end())
            break;
        found.name += (found.depth == 0 ? "" : " ") + word;
        ++found.depth;
        found.below = words_below(found.name);
    }
    const auto row = std::ranges::find(rows_, found.name, &command::name);
    found.named = row != rows_.end() ? &*row : nullptr;
    return found;
}

CLI::App &parser::app_of(const command &row)
{
    std::unique_ptr<CLI::App> &app = apps_[static_cast<std::size_t>(&row - rows_.data())];
    if (app == nullptr) {
        app = std::make_unique<CLI::App>(row.meaning, row.name);
        app->set_help_flag(); // none: help stands in place of arguments, and read() sees it
        for (const parameter &p : row.parameters)
            add_parameter(*app, p);
    }
    return *app;
}

parser::request parser::read(const std::vector<std::string> &words)
{
    static const command none{};
    const place at = find(words);
    if (at.depth < words.size() && asks_for_help(words[at.depth]))
        return {nullptr, arguments(none), help(at)};
    if (at.named == nullptr)
        throw bad_line(at.depth == words.size() ? "a command is missing; expected " + joined(at.below)
                                                : not_expected(words[at.depth], at.below, nullptr));
    CLI::App &app = app_of(*at.named);
    try {
        std::vector<std::string> backwards(words.rbegin(), words.rend() - static_cast<std::ptrdiff_t>(at.depth));
        app.parse(std::move(backwards)); // as it wants them
    } catch (const CLI::ParseError &wrong) {
        if (const std::vector<std::string> rest = app.remaining(); !rest.empty())
            throw bad_line(not_expected(rest.front(), at.below, at.named));
        for (const parameter &p : at.named->parameters)
            if (p.is_required && app.get_option(p.name)->count() == 0)
                throw bad_line(p.name + " is required: " + p.meaning);
        throw bad_line(wrong.what());
    }
    arguments given(*at.named);
    for (const parameter &p : at.named->parameters)
        if (const CLI::Option *option = app.get_option(p.name); option->count() > 0)
            given.add(p.name, option->results());
    return {at.named, given, ""};
}

std::string parser::help(const std::vector<std::string> &words)
{
    const place at = find(words);
    if (at.depth < words.size())
        throw bad_line(not_expected(words[at.depth], at.below, at.named));
    return help(at);
}

std::string parser::help(const place &asked)
{
    std::ostringstream all;
    if (asked.named != nullptr) {
        const CLI::App &app = app_of(*asked.named);
        all << app.get_formatter()->make_help(&app, asked.name, CLI::AppFormatMode::Normal)
            << (asked.named->example != asked.name ? "example: " + asked.named->example + '\n' : "");
    }
    text_table list{{"command", "what it does"}};
    for (const command &row : rows_)
        if (asked.name.empty() || row.name.starts_with(asked.name + " "))
            list.add({row.name, row.meaning});
    all << list;
    return all.str();
}

std::optional<std::vector<std::string>> parser::choices_after(const std::vector<std::string> &words,
                                                              const shell &asking)
{
    if (!words.empty() && words.front() == "help")
        return find({words.begin() + 1, words.end()}).below;
    const place at = find(words);
    std::vector<std::string> choices = at.depth == words.size() ? at.below : std::vector<std::string>{};
    if (at.named == nullptr)
        return choices;

    const std::vector<parameter> &all = at.named->parameters;
    const auto values_of = [&](const parameter &p) {
        return p.choices ? p.choices(asking) : std::vector<std::string>{};
    };
    const parameter *awaiting_value = nullptr;
    std::size_t positionals_given = 0;
    for (std::size_t i = at.depth; i < words.size(); ++i) {
        const auto option = std::ranges::find(all, words[i], &parameter::name);
        if (awaiting_value != nullptr)
            awaiting_value = nullptr;
        else if (option != all.end() && option->is_option())
            awaiting_value = option->type.empty() ? nullptr : &*option;
        else
            ++positionals_given;
    }
    if (awaiting_value != nullptr)
        return values_of(*awaiting_value);
    std::size_t positionals = 0;
    for (const parameter &p : all) {
        if (p.is_option()) {
            if (std::ranges::find(words, p.name) == words.end())
                choices.push_back(p.name);
        } else if (positionals++ == positionals_given) {
            if (p.name == "FILE")
                return std::nullopt;
            std::ranges::copy(values_of(p), std::back_inserter(choices));
        }
    }
    return choices;
}
