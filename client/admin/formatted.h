#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// @file
/// Formats text with fmt's patterns: "{} files, {:.1f} %". Only formatted.cpp includes fmt, because
/// including it everywhere makes builds much slower.
namespace admin {

/// One argument: a number, a character or a text. It refers to the caller's text.
class FormatArgument {
 public:
  enum class Kind { kSigned, kUnsigned, kReal, kCharacter, kText };

  FormatArgument(std::string_view text) noexcept : m_text(text), m_kind(Kind::kText) {}
  FormatArgument(const std::string& text) noexcept : m_text(text), m_kind(Kind::kText) {}
  FormatArgument(const char* text) noexcept : m_text(text), m_kind(Kind::kText) {}
  FormatArgument(char character) noexcept : m_signed(character), m_kind(Kind::kCharacter) {}
  FormatArgument(double number) noexcept : m_real(number), m_kind(Kind::kReal) {}
  FormatArgument(bool) = delete;
  template <std::signed_integral T>
  FormatArgument(T number) noexcept : m_signed(number), m_kind(Kind::kSigned) {}
  template <std::unsigned_integral T>
  FormatArgument(T number) noexcept : m_unsigned(number), m_kind(Kind::kUnsigned) {}

  Kind kind() const noexcept { return m_kind; }
  std::int64_t signed_number() const noexcept { return m_signed; }
  std::uint64_t unsigned_number() const noexcept { return m_unsigned; }
  double real_number() const noexcept { return m_real; }
  char character() const noexcept { return static_cast<char>(m_signed); }
  const std::string_view& text() const noexcept { return m_text; }

 private:
  union {
    std::int64_t m_signed = 0;
    std::uint64_t m_unsigned;
    double m_real;
  };
  std::string_view m_text;
  Kind m_kind;
};

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
void append_filled(std::string& text, std::string_view pattern, const FormatArgument* arguments,
                   std::size_t count);

template <class... Args>
void append_formatted(std::string& text, FormatPattern<sizeof...(Args)> pattern,
                      const Args&... args) {
  if constexpr (sizeof...(Args) == 0) {
    append_filled(text, pattern.text(), nullptr, 0);
  } else {
    const FormatArgument arguments[] = {FormatArgument(args)...};
    append_filled(text, pattern.text(), arguments, sizeof...(Args));
  }
}

template <class... Args>
std::string formatted(FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  std::string text;
  append_formatted(text, pattern, args...);
  return text;
}

}  // namespace admin
