#include "client/stgctl/text.h"

#include <array>

namespace stgctl {

namespace {

struct Unit {
  std::string_view suffix;
  std::uint64_t factor;
};

/// A number and its unit; nothing if it does not fit 63 bits.
template <std::size_t N>
std::optional<std::uint64_t> parse_with_unit(std::string_view text,
                                             const std::array<Unit, N>& units) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end == text.data()) return std::nullopt;
  const std::string_view suffix = text.substr(static_cast<std::size_t>(end - text.data()));
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  for (const Unit& unit : units) {
    if (suffix != unit.suffix) continue;
    if (number > kMost / unit.factor) return std::nullopt;
    return number * unit.factor;
  }
  return std::nullopt;
}

/// Whether a byte continues a UTF-8 character.
bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

constexpr std::uint64_t kMinute = 60;
constexpr std::uint64_t kHour = 60 * kMinute;
constexpr std::uint64_t kDay = 24 * kHour;
constexpr std::uint64_t kWeek = 7 * kDay;
constexpr std::uint64_t kYear = 365 * kDay;

}  // namespace

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i != 0) all += separator;
    all += texts[i];
  }
  return all;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> texts;
  for (std::size_t end; (end = text.find(separator)) != std::string_view::npos;) {
    texts.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  texts.push_back(text);
  return texts;
}

std::size_t columns(std::string_view text) {
  const auto begins = [](char c) { return !is_continuation(c); };
  return static_cast<std::size_t>(std::ranges::count_if(text, begins));
}

std::string cut(std::string_view text, std::size_t most) {
  std::size_t end = 0;
  while (end < text.size() && (is_continuation(text[end]) || most-- > 0)) ++end;
  return std::string(text.substr(0, end));
}

std::optional<std::string> from_hex(std::string_view digits) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (digits.size() % 2 != 0 || digits.find_first_not_of(kDigits) != std::string_view::npos)
    return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(kDigits.find(digits[i]) * 16 + kDigits.find(digits[i + 1]));
  return bytes;
}

std::string format_bytes(std::uint64_t bytes) {
  constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return formatted("{} B", bytes);
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (value >= 1023.95 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  return formatted("{:.1f} {}", value, kUnits[unit]);
}

std::string format_age(std::int64_t seconds) {
  if (seconds < 0) return "in " + format_age(-seconds);
  const auto age = static_cast<std::uint64_t>(seconds);
  if (age < kMinute) return formatted("{} s", age);
  if (age < kHour) return formatted("{} min", age / kMinute);
  if (age < 2 * kDay) return formatted("{} h", age / kHour);
  return formatted("{} d", age / kDay);
}

ExactAge exact_age(std::int64_t seconds) {
  const auto age = static_cast<std::uint64_t>(seconds);
  const bool in_days = age >= kDay && age % kDay == 0;
  const bool in_hours = age >= kHour && age % kHour == 0;
  const std::string unit = in_days ? "day" : in_hours ? "hour" : "second";
  const std::uint64_t number = age / (in_days ? kDay : in_hours ? kHour : 1);
  return {formatted("{}{}", number, unit[0]),
          formatted("{} {}{}", number, unit, number == 1 ? "" : "s")};
}

std::optional<std::int64_t> parse_age(std::string_view text) {
  // Required: an age needs a unit. A user who means days would remove everything with "--older-than
  // 30".
  constexpr std::array<Unit, 6> kUnits = {
      {{"s", 1}, {"m", kMinute}, {"h", kHour}, {"d", kDay}, {"w", kWeek}, {"y", kYear}}};
  // A time so far from now still has a date.
  constexpr std::uint64_t kMost = 10'000 * kYear;
  const std::optional<std::uint64_t> seconds = parse_with_unit(text, kUnits);
  if (!seconds || *seconds > kMost) return std::nullopt;
  return static_cast<std::int64_t>(*seconds);
}

std::string is_age(const std::string& text) {
  if (parse_age(text)) return {};
  const bool is_bare = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  if (is_bare)
    return formatted("'{}' has no unit; use {}s for seconds, {}h for hours, {}d for days", text,
                     text, text, text);
  return "'" + shown(text) + "' is not an age of at most 10000y; use 90s, 15m, 12h, 30d, 4w or 1y";
}

std::string is_count(const std::string& text) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  return parse_number<std::size_t>(text)
             ? std::string()
             : formatted("'{}' is not a whole number from 0 to {}", shown(text), kMost);
}

std::optional<std::uint64_t> parse_size(std::string_view text) {
  constexpr std::uint64_t kKi = 1024;
  if (text.ends_with("iB")) {
    text.remove_suffix(2);
  } else if (text.ends_with('B')) {
    text.remove_suffix(1);
  }
  constexpr std::array<Unit, 5> kUnits = {{{"", 1},
                                           {"K", kKi},
                                           {"M", kKi * kKi},
                                           {"G", kKi * kKi * kKi},
                                           {"T", kKi * kKi * kKi * kKi}}};
  return parse_with_unit(text, kUnits);
}

std::string is_size(const std::string& text) {
  return parse_size(text) ? std::string()
                          : "'" + text + "' is not a size; use 500M, 20G or a number";
}

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
