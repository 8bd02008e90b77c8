#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "file/replacement.h"

/// The bytes of an interrupted save: the new text is already safe after the old one.
inline std::string interrupted_save(std::string_view old_text, std::string_view new_text) {
  const replacement::Plan plan = replacement::plan(old_text, new_text);
  std::string bytes(old_text);
  for (std::size_t stage = 0; stage < plan.first_over_old; ++stage) {
    for (const replacement::Write& write : plan.stages[stage]) {
      const auto offset = static_cast<std::size_t>(write.offset);
      bytes.resize(std::max(bytes.size(), offset + write.bytes.size()), '\0');
      bytes.replace(offset, write.bytes.size(), write.bytes);
    }
  }
  return bytes;
}
