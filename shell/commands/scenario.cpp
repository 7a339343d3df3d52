// The commands of the shell itself.
#include "new_file.h"
#include "shell.h"

namespace {

void save(shell &s, const arguments &given)
{
    const std::string &file = given.text("FILE");
    const std::vector<std::string> lines = s.scenario();
    std::string content;
    for (const std::string &line : lines)
        content += line + '\n';
    write_file(file, content, false);
    s.out << "wrote " << file << ": " << lines.size() << " lines\n";
    for (const fault &f : s.waiting.all())
        if (f.acted == 0)
            s.out << "it will fail: the fault on " << f.call << " never fired\n";
}

void help(shell &s, const arguments &given)
{
    s.out << s.lines.help(given.texts("COMMAND"));
}

} // namespace

std::vector<command> scenario_commands()
{
    return {
        {"save",
         "write the lines so far as a scenario, with the results other than 0 as expectations",
         "save scenario.zel",
         {file("a new file")},
         save},
        {"help",
         "the commands, or the options of one",
         "help udp add",
         {several(text("COMMAND", "as in: help udp add"))},
         help},
        plain("quit", "end the shell", [](shell &s, const arguments &) { s.wants_to_quit = true; }),
    };
}
