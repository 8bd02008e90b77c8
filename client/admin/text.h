#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

/// @file
/// Names are bytes. What is needed to show and to compare them, and to give files names of them.
namespace admin {

bool is_utf8(std::string_view bytes);

/// The bytes as UTF-8: what is no UTF-8 becomes U+FFFD, byte by byte.
std::string to_utf8(std::string_view bytes);

/// to_utf8() for a terminal: control characters become U+FFFD as well.
std::string printable(std::string_view bytes);

/// Two lower-case digits per byte.
std::string to_hex(std::string_view bytes);

/// The name with its letters in lower case, so that names which a case-blind file system takes for
/// one are equal: ASCII, Latin-1, Latin Extended-A, Greek and Cyrillic letters.
void fold_case(std::string_view name, std::string& folded);

/// Whether fold_case() can change anything: an upper-case ASCII letter or a byte beyond ASCII.
bool has_case(std::string_view name);

/// "2024-05-01 07:09:59", in UTC. @param seconds since 1970.
std::string format_time(std::int64_t seconds);

/// Why a file of this name cannot be kept on every system; null when it can.
const char* why_not_portable(std::string_view name);

/// Why the library would be led astray by this logical name or owner, which it takes as part of a
/// path; null when it would not.
const char* why_not_safe(std::string_view name);

/// The text of a shell pattern: "*" any run of characters, "?" one character in UTF-8. Letter case
/// counts.
bool matches(std::string_view pattern, std::string_view name);

// ---- checksums ---------------------------------------------------------------------------------

/// The checksum of bytes that come in pieces: XXH3 of 128 bits. It finds damage, not forgery.
class Checksum {
 public:
  Checksum();
  ~Checksum();
  Checksum(Checksum&&) noexcept;
  Checksum& operator=(Checksum&&) noexcept;

  void add(std::string_view bytes);
  /// Of what was added so far: 32 lower-case hexadecimal digits.
  std::string text() const;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

/// Of a text as a whole.
std::string checksum_of(std::string_view bytes);

// ---- portable names ----------------------------------------------------------------------------
//
// Names of files that every common system keeps as they are, made from names of any bytes.

/// The longest name that is made.
inline constexpr std::size_t kPortableNameLimit = 100;

/// The name itself where it is portable and short enough. Otherwise what is refused somewhere
/// becomes "%XX", and what is too long is cut and ends in "~", a checksum of the whole name, and
/// its extension. Different names may give the same one.
std::string portable_name(std::string_view name);

/// The names of one folder that is being filled: no two are equal, whatever their letters' case.
class PortableNames {
 public:
  /// Forgets all names.
  void clear() { m_taken.clear(); }
  /// The file name for a name: portable_name(), with the checksum in it when that one is taken.
  std::string take(std::string_view name);

 private:
  bool enter(std::string_view name);

  /// Hashes of the names with their letters folded; two names with one hash only make a name
  /// longer.
  std::unordered_set<std::uint64_t> m_taken;
};

}  // namespace admin
