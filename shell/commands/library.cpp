// The commands that start and stop the library, and restart the data plane under it.
#include "shell.h"
#include "zel_core_term/zel_term.h"

namespace {

template <std::uint32_t (*operation)()> void start_or_stop(shell &s, const char *name)
{
    s.everything_changed();
    if (s.operate(name, operation) == ZEL_CORE_TERM_SUCCESS)
        s.known = {};
}

void restart_data_plane(shell &s, const arguments &)
{
    vok_cp_sim_reset();
    s.watch.attach();
    s.everything_changed();
    s.changed_by("restart-data-plane");
    s.out << "the data plane is empty\n";
}

} // namespace

std::vector<command> library_commands()
{
    return {
        plain("start", "start the library",
              [](shell &s, const arguments &) { start_or_stop<zel_core_term_start>(s, "start"); }),
        plain("stop", "stop the library; the data plane keeps what sessions hold there",
              [](shell &s, const arguments &) { start_or_stop<zel_core_term_stop>(s, "stop"); }),
        plain("restart-data-plane", "the data plane forgets everything, as after a restart; the library is not told",
              restart_data_plane),
    };
}
