#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "stg_index.h"

/// A way into the index for those who walk it without a map.
struct IndexGate {
  using Visit =
      std::function<bool(std::string_view logical, long version, const std::string& file)>;

  /// Loads a folder's index, as every question of STGIndex does, gives its lock back and then calls
  /// @p visit for each entry, in the order of the keys, until it says false. No lock is held
  /// meanwhile: whoever is called may use the library.
  /// @return whether all were visited.
  /// @throws as STGIndex::plValues(), and what @p visit throws.
  static bool visit(const std::string& folder, const Visit& visit);

  /// Whether files that appear in a folder are adopted into its index.
  static bool adopts() { return STGIndex::synchronizes(); }
};
