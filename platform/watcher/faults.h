/// Faults that wait for calls of the data plane or of the session-type hook.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vok_cp_sim.h"

struct fault {
    std::string call{};       ///< the function; empty: any
    std::uint32_t nth = 1;    ///< it acts on the n-th call from now ...
    bool every = false;       ///< ... and on every one after it
    std::uint32_t status = 0; ///< that the call fails with; 0: it is not made to fail
    bool after_effect = false;
    std::uint64_t ticks = 0; ///< that the call takes at least
    std::uint32_t seen = 0;  ///< calls of the function since it waits
    std::uint32_t acted = 0; ///< how many of them it acted on
    int line_number = 0;     ///< that asked for it
};

class faults {
public:
    void add(const fault &f) { all_.push_back(f); }
    void clear() { all_.clear(); }
    const std::vector<fault> &all() const { return all_; }

    /// Counts a call of `function` for every fault that waits for it.
    /// @return what those that act on it make of it together: the first status and the longest time
    vok_cp_sim_answer_t on_call(std::string_view function);

private:
    std::vector<fault> all_;
};

/// All functions that a fault can act on.
const std::vector<std::string> &functions_that_can_fail();
