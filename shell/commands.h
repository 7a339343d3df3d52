/// The shell's commands.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>

#include "event_listener.h"
#include "zel_core_term/zel_l2tp_control_connection.h"

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

    struct line_options;

private:
    /// What a control connection was added with, or moved to.
    struct connection {
        zel_core_term_l2tp_control_connection_cfg_t cfg;
        std::uint32_t pcep, rat_session;
        std::uint8_t dscp, session_type;
    };

    void add_library_commands(CLI::App &app);
    void add_udp_commands(CLI::App &app, line_options &options);
    void add_l2tp_commands(CLI::App &app, line_options &options);
    void add_connection_commands(CLI::App &l2tp, line_options &options);
    void add_session_commands(CLI::App &l2tp, line_options &options);
    void add_packet_commands(CLI::App &app, line_options &options);
    void add_view_commands(CLI::App &app, line_options &options);
    void show_result(const std::string &operation, std::uint32_t result_code);
    void show_help(const CLI::App &asked);
    void show_udp_sessions();
    void show_events(const std::string &which);
    void forget_removed();

    std::ostream &out_;
    std::unique_ptr<event_listener> listener_;
    std::map<std::uint32_t, connection> connections_;
    std::map<std::uint32_t, std::uint32_t> l2tp_sessions_; ///< by id: the control connection that carries it
    std::set<std::uint32_t> udp_sessions_;                 ///< the ids that were added and not released
};
