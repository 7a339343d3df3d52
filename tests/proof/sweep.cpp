#include "proof/sweep.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iomanip>
#include <span>
#include <stdexcept>

#include "proof/requests.h"
#include "proof/world.h"

namespace proof {
namespace {

using state = std::pair<const char *, std::function<void(world &)>>;

const state nothing{"nothing", [](world &) {}};
const state one_of_each{"one of each", [](world &w) {
                            w.udp_add(udp(1, 4));
                            w.udp_add(udp(2, 6));
                            w.connection_add(connect(1, 1));
                            w.session_add(session_of(1, 100));
                        }};
const state shared{"shared associations", [](world &w) {
                       w.connection_add(connect(1, 1));
                       w.connection_add(connect(2, 1));
                       w.connection_add(connect(3, 2));
                       w.session_add(session_of(1, 100));
                       w.session_add(session_of(2, 101));
                       w.session_add(session_of(1, 102));
                   }};
const state disconnected{"disconnected and unbound", [](world &w) {
                             one_of_each.second(w);
                             w.udp_disconnect(1);
                             w.udp_disconnect(2);
                             w.session_unbind_part(1, 100);
                         }};
const state used_before{"all of it removed again", [](world &w) {
                            one_of_each.second(w);
                            w.session_remove(1, 100);
                            w.connection_remove(1, pcep, rat_session);
                            for (const uint32_t id : {1u, 2u}) {
                                w.udp_disconnect(id);
                                w.udp_release(id);
                            }
                        }};
const state full{"all associations in use", [](world &w) {
                     for (uint32_t id = 0; id < 48; ++id)
                         w.connection_add(connect(id, static_cast<uint8_t>(100 + id)));
                     w.connection_add(connect(48, 100));
                 }};
const state most[] = {nothing, one_of_each, shared, disconnected, used_before};

struct swept_operation {
    const char *name;
    std::function<uint32_t(world &)> run;
    enum { as_documented, undone_when_failed } failure = as_documented;
    std::span<const state> from = most;
};

const swept_operation operations[] = {
    {"udp add, IPv4", [](world &w) { return w.udp_add(udp(9, 4)); }, swept_operation::undone_when_failed},
    {"udp add, IPv6", [](world &w) { return w.udp_add(udp(9, 6)); }, swept_operation::undone_when_failed},
    {"udp add with session type", [](world &w) { return w.udp_add(udp(9, 4, 1)); },
     swept_operation::undone_when_failed},
    {"udp modify path mtu", [](world &w) { return w.udp_modify_pmtu(2, 1280); }, swept_operation::undone_when_failed},
    {"udp modify ttl", [](world &w) { return w.udp_modify_ttl(2, 9); }, swept_operation::undone_when_failed},
    {"udp disconnect", [](world &w) { return w.udp_disconnect(1); }},
    {"udp release", [](world &w) { return w.udp_release(1); }},
    {"udp disconnect and release", [](world &w) { return w.udp_disconnect(2) + w.udp_release(2); }},
    {"udp statistics, IPv4", [](world &w) { return w.udp_statistics_ipv4(1); }, swept_operation::undone_when_failed},
    {"udp statistics, IPv6", [](world &w) { return w.udp_statistics_ipv6(2); }, swept_operation::undone_when_failed},
    {"udp statistics as text", [](world &w) { return w.udp_statistics_text(2); }, swept_operation::undone_when_failed},
    {"control connection add", [](world &w) { return w.connection_add(connect(9, 9)); },
     swept_operation::undone_when_failed},
    {"control connection add, sharing", [](world &w) { return w.connection_add(connect(9, 1)); },
     swept_operation::undone_when_failed},
    {"control connection add, no association left",
     [](world &w) { return w.connection_remove(48, pcep, rat_session) + w.connection_add(connect(48, 9)); },
     swept_operation::as_documented,
     {&full, 1}},
    {"control connection add with session type", [](world &w) { return w.connection_add(connect(9, 1, 1)); },
     swept_operation::undone_when_failed},
    {"control connection removal", [](world &w) { return w.connection_remove(1, pcep, rat_session); }},
    {"session add", [](world &w) { return w.session_add(session_of(1, 109)); }, swept_operation::undone_when_failed},
    {"session add over another", [](world &w) { return w.session_add(session_of(1, 100)); }},
    {"session add with session type", [](world &w) { return w.session_add(session_of(1, 109, 1)); },
     swept_operation::undone_when_failed},
    {"session removal", [](world &w) { return w.session_remove(1, 100); }},
    {"session unbind part", [](world &w) { return w.session_unbind_part(1, 100); }},
    {"session bind part with session type", [](world &w) { return w.session_bind_part(1, 100, 5, 1); }},
    {"session parts, one after the other",
     [](world &w) { return w.session_unbind_part(1, 100) + w.session_bind_part(1, 100, 5, 0); }},
};

const swept_operation modifies[] = {
    {"control connection modify without sessions", [](world &w) { return w.connection_modify(move(1, 9, {})); }},
    {"control connection modify with a session", [](world &w) { return w.connection_modify(move(1, 9, {100})); }},
    {"control connection modify with session type", [](world &w) { return w.connection_modify(move(1, 9, {100}, 1)); }},
    {"control connection modify to a shared peer", [](world &w) { return w.connection_modify(move(1, 2, {100})); }},
    {"control connection modify with two sessions",
     [](world &w) {
         return w.connection_modify(move(1, 9, {100, 102}));
     }},
    {"control connection modify, no association left",
     [](world &w) {
         connection_modify_request r = move(48, 9, {});
         r.old_remote_addr[3] = 100;
         return w.connection_modify(r);
     },
     swept_operation::as_documented,
     {&full, 1}},
};

/// Whether all that was called after the first failure did as it was told. The data plane's own refusals of what is not
/// there do no harm.
bool undos_succeeded(const std::vector<call> &calls)
{
    const auto failed = std::ranges::find_if(calls, &call::failed);
    return failed != calls.end() &&
           std::none_of(failed + 1, calls.end(), [](const call &c) { return c.status == VOK_CP_SIM_INJECTED; });
}

/// What an operation that failed may leave although all its undos succeeded, as the interface documents it.
bool documented_exception(const std::vector<call> &calls, bool of_l2tp)
{
    const call &failed = *std::ranges::find_if(calls, &call::failed);
    const bool keeps_all =
        failed.operation == session_type_hook && (failed.status == 3 || (failed.status == 5 && !of_l2tp));
    const bool bind_stays = failed.operation == "vok_bind" && failed.took_effect && !of_l2tp;
    const bool attribute_stays = failed.is("attr_modify") && failed.took_effect;
    const bool association_stays = of_l2tp && failed.is("association_create") && failed.took_effect;
    // Its sharers lose their binding to the interface with an add that came to share before it asked for that.
    const bool loses_a_request =
        std::ranges::any_of(calls, [](const call &c) { return c.binding.is(VOK_BIND_F2F, VOK_INGRESS); }) &&
        failed.is("l2tpv3_ingress_flow_create") && &failed == &calls.front();
    return keeps_all || bind_stays || attribute_stays || association_stays || loses_a_request;
}

/// The ingress interface is made once and never undone.
void forget_interface(holdings &h)
{
    std::erase_if(h.objects, [](const auto &o) { return o.second.kind == VOK_CP_SIM_L2TPV3_INTERFACE; });
}

struct path_counts {
    uint64_t paths = 0, succeeded = 0, fell_back = 0, failed = 0, undone = 0, exceptions = 0;

    void add(const path_counts &other)
    {
        for (uint64_t path_counts::*count : {&path_counts::paths, &path_counts::succeeded, &path_counts::fell_back,
                                             &path_counts::failed, &path_counts::undone, &path_counts::exceptions})
            this->*count += other.*count;
    }
};

void sweep_from(const state &from, const swept_operation &operation, every_path path, path_counts &counts)
{
    const auto run = [&](world &w) {
        try {
            return operation.run(w);
        } catch (const std::exception &e) {
            throw std::runtime_error(std::string(operation.name) + " from " + from.first + ": " + e.what());
        }
    };
    do {
        path.enabled = false;
        world w(path);
        w.compare = false;
        from.second(w);
        holdings before = watched_data_plane::held();
        path.enabled = true;
        w.compare = true;
        const uint32_t result = run(w);

        ++counts.paths;
        ++(result == 0 ? counts.succeeded : result == ZEL_CORE_TERM_FELL_BACK ? counts.fell_back : counts.failed);
        if (operation.failure != swept_operation::undone_when_failed || result == 0 || !undos_succeeded(w.calls()))
            continue;
        holdings after = watched_data_plane::held();
        forget_interface(before);
        forget_interface(after);
        if (documented_exception(w.calls(), !std::string_view(operation.name).starts_with("udp")))
            ++counts.exceptions;
        else if (before == after)
            ++counts.undone;
        else
            throw std::runtime_error(std::string(operation.name) + " from " + from.first +
                                     ": fails, and leaves the data plane changed");
    } while (path.advance());
}

} // namespace

void sweep(std::ostream &out, effort effort_for_modify)
{
    const auto row = [&out](const char *name, const auto &...cells) {
        out << std::left << std::setw(44) << name << std::right;
        (out << ... << [&](const auto &cell) -> const auto & { return out << std::setw(10), cell; }(cells));
        out << "\n";
    };
    const auto count_row = [&row](const char *name, const path_counts &c) {
        row(name, c.paths, c.succeeded, c.fell_back, c.failed, c.undone, c.exceptions);
    };
    row("operation", "paths", "0", "2", "other", "undone", "exception");
    path_counts total;
    const auto sweep_all = [&](const swept_operation &operation, const every_path &paths) {
        path_counts counts;
        for (const state &from : operation.from)
            sweep_from(from, operation, paths, counts);
        count_row(operation.name, counts);
        total.add(counts);
    };
    for (const swept_operation &operation : operations)
        sweep_all(operation, every_path());
    const auto index = static_cast<std::size_t>(effort_for_modify);
    if (effort_for_modify != effort::brief)
        out << "every combination of success and failure:\n";
    const std::size_t wholly = std::array<std::size_t, 3>{0, 1, 4}[index];
    for (const swept_operation &operation : std::span(modifies).first(wholly))
        sweep_all(operation, every_path(answer::failure));
    const std::size_t max_failures = std::array<std::size_t, 3>{2, 4, 5}[index];
    out << "at most " << max_failures << " failures of either kind in a path:\n";
    for (const swept_operation &operation : modifies)
        sweep_all(operation, every_path(answer::failure_after_effect, max_failures));
    count_row("all", total);
}

} // namespace proof
