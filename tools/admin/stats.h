#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/admin/tree.h"

namespace admin {

enum class GroupBy : std::uint8_t { kArea, kOwner, kExtension, kAge, kFolder };

/// Files counted together. Sizes are those of the contents.
struct Sum {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;

  void add(std::uint64_t size) {
    ++files;
    bytes += size;
  }
};

struct StatsGroup {
  std::string name;  ///< bytes
  Sum sum;
};

struct StatsOptions {
  Scope scope;
  GroupBy by = GroupBy::kArea;
  /// How many groups are kept, the largest; 0 for all. Ages and areas are always all there.
  std::size_t top = 20;
  std::int64_t now = 0;  ///< ages are counted from here, in seconds since 1970
  const std::atomic<bool>* stop = nullptr;
  /// Told of each folder before it is looked at.
  std::function<void(const DocumentFolder&)> on_folder = {};
};

struct Stats {
  Sum all;
  Sum documents;                   ///< files in document folders
  Sum parts;                       ///< files in folders below these
  Sum indexes;                     ///< indexes and their counters
  Sum strays;                      ///< files where the layout has only folders
  std::uint64_t folders = 0;       ///< document folders
  std::uint64_t failures = 0;      ///< folders that could not be listed
  std::uint64_t other_groups = 0;  ///< groups that were left out
  Sum others;                      ///< what they hold
  /// By size, largest first; ages from young to old.
  std::vector<StatsGroup> groups;
  bool was_stopped = false;
};

/// The names of the age groups, from young to old: "up to a day", ...
std::vector<std::string> age_group_names();

/// Adds up everything in the tree: links count as what they are and are not followed.
Stats collect_stats(const Tree& tree, const StatsOptions& options);

}  // namespace admin
