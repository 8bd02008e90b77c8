#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/entries.h"
#include "client/admin/tree.h"

namespace admin {

enum class GroupBy : std::uint8_t { kArea, kOwner, kExtension, kAge, kFolder };

/// A number of files and the sum of their sizes.
struct Sum {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;

  void add(std::uint64_t size) { *this += {1, size}; }
  Sum& operator+=(const Sum& more) {
    files += more.files;
    bytes += more.bytes;
    return *this;
  }
};

struct StatsGroup {
  std::string name;  ///< bytes
  Sum sum;
};

/// The largest groups, and the sum of all others.
struct GroupedSpace {
  std::vector<StatsGroup> groups;  ///< by size, largest first; ages: youngest first
  std::uint64_t other_groups = 0;  ///< number of groups that were left out
  Sum others;                      ///< their files
};

struct StatsOptions : WalkOptions {
  GroupBy by = GroupBy::kArea;
  /// Keep only so many groups, the largest ones; 0: all. Does not apply to ages and areas.
  std::size_t top = 20;
  std::int64_t now = 0;  ///< the time from which ages are computed, seconds since 1970
};

struct Stats : GroupedSpace {
  Sum all;
  Sum documents;               ///< files in document folders
  Sum parts;                   ///< files in folders below document folders
  Sum indexes;                 ///< indexes and their counters
  Sum unfinished;              ///< unfinished files of the client
  Sum strays;                  ///< files where only folders belong
  std::uint64_t folders = 0;   ///< document folders
  std::uint64_t failures = 0;  ///< folders that could not be listed
  bool was_stopped = false;
};

/// Counts of the folders above the documents. Document folders are not listed.
struct AreaStatus {
  bool exists = false;
  std::uint64_t owners = 0;   ///< 0 in a flat tree
  std::uint64_t folders = 0;  ///< document folders
  std::uint64_t with_index = 0;
  std::uint64_t strays = 0;
};
struct TreeStatus {
  std::array<AreaStatus, kAreas.size()> areas{};
  std::uint64_t failures = 0;
};
TreeStatus status_of(const Tree& tree);

/// Adds up all files in the tree, without locks. A link is counted itself, not its target.
Stats collect_stats(const Tree& tree, const StatsOptions& options);

/// The use of space in a tree: areas, their owners, their extensions. Small siblings are merged, so
/// the result does not grow with the tree.
struct SpaceNode {
  std::string name;  ///< bytes; may be empty (no owner, no extension)
  Sum sum;
  std::uint64_t merged = 0;         ///< the number of merged siblings; else 0
  std::vector<SpaceNode> children;  ///< by size, largest first; merged ones last
};

struct Space {
  Stats stats;  ///< grouped by age
  GroupedSpace areas;
  GroupedSpace owners;
  GroupedSpace extensions;
  SpaceNode all;
};

/// Reads a tree once and groups it in every way, also by age whatever `by` is. The hierarchy has at
/// most 12 owners of an area, and 5 extensions of an owner.
Space survey_space(const Tree& tree, const StatsOptions& options);

// ---- what a clean would remove ------------------------------------------------------------------
// How much a clean would remove for each age limit.

/// What is removed if all versions older than a limit are.
struct Loss {
  std::uint64_t versions = 0;
  std::uint64_t documents = 0;  ///< documents without a remaining version
  std::uint64_t bytes = 0;      ///< with sub-parts
};

/// An age limit of the curves, and its spelling on the command line.
struct AgeLimit {
  std::int64_t seconds;
  std::string_view name;  ///< "30d"
};
std::span<const AgeLimit> age_limits();

struct Curve {
  std::string owner;  ///< the owner folder's name; empty for all
  Loss there;         ///< the total
  /// What is removed, one for each of age_limits().
  std::vector<Loss> losses;
};

/// The scope must be one area; the default is "docs".
struct ForecastOptions : WalkOptions {
  bool by_access = false;
  std::int64_t now = 0;
};

/// The age limit that reduces the size to a target.
struct LimitFor {
  /// The longest limit that reaches the target: in whole days; below two days in hours or seconds.
  /// Nothing if no limit is needed, or if the youngest versions alone are too large.
  std::optional<std::int64_t> limit;
  Loss loss;                 ///< what is removed with it
  std::uint64_t kept = 0;    ///< the bytes that stay
  bool is_needless = false;  ///< the size does not exceed the target
};

class Forecast {
 public:
  struct Version {
    std::int64_t age;
    std::uint64_t bytes;                       ///< with sub-parts
    std::optional<std::int64_t> document_age;  ///< of one version per document: of its youngest
  };

  const Curve& all() const { return m_all; }
  /// By size, largest first.
  const std::vector<Curve>& owners() const { return m_owners; }
  LimitFor limit_for(std::uint64_t target) const;

 private:
  friend class ForecastSink;

  std::vector<Curve> m_owners;
  Curve m_all;
  std::vector<Version> m_versions;  ///< oldest first
};

/// Adds every version of the scope to @p forecast, which must be empty.
EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast);

}  // namespace admin
