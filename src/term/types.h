/// Short names of the integers that the interface and the data plane's records are made of.
#pragma once

#include <cstdint>

namespace zel {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

} // namespace zel
