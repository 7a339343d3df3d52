// zel-bench-fresh: what only a process that has just begun can show. Prints lines as times.awk takes them, of times
// that are compared with nothing, and lines of the memory in use; fails when that is more than it may be.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "operations.h"
#include "zel_core_term/zel_core_term.h"

namespace {

/// Of the process, file contents aside: what it has written to.
std::uint64_t memory_in_use()
{
    std::ifstream sums("/proc/self/smaps_rollup");
    std::uint64_t kib = 0;
    for (std::string word; sums >> word;)
        if (word == "Anonymous:")
            sums >> kib;
    return kib * 1024;
}

bool is_within(const char *what, std::uint64_t bytes, std::uint64_t most)
{
    std::printf("%7ju bytes more %s, of at most %ju\n", std::uintmax_t{bytes}, what, std::uintmax_t{most});
    return bytes <= most;
}

void time_start(const char *what, std::uint32_t quarters)
{
    const auto begin = std::chrono::steady_clock::now();
    zel_core_term_start();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - begin;
    std::printf("%s\t%u\t%.0f\t0\t0\n", what, quarters, elapsed.count());
}

void add_sessions(std::uint32_t count)
{
    zel_core_term_udp_session_cfg_t cfg{};
    cfg.ip_version = 4;
    for (std::uint32_t id = 1; id <= count; ++id)
        zel_core_term_udp_session_add(id, &cfg, 1, 1, 5, 0, false);
}

} // namespace

int main()
{
    require_null_data_plane();
    memory_in_use(); // what it takes itself is there then
    const std::uint64_t before = memory_in_use();
    time_start("start (first of a process)", 0);
    bool ok = before != 0 && is_within("after the first start", memory_in_use() - before, 65'536);
    add_sessions(1'000);
    ok &= is_within("with 1,000 sessions", memory_in_use() - before, 262'144);
    add_sessions(ZEL_CORE_TERM_UDP_SESSION_ID_MAX);
    ok &= is_within("with 70,000 sessions", memory_in_use() - before, 6'815'744);
    time_start("start", quarters_full);
    time_start("start", 0);
    return ok ? 0 : 1;
}
