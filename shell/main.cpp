// zel-term-shell: drives the library over the stand-in data plane, a command a line.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

#include "commands.h"
#include "line_reader.h"

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF"; ///< some editors begin a file with it

bool has_command(const std::string &line)
{
    const std::size_t first = line.find_first_not_of(" \t\r");
    return first != std::string::npos && line[first] != '#';
}

/// Carries out the lines of a file or a pipe up to the first one that does not go as written, each shown before what
/// comes of it.
/// @return the exit status
int run(std::istream &in, const std::string &name)
{
    commands shell(std::cout, true, isatty(STDOUT_FILENO) != 0);
    std::string line;
    int number = 0;
    try {
        while (!shell.wants_to_quit() && std::getline(in, line)) {
            if (++number == 1 && line.starts_with(byte_order_mark))
                line.erase(0, byte_order_mark.size());
            std::cout << (line.empty() ? "" : "> ") << line << '\n';
            if (has_command(line))
                shell.execute(line, number);
        }
        shell.finish();
        if (!std::cout.flush())
            throw bad_line("the output cannot be written");
    } catch (const bad_line &wrong) {
        std::cout.flush();
        std::cerr << name << ':' << (wrong.line_number != 0 ? wrong.line_number : number) << ": " << wrong.what()
                  << '\n';
        return 1;
    }
    return 0;
}

/// Carries out all lines that a person types.
void converse()
{
    commands shell(std::cout, false, isatty(STDOUT_FILENO) != 0);
    line_reader lines([&shell](const auto &words) { return shell.choices_after(words); });
    std::cout << "'help' lists the commands, the tabulator key completes them, 'quit' ends.\n";
    int number = 0;
    while (!shell.wants_to_quit()) {
        const std::optional<std::string> line = lines.next();
        if (!line)
            return;
        ++number;
        try {
            if (has_command(*line))
                shell.execute(*line, number);
        } catch (const bad_line &wrong) {
            std::cout << wrong.what() << '\n';
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Drives libzel-core-term over a stand-in data plane. Reads a command a line, from FILE or from\n"
                 "standard input; '#' starts a comment line, 'help' lists the commands. From a file or a pipe it\n"
                 "stops at the first line that does not go as written, and exits with 1: a line that cannot be\n"
                 "carried out, an expectation that does not hold, a result other than 0 that none states, a fault\n"
                 "that never acted."};
    app.set_version_flag("--version", "zel-term-shell " ZEL_VERSION);
    std::string file;
    app.add_option("FILE", file, "commands");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &end) {
        return app.exit(end) == 0 ? 0 : 1;
    }

    if (file.empty() && isatty(STDIN_FILENO) != 0) {
        converse();
        return 0;
    }
    if (file.empty())
        return run(std::cin, "standard input");
    std::ifstream in(file);
    if (!in || std::filesystem::is_directory(file)) {
        std::cerr << file << ": cannot be read\n";
        return 1;
    }
    return run(in, file);
}
