// A libFuzzer target: bytes become operations and faults, and what the model says is the oracle.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "proof/random_operations.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    try {
        proof::from_bytes decisions({data, size});
        proof::random_operations(decisions, nullptr, [&] { return !decisions.at_end(); });
    } catch (const std::exception &e) {
        std::fprintf(stderr, "%s\n", e.what());
        std::abort();
    }
    return 0;
}
