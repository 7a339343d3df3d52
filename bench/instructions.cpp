// zel-bench-instructions, for valgrind --tool=callgrind --instr-atstart=no: a dump of the counters an operation.
#include <valgrind/callgrind.h>

#include <string>

#include "operations.h"

/// A batch in which nothing happens for the first time, on a half-full table. The dump is named OPERATION/OUTCOME and
/// by the number of calls in it.
static void count(const operation &measured)
{
    const std::string name = std::string(measured.name) + (measured.failing_call == 0 ? "/success\t" : "/failure\t") +
                             std::to_string(measured.table->calls);
    occupy(*measured.table, quarters_full / 2);
    with_batch(measured, [&] {
        CALLGRIND_START_INSTRUMENTATION;
        run(measured, measured.library);
        CALLGRIND_STOP_INSTRUMENTATION;
        CALLGRIND_DUMP_STATS_AT(name.c_str());
    });
}

int main()
{
    require_honest_measurement();
    for_each_operation(count);
}
