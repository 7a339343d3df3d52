/// How far something long has come, in one line of a terminal that goes away when it ends.
#pragma once

#include <chrono>
#include <cstddef>
#include <ostream>

class progress {
public:
    /// @param is_shown otherwise nothing is ever written
    progress(bool is_shown, std::ostream &terminal, std::size_t whole)
        : is_shown_(is_shown), terminal_(terminal), whole_(whole)
    {
    }

    ~progress() { end(); }
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    /// Shows that so much is done, ten times a second at most.
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
