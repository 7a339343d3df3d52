// zel-bench: the wall-clock time of each operation and of its reference.
//
// A batch of the library's calls and a batch of the reference's take turns, so that both meet the same machine. What
// is told of a pair is its ratio; of all pairs, the medians. That one run differs from the next in where the loader
// put things is seen only over several processes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "operations.h"
#include "tn_zel_tracepoints.h"

namespace {

void probe(void *, const char *, const char *, const char *)
{
}

/// An in-process probe that does nothing, for every event.
void register_probes()
{
    for (const auto *t : tracepoints)
        lttng_ust_tracepoint_provider_register(t->provider_name, t->event_name, reinterpret_cast<void (*)()>(probe),
                                               nullptr, t->signature);
}

bool all_events_are(bool enabled)
{
    return std::ranges::all_of(tracepoints, [&](const auto *t) { return (t->state != 0) == enabled; });
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

/// Nanoseconds a call of one batch, run by `run`.
double time(const operation &measured, outcome wanted, void (*run)(const operation &, outcome))
{
    using clock = std::chrono::steady_clock;
    for_each_call(measured, measured.prepare);
    const clock::time_point start = clock::now();
    run(measured, wanted);
    const std::chrono::duration<double, std::nano> elapsed = clock::now() - start;
    for_each_call(measured, measured.clean_up);
    return elapsed.count() / measured.table->calls;
}

void measure(benchmark::State &state, const operation &measured, outcome wanted, std::uint32_t quarters)
{
    occupy(*measured.table, quarters);
    std::vector<double> library, reference, ratio;
    time(measured, wanted, run_library); // warms up
    for ([[maybe_unused]] auto iteration : state) {
        library.push_back(time(measured, wanted, run_library));
        reference.push_back(measured.reference != nullptr ? time(measured, wanted, run_reference) : 0);
        ratio.push_back(measured.reference != nullptr ? library.back() / reference.back() : 0);
        state.SetIterationTime(library.back() * 1e-9);
    }
    state.counters["median"] = median(library);
    state.counters["reference"] = median(reference);
    state.counters["ratio"] = median(ratio);
}

/// Names are OPERATION/OUTCOME/QUARTERS; an operation without a table has no quarters but 0.
void register_operation(const operation &measured)
{
    for_each_outcome(measured, [&](outcome wanted) {
        for (std::uint32_t quarters = 0; quarters <= (measured.table->capacity != 0 ? quarters_full : 0); ++quarters)
            benchmark::RegisterBenchmark(
                (std::string(measured.name) + "/" + to_text(wanted) + "/" + std::to_string(quarters)).c_str(),
                [&measured, wanted, quarters](benchmark::State &state) { measure(state, measured, wanted, quarters); })
                ->UseManualTime()
                ->Iterations(measured.table->batches);
    });
}

} // namespace

/// zel-bench none|probes|session [BENCHMARK_OPTION...]: with no event enabled, with every event enabled and a probe
/// that does nothing, or with every event enabled into the LTTng session that is there.
int main(int argc, char **argv)
{
    const std::string tracing = argc > 1 ? argv[1] : "";
    if (tracing != "none" && tracing != "probes" && tracing != "session") {
        std::fprintf(stderr, "usage: %s none|probes|session [BENCHMARK_OPTION...]\n", argv[0]);
        return 2;
    }
    if (tracing == "probes")
        register_probes();
    if (!all_events_are(tracing != "none")) {
        std::fprintf(stderr, "nothing is measured: the events are not as '%s' says\n", tracing.c_str());
        return 1;
    }
    require_honest_measurement();
    for (const operation &measured : operations())
        register_operation(measured);
    --argc, ++argv;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
