#pragma once

#include <cstdint>
#include <vector>

namespace stgctl {

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  /// Without a margin on each side and one more on the top; never below nothing.
  Box inset(double margin, double top = 0) const;
};

/// Divides a box among weights, so that areas are as the weights and, as long as these do not
/// ascend, no piece is longer than need be. A weight of 0 gets a box without area.
std::vector<Box> divide(const Box& box, const std::vector<std::uint64_t>& weights);

}  // namespace stgctl
