#include "proof/sweep.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iomanip>
#include <numeric>
#include <span>
#include <stdexcept>
#include <string>

#include "proof/world.h"

namespace proof {
namespace {

using request::connect, request::move, request::session_of, request::udp;

struct state {
    const char *name;
    void (*reach)(world &);
};

void add_one_of_each(world &w)
{
    w.udp_add(udp(1, 4));
    w.udp_add(udp(2, 6));
    w.connection_add(connect(1, 1));
    w.session_add(session_of(1, 100));
}

void disconnect_and_unbind(world &w)
{
    add_one_of_each(w);
    w.udp_disconnect(1);
    w.udp_disconnect(2);
    w.session_unbind_part(1, 100);
}

void remove_it_again(world &w)
{
    add_one_of_each(w);
    w.session_remove(1, 100);
    w.connection_remove(1, request::pcep, request::rat_session);
    for (const uint32_t id : {1u, 2u}) {
        w.udp_disconnect(id);
        w.udp_release(id);
    }
}

void share_associations(world &w)
{
    w.connection_add(connect(1, 1));
    w.connection_add(connect(2, 1));
    w.connection_add(connect(3, 2));
    w.session_add(session_of(1, 100));
    w.session_add(session_of(2, 101));
    w.session_add(session_of(1, 102));
}

void use_all_associations(world &w)
{
    for (uint32_t id = 0; id < 48; ++id)
        w.connection_add(connect(id, static_cast<uint8_t>(100 + id)));
    w.connection_add(connect(48, 100));
}

const std::vector<uint32_t> all_sessions = [] {
    std::vector<uint32_t> ids(ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1);
    std::iota(ids.begin(), ids.end(), uint32_t{ZEL_CORE_TERM_L2TP_SESSION_ID_MIN});
    return ids;
}();

void add_all_sessions(world &w)
{
    w.connection_add(connect(1, 1));
    for (const uint32_t id : all_sessions)
        w.session_add(session_of(1, id));
}

constexpr state most[] = {
    {"nothing", [](world &) {}},
    {"one of each", add_one_of_each},
    {"shared associations", share_associations},
    {"disconnected and unbound", disconnect_and_unbind},
    {"all of it removed again", remove_it_again},
};
constexpr state full[] = {{"all associations in use", use_all_associations}};
constexpr state crowded[] = {{"all sessions", add_all_sessions}};

enum class when_failed { as_documented, undone };

struct swept_operation {
    const char *name;
    uint32_t (*run)(world &);
    when_failed failure = when_failed::as_documented;
    std::span<const state> from = most;
};

constexpr auto undone = when_failed::undone, as_documented = when_failed::as_documented;

const swept_operation operations[] = {
    {"udp add, IPv4", [](world &w) { return w.udp_add(udp(9, 4)); }, undone},
    {"udp add, IPv6", [](world &w) { return w.udp_add(udp(9, 6)); }, undone},
    {"udp add with session type", [](world &w) { return w.udp_add(udp(9, 4, 1)); }, undone},
    {"udp modify path mtu", [](world &w) { return w.udp_modify_pmtu(2, 1280); }, undone},
    {"udp modify ttl", [](world &w) { return w.udp_modify_ttl(2, 9); }, undone},
    {"udp disconnect", [](world &w) { return w.udp_disconnect(1); }},
    {"udp release", [](world &w) { return w.udp_release(1); }},
    {"udp disconnect and release", [](world &w) { return w.udp_disconnect(2) + w.udp_release(2); }},
    {"udp statistics, IPv4", [](world &w) { return w.udp_statistics(statistics::ipv4, 1); }, undone},
    {"udp statistics, IPv6", [](world &w) { return w.udp_statistics(statistics::ipv6, 2); }, undone},
    {"udp statistics as text", [](world &w) { return w.udp_statistics(statistics::text, 2); }, undone},
    {"control connection add", [](world &w) { return w.connection_add(connect(9, 9)); }, undone},
    {"control connection add, sharing", [](world &w) { return w.connection_add(connect(9, 1)); }, undone},
    {"control connection add, no association left",
     [](world &w) {
         return w.connection_remove(48, request::pcep, request::rat_session) + w.connection_add(connect(48, 9));
     },
     as_documented, full},
    {"control connection add with session type", [](world &w) { return w.connection_add(connect(9, 1, 1)); }, undone},
    {"control connection removal",
     [](world &w) { return w.connection_remove(1, request::pcep, request::rat_session); }},
    {"session add", [](world &w) { return w.session_add(session_of(1, 109)); }, undone},
    {"session add over another", [](world &w) { return w.session_add(session_of(1, 100)); }},
    {"session add with session type", [](world &w) { return w.session_add(session_of(1, 109, 1)); }, undone},
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
    {"control connection modify, a session twice",
     [](world &w) {
         return w.connection_modify(move(1, 9, {100, 100}));
     }},
    {"control connection modify, no association left",
     [](world &w) {
         request::connection_modify r = move(48, 9, {});
         r.old_remote_addr[3] = 100;
         return w.connection_modify(r);
     },
     as_documented, full},
};

const swept_operation modify_of_all_sessions = {
    "control connection modify with all sessions",
    [](world &w) { return w.connection_modify(request::move(1, 9, all_sessions)); }, as_documented, crowded};

/// What an operation that failed may leave although all its undos succeeded, as the interface documents it.
bool documented_exception(const std::vector<call> &calls, bool of_l2tp)
{
    const call &failed = *std::ranges::find_if(calls, &call::failed);
    const bool keeps_all = failed.is_hook() && (failed.status == 3 || (failed.status == 5 && !of_l2tp));
    const bool bind_stays = failed.operation == "vok_bind" && failed.took_effect && !of_l2tp;
    const bool attribute_stays = failed.is("attr_modify") && failed.took_effect;
    const bool association_stays = of_l2tp && failed.is("association_create") && failed.took_effect;
    // Its sharers lose their binding to the interface with an add that came to share before it asked for that.
    const bool loses_a_request = failed.is("l2tpv3_ingress_flow_create") && &failed == &calls.front() &&
                                 std::ranges::any_of(calls, [](const call &c) {
                                     return c.is_bind_or_unbind() && c.binding().direction == VOK_INGRESS;
                                 });
    return keeps_all || bind_stays || attribute_stays || association_stays || loses_a_request;
}

/// Whether all that was called after the first failure did as it was told. The data plane's own refusals of what is not
/// there do no harm.
bool undos_succeeded(const std::vector<call> &calls)
{
    const auto failed = std::ranges::find_if(calls, &call::failed);
    return failed != calls.end() &&
           std::none_of(failed + 1, calls.end(), [](const call &c) { return c.status == VOK_CP_SIM_INJECTED; });
}

/// The ingress interface is made once and never undone.
data_plane all_but_interface()
{
    data_plane all = data_plane::now();
    std::erase_if(all.objects, [](const auto &o) { return o.kind == VOK_CP_SIM_L2TPV3_INTERFACE; });
    return all;
}

enum column { paths, succeeded, fell_back, failed, undone_wholly, exceptions, column_count };
using path_counts = std::array<uint64_t, column_count>;

/// Where an operation that fails is undone, but for documented exceptions, the data plane must be as it was.
void try_path(const state &from, const swept_operation &operation, every_path &path, path_counts &counts)
{
    path.enabled = false;
    world w(path);
    w.compare = false;
    from.reach(w);
    const data_plane before = all_but_interface();
    path.enabled = true;
    w.compare = true;
    const uint32_t result = operation.run(w);

    ++counts[paths];
    ++counts[result == 0 ? succeeded : result == ZEL_CORE_TERM_FELL_BACK ? fell_back : failed];
    if (operation.failure == as_documented || result == 0 || !undos_succeeded(w.calls()))
        return;
    if (documented_exception(w.calls(), !std::string_view(operation.name).starts_with("udp")))
        ++counts[exceptions];
    else if (before == all_but_interface())
        ++counts[undone_wholly];
    else
        throw std::runtime_error("fails, and leaves the data plane changed");
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
    row("operation", std::to_array({"paths", "0", "2", "other", "undone", "exception"}));
    path_counts total{};
    const auto sweep_all = [&](const swept_operation &operation, const every_path &paths) {
        path_counts counts{};
        for (const state &from : operation.from) {
            every_path path = paths;
            try {
                do {
                    try_path(from, operation, path, counts);
                } while (path.advance());
            } catch (const std::exception &e) {
                throw std::runtime_error(std::string(operation.name) + " from " + from.name + ": " + e.what());
            }
        }
        row(operation.name, counts);
        std::ranges::transform(total, counts, total.begin(), std::plus());
    };
    for (const swept_operation &operation : operations)
        sweep_all(operation, every_path());
    sweep_all(modify_of_all_sessions, every_path(answer::success));
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
    row("all", total);
}

} // namespace proof
