/// The processor's tick counter.
#pragma once

#include "term/types.h"

namespace zel {

/// One instruction, no system call.
inline u64 read_ticks()
{
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#elif defined(__aarch64__)
    u64 ticks;
    asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
    return ticks;
#else
#error "no tick counter is known for this machine"
#endif
}

/// The frequency that all delay checks assume, whatever the counter's real one is.
inline constexpr u64 tick_frequency_hz = 256'000'000;

/// 0.1 s at that frequency.
inline constexpr u64 delay_bound_ticks = 25'600'000;

/// Whether a data-plane call that ran from `start` to `end` is reported as delayed.
constexpr bool is_delayed(u64 start, u64 end)
{
    return end - start > delay_bound_ticks;
}

} // namespace zel
