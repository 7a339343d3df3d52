/// Where the proofs take their decisions from: all of them in turn, a seed, or the bytes of a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace proof {

/// How something that the library calls answers.
enum class answer { success, failure, failure_after_effect };

class choices {
public:
    virtual ~choices() = default;
    virtual uint32_t below(uint32_t count) = 0;  ///< 0 to count - 1
    virtual answer next_data_plane_answer() = 0; ///< of the data-plane call that is just being made
    virtual answer next_hook_answer() = 0;       ///< of the session-type hook; a failure after effect is its code 3
};

/// One path through all answers; advance() goes on to the next, so that each is taken once.
class every_path : public choices {
public:
    /// @param last_answer  the answers are success to this one
    /// @param max_failures paths with more answers other than success are left out
    explicit every_path(answer last_answer = answer::failure_after_effect, std::size_t max_failures = SIZE_MAX)
        : last_answer_(last_answer), max_failures_(max_failures)
    {
    }

    uint32_t below(uint32_t) override { return 0; }
    answer next_data_plane_answer() override { return next(); }
    answer next_hook_answer() override { return next(); }

    bool enabled = true; ///< false: the answer is success, and no step of the path

    bool advance()
    {
        digits_.resize(used_);
        used_ = 0;
        for (; !digits_.empty(); digits_.pop_back()) {
            if (digits_.back() < last_answer_ && (digits_.back() != answer::success || failures() < max_failures_)) {
                digits_.back() = static_cast<answer>(static_cast<int>(digits_.back()) + 1);
                return true;
            }
        }
        return false;
    }

private:
    answer next()
    {
        if (!enabled)
            return answer::success;
        if (used_ == digits_.size())
            digits_.push_back(answer::success);
        return digits_[used_++];
    }

    std::size_t failures() const
    {
        std::size_t count = 0;
        for (const answer digit : digits_)
            count += digit != answer::success;
        return count;
    }

    answer last_answer_;
    std::size_t max_failures_;
    std::vector<answer> digits_;
    std::size_t used_ = 0;
};

/// The same for the same seed, on every machine.
class seeded : public choices {
public:
    explicit seeded(uint64_t seed) : state_(seed) { failures_in_64_ = below(4) == 0 ? 0 : below(16); }

    uint32_t below(uint32_t count) override { return static_cast<uint32_t>((next() >> 32) * count >> 32); }
    answer next_data_plane_answer() override
    {
        return below(64) < failures_in_64_ ? static_cast<answer>(1 + below(2)) : answer::success;
    }
    answer next_hook_answer() override { return next_data_plane_answer(); }

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
    uint32_t below(uint32_t count) override { return count > 1 ? next() % count : 0; }
    answer next_data_plane_answer() override
    {
        const uint8_t byte = next();
        return byte >= 0xF0 ? byte >= 0xF8 ? answer::failure_after_effect : answer::failure : answer::success;
    }
    answer next_hook_answer() override { return next_data_plane_answer(); }

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
