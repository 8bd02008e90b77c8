#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/entries.h"
#include "client/admin/tree.h"

namespace admin {

enum class GroupBy : std::uint8_t { kArea, kOwner, kExtension, kAge, kFolder };

/// A number of files and the sum of their sizes.
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

/// Used instead of an extension for files that are not documents.
inline constexpr std::string_view kIndexFiles = "(index)";
inline constexpr std::string_view kUnfinishedFiles = "(unfinished)";

/// One counted file. The views are valid only during the call.
struct CountedFile {
  Area area = Area::kDocs;
  std::string_view owner;      ///< the owner folder's name; may be empty
  std::string_view extension;  ///< with its dot, or kIndexFiles, or kUnfinishedFiles
  std::uint64_t size = 0;
};

struct StatsOptions {
  Scope scope;
  GroupBy by = GroupBy::kArea;
  /// Keep only so many groups, the largest ones; 0: all. Does not apply to ages and areas.
  std::size_t top = 20;
  std::int64_t now = 0;  ///< the time from which ages are computed, seconds since 1970
  const std::atomic<bool>* stop = nullptr;
  /// Called for each folder before it is read.
  std::function<void(const DocumentFolder&)> on_folder = {};
  /// Called for each file, whatever the groups are.
  std::function<void(const CountedFile&)> on_file = {};
};

struct Stats {
  Sum all;
  Sum documents;                   ///< files in document folders
  Sum parts;                       ///< files in folders below document folders
  Sum indexes;                     ///< indexes and their counters
  Sum unfinished;                  ///< unfinished files of the client
  Sum strays;                      ///< files where only folders belong
  std::uint64_t folders = 0;       ///< document folders
  std::uint64_t failures = 0;      ///< folders that could not be listed
  std::uint64_t other_groups = 0;  ///< number of groups that were left out
  Sum others;                      ///< their files
  /// By size, largest first; ages: youngest first.
  std::vector<StatsGroup> groups;
  bool was_stopped = false;
};

/// Whether one group precedes another: by size, then number of files, then name.
bool is_larger(const StatsGroup& one, const StatsGroup& other);

/// The names of the age groups, youngest first: "up to a day", ...
std::vector<std::string> age_group_names();

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

/// The largest groups, and the sum of all others.
struct GroupedSpace {
  std::vector<StatsGroup> groups;
  std::uint64_t other_groups = 0;
  Sum others;
};

struct SpaceOptions {
  StatsOptions stats;          ///< its `by` is ignored: groups are ages
  std::size_t top = 20;        ///< groups of owners and extensions
  std::size_t owners = 12;     ///< of each area in the hierarchy
  std::size_t extensions = 5;  ///< of each owner in the hierarchy
};

struct Space {
  Stats stats;  ///< grouped by age
  GroupedSpace areas;
  GroupedSpace owners;
  GroupedSpace extensions;
  SpaceNode all;
};

/// Reads a tree once and groups it in every way.
Space survey_space(const Tree& tree, const SpaceOptions& options);

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

struct ForecastOptions {
  Scope scope;  ///< one area; the default is "docs"
  bool by_access = false;
  std::int64_t now = 0;
  sys::Locking locking;
  const std::atomic<bool>* stop = nullptr;
  std::function<void(const DocumentFolder&)> on_folder;
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
  /// Adds a version, or a sub-part of the version that was added last.
  void add(const Holding& holding, const ForecastOptions& options);
  /// Call after the last add().
  void finish();

  const Curve& all() const { return m_all; }
  /// By size, largest first.
  const std::vector<Curve>& owners() const { return m_owners; }
  LimitFor limit_for(std::uint64_t target) const;

 private:
  struct Aged {
    std::int64_t age;
    std::uint64_t bytes;
  };
  static void count(Curve& curve, std::int64_t age, std::uint64_t Loss::*what,
                    std::uint64_t amount);
  void end_version();
  void end_document();
  Loss loss_beyond(std::int64_t limit) const;

  std::vector<Curve> m_owners;
  Curve m_all;
  std::vector<Aged> m_versions;           ///< oldest first after finish()
  std::vector<std::int64_t> m_documents;  ///< the age of each document's youngest version
  std::optional<Holding> m_version;
  std::int64_t m_age = 0;
  std::uint64_t m_bytes = 0;
  std::int64_t m_youngest = 0;
};

/// Adds every version of the scope to @p forecast, and finishes it.
EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast);

}  // namespace admin
