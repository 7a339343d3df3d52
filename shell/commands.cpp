#include "commands.h"

#include <algorithm>

#include "data_plane_view.h"
#include "kiv_util.h"
#include "line_options.h"
#include "text_table.h"
#include "zel_core_term/zel_core_term.h"

namespace {

/// The command that the line named as far as it was understood.
const CLI::App &innermost(const CLI::App &app)
{
    const std::vector<CLI::App *> parsed = app.get_subcommands();
    return parsed.empty() ? app : innermost(*parsed.front());
}

std::string names_of_commands(const CLI::App &app)
{
    std::string names;
    for (const CLI::App *command : app.get_subcommands(nullptr))
        names += (names.empty() ? "" : ", ") + command->get_name();
    return names;
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
        if (command->get_subcommands(nullptr).empty())
            list.add({full_name(*command), command->get_description()});
        else
            list_commands(list, *command);
    }
}

std::string unknown_command(const CLI::App &app, const std::string &word)
{
    const std::string choices = names_of_commands(app);
    return choices.empty() ? "not expected: " + word : "unknown command '" + word + "'; expected " + choices;
}

} // namespace

void commands::execute(const std::string &line)
{
    CLI::App app;
    app.require_subcommand(1);
    line_options options;
    add_library_commands(app);
    add_udp_commands(app, options);
    add_l2tp_commands(app, options);
    add_packet_commands(app, options);
    add_view_commands(app, options);
    try {
        app.parse(line);
    } catch (const CLI::CallForHelp &) {
        const CLI::App &command = innermost(app);
        if (const std::vector<std::string> rest = app.remaining(true); !rest.empty())
            throw bad_line(unknown_command(command, rest.front()));
        show_help(command);
    } catch (const CLI::ParseError &wrong) {
        const std::vector<std::string> rest = app.remaining(true);
        const CLI::App &command = innermost(app);
        if (command.get_subcommands(nullptr).empty())
            throw bad_line(rest.empty() ? wrong.what() : "not expected: " + CLI::detail::join(rest, " "));
        throw bad_line(rest.empty() ? "a command is missing; expected " + names_of_commands(command)
                                    : unknown_command(command, rest.front()));
    }
}

void commands::add_library_commands(CLI::App &app)
{
    const auto add = [&](const std::string &name, const std::string &meaning, std::uint32_t (*operation)()) {
        app.add_subcommand(name, meaning)->callback([this, name, operation] {
            const std::uint32_t result = operation();
            show_result(name, result);
            if (result != ZEL_CORE_TERM_SUCCESS)
                return;
            udp_sessions_.clear();
            connections_.clear();
            l2tp_sessions_.clear();
        });
    };
    add("start", "start the library", zel_core_term_start);
    add("stop", "stop the library; the data plane keeps what sessions hold there", zel_core_term_stop);
}

void commands::add_view_commands(CLI::App &app, line_options &o)
{
    app.add_subcommand("objects", "the data plane's objects and bindings")->callback([this] { show_data_plane(out_); });
    CLI::App *expect = app.add_subcommand("expect", "fail unless the data plane is as expected");
    expect->add_option("WHAT", o.what, "empty, or only-interface: nothing but one L2TPv3 ingress interface")
        ->required()
        ->check(CLI::IsMember({"empty", "only-interface"}));
    expect->callback([this, &o] {
        const bool as_expected = o.what == "empty" ? data_plane_is_empty() : data_plane_is_only_interface();
        if (!as_expected)
            throw bad_line("expected " + o.what + ", and the data plane holds " + data_plane_counts());
        out_ << (o.what == "empty" ? "the data plane is empty\n"
                                   : "the data plane is empty but for the L2TPv3 ingress interface\n");
    });
    CLI::App *trace = app.add_subcommand("trace", "show each trace event as it fires, or stop to");
    trace->add_option("SWITCH", o.on_off, "on, exceptions (those events only) or off")
        ->required()
        ->check(CLI::IsMember({"on", "exceptions", "off"}));
    trace->callback([this, &o] { show_events(o.on_off); });
    CLI::App *help = app.add_subcommand("help", "the commands, or the options of one");
    help->add_option("COMMAND", o.command, "as in: help udp add");
    help->callback([this, &app, &o] {
        const CLI::App *asked = &app;
        for (const std::string &word : o.command) {
            const auto choices = asked->get_subcommands(nullptr);
            const auto found = std::ranges::find(choices, word, &CLI::App::get_name);
            if (found == choices.end())
                throw bad_line(unknown_command(*asked, word));
            asked = *found;
        }
        show_help(*asked);
    });
}

void commands::show_help(const CLI::App &asked)
{
    if (asked.get_subcommands(nullptr).empty()) {
        out_ << asked.get_formatter()->make_help(&asked, full_name(asked), CLI::AppFormatMode::Normal);
        return;
    }
    text_table list{{"command", "what it does"}};
    list_commands(list, asked);
    out_ << list;
}

void commands::show_result(const std::string &operation, std::uint32_t result_code)
{
    out_ << operation << ": " << result_code << " (" << kiv_util_init_rc_str_get(result_code) << ")\n";
}

void commands::show_events(const std::string &which)
{
    listener_.reset();
    if (which != "off")
        listener_ = std::make_unique<event_listener>([this, which](const trace_event &e) {
            if (which == "on" || e.name.ends_with(":EXCEPTION"))
                out_ << "  " << e.name << "  " << e.location << "  " << e.category << "  " << e.message << '\n';
        });
}
