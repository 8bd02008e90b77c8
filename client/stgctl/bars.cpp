#include "client/stgctl/bars.h"

#include <array>

#include "client/stgctl/text.h"

namespace stgctl {

std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t width) {
  constexpr std::array<const char*, 8> kEighths = {"",       "\u258F", "\u258E", "\u258D",
                                                   "\u258C", "\u258B", "\u258A", "\u2589"};
  if (whole == 0) return {};
  const double columns =
      static_cast<double>(part) / static_cast<double>(whole) * static_cast<double>(width);
  const auto eighths = static_cast<std::size_t>(columns * 8 + 0.5);
  std::string text;
  for (std::size_t i = 0; i < eighths / 8; ++i) text += "\u2588";
  text += kEighths[eighths % 8];
  return text.empty() && part != 0 ? "\u258F" : text;
}

std::string padded(std::string text, std::size_t width) {
  const std::size_t used = columns(text);
  if (used < width) text.append(width - used, ' ');
  return text;
}

}  // namespace stgctl
