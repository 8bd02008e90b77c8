#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

/// @file
/// Names are bytes. These functions show and compare them, and make file names from them.
namespace admin {

bool is_utf8(std::string_view bytes);

/// The bytes as UTF-8. Each invalid byte becomes U+FFFD.
std::string to_utf8(std::string_view bytes);

/// Like to_utf8(), for a terminal: control characters also become U+FFFD.
std::string printable(std::string_view bytes);

/// Two lower-case hexadecimal digits per byte.
std::string to_hex(std::string_view bytes);

/// The name in lower case, to find names that are equal on a case-insensitive file system. Changes
/// ASCII, Latin-1, Latin Extended-A, Greek and Cyrillic letters.
void fold_case(std::string_view name, std::string& folded);

/// Whether both names lead to the same file, as far as names show it: they are equal, on Windows
/// also if fold_case() makes them equal. Windows ignores the case of more letters, and finds some
/// files under short names too. Such names are not the same here.
bool are_same_to_system(std::string_view one, std::string_view other);

/// The name under which the library adopts a file: its extension in lower case.
std::string adopted_name(std::string file);

/// Whether fold_case() can change the name: it has an upper-case ASCII letter or a non-ASCII byte.
bool has_case(std::string_view name);

/// "2024-05-01 07:09:59", in UTC. @param seconds since 1970.
std::string format_time(std::int64_t seconds);

/// Why a file cannot have this name on every system; null if it can.
const char* why_not_portable(std::string_view name);

/// Why this logical name or owner is dangerous as part of a path; null if it is not.
const char* why_not_safe(std::string_view name);

/// Matches a pattern: "*" is any number of characters, "?" is one UTF-8 character. Case-sensitive.
/// Needs memory only for the stars.
/// @param stars if the name matches, gets its text for each "*", the first ones as short as
/// possible.
bool matches(std::string_view pattern, std::string_view name,
             std::vector<std::string_view>* stars = nullptr);

// ---- checksums ---------------------------------------------------------------------------------

/// A checksum of bytes that arrive in pieces: XXH3, 128 bits. It detects damage, not forgery.
class Checksum {
 public:
  Checksum();

  void add(std::string_view bytes);
  /// The checksum so far, as 32 lower-case hexadecimal digits.
  std::string text() const;

 private:
  struct State;
  std::unique_ptr<State, void (*)(State*)> m_state;  ///< hides the checksum's own header
};

/// The checksum of a text.
std::string checksum_of(std::string_view bytes);

// ---- portable names ----------------------------------------------------------------------------
// File names that every common system accepts, made from any bytes.

/// The maximum length of such a name in bytes.
inline constexpr std::size_t kPortableNameLimit = 100;

/// The name itself if it is portable and short enough. Otherwise bytes that a system refuses become
/// "%XX". A name that is too long is truncated, and ends in "~", a checksum of the whole name, and
/// its extension. Different names can have the same result.
std::string portable_name(std::string_view name);

/// Makes the file names of one folder. No two are equal, even if letter case is ignored.
class PortableNames {
 public:
  /// Forgets all names.
  void clear() { m_taken.clear(); }
  /// The file name for a name: portable_name(); with a checksum if that name is in use.
  std::string take(std::string_view name);

 private:
  bool enter(std::string_view name);

  /// Hashes of the case-folded names. A collision only makes a name longer.
  std::unordered_set<std::uint64_t> m_taken;
};

}  // namespace admin
