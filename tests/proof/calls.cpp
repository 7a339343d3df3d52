#include "proof/calls.h"

#include <algorithm>
#include <functional>
#include <iomanip>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "proof/requests.h"
#include "proof/world.h"

namespace proof {
namespace {

/// All calls succeed but one; the session-type hook is one of them.
class one_failure : public choices {
public:
    uint32_t below(uint32_t) override { return 0; }
    answer next_answer() override { return fails() ? answer::failure : answer::success; }
    uint32_t next_hook_code() override { return fails() ? hook_codes[1] : 0; }

    std::size_t calls_until_failure = 0; ///< 0: none fails

private:
    bool fails() { return calls_until_failure != 0 && --calls_until_failure == 0; }
};

struct shown_operation {
    const char *name;
    const char *form; ///< what is particular about it, or the empty text
    std::function<uint32_t(world &)> run;
    std::function<void(world &)> before = [](world &) {};
};

const auto udp_sessions = [](world &w) {
    w.udp_add(udp(1, 4));
    w.udp_add(udp(2, 6));
};
const auto one_connection = [](world &w) { w.connection_add(connect(1, 1)); };
const auto one_session = [](world &w) {
    one_connection(w);
    w.session_add(session_of(1, 100));
};
const auto unbound_session = [](world &w) {
    one_session(w);
    w.session_unbind_part(1, 100);
};

const shown_operation operations[] = {
    {"zel_core_term_udp_session_add", "IPv4, with session type", [](world &w) { return w.udp_add(udp(1, 4, 1)); }},
    {"zel_core_term_udp_session_add", "IPv6", [](world &w) { return w.udp_add(udp(2, 6)); }},
    {"zel_core_term_udp_session_modify_pmtu", "", [](world &w) { return w.udp_modify_pmtu(2, 1280); }, udp_sessions},
    {"zel_core_term_udp_session_modify_ttl", "", [](world &w) { return w.udp_modify_ttl(2, 9); }, udp_sessions},
    {"zel_core_term_udp_session_disconnect", "", [](world &w) { return w.udp_disconnect(1); }, udp_sessions},
    {"zel_core_term_udp_session_release", "IPv4, disconnected before", [](world &w) { return w.udp_release(1); },
     [](world &w) {
         udp_sessions(w);
         w.udp_disconnect(1);
     }},
    {"zel_udp_session_get_stats", "", [](world &w) { return w.udp_statistics_ipv4(1); }, udp_sessions},
    {"zel_ipv6_udp_session_get_stats", "", [](world &w) { return w.udp_statistics_ipv6(2); }, udp_sessions},
    {"zel_core_term_udp_session_fmt_stats_get", "IPv4", [](world &w) { return w.udp_statistics_text(1); },
     udp_sessions},
    {"zel_core_term_l2tp_control_connection_add", "the first, with session type",
     [](world &w) { return w.connection_add(connect(1, 1, 1)); }},
    {"zel_core_term_l2tp_control_connection_add", "sharing the associations of another",
     [](world &w) { return w.connection_add(connect(2, 1)); }, one_connection},
    {"zel_core_term_l2tp_control_connection_rem", "the last that uses its associations",
     [](world &w) { return w.connection_remove(1, pcep, rat_session); }, one_connection},
    {"zel_core_term_l2tp_control_connection_modify", "with one session, to a peer that no other connection has",
     [](world &w) { return w.connection_modify(move(1, 9, {100})); }, one_session},
    {"zel_core_term_l2tp_session_add", "with session type",
     [](world &w) { return w.session_add(session_of(1, 100, 1)); }, one_connection},
    {"zel_core_term_l2tp_session_rem", "", [](world &w) { return w.session_remove(1, 100); }, one_session},
    {"zel_l2tp_session_modify_unbind_part", "", [](world &w) { return w.session_unbind_part(1, 100); }, one_session},
    {"zel_l2tp_session_modify_bind_part", "with session type",
     [](world &w) { return w.session_bind_part(1, 100, 5, 1); }, unbound_session},
};

constexpr const char *kinds[] = {"IPv4 ingress", "IPv4 egress",         "IPv6 ingress",      "IPv6 egress",
                                 "interface",    "L2TPv3 ingress flow", "L2TPv3 egress flow"};

/// What the handles of a run name; they differ from run to run.
class object_names {
public:
    void learn(const holdings &held)
    {
        for (const auto &[handle, what] : held.objects)
            names_[handle] = kinds[what.kind];
    }
    void learn(const call &c)
    {
        if (c.took_effect && (c.is("_create") || c.is("_add")))
            names_[c.handle] = kinds[c.kind];
    }
    std::string text(const binding &b) const
    {
        return (b.kind == VOK_BIND_ID2F ? "ovlin flow" : name(b.source)) + " -> " +
               (b.kind == VOK_BIND_F2ID ? "ovlin flow" : name(b.destination));
    }
    std::multiset<std::string> texts(const holdings &held) const
    {
        std::multiset<std::string> all;
        for (const auto &[handle, what] : held.objects)
            all.insert(name(handle));
        for (const auto &[what, traits] : held.bindings)
            all.insert(text(what));
        return all;
    }

private:
    std::string name(uint64_t handle) const { return handle != 0 ? names_.at(handle) : "0"; }

    std::map<uint64_t, std::string> names_;
};

struct ran {
    uint32_t result;
    std::vector<std::string> calls;
    std::multiset<std::string> before, after; ///< what the data plane held
};

/// @param failing the number of the call that fails; 0: none
ran run(const shown_operation &operation, std::size_t failing)
{
    one_failure answers;
    world w(answers);
    operation.before(w);
    object_names names;
    const holdings before = watched_data_plane::held();
    names.learn(before);
    answers.calls_until_failure = failing;
    ran all{operation.run(w), {}, names.texts(before), {}};
    for (const call &c : w.calls()) {
        names.learn(c);
        all.calls.push_back(std::string(c.operation) + (c.binding != binding{} ? ' ' + names.text(c.binding) : ""));
    }
    const holdings after = watched_data_plane::held();
    names.learn(after);
    all.after = names.texts(after);
    return all;
}

/// What comes of the failure of a call: the result, what is left, and the calls after it, a line each.
std::string consequence(const ran &whole, const ran &failed, std::size_t failing)
{
    const auto after = [&](const ran &r) {
        return std::vector(r.calls.begin() + static_cast<std::ptrdiff_t>(failing), r.calls.end());
    };
    const auto difference = [](const auto &all, const auto &but) {
        std::string text;
        std::vector<std::string> rest;
        std::ranges::set_difference(all, but, std::back_inserter(rest));
        for (const std::string &what : rest)
            text += (text.empty() ? "" : ", ") + what;
        return text;
    };
    // An operation that gives 0 all the same leaves what it was to take away; any other, what was not there before.
    const auto &due = failed.result == 0 ? whole.after : failed.before;
    const std::string left = difference(failed.after, due), lost = difference(due, failed.after);
    std::string text = "result " + std::to_string(failed.result) +
                       ", left behind: " + (left.empty() ? "nothing" : left) + (lost.empty() ? "" : "; lost: " + lost) +
                       "\n";
    if (after(failed) == after(whole))
        return text + (after(whole).empty() ? "" : "     and goes on\n");
    for (const std::string &call : after(failed))
        text += "     " + call + "\n";
    return text;
}

} // namespace

std::vector<std::string> operations_with_calls()
{
    std::vector<std::string> names;
    for (const shown_operation &operation : operations)
        if (names.empty() || names.back() != operation.name)
            names.emplace_back(operation.name);
    return names;
}

void show_calls(std::ostream &out, const std::string &name)
{
    bool found = false;
    for (const shown_operation &operation : operations) {
        if (name != operation.name)
            continue;
        out << (found ? "\n" : "");
        found = true;
        const std::string form = *operation.form != '\0' ? std::string(operation.form) + ": " : "";
        const ran whole = run(operation, 0);
        out << form << "result " << whole.result << "\n";
        for (std::size_t i = 0; i < whole.calls.size(); ++i)
            out << std::setw(4) << i + 1 << " " << whole.calls[i] << "\n";
        std::string numbers, same;
        for (std::size_t i = 1; i <= whole.calls.size(); ++i) {
            const std::string next = consequence(whole, run(operation, i), i);
            if (next != same && !same.empty())
                out << "when " << std::exchange(numbers, "") << " fails: " << same;
            numbers += (numbers.empty() ? "" : " or ") + std::to_string(i);
            same = next;
        }
        out << "when " << numbers << " fails: " << same;
    }
    if (!found)
        throw std::runtime_error("no operation with data-plane calls: " + name);
}

} // namespace proof
