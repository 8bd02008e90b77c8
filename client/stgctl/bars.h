#pragma once

#include <cstdint>
#include <string>

namespace stgctl {

/// A bar of eighths of a column: so much of the width as the part is of the whole. What is there at
/// all can be seen.
std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t width);

/// The text with blanks behind it up to a width in columns.
std::string padded(std::string text, std::size_t width);

}  // namespace stgctl
