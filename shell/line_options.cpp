#include "line_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <span>
#include <sstream>

#include "text_table.h"

namespace {

/// The words of a line, of which one in quotes can hold blanks; "" is none. The parser's own splitting depends on its
/// version: some take what is in brackets for a list.
std::vector<std::string> words_of(const std::string &line)
{
    std::vector<std::string> words;
    std::istringstream rest(line);
    while (!(rest >> std::ws).eof()) {
        std::string word;
        if (!(rest >> std::quoted(word, rest.peek() == '\'' ? '\'' : '"')))
            throw bad_line("a quote is not closed: " + word);
        if (!word.empty())
            words.push_back(word);
    }
    return words;
}

/// The command that the line named as far as it was understood.
const CLI::App &innermost(const CLI::App &app)
{
    const std::vector<CLI::App *> parsed = app.get_subcommands();
    return parsed.empty() ? app : innermost(*parsed.front());
}

bool is_group(const CLI::App &app)
{
    return app.get_require_subcommand_min() > 0;
}

/// "udp add"
std::string full_name(const CLI::App &command)
{
    const CLI::App *parent = command.get_parent();
    const bool is_top = parent == nullptr || parent->get_parent() == nullptr;
    return (is_top ? "" : full_name(*parent) + " ") + command.get_name();
}

/// All commands below `app` that do something, with their descriptions.
void list_commands(text_table &list, const CLI::App &app)
{
    for (const CLI::App *command : app.get_subcommands(nullptr)) {
        if (!is_group(*command))
            list.add({full_name(*command), command->get_description()});
        list_commands(list, *command);
    }
}

/// "; expected --pmtu, --ttl", or nothing.
std::string expected_options(const CLI::App &command)
{
    std::string names;
    for (const CLI::Option *option : command.get_options())
        if (!option->get_positional() && option != command.get_help_ptr())
            names += (names.empty() ? "; expected " : ", ") + option->get_name();
    return names;
}

/// The message for the first required option that is not given, or nothing.
std::string missing_option(const CLI::App &command)
{
    for (const CLI::Option *option : command.get_options())
        if (option->get_required() && option->count() == 0)
            return option->get_name() + " is required: " + option->get_description();
    return "";
}

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

/// Reads a number as parse_number() does, for the parser.
CLI::Validator decimal_number(std::uint32_t max)
{
    return {[max](std::string &text) {
                const std::optional<std::uint32_t> value = parse_number(text);
                if (!value || *value > max)
                    return "'" + text + "' is not a number from 0 to " + std::to_string(max);
                text = std::to_string(*value);
                return std::string{};
            },
            ""};
}

/// Leaves a command's example out, of which some versions of the parser make several lines.
struct formatter_without_example : CLI::Formatter {
    std::string make_footer(const CLI::App *) const override { return ""; }
};

} // namespace

std::shared_ptr<CLI::App> new_parser()
{
    auto parser = std::make_shared<CLI::App>();
    parser->formatter(std::make_shared<formatter_without_example>());
    parser->require_subcommand(1);
    return parser;
}

const CLI::App *parse_line(CLI::App &parser, const std::string &line)
{
    std::vector<std::string> words = words_of(line);
    std::ranges::reverse(words); // as the parser wants them
    try {
        parser.parse(std::move(words));
        return nullptr;
    } catch (const CLI::ParseError &wrong) {
        const CLI::App &command = innermost(parser);
        if (const std::vector<std::string> rest = parser.remaining(true); !rest.empty())
            throw bad_line(unknown_command(command, rest.front()));
        if (dynamic_cast<const CLI::CallForHelp *>(&wrong) != nullptr)
            return &command;
        if (is_group(command))
            throw bad_line("a command is missing; expected " + names_of_commands(command));
        throw bad_line(dynamic_cast<const CLI::RequiredError *>(&wrong) != nullptr ? missing_option(command)
                                                                                   : wrong.what());
    }
}

void on_run(CLI::App *command, std::function<void()> run)
{
    command->callback(std::move(run));
}

bool names_inner_command(const CLI::App *command)
{
    return !command->get_subcommands().empty();
}

CLI::App *add_command(CLI::App &parent, const std::string &name, const std::string &meaning, const std::string &example)
{
    CLI::App *command = parent.add_subcommand(name, meaning);
    command->footer("example: " + example);
    return command;
}

CLI::App *add_group(CLI::App &parent, const std::string &name, const std::string &meaning)
{
    return parent.add_subcommand(name, meaning)->require_subcommand(1);
}

std::string names_of_commands(const CLI::App &app)
{
    std::string names;
    for (const CLI::App *command : app.get_subcommands(nullptr))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
}

std::string unknown_command(const CLI::App &app, const std::string &word)
{
    const std::string choices = names_of_commands(app);
    if (!choices.empty() && !word.starts_with("--"))
        return "unknown command '" + word + "'; expected " + choices;
    return "not expected: " + word + (word.starts_with("--") ? expected_options(app) : "");
}

std::string help_text(const CLI::App &asked)
{
    if (!is_group(asked))
        return asked.get_formatter()->make_help(&asked, full_name(asked), CLI::AppFormatMode::Normal) +
               asked.get_footer() + '\n';
    text_table list{{"command", "what it does"}};
    list_commands(list, asked);
    std::ostringstream text;
    text << list;
    return text.str();
}

CLI::App *command_below(CLI::App &app, const std::string &name)
{
    const std::vector<CLI::App *> below = app.get_subcommands(nullptr);
    const auto found = std::ranges::find(below, name, &CLI::App::get_name);
    return found != below.end() ? *found : nullptr;
}

std::optional<std::vector<std::string>> choices_after(CLI::App &app, const commands::line_options &options,
                                                      const std::vector<std::string> &words)
{
    CLI::App *command = &app;
    const CLI::Option *awaiting_value = nullptr;
    std::size_t positionals_given = 0;
    const bool asks_for_help = !words.empty() && words.front() == "help";
    for (const std::string &word : std::span(words).subspan(asks_for_help ? 1 : 0)) {
        if (awaiting_value != nullptr)
            awaiting_value = nullptr;
        else if (CLI::App *inner = command_below(*command, word))
            command = inner;
        else if (!word.starts_with("--"))
            ++positionals_given;
        else if (const CLI::Option *option = command->get_option_no_throw(word);
                 option != nullptr && option->get_items_expected_max() > 0)
            awaiting_value = option;
    }
    const auto list_of = [&](const CLI::Option *option) {
        const auto found = options.choices.find(option);
        return found != options.choices.end() ? found->second : std::vector<std::string>{};
    };
    if (awaiting_value != nullptr)
        return list_of(awaiting_value);

    std::vector<std::string> choices;
    for (const CLI::App *inner : command->get_subcommands(nullptr))
        choices.push_back(inner->get_name());
    if (asks_for_help)
        return choices;
    std::size_t positionals = 0;
    for (const CLI::Option *option : command->get_options()) {
        if (option == command->get_help_ptr())
            continue; // the only candidate beside a value would keep that from being completed
        if (option->get_positional()) {
            if (positionals++ != positionals_given)
                continue;
            if (option->get_name() == "FILE")
                return std::nullopt;
            std::ranges::copy(list_of(option), std::back_inserter(choices));
        } else if (std::ranges::find(words, option->get_name()) == words.end()) {
            choices.push_back(option->get_name());
        }
    }
    return choices;
}

CLI::Option *required(CLI::Option *option)
{
    return option->required();
}

CLI::Option *with_default(CLI::Option *option)
{
    return option->capture_default_str();
}

bool is_given(const CLI::Option *option)
{
    return option->count() > 0;
}

CLI::Option *add_text(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    return command->add_option(name, text, meaning);
}

void add_words(CLI::App *command, const std::string &name, std::vector<std::string> &words, const std::string &meaning)
{
    command->add_option(name, words, meaning);
}

void add_flag(CLI::App *command, const std::string &name, bool &flag, const std::string &meaning)
{
    command->add_flag(name, flag, meaning);
}

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
    return command->add_option(name, number, meaning)->type_name("NUMBER")->transform(decimal_number(max));
}

CLI::Option *add_numbers(CLI::App *command, const std::string &name, std::vector<std::uint32_t> &numbers,
                         const std::string &meaning)
{
    return command->add_option(name, numbers, meaning)->type_name("NUMBER")->transform(decimal_number(UINT32_MAX));
}

void add_known_id(CLI::App *command, commands::line_options &options, const std::string &meaning,
                  std::vector<std::string> ids)
{
    const CLI::Option *id = required(add_number(command, "ID", options.id, meaning));
    options.choices[id] = std::move(ids);
}

void add_choice(CLI::App *command, commands::line_options &options, const std::string &name, std::string &word,
                const std::string &meaning, const std::vector<std::string> &words)
{
    const auto is_one = [words](const std::string &given) {
        return std::ranges::find(words, given) != words.end()
                   ? ""
                   : "'" + given + "' is none of " + CLI::detail::join(words, ", ");
    };
    CLI::Option *option = command->add_option(name, word, meaning)->required()->check(CLI::Validator(is_one, ""));
    options.choices[option] = words;
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

void add_endpoint(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    command->add_option(name, text, meaning)->type_name("ADDRESS:PORT")->required()->check(readable_by(parse_endpoint));
}

void add_flow(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    required(add_text(command, name, text, meaning))->check(readable_by(parse_flow));
}

void add_ipv4(CLI::App *command, const std::string &name, std::string &text, const std::string &meaning)
{
    command->add_option(name, text, meaning)->type_name("ADDRESS")->required()->check(readable_by(parse_ipv4));
}

void require_same_version(const std::string &first_name, const endpoint &first, const std::string &second_name,
                          const endpoint &second)
{
    if (first.ip_version != second.ip_version)
        throw bad_line(first_name + " is IPv" + std::to_string(first.ip_version) + " and " + second_name + " is IPv" +
                       std::to_string(second.ip_version));
}
