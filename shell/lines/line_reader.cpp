#include "line_reader.h"

#include <cstdio> // before readline's headers, which need it
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <stdexcept>
#include <sys/signalfd.h>
#include <unistd.h>

#include "interrupt.h"
#include "words.h"

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
    const std::string before(rl_line_buffer, static_cast<std::size_t>(start - opening_quote));
    const std::optional<std::vector<std::string>> possible = complete(split(before).words);
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

/// Creates the history file if it does not exist, and cuts it to the longest history.
void prepare(const std::string &file)
{
    if (const int made = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600); made >= 0)
        close(made);
    history_truncate_file(file.c_str(), longest_history);
}

} // namespace

line_reader::line_reader(completer choices_after) : history_file_(history_file())
{
    if (complete)
        throw std::logic_error("there is a line reader already");
    complete = std::move(choices_after);
    rl_readline_name = "zel-term-shell";
    rl_attempted_completion_function = matches;
    rl_catch_signals = 0;
    rl_basic_word_break_characters = const_cast<char *>(" \t");
    rl_completer_quote_characters = "\"'";
    rl_filename_quote_characters = " ";
    using_history();
    stifle_history(longest_history);
    if (!history_file_.empty()) {
        prepare(history_file_);
        read_history(history_file_.c_str());
    }
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT}) {
        struct sigaction found {};
        sigaction(signal, nullptr, &found);
        if (found.sa_handler != SIG_IGN) // as nohup has it
            sigaddset(&signals_, signal);
    }
    waiting_signals_ = signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK);
}

line_reader::~line_reader()
{
    close(waiting_signals_);
    clear_history();
    complete = nullptr;
}

std::optional<std::string> line_reader::next()
{
    interrupt::taken(); // one that came while a line was carried out is not meant for the next
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
    prompt();
    while (state == typing::goes_on) {
        pollfd waited_for[] = {{STDIN_FILENO, POLLIN, 0}, {waiting_signals_, POLLIN, 0}};
        if (poll(waited_for, std::size(waited_for), -1) <= 0)
            continue; // of a window that changes its size
        if (waited_for[1].revents != 0)
            handle_signal();
        else
            rl_callback_read_char();
    }
    if (state == typing::line_is_complete)
        keep(typed_line);
    else
        std::fputc('\n', stdout);
    sigprocmask(SIG_UNBLOCK, &signals_, nullptr); // what came meanwhile ends the program only now
    return state == typing::line_is_complete ? std::optional(typed_line) : std::nullopt;
}

void line_reader::handle_signal()
{
    signalfd_siginfo came;
    if (read(waiting_signals_, &came, sizeof came) != sizeof came)
        return;
    const auto signal = static_cast<int>(came.ssi_signo);
    if (signal == SIGTSTP)
        return stop_and_continue();
    if (signal == SIGCONT) { // continued after a SIGSTOP, which cannot be caught
        rl_deprep_terminal();
        rl_prep_terminal(1);
        rl_forced_update_display();
        return;
    }
    rl_callback_sigcleanup();
    rl_point = rl_end;
    rl_redisplay();
    std::puts(signal == SIGINT ? "^C" : ""); // before readline, leaving the terminal, moves to the line's beginning
    rl_callback_handler_remove();
    if (signal == SIGINT)
        return prompt();
    std::fflush(stdout);
    sigprocmask(SIG_UNBLOCK, &signals_, nullptr);
    std::raise(signal);
}

void line_reader::stop_and_continue()
{
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    rl_deprep_terminal();
    sigprocmask(SIG_UNBLOCK, &stop, nullptr);
    std::raise(SIGTSTP);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    rl_prep_terminal(1); // the SIGCONT that waits now shows the line again
}

void line_reader::keep(const std::string &line)
{
    if (!line.empty() && line != latest_) {
        add_history(line.c_str());
        if (!history_file_.empty() && append_history(1, history_file_.c_str()) != 0)
            std::fprintf(stderr, "the history cannot be written to %s\n", history_file_.c_str());
    }
    latest_ = line;
}
