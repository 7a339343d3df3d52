/// What the tests share: a started library over an empty stand-in data plane, all that it does there, and faults.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "data_plane.h"
#include "event_listener.h"
#include "faults.h"
#include "requests.h"
#include "watcher.h"
#include "zel_core_ic.h"
#include "zel_core_term/zel_core_term.h"

/// A broken build must fail, not hang, even before the first test.
[[maybe_unused]] inline const unsigned seconds_left_before = alarm(20);

/// What this program's own definitions of the library's collaborators answer, and what they count. They stand in front
/// of the originals because the library calls them through the dynamic symbol.
struct collaborators {
    faults failing; ///< of them by their names, and of the data plane's calls
    std::optional<ovlin_capabilities_t> capabilities;
    std::function<uint32_t(uint32_t)> on_bound, on_unbound; ///< get the status of each, and answer in its place
    std::map<std::string, int> asked;                       ///< how often texts were asked for, by function
};
inline collaborators others;

class library_test : public testing::Test {
protected:
    library_test();
    ~library_test() override;

    /// Empties the data plane and starts the library anew.
    void restart();

    /// What happened since the last look. Objects are shown by their number, from 1 since the last restart.
    struct happened {
        /// Calls of the data plane and of the session-type hook, and what is reported, in short:
        /// "+ip_ingress 1 fails, [create_ingress: vok_ip_ingress_association_create], [add: create_ingress]".
        std::string calls;
        /// The same at length, a line each, with the bytes of the records and each other text once.
        std::string lines;
    };
    happened look();

    struct row {
        std::string what;
        std::function<void()> prepare; ///< after a restart; empty: the row goes on from the one before
        std::function<uint32_t()> run;
        std::vector<fault> faults{};
    };

    /// How many entries of an L2TP table are not all zero.
    template <typename Entry, std::size_t size> static auto used(const Entry (&table)[size])
    {
        return std::ranges::count_if(table, [](const Entry &entry) {
            static const Entry free{};
            return std::memcmp(&entry, &free, sizeof free) != 0;
        });
    }

    /// Collects the result of a row, what it leaves in the data plane and in the L2TP tables, and its calls.
    void collect(const row &r);

    /// Collects the row as it is, and with each of its calls failing. It then succeeds when it is run once more.
    void collect_failures(row r, uint32_t call_count);

    /// Collects what happened since the last look, at length.
    void collect(const std::string &heading) { collected_ += "== " + heading + "\n" + look().lines; }

    /// Compares all that was collected with tests/expected/`file`. With ZEL_WRITE_EXPECTED in the environment the file
    /// is written instead, to be read before it is kept.
    void expect_collected(const char *file);

    /// All bytes but zeroes, by eights: " 00:0600000002000000 58:...".
    std::string dump(const void *bytes, std::size_t size) const;

    std::function<void()> before_call;    ///< called once, before the next call of the data plane
    std::vector<std::string> kept_delays; ///< warnings of delayed calls with these descriptions are seen
    std::optional<event_listener> listener;

private:
    void on_outcome(const watched_call &call);
    void on_event(const trace_event &event);
    std::string number(uint64_t handle) const;
    std::string text_of(const watched_call &call) const;

    watcher watcher_;
    std::map<uint64_t, std::size_t> numbers_; ///< by handle
    std::set<std::string> texts_seen_;
    happened happened_;
    std::string collected_;
};

inline fault fails(uint32_t nth)
{
    return {.nth = nth, .status = VOK_CP_SIM_INJECTED};
}

inline fault all_fail_from(uint32_t nth)
{
    return {.nth = nth, .every = true, .status = VOK_CP_SIM_INJECTED};
}
