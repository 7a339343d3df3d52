// The commands of the shell itself.
#include <filesystem>
#include <fstream>

#include "line_options.h"
#include "text_table.h"

namespace {

/// All commands below `app` that do something, with their descriptions.
void list_commands(text_table &list, const CLI::App &app)
{
    for (const CLI::App *command : app.get_subcommands(nullptr)) {
        if (command->get_require_subcommand_min() == 0)
            list.add({full_name(*command), command->get_description()});
        list_commands(list, *command);
    }
}

} // namespace

void commands::add_shell_commands(CLI::App &app, line_options &o)
{
    CLI::App *save_command =
        add_command(app, "save", "write the lines so far as a scenario, with the results other than 0 as expectations",
                    "save scenario.zel");
    save_command->add_option("FILE", o.file, "a new file")->required();
    save_command->callback([this, &o] { save(o.file); });

    CLI::App *help = add_command(app, "help", "the commands, or the options of one", "help udp add");
    help->add_option("COMMAND", o.command, "as in: help udp add");
    help->callback([this, &app, &o] {
        CLI::App *asked = &app;
        for (const std::string &word : o.command) {
            CLI::App *below = command_below(*asked, word);
            if (below == nullptr)
                throw bad_line(unknown_command(*asked, word));
            asked = below;
        }
        show_help(*asked);
    });

    add_command(app, "quit", "end the shell", "quit")->callback([this] { wants_to_quit_ = true; });
}

void commands::show_help(const CLI::App &asked)
{
    if (asked.get_require_subcommand_min() == 0) {
        out_ << asked.get_formatter()->make_help(&asked, full_name(asked), CLI::AppFormatMode::Normal);
        return;
    }
    text_table list{{"command", "what it does"}};
    list_commands(list, asked);
    out_ << list;
}

/// A result that nobody expected so far goes into the scenario as an expectation.
void commands::state_result_in_scenario()
{
    if (last_result_is_expected_)
        return;
    scenario_.push_back("expect " + std::to_string(last_operation().result));
    last_result_is_expected_ = true;
}

void commands::save(const std::string &file)
{
    if (std::filesystem::exists(file))
        throw bad_line(file + " exists already");
    state_result_in_scenario();
    std::ofstream out(file);
    for (const std::string &line : scenario_)
        out << line << '\n';
    out.close();
    if (!out)
        throw bad_line(file + " cannot be written");
    out_ << "wrote " << file << ": " << scenario_.size() << " lines\n";
}
