// The commands of the shell itself.
#include <filesystem>
#include <fstream>
#include <system_error>

#include "line_options.h"

void commands::add_shell_commands(CLI::App &app, line_options &o)
{
    CLI::App *save_command =
        add_command(app, "save", "write the lines so far as a scenario, with the results other than 0 as expectations",
                    "save scenario.zel");
    required(add_text(save_command, "FILE", o.file, "a new file"));
    on_run(save_command, [this, &o] { save(o.file); });

    CLI::App *help = add_command(app, "help", "the commands, or the options of one", "help udp add");
    add_words(help, "COMMAND", o.command, "as in: help udp add");
    on_run(help, [this, &app, &o] {
        CLI::App *asked = &app;
        for (const std::string &word : o.command) {
            CLI::App *below = command_below(*asked, word);
            if (below == nullptr)
                throw bad_line(unknown_command(*asked, word));
            asked = below;
        }
        out_ << help_text(*asked);
    });

    on_run(add_command(app, "quit", "end the shell", "quit"), [this] { wants_to_quit_ = true; });
}

/// A result that nobody expected so far goes into the scenario as an expectation, after its operation's line: there is
/// no place for it while that line goes on to another operation.
void commands::state_result_in_scenario()
{
    if (last_result_is_expected_ || lines_up_to_operation_ > scenario_.size())
        return;
    const auto after = scenario_.begin() + static_cast<std::ptrdiff_t>(lines_up_to_operation_);
    scenario_.insert(after, "expect " + std::to_string(last_operation().result));
    last_result_is_expected_ = true;
}

void commands::save(const std::string &file)
{
    std::error_code unknown; // whether it exists: then it cannot be written either
    if (std::filesystem::exists(file, unknown))
        throw bad_line(file + " exists already");
    state_result_in_scenario();
    std::ofstream out(file);
    for (const std::string &line : scenario_)
        out << line << '\n';
    out.close();
    if (!out)
        throw bad_line(file + " cannot be written");
    out_ << "wrote " << file << ": " << scenario_.size() << " lines\n";
    for (const fault &f : faults_.all())
        if (f.acted == 0)
            out_ << "it will not go as written: the fault of " << f.call << " has not acted\n";
}
