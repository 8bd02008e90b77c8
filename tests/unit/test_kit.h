#pragma once

#include <string>
#include <vector>

#include "platform/os/os.h"

using Texts = std::vector<std::string>;

inline Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// A failure of a system call for an unspecified reason.
inline constexpr os::Status kRefused{5, os::Failure::kOther};
