#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/tree.h"

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

/// What stands for an extension where the name is not a document's.
inline constexpr std::string_view kIndexFiles = "(index)";
inline constexpr std::string_view kUnfinishedFiles = "(unfinished)";

/// One file as it is counted. The names are good during the call that hands them on.
struct CountedFile {
  Area area = Area::kDocs;
  std::string_view owner;      ///< the owner folder's name; empty where there is none
  std::string_view extension;  ///< with its dot, or kIndexFiles, or kUnfinishedFiles
  std::uint64_t size = 0;
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
  /// Told of each file, whatever the groups are.
  std::function<void(const CountedFile&)> on_file = {};
};

struct Stats {
  Sum all;
  Sum documents;                   ///< files in document folders
  Sum parts;                       ///< files in folders below these
  Sum indexes;                     ///< indexes and their counters
  Sum unfinished;                  ///< what the client stores right now, or was killed over
  Sum strays;                      ///< files where the layout has only folders
  std::uint64_t folders = 0;       ///< document folders
  std::uint64_t failures = 0;      ///< folders that could not be listed
  std::uint64_t other_groups = 0;  ///< groups that were left out
  Sum others;                      ///< what they hold
  /// By size, largest first; ages from young to old.
  std::vector<StatsGroup> groups;
  bool was_stopped = false;
};

/// Whether one group goes before another: by size, then by the number of files, then by name.
bool is_larger(const StatsGroup& one, const StatsGroup& other);

/// The names of the age groups, from young to old: "up to a day", ...
std::vector<std::string> age_group_names();

/// Adds up everything in the tree: links count as what they are and are not followed.
Stats collect_stats(const Tree& tree, const StatsOptions& options);

}  // namespace admin
