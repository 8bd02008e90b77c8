#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

/// @file
/// In exported signatures `long` means 32 bits. Where it is wider, a value outside this range is
/// clamped, not cut: a huge limit must not become a small one.

inline std::int32_t clamp32(long value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

inline std::uint32_t clamp_unsigned32(unsigned long value) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(value, std::numeric_limits<std::uint32_t>::max()));
}
