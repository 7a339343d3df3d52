// zel-proof: tries the library over the stand-in data plane and compares it with a model of what must hold.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <iostream>
#include <optional>
#include <stdexcept>

#include "proof/calls.h"
#include "proof/random_operations.h"
#include "proof/sweep.h"

namespace {

constexpr uint64_t steps_in_a_world = 500;
constexpr unsigned most_seconds = 20; ///< for a world, which takes some ten milliseconds

/// Worlds one after the other, each from a seed of its own, until so many operations were made.
/// @param only_world just that one
void random_worlds(uint64_t seed, std::optional<uint64_t> only_world, uint64_t operations)
{
    proof::tally counts;
    uint64_t worlds = 0;
    for (uint64_t number = only_world.value_or(0); counts.operations < operations && (!only_world || worlds == 0);
         ++number) {
        try {
            alarm(most_seconds); // ends the program
            proof::seeded decisions(seed * 1'000'003 + number);
            uint64_t steps = 0;
            proof::random_operations(decisions, &counts, [&] { return steps++ < steps_in_a_world; });
        } catch (const std::exception &e) {
            throw std::runtime_error(std::string(e.what()) + "\nagain: zel-proof random --seed " +
                                     std::to_string(seed) + " --world " + std::to_string(number));
        }
        ++worlds;
    }
    std::cout << "seed " << seed << ": " << counts.operations << " operations in " << worlds
              << " worlds, all as the model has it; how often each gave each result:\n";
    for (const auto &[operation, results] : counts.results) {
        std::cout << operation;
        for (const auto &[result, count] : results)
            std::cout << (result == results.begin()->first ? "  " : ", ") << result << ": " << count;
        std::cout << "\n";
    }
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Tries the library over the stand-in data plane and compares it with a model of what must hold.");
    app.require_subcommand(1);

    auto effort = proof::effort::usual;
    CLI::App *const sweep = app.add_subcommand("sweep", "every operation with every answer of what it calls");
    sweep->add_option("--effort", effort, "how many paths of the control connection modify: seconds, or twenty minutes")
        ->transform(CLI::CheckedTransformer(std::map<std::string, proof::effort>{
            {"brief", proof::effort::brief}, {"usual", proof::effort::usual}, {"long", proof::effort::long_lasting}}))
        ->option_text("brief|usual|long");

    uint64_t seed = 1, operations = 1'000'000;
    std::optional<uint64_t> world;
    CLI::App *const random = app.add_subcommand("random", "random operations with random faults");
    random->add_option("--seed", seed, "where the decisions come from")->capture_default_str();
    random->add_option("--world", world, "only the world of that number");
    random->add_option("--operations", operations, "how many, and those that complete the last world")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1'000'000'000}))
        ->capture_default_str();

    std::string operation;
    CLI::App *const calls =
        app.add_subcommand("calls", "the data-plane calls of operations, and those after a failure");
    calls->add_option("OPERATION", operation, "part of its exported name; all operations without it");
    CLI11_PARSE(app, argc, argv);

    try {
        if (*sweep)
            proof::sweep(std::cout, effort);
        else if (*calls)
            proof::show_calls(std::cout, operation);
        else
            random_worlds(seed, world, operations);
    } catch (const std::exception &e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
}
