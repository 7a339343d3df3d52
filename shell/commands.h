/// The shell's commands.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>

#include "event_listener.h"

namespace CLI {
class App;
}

/// A line that cannot be carried out as it is written, in which case nothing was done, or an expectation that does not
/// hold.
struct bad_line : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class commands {
public:
    /// Everything that the commands show goes to `out`.
    explicit commands(std::ostream &out) : out_(out) {}

    /// Carries out one line. What an operation of the library answers is shown, whatever it is.
    /// @throws bad_line
    void execute(const std::string &line);

private:
    struct line_options;

    void add_library_commands(CLI::App &app);
    void add_udp_commands(CLI::App &app, line_options &options);
    void add_packet_commands(CLI::App &app, line_options &options);
    void add_view_commands(CLI::App &app, line_options &options);
    void show_result(const std::string &operation, std::uint32_t result_code);
    void show_help(const CLI::App &asked);
    void show_udp_sessions();
    void show_events(bool on);

    std::ostream &out_;
    std::unique_ptr<event_listener> listener_;
    std::set<std::uint32_t> udp_sessions_; ///< the ids that were added and not released
};
