// zel-term-shell: drives the library over the stand-in data plane, a command a line.
#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string_view>
#include <system_error>

#include "interrupt.h"
#include "line_reader.h"
#include "shell.h"

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF"; ///< some editors begin a file with it

/// Runs before the libraries initialise, which takes some milliseconds, so that ^C does not end an interactive shell.
[[gnu::used, gnu::section(".preinit_array")]] void (*const catch_interrupts)(int, char **,
                                                                             char **) = [](int argc, char **, char **) {
    if (argc == 1 && isatty(STDIN_FILENO) != 0)
        interrupt::catch_it();
};

/// Reads the next line, without its end.
/// @return false at the end
/// @throws bad_line when there is no reading on
bool read_line(std::FILE *in, std::string &line)
{
    static char *buffer = nullptr; // grows with the longest line
    static std::size_t size = 0;
    errno = 0;
    const ssize_t length = getline(&buffer, &size, in);
    if (length < 0) {
        if (std::feof(in) != 0 && std::ferror(in) == 0)
            return false;
        throw bad_line("cannot be read: " + std::generic_category().message(errno));
    }
    line.assign(buffer, static_cast<std::size_t>(length));
    if (line.ends_with('\n'))
        line.pop_back();
    return true;
}

/// Carries out the lines of a file or a pipe up to the first one that fails, each shown before what comes of it.
/// @return the exit status
int run(std::FILE *in, const std::string &name)
{
    shell carrying_out(std::cout, true, isatty(STDOUT_FILENO) != 0);
    std::string line;
    int number = 0;
    try {
        while (!carrying_out.wants_to_quit && read_line(in, line)) {
            if (++number == 1 && line.starts_with(byte_order_mark))
                line.erase(0, byte_order_mark.size());
            std::cout << (line.empty() ? "" : "> ") << line << '\n';
            carrying_out.execute(line, number);
        }
        carrying_out.finish();
        if (!std::cout.flush())
            throw bad_line("the output cannot be written");
    } catch (const bad_line &wrong) {
        std::cout.flush();
        if (wrong.line_number != 0)
            number = wrong.line_number;
        std::cerr << name << (number != 0 ? ':' + std::to_string(number) : "") << ": " << wrong.what() << '\n';
        return 1;
    }
    return 0;
}

/// Carries out all lines that a person types.
void converse()
{
    shell carrying_out(std::cout, false, isatty(STDOUT_FILENO) != 0);
    line_reader lines([&](const auto &words) { return carrying_out.lines.choices_after(words, carrying_out); });
    std::cout << "'help' lists the commands, Tab completes them, 'quit' ends.\n";
    int number = 0;
    while (!carrying_out.wants_to_quit) {
        const std::optional<std::string> line = lines.next();
        if (!line)
            return;
        try {
            carrying_out.execute(*line, ++number);
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
                 "stops at the first line that fails, and exits with 1: a line that is wrong, an expectation that\n"
                 "does not hold, a result other than 0 that no 'expect' states, a fault that never fired."};
    app.set_version_flag("--version", "zel-term-shell " ZEL_VERSION);
    std::string file;
    const CLI::Option *const given = app.add_option("FILE", file, "commands");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &end) {
        return app.exit(end) == 0 && std::cout.flush() ? 0 : 1;
    }

    if (given->count() != 0) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE *)> in(std::fopen(file.c_str(), "r"), std::fclose);
        if (in == nullptr) {
            std::cerr << (file.empty() ? "''" : file) << ": cannot be read: " << std::generic_category().message(errno)
                      << '\n';
            return 1;
        }
        return run(in.get(), file);
    }
    if (isatty(STDIN_FILENO) == 0)
        return run(stdin, "standard input");
    converse();
    return 0;
}
