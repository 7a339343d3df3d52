/// Where the proofs take their decisions from: all of them in turn, a seed, or the bytes of a fuzzer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

namespace proof {

/// How a data-plane call answers.
enum class answer { success, failure, failure_after_effect };

/// What the session-type hook answers: a code that is undone, and the two that may not be.
constexpr uint32_t hook_codes[] = {0, 9, 3, 5};

class choices {
public:
    virtual ~choices() = default;
    virtual uint32_t below(uint32_t count) = 0; ///< 0 to count - 1
    virtual answer next_answer() = 0;           ///< of the data-plane call that is just being made
    virtual uint32_t next_hook_code() = 0;
};

/// One path through all answers; advance() goes on to the next, so that each is taken once.
class every_path : public choices {
public:
    /// @param last_answer  the answers are success to this one
    /// @param max_failures paths with more answers other than success are left out
    explicit every_path(answer last_answer = answer::failure_after_effect, std::size_t max_failures = SIZE_MAX)
        : answers_(static_cast<uint32_t>(last_answer) + 1), max_failures_(max_failures)
    {
    }

    uint32_t below(uint32_t) override { return 0; }
    answer next_answer() override { return static_cast<answer>(next(answers_)); }
    uint32_t next_hook_code() override { return hook_codes[next(std::size(hook_codes))]; }

    bool enabled = true; ///< false: the answer is success, and no step of the path

    bool advance()
    {
        steps_.resize(used_);
        used_ = 0;
        for (; !steps_.empty(); steps_.pop_back()) {
            step &last = steps_.back();
            if (last.choice + 1 < last.count && (last.choice != 0 || failures() < max_failures_)) {
                ++last.choice;
                return true;
            }
        }
        return false;
    }

private:
    struct step {
        uint32_t choice, count;
    };

    uint32_t next(std::size_t count)
    {
        if (!enabled)
            return 0;
        if (used_ == steps_.size())
            steps_.push_back({0, static_cast<uint32_t>(count)});
        return steps_[used_++].choice;
    }

    std::size_t failures() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(steps_, [](const step &s) { return s.choice != 0; }));
    }

    uint32_t answers_;
    std::size_t max_failures_;
    std::vector<step> steps_;
    std::size_t used_ = 0;
};

/// The same for the same seed, on every machine.
class seeded : public choices {
public:
    explicit seeded(uint64_t seed) : state_(seed) { failures_in_64_ = below(4) == 0 ? 0 : below(16); }

    uint32_t below(uint32_t count) override { return static_cast<uint32_t>((next() >> 32) * count >> 32); }
    answer next_answer() override
    {
        return below(64) < failures_in_64_ ? static_cast<answer>(1 + below(2)) : answer::success;
    }
    uint32_t next_hook_code() override
    {
        if (below(64) >= failures_in_64_)
            return 0;
        return below(2) == 0 ? hook_codes[1 + below(3)] : 4 + below(10); // any other of the library's own codes
    }

private:
    /// splitmix64
    uint64_t next()
    {
        uint64_t z = state_ += 0x9e3779b97f4a7c15;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    uint64_t state_;
    uint32_t failures_in_64_ = 0; ///< how many of 64 answers are failures; differs from seed to seed
};

/// As a fuzzer's bytes say; after their end every answer is success and every choice the first.
class from_bytes : public choices {
public:
    explicit from_bytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool at_end() const { return bytes_.empty(); }
    uint32_t below(uint32_t count) override
    {
        uint32_t number = 0;
        for (uint32_t reached = 1; reached < count && reached != 0; reached <<= 8)
            number = number << 8 | next();
        return number % count;
    }
    answer next_answer() override
    {
        const uint8_t byte = next();
        return byte >= 0xF0 ? byte >= 0xF8 ? answer::failure_after_effect : answer::failure : answer::success;
    }
    uint32_t next_hook_code() override
    {
        const uint8_t byte = next();
        return byte >= 0xF0 ? hook_codes[byte % std::size(hook_codes)] : 0;
    }

private:
    uint8_t next()
    {
        if (bytes_.empty())
            return 0;
        const uint8_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte;
    }

    std::span<const uint8_t> bytes_;
};

} // namespace proof
