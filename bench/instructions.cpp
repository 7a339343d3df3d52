// zel-bench-instructions: runs each operation under callgrind, a dump of the counters an operation.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>

#include "operations.h"

namespace {

/// A batch in which nothing happens for the first time, on a half-full table. The dump is named OPERATION/OUTCOME and
/// by the number of calls in it.
void count(const operation &measured, outcome wanted)
{
    occupy(*measured.table, quarters_full / 2);
    for_each_call(measured, measured.prepare);
    const std::string name =
        std::string(measured.name) + "/" + to_text(wanted) + "\t" + std::to_string(measured.table->calls);
    CALLGRIND_START_INSTRUMENTATION;
    run_library(measured, wanted);
    CALLGRIND_STOP_INSTRUMENTATION;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    for_each_call(measured, measured.clean_up);
}

} // namespace

int main()
{
    if (RUNNING_ON_VALGRIND == 0) {
        std::fputs("run by valgrind --tool=callgrind --instr-atstart=no\n", stderr);
        return 2;
    }
    require_honest_measurement();
    for (const operation &measured : operations())
        for_each_outcome(measured, [&](outcome wanted) { count(measured, wanted); });
}
