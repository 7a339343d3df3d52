// The shell at a terminal, ended, stopped and interrupted at random moments: the terminal is as it was before, and the
// history holds every line that was finished.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace {

/// The shell as the leader of a session on a terminal of its own.
class conversation {
public:
    explicit conversation(const std::string &history)
    {
        child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            for (const int ignored : {SIGINT, SIGQUIT}) // by a test that runs in the background
                std::signal(ignored, SIG_DFL);
            setenv("ZEL_TERM_SHELL_HISTORY", history.c_str(), 1);
            execl(ZEL_SHELL, ZEL_SHELL, nullptr);
            _exit(127);
        }
        tcgetattr(terminal_, &before_);
    }
    ~conversation()
    {
        send(SIGKILL);
        if (!has_ended_)
            waitpid(child_, nullptr, 0);
        close(terminal_);
    }
    conversation(const conversation &) = delete;
    conversation &operator=(const conversation &) = delete;

    void type(const std::string &text) const { ASSERT_EQ(write(terminal_, text.data(), text.size()), ssize(text)); }
    void send(int signal) const { kill(child_, signal); }

    /// Waits until the shell has shown so many prompts; false when it takes too long.
    bool has_prompted(std::size_t times)
    {
        const auto prompts = [this] {
            std::size_t count = 0;
            for (std::size_t at = 0; (at = shown_.find("zel> ", at)) != std::string::npos; ++at)
                ++count;
            return count;
        };
        while (prompts() < times) {
            pollfd wait{terminal_, POLLIN, 0};
            char text[4096];
            if (poll(&wait, 1, 20'000) <= 0)
                return false;
            const ssize_t length = read(terminal_, text, sizeof text);
            if (length <= 0)
                return false;
            shown_.append(text, static_cast<std::size_t>(length));
        }
        return true;
    }

    int status_at_end()
    {
        int status = 0;
        waitpid(child_, &status, 0);
        has_ended_ = true;
        return status;
    }

    bool terminal_is_as_before() const
    {
        termios now{};
        tcgetattr(terminal_, &now);
        return now.c_iflag == before_.c_iflag && now.c_oflag == before_.c_oflag && now.c_cflag == before_.c_cflag &&
               now.c_lflag == before_.c_lflag && std::memcmp(now.c_cc, before_.c_cc, sizeof now.c_cc) == 0;
    }

    /// What a shell with job control does while its job is stopped.
    void put_terminal_back() const { tcsetattr(terminal_, TCSANOW, &before_); }

    const std::string &shown() const { return shown_; }

private:
    int terminal_ = -1;
    pid_t child_ = 0;
    bool has_ended_ = false;
    termios before_{};
    std::string shown_;
};

TEST(terminal, survives_signals_at_random_moments)
{
    const char *const rounds = std::getenv("ZEL_ROUNDS");
    auto below = [random = std::mt19937(1)](unsigned count) mutable { return static_cast<unsigned>(random() % count); };
    const std::string history = testing::TempDir() + "zel_history." + std::to_string(getpid());
    for (int round = rounds != nullptr ? std::atoi(rounds) : 40; round > 0; --round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::filesystem::remove(history);
        conversation shell(history);
        std::string finished;
        std::size_t prompts = 0;
        for (unsigned lines = below(3); lines > 0; --lines) {
            ASSERT_TRUE(shell.has_prompted(++prompts)) << shell.shown();
            const std::string line = "expect " + std::to_string(below(1'000'000));
            shell.type(line + "\n");
            finished += line + "\n";
        }
        ASSERT_TRUE(shell.has_prompted(++prompts)) << shell.shown();
        shell.type(std::string("udp free-id").substr(0, below(11)));
        usleep(below(5'000));
        constexpr int signals[] = {SIGINT, SIGSTOP, SIGTERM, SIGHUP, SIGQUIT};
        const int signal = signals[below(std::size(signals))];
        shell.send(signal);
        if (signal == SIGINT || signal == SIGSTOP) {
            usleep(below(2'000));
            shell.put_terminal_back();
            shell.send(SIGCONT);
            usleep(20'000);
            shell.type("\x15quit\n"); // in place of what the line holds
            ASSERT_EQ(shell.status_at_end(), 0) << shell.shown();
            finished += "quit\n";
        } else {
            const int status = shell.status_at_end();
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status << shell.shown();
        }
        ASSERT_TRUE(shell.terminal_is_as_before());
        std::ifstream kept(history);
        ASSERT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), finished);
    }
    std::filesystem::remove(history);
}

} // namespace
