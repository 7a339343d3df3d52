/// The progress of long work, in a line of the terminal that disappears at the end.
#pragma once

#include <chrono>
#include <cstddef>
#include <ostream>

class progress {
public:
    /// @param is_shown false: nothing is written
    progress(bool is_shown, std::ostream &terminal, std::size_t whole)
        : is_shown_(is_shown), terminal_(terminal), whole_(whole)
    {
    }

    ~progress() { end(); }
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    /// Shows how much is done, at most ten times a second.
    void at(std::size_t done)
    {
        const auto now = std::chrono::steady_clock::now();
        if (!is_shown_ || now < next_)
            return;
        terminal_ << '\r' << done << " of " << whole_ << " (" << 100 * done / whole_ << " %)" << std::flush;
        next_ = now + std::chrono::milliseconds(100);
        is_on_screen_ = true;
    }

    void end()
    {
        if (is_on_screen_)
            terminal_ << "\r\x1b[K" << std::flush;
        is_on_screen_ = false;
    }

private:
    bool is_shown_;
    bool is_on_screen_ = false;
    std::ostream &terminal_;
    std::size_t whole_;
    std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
};
