// The commands that start and stop the library, and restart the data plane under it.
#include "line_options.h"
#include "zel_core_term/zel_term.h"

void commands::add_library_commands(CLI::App &app, line_options &)
{
    const auto add = [&](const std::string &name, const std::string &meaning, std::uint32_t (*operation)()) {
        on_run(add_command(app, name, meaning, name), [this, name, operation] {
            if (operate(name, operation) == ZEL_CORE_TERM_SUCCESS)
                known_ = {};
        });
    };
    add("start", "start the library", zel_core_term_start);
    add("stop", "stop the library; the data plane keeps what sessions hold there", zel_core_term_stop);
    on_run(add_command(app, "restart-data-plane",
                       "the data plane forgets everything, as after a restart; the library is not told",
                       "restart-data-plane"),
           [this] {
               vok_cp_sim_reset();
               recorder_.attach();
               changed_by_ = "restart-data-plane";
               out_ << "the data plane is empty\n";
           });
}
