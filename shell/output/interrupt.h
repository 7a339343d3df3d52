/// ^C at a terminal stops the command, not the shell.
#pragma once

#include <csignal>

namespace interrupt {

inline volatile std::sig_atomic_t came = 0;

inline void catch_it()
{
    std::signal(SIGINT, [](int) { came = 1; });
}

/// Whether ^C came since the last call.
inline bool taken()
{
    const bool has_come = came != 0;
    came = 0;
    return has_come;
}

} // namespace interrupt
