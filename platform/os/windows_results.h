#pragma once

#include <cstdint>

#include "platform/os/os.h"

/// @file
/// The meaning of the system's numbers, for both Windows sides of the seam. It does not include the
/// system's header, which turns many names into macros.
namespace os::windows {

/// A system error number with its meaning.
Status fail(std::uint32_t code);
/// Seconds since 1970, from units of 100 ns since 1601.
inline std::int64_t unix_seconds(std::uint64_t ticks) {
  constexpr std::int64_t kTicksPerSecond = 10'000'000;
  constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
  return static_cast<std::int64_t>(ticks) / kTicksPerSecond - kSecondsFrom1601To1970;
}

}  // namespace os::windows
