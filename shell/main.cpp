// zel-term-shell: drives the library over the stand-in data plane, a command a line.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "commands.h"

namespace {

/// Carries out the lines of `in` up to the first bad one.
/// @param echo show each line before what comes of it
/// @return the exit status
int run(std::istream &in, const std::string &name, bool echo)
{
    commands shell(std::cout);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (echo)
            std::cout << (line.empty() ? "" : "> ") << line << '\n';
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        try {
            shell.execute(line);
        } catch (const bad_line &wrong) {
            std::cout.flush();
            std::cerr << name << ':' << number << ": " << wrong.what() << '\n';
            return 1;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Drives libzel-core-term over a stand-in data plane. Reads a command a line, from FILE or from\n"
                 "standard input; '#' starts a comment line, 'help' lists the commands. Stops at the first line\n"
                 "that it cannot read and then exits with 1."};
    std::string file;
    app.add_option("FILE", file, "commands")->check(CLI::ExistingFile);
    CLI11_PARSE(app, argc, argv);

    if (file.empty())
        return run(std::cin, "standard input", isatty(STDIN_FILENO) == 0);
    std::ifstream in(file);
    if (!in) {
        std::cerr << file << ": cannot be read\n";
        return 1;
    }
    return run(in, file, true);
}
