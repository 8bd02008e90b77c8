#include "lab/reliability/index_reader.h"

#include <xxhash.h>

#include <optional>
#include <utility>

namespace reliability {
namespace {

constexpr std::string_view kMark = "\nvu-index-save 1 ";
constexpr std::size_t kDigits = 16;
constexpr auto kNone = std::string_view::npos;
constexpr char kEscape = 0x1B;

/// Sixteen digits and the byte behind them.
bool take_number(std::string_view& rest, char end, std::uint64_t& number) {
  if (rest.size() < kDigits + 1 || rest[kDigits] != end) return false;
  number = 0;
  for (const char digit : rest.substr(0, kDigits)) {
    const std::size_t value = std::string_view("0123456789abcdef").find(digit);
    if (value == kNone) return false;
    number = number * 16 + value;
  }
  rest.remove_prefix(kDigits + 1);
  return true;
}

/// Nothing where an escape means nothing.
std::optional<std::string> decoded(std::string_view copy) {
  std::string text;
  text.reserve(copy.size());
  for (std::size_t i = 0; i < copy.size(); ++i) {
    if (copy[i] != kEscape) {
      text.push_back(copy[i]);
      continue;
    }
    if (++i == copy.size() || (copy[i] != 's' && copy[i] != 'e')) return std::nullopt;
    text.push_back(copy[i] == 's' ? '/' : kEscape);
  }
  return text;
}

std::optional<std::string> vouched_for(std::string_view bytes) {
  Trailer trailer;
  if (!ends_in_trailer(bytes, trailer)) return std::nullopt;
  const std::size_t end = bytes.size() - kTrailerSize;
  if (trailer.copied > end || trailer.base > end - trailer.copied) return std::nullopt;
  const auto copy = decoded(bytes.substr(end - trailer.copied, trailer.copied));
  if (!copy || trailer.base + copy->size() != trailer.size) return std::nullopt;
  std::string text(bytes.substr(0, trailer.base));
  text += *copy;
  // The numbers before the checksum are its seed.
  const std::string_view numbers = bytes.substr(end, kTrailerSize - kDigits - 1);
  const std::uint64_t seed = XXH3_64bits(numbers.data(), numbers.size());
  if (XXH3_64bits_withSeed(text.data(), text.size(), seed) != trailer.checksum) return std::nullopt;
  return text;
}

}  // namespace

bool ends_in_trailer(std::string_view bytes, Trailer& trailer) {
  if (bytes.size() < kTrailerSize) return false;
  std::string_view rest = bytes.substr(bytes.size() - kTrailerSize);
  if (!rest.starts_with(kMark)) return false;
  rest.remove_prefix(kMark.size());
  return take_number(rest, ' ', trailer.base) && take_number(rest, ' ', trailer.size) &&
         take_number(rest, ' ', trailer.copied) && take_number(rest, '\n', trailer.checksum);
}

std::string text_of_index(std::string_view bytes, Reader reader) {
  if (reader == Reader::kWhole) {
    if (auto text = vouched_for(bytes)) return std::move(*text);
    // A size may be on the disk before the bytes are.
    while (bytes.ends_with('\0')) bytes.remove_suffix(1);
  }
  return std::string(bytes);
}

bool is_interrupted(std::string_view bytes) { return vouched_for(bytes).has_value(); }

Lines all_lines(std::string_view text) {
  Lines lines;
  visit_lines(text,
              [&](std::string_view key, std::string_view stored) { lines.emplace(key, stored); });
  return lines;
}

}  // namespace reliability
