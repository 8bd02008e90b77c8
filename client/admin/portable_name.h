#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

/// @file
/// Names of files that every common system keeps as they are, made from names of any bytes.
namespace admin {

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
