#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

/// @file
/// Formats text with fmt's patterns: "{} files, {:.1f} %". Only formatted.cpp includes fmt, because
/// including it everywhere makes builds much slower.
namespace admin {

/// One argument. A text refers to the caller's bytes.
using FormatArgument = std::variant<std::int64_t, std::uint64_t, double, char, std::string_view>;

template <class T>
FormatArgument argument_of(const T& value) {
  static_assert(!std::is_same_v<T, bool>, "name the two words for a bool");
  if constexpr (std::is_same_v<T, char> || std::is_same_v<T, double>) {
    return value;
  } else if constexpr (std::signed_integral<T>) {
    return std::int64_t{value};
  } else if constexpr (std::unsigned_integral<T>) {
    return std::uint64_t{value};
  } else {
    return std::string_view(value);
  }
}

/// The number of arguments of a pattern: one per pair of braces, also for a width in "{:{}}". If
/// the braces contain numbers, as in "{0}": the largest number plus 1.
consteval std::size_t arguments_wanted(std::string_view pattern) {
  std::size_t wanted = 0;
  std::size_t depth = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char here = pattern[i];
    const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
    if ((here == '{' || here == '}') && depth == 0 && next == here) {
      ++i;
    } else if (here == '{') {
      const bool is_numbered = next >= '0' && next <= '9';
      const std::size_t number = static_cast<std::size_t>(next - '0') + 1;
      wanted = !is_numbered ? wanted + 1 : number > wanted ? number : wanted;
      ++depth;
    } else if (here == '}') {
      if (depth == 0) throw "a brace too many";
      --depth;
    }
  }
  return wanted;
}

/// A pattern; the compiler checks the number of its arguments.
template <std::size_t Count>
class FormatPattern {
 public:
  consteval FormatPattern(const char* text) : m_text(text) {
    if (arguments_wanted(m_text) != Count) throw "the pattern wants another number of arguments";
  }
  std::string_view text() const noexcept { return m_text; }

 private:
  std::string_view m_text;
};

/// Appends the formatted text.
void append_filled(std::string& text, std::string_view pattern,
                   std::initializer_list<FormatArgument> arguments);

template <class... Args>
void append_formatted(std::string& text, FormatPattern<sizeof...(Args)> pattern,
                      const Args&... args) {
  append_filled(text, pattern.text(), {argument_of(args)...});
}

template <class... Args>
std::string formatted(FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  std::string text;
  append_formatted(text, pattern, args...);
  return text;
}

}  // namespace admin
