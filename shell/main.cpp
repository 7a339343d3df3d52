// zel-term-shell: drives the library over the stand-in data plane, a command a line.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "commands.h"

namespace {

/// Carries out the lines of `in`: from a person all of them, otherwise those up to the first bad one, each shown before
/// what comes of it.
/// @return the exit status
int run(std::istream &in, const std::string &name, bool from_person)
{
    commands shell(std::cout);
    std::string line;
    for (int number = 1;; ++number) {
        if (from_person)
            std::cout << "zel> " << std::flush;
        if (!std::getline(in, line))
            return 0;
        if (!from_person)
            std::cout << (line.empty() ? "" : "> ") << line << '\n';
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        try {
            shell.execute(line);
        } catch (const bad_line &wrong) {
            std::cout.flush();
            if (!from_person) {
                std::cerr << name << ':' << number << ": " << wrong.what() << '\n';
                return 1;
            }
            std::cerr << wrong.what() << '\n';
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Drives libzel-core-term over a stand-in data plane. Reads a command a line, from FILE or from\n"
                 "standard input; '#' starts a comment line, 'help' lists the commands. From a file or a pipe it\n"
                 "stops at the first line that cannot be carried out or whose expectation does not hold, and exits\n"
                 "with 1. A result other than 0 is shown and does not stop it."};
    std::string file;
    app.add_option("FILE", file, "commands");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &end) {
        return app.exit(end) == 0 ? 0 : 1;
    }

    if (file.empty())
        return run(std::cin, "standard input", isatty(STDIN_FILENO) != 0);
    std::ifstream in(file);
    if (!in || std::filesystem::is_directory(file)) {
        std::cerr << file << ": cannot be read\n";
        return 1;
    }
    return run(in, file, false);
}
