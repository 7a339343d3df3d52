// zel-bench: the wall-clock time of operations, each beside its reference.
//
// A batch of the library's calls and a batch of the reference's take turns, so that both meet the same machine.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "operations.h"
#include "tn_zel_tracepoints.h"

namespace {

bool all_events_are(bool enabled)
{
    return std::ranges::all_of(tracepoints, [&](const auto *t) { return (t->state != 0) == enabled; });
}

/// Seconds that a batch takes.
double time(const operation &measured, part run_part)
{
    std::chrono::duration<double> elapsed{};
    with_batch(measured, [&] {
        const auto start = std::chrono::steady_clock::now();
        run(measured, run_part);
        elapsed = std::chrono::steady_clock::now() - start;
    });
    return elapsed.count();
}

/// Tells nanoseconds of a call, and how many times as long as its reference it takes.
void measure(benchmark::State &state, const operation &measured, std::uint32_t quarters)
{
    occupy(*measured.table, quarters);
    time(measured, measured.library); // both warm up
    time(measured, measured.reference);
    double library = 0, reference = 0;
    for ([[maybe_unused]] auto iteration : state) {
        const double seconds = time(measured, measured.library);
        library += seconds;
        reference += time(measured, measured.reference);
        state.SetIterationTime(seconds);
    }
    const double calls = static_cast<double>(state.iterations()) * measured.table->calls;
    state.counters["library"] = library / calls * 1e9;
    state.counters["reference"] = reference / calls * 1e9;
    state.counters["times"] = library / reference;
}

/// Names are OPERATION/QUARTERS; an operation without a table has no quarters but 0.
void register_operation(const operation &measured)
{
    if (measured.reference == nullptr)
        return;
    const std::string name = std::string(measured.name) + (measured.failing_call != 0 ? ", failing" : "");
    for (std::uint32_t quarters = 0; quarters <= (measured.table->capacity != 0 ? quarters_full : 0); ++quarters)
        benchmark::RegisterBenchmark(
            (name + "/" + std::to_string(quarters)).c_str(),
            [measured, quarters](benchmark::State &state) { measure(state, measured, quarters); })
            ->UseManualTime()
            ->Iterations(10)
            ->Repetitions(25)
            ->ReportAggregatesOnly();
}

} // namespace

/// zel-bench untraced|traced [BENCHMARK_OPTION...]: with no event enabled, or with every event enabled into the LTTng
/// session that is there.
int main(int argc, char **argv)
{
    if (argc < 2 || !all_events_are(std::string(argv[1]) == "traced")) {
        std::fprintf(stderr, "nothing is measured: the events are not as the first argument says\n");
        return 1;
    }
    require_honest_measurement();
    for_each_operation(register_operation);
    --argc, ++argv;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
