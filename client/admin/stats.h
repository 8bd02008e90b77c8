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

/// Where the space of a tree goes: areas, in them owners, in them extensions. Small siblings are
/// counted together, so that the size of it does not grow with the tree.
struct SpaceNode {
  std::string name;  ///< bytes; may be empty (no owner, no extension)
  Sum sum;
  std::uint64_t merged = 0;         ///< of siblings counted together: how many; else 0
  std::vector<SpaceNode> children;  ///< by size, largest first; merged ones last
};

/// Groups as collect_stats() gives them: the largest, and the rest together.
struct GroupedSpace {
  std::vector<StatsGroup> groups;
  std::uint64_t other_groups = 0;
  Sum others;
};

struct SpaceOptions {
  StatsOptions stats;          ///< ages are grouped, whatever it says
  std::size_t top = 20;        ///< groups of owners and extensions
  std::size_t owners = 12;     ///< of each area in the hierarchy
  std::size_t extensions = 5;  ///< of each owner in the hierarchy
};

struct Space {
  Stats stats;  ///< with the ages as groups
  GroupedSpace areas;
  GroupedSpace owners;
  GroupedSpace extensions;
  SpaceNode all;
};

/// Adds up a tree once and groups it in every way.
Space survey_space(const Tree& tree, const SpaceOptions& options);

// ---- what a cleaning would free ----------------------------------------------------------------
//
// What a cleaning would free: the versions of a tree by their ages.

/// What goes when every version older than a limit is removed.
struct Loss {
  std::uint64_t versions = 0;
  std::uint64_t documents = 0;  ///< of which no version is left
  std::uint64_t bytes = 0;      ///< parts included
};

/// The limits that curves are drawn at, from short to long, and how they are typed.
struct AgeLimit {
  std::int64_t seconds;
  std::string_view name;  ///< "30d"
};
std::span<const AgeLimit> age_limits();

/// The curve of one owner, or of all.
struct Curve {
  std::string owner;  ///< the owner folder's name; empty for all
  Loss there;         ///< what there is
  /// What goes, limit by limit.
  std::vector<Loss> losses;
};

struct ForecastOptions {
  Scope scope;  ///< one area: "docs" when none is said
  bool by_access = false;
  std::int64_t now = 0;
  sys::Locking locking;
  const std::atomic<bool>* stop = nullptr;
  std::function<void(const DocumentFolder&)> on_folder;
};

/// The age limit that brings the size down to a target.
struct LimitFor {
  /// The longest limit in whole days that does, or in hours or seconds below two days; nothing when
  /// none is needed, or when the youngest versions alone are too large.
  std::optional<std::int64_t> limit;
  Loss loss;                 ///< what goes then
  std::uint64_t kept = 0;    ///< the bytes that stay
  bool is_needless = false;  ///< the size is below the target as it is
};

class Forecast {
 public:
  /// Takes one version, or a part of the last one.
  void add(const Holding& holding, const ForecastOptions& options);
  /// After the last one.
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
  std::vector<Aged> m_versions;           ///< from old to young once finished
  std::vector<std::int64_t> m_documents;  ///< the age of the youngest version of each
  std::optional<Holding> m_version;
  std::int64_t m_age = 0;
  std::uint64_t m_bytes = 0;
  std::int64_t m_youngest = 0;
};

/// Looks at every version of the scope.
EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast);

}  // namespace admin
