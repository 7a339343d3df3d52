/// Faults that are waiting for calls of the operations that follow.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct fault {
    std::string call;         ///< of which function
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
    /// What the faults that act on one call make of it together: the first status, and the longest time.
    struct answer {
        std::uint32_t status = 0;
        bool after_effect = false;
        std::uint64_t ticks = 0;

        bool acts() const { return status != 0 || ticks != 0; }
    };

    void add(const fault &f) { all_.push_back(f); }
    void clear() { all_.clear(); }
    const std::vector<fault> &all() const { return all_; }

    /// Counts a call of `function`, for every fault that waits for it.
    answer on_call(std::string_view function);

private:
    std::vector<fault> all_;
};

/// The session-type hook, which is no data-plane call but can fail as one.
inline constexpr const char *session_type_hook = "zel_ovlin_session_handler_set_session_type";

/// All functions that a fault can act on.
const std::vector<std::string> &functions_that_can_fail();

/// The text for what a function answers: the data plane's for a status, the utility library's for the hook's result.
std::string answer_text(std::string_view function, std::uint32_t answer);
