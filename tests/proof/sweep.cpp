#include "proof/sweep.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iomanip>
#include <stdexcept>
#include <string>

#include "proof/operations.h"

namespace proof {
namespace {

constexpr unsigned most_seconds = 20;    ///< for a path, which takes some hundred microseconds
constexpr uint64_t most_paths = 100'000; ///< of an operation all of whose paths are taken; some have 10'000

/// What an operation that failed may leave although all its undos succeeded, as the interface documents it.
bool documented_exception(const call &failed, const std::vector<call> &calls, bool of_l2tp)
{
    if (failed.is_hook())
        return failed.status == 3 || (failed.status == 5 && !of_l2tp);
    if (failed.took_effect && (failed.is("attr_modify") || failed.is(of_l2tp ? "association_create" : "vok_bind")))
        return true;
    // Sharers lose their binding to the interface with an add that came to share before it asked for that.
    const auto of_interface = [](const call &c) {
        return c.is_bind_or_unbind() && c.binding().direction == VOK_INGRESS;
    };
    return failed.is("l2tpv3_ingress_flow_create") && &failed == &calls.front() &&
           std::ranges::any_of(calls, of_interface);
}

/// The ingress interface is made once and never undone.
data_plane all_but_interface()
{
    data_plane all = data_plane::now();
    std::erase_if(all.objects, [](const auto &o) { return o.kind == VOK_CP_SIM_L2TPV3_INTERFACE; });
    return all;
}

enum column { tried, succeeded, fell_back, failed_otherwise, undone, exceptions, column_count };
using counts = std::array<uint64_t, column_count>;

void try_path(const state &from, const tried_operation &operation, every_path &path, counts &counted)
{
    alarm(most_seconds); // ends the program
    path.enabled = false;
    world w(path);
    w.compare = false;
    from.reach(w);
    const data_plane before = all_but_interface();
    path.enabled = true;
    w.compare = true;
    const uint32_t result = operation.run(w);
    if (++counted[tried] > most_paths && operation.swept != paths::few)
        throw std::runtime_error("has too many paths");
    ++counted[result == 0 ? succeeded : result == ZEL_CORE_TERM_FELL_BACK ? fell_back : failed_otherwise];

    // What fails and is undone leaves all as it was, apart from documented exceptions. The data plane's own refusals to
    // undo what is not there do no harm.
    const auto failed = std::ranges::find_if(w.calls(), &call::failed);
    if (operation.swept != paths::all_undone || result == 0 || failed == w.calls().end() ||
        std::any_of(failed + 1, w.calls().end(), [](const call &c) { return c.status == VOK_CP_SIM_INJECTED; }))
        return;
    if (documented_exception(*failed, w.calls(), !std::string_view(operation.name).starts_with("udp")))
        ++counted[exceptions];
    else if (before == all_but_interface())
        ++counted[undone];
    else
        throw std::runtime_error("fails, and leaves the data plane changed");
}

counts try_paths(const tried_operation &operation, const every_path &paths)
{
    counts counted{};
    for (const state &from : operation.from) {
        every_path path = paths;
        try {
            do {
                try_path(from, operation, path, counted);
            } while (path.advance());
        } catch (const std::exception &e) {
            throw std::runtime_error(std::string(operation.name) + " from " + from.name + ": " + e.what());
        }
    }
    return counted;
}

} // namespace

void sweep(std::ostream &out, effort effort_for_modify)
{
    const auto row = [&out](const char *name, const auto &cells) {
        out << std::left << std::setw(44) << name << std::right;
        for (const auto &cell : cells)
            out << std::setw(10) << cell;
        out << "\n";
    };
    counts total{};
    const auto sweep_all = [&](paths swept, const every_path &paths, std::size_t most_operations = SIZE_MAX) {
        const bool all = swept == paths::all;
        for (const tried_operation &operation : operations) {
            const bool is_asked_for = operation.swept == swept || (all && operation.swept == paths::all_undone);
            if (!is_asked_for || most_operations == 0)
                continue;
            --most_operations;
            const counts counted = try_paths(operation, paths);
            row(operation.name, counted);
            std::ranges::transform(total, counted, total.begin(), std::plus());
        }
    };
    row("operation", std::to_array({"paths", "0", "2", "other", "undone", "exception"}));
    sweep_all(paths::all, every_path());
    sweep_all(paths::one, every_path(answer::success));
    const auto index = static_cast<std::size_t>(effort_for_modify);
    const std::size_t wholly = std::array<std::size_t, 3>{0, 1, 4}[index];
    if (wholly > 0)
        out << "every combination of success and failure:\n";
    sweep_all(paths::few, every_path(answer::failure), wholly);
    const std::size_t max_failures = std::array<std::size_t, 3>{2, 4, 5}[index];
    out << "at most " << max_failures << " failures of either kind in a path:\n";
    sweep_all(paths::few, every_path(answer::failure_after_effect, max_failures));
    row("all", total);
}

} // namespace proof
