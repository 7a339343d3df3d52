#include "line_reader.h"

#include <cstdio> // before readline's headers, which need it
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

#include "interrupt.h"

namespace {

constexpr int longest_history = 1000; ///< lines

line_reader::completer complete;
std::vector<std::string> choices; ///< for the word that is being completed
std::size_t next_choice;

/// readline asks for one match after the other, and frees them.
char *next_match(const char *beginning, int is_new_word)
{
    if (is_new_word == 0)
        next_choice = 0;
    while (next_choice < choices.size())
        if (const std::string &choice = choices[next_choice++]; choice.starts_with(beginning))
            return strdup(choice.c_str());
    return nullptr;
}

char **matches(const char *beginning, int start, int)
{
    const int opening_quote = rl_completion_quote_character != 0 ? 1 : 0;
    std::istringstream before(std::string(rl_line_buffer, static_cast<std::size_t>(start - opening_quote)));
    std::vector<std::string> words;
    for (std::string word; before >> word;)
        words.push_back(word);
    const std::optional<std::vector<std::string>> possible = complete(words);
    rl_attempted_completion_over = possible ? 1 : 0; // otherwise readline looks for files
    choices = possible.value_or(std::vector<std::string>{});
    return rl_completion_matches(beginning, next_match);
}

enum class typing { goes_on, line_is_complete, has_ended };

typing state;
std::string typed_line;

/// readline gives the line away, or null at the end.
void take_line(char *line)
{
    rl_callback_handler_remove(); // before readline prompts for another one
    state = line != nullptr ? typing::line_is_complete : typing::has_ended;
    typed_line = line != nullptr ? line : "";
    std::free(line);
}

void prompt()
{
    state = typing::goes_on;
    rl_callback_handler_install("zel> ", take_line);
}

std::string history_file()
{
    if (const char *file = std::getenv("ZEL_TERM_SHELL_HISTORY"))
        return file;
    const char *home = std::getenv("HOME");
    return home != nullptr ? std::string(home) + "/.zel_term_shell_history" : "";
}

} // namespace

line_reader::line_reader(completer choices_after) : history_file_(history_file())
{
    if (complete)
        throw std::logic_error("there is a line reader already");
    complete = std::move(choices_after);
    rl_readline_name = "zel-term-shell";
    rl_attempted_completion_function = matches;
    interrupt::catch_it();
    rl_basic_word_break_characters = const_cast<char *>(" \t");
    rl_completer_quote_characters = "\"'";
    rl_filename_quote_characters = " ";
    using_history();
    stifle_history(longest_history);
    read_history(history_file_.c_str());
}

line_reader::~line_reader()
{
    if (!history_file_.empty() && write_history(history_file_.c_str()) != 0)
        std::fprintf(stderr, "the history cannot be written to %s\n", history_file_.c_str());
    clear_history();
    complete = nullptr;
}

std::optional<std::string> line_reader::next()
{
    interrupt::taken(); // one that came while a line was carried out is not meant for the next
    prompt();
    while (state == typing::goes_on) {
        pollfd terminal{STDIN_FILENO, POLLIN, 0};
        if (poll(&terminal, 1, -1) > 0)
            rl_callback_read_char();
        if (interrupt::taken()) {
            rl_callback_sigcleanup();
            rl_callback_handler_remove();
            std::puts("^C");
            prompt();
        }
    }
    if (state == typing::has_ended) {
        std::fputc('\n', stdout);
        return std::nullopt;
    }
    if (!typed_line.empty() && typed_line != latest_)
        add_history(typed_line.c_str());
    latest_ = typed_line;
    return typed_line;
}
