// zel-bench-return MICROSECONDS: a node has restarted and all its UDP sessions come back, each with the lowest free id,
// while a data-plane call takes that long and one in a hundred fails. Prints, with tabs between: the microseconds;
// milliseconds of the first time in the process, of the second, and of the library alone in the second; microseconds of
// the longest add with its search for an id, in the first time and in the second; how many adds were tried again.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "operations.h"
#include "requests.h"
#include "vok_cp_null.h"
#include "zel_core_term/zel_core_term.h"

namespace {

using clock_type = std::chrono::steady_clock;
using milliseconds = std::chrono::duration<double, std::milli>;
using microseconds = std::chrono::duration<double, std::micro>;

constexpr int tries_at_most = 10; // 13 also means that the library is stopped or that something is full

clock_type::duration of_a_call{}, in_the_data_plane{};
std::minstd_rand random_numbers;

std::uint32_t answer()
{
    if (of_a_call.count() != 0) {
        const auto begin = clock_type::now();
        clock_type::duration elapsed{};
        while (elapsed < of_a_call)
            elapsed = clock_type::now() - begin;
        in_the_data_plane += elapsed;
    }
    return random_numbers() % 100 == 0 ? VOK_CP_NULL_FAILED : 0;
}

struct measured {
    milliseconds all, library;
    microseconds longest{};
    std::uint32_t tried_again = 0;
};

measured bring_all_back()
{
    std::uint64_t ticks_per_second = 0;
    zel_core_term_clock_freq_get(&ticks_per_second);
    request::udp_add request = request::udp(1, 4);
    measured found{};
    std::uint64_t longest = 0;
    in_the_data_plane = {};
    const auto begin = clock_type::now();
    std::uint64_t ticks = zel_core_term_time_get();
    for (std::uint32_t session = 0; session < ZEL_CORE_TERM_UDP_SESSION_ID_MAX; ++session) {
        std::uint32_t result = 1;
        for (int tries = 0; result != 0; ++tries) {
            if (tries == tries_at_most) {
                std::fprintf(stderr, "nothing is measured: an add fails again and again\n");
                std::exit(1);
            }
            found.tried_again += tries != 0;
            result = zel_core_term_udp_session_free_id_get(&request.id);
            result = result != 0 ? result : request();
            const std::uint64_t now = zel_core_term_time_get();
            longest = std::max(longest, now - ticks);
            ticks = now;
        }
    }
    found.all = clock_type::now() - begin;
    found.library = found.all - in_the_data_plane;
    found.longest = microseconds(1e6 * static_cast<double>(longest) / static_cast<double>(ticks_per_second));
    return found;
}

} // namespace

int main(int argc, char **argv)
{
    require_null_data_plane();
    const int taken = argc == 2 ? std::atoi(argv[1]) : 0;
    of_a_call = std::chrono::microseconds(taken);
    vok_cp_null_ask(answer);
    zel_core_term_start();
    const measured cold = bring_all_back();
    zel_core_term_start();
    const measured warm = bring_all_back();
    std::printf("%d\t%.1f\t%.1f\t%.1f\t%.0f\t%.0f\t%u\n", taken, cold.all.count(), warm.all.count(),
                warm.library.count(), cold.longest.count(), warm.longest.count(), cold.tried_again);
}
