#include "client/stgctl/treemap.h"

#include <algorithm>
#include <numeric>

namespace stgctl {

namespace {

/// How much the worst piece of a row deviates from a square. @param side the length of the row.
double worst_ratio(double sum, double first, double last, double side) {
  const auto [least, most] = std::minmax(first, last);
  if (sum <= 0 || side <= 0 || least <= 0) return 0;
  const double thickness = sum / side;
  return std::max(most / (thickness * thickness), thickness * thickness / least);
}

}  // namespace

Box Box::inset(double margin, double top) const {
  return {x + margin, y + margin + top, std::max(width - 2 * margin, 0.0),
          std::max(height - 2 * margin - top, 0.0)};
}

std::vector<Box> divide(const Box& box, const std::vector<std::uint64_t>& weights) {
  std::vector<Box> pieces;
  const double total =
      static_cast<double>(std::accumulate(weights.begin(), weights.end(), std::uint64_t{0}));
  const double scale = total > 0 ? box.width * box.height / total : 0;
  const auto area = [&](std::size_t i) { return static_cast<double>(weights[i]) * scale; };
  Box rest = box;
  std::size_t next = 0;
  while (next < weights.size()) {
    // A row along the shorter side takes pieces for as long as that makes them squarer.
    const double side = std::min(rest.width, rest.height);
    std::size_t end = next + 1;
    double sum = area(next);
    while (end < weights.size()) {
      const double larger = sum + area(end);
      if (worst_ratio(larger, area(next), area(end), side) >
          worst_ratio(sum, area(next), area(end - 1), side))
        break;
      sum = larger;
      ++end;
    }
    const double thickness = side > 0 ? sum / side : 0;
    double at = 0;
    for (; next < end; ++next) {
      const double length = thickness > 0 ? area(next) / thickness : 0;
      pieces.push_back(rest.width < rest.height ? Box{rest.x + at, rest.y, length, thickness}
                                                : Box{rest.x, rest.y + at, thickness, length});
      at += length;
    }
    if (rest.width < rest.height) {
      rest.y += thickness;
      rest.height = std::max(rest.height - thickness, 0.0);
    } else {
      rest.x += thickness;
      rest.width = std::max(rest.width - thickness, 0.0);
    }
  }
  return pieces;
}

}  // namespace stgctl
