#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_format.h"

namespace admin {

/// A line of an index as text, without a look at the folder: its name and its file.
struct NameLine {
  std::string_view key;
  std::string_view stored;

  std::string_view logical() const { return index_format::logical_of(key); }
  std::int32_t timestamp() const { return index_format::timestamp_of(key); }
  /// The name of its file.
  std::string file() const { return index_format::file_name_of(key, stored); }
  /// Whether it is the line of a file under the file's own name, as adoption writes it.
  bool is_own_name() const { return timestamp() == 0 && logical() == stored; }
};

/// The lines of an index text that can be entries, by key; of two with one key the first. Views
/// into the text.
std::vector<NameLine> names_in(std::string_view text);

/// How the line of a key differs between two texts.
struct NameDifference {
  enum class What : std::uint8_t { kAdded, kRemoved, kMoved };
  What what = What::kAdded;
  std::string_view key;
  std::string_view before;  ///< the physical name, empty when added
  std::string_view after;   ///< the physical name, empty when removed
};
/// "added", "removed", "moved": the name leads to another file.
std::string_view name_of(NameDifference::What what);

/// Hands on the differences, by key.
void compare_names(std::string_view before, std::string_view after,
                   const std::function<void(const NameDifference&)>& sink);

}  // namespace admin
