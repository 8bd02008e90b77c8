#include "client/admin/stats.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "index/index_format.h"

namespace admin {

namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;

constexpr std::int64_t kYear = 365 * kDay;

constexpr std::array<AgeLimit, 7> kAges = {{{kDay, "up to a day"},
                                            {7 * kDay, "up to a week"},
                                            {30 * kDay, "up to 30 days"},
                                            {90 * kDay, "up to 90 days"},
                                            {kYear, "up to a year"},
                                            {3 * kYear, "up to three years"},
                                            {INT64_MAX, "older"}}};

/// A file, its place and its kind. The views are valid only during the call.
struct CountedFile {
  Area area = Area::kDocs;
  std::string_view owner;  ///< the owner folder's name; may be empty
  std::string_view folder;
  std::string_view extension;  ///< with its dot; of an index or an unfinished file a word for it
  sys::Info info;
};

/// Adds up all files by their kind, and passes each file on.
class FileVisitor final : public Visitor {
 public:
  using Sink = std::function<void(const CountedFile&)>;
  FileVisitor(Stats& stats, Sink sink) : m_stats(stats), m_sink(std::move(sink)) {}

  bool folder(const DocumentFolder& folder) override {
    ++m_stats.folders;
    m_file = {folder.area, folder.owner, folder.path, {}, {}};
    sys::Folder listing;
    const os::Status opened = listing.open(folder.path);
    if (opened.ok()) {
      count_all(listing, m_stats.documents, m_stats.parts);
    } else if (opened.failure() != os::Failure::kNotFound) {
      ++m_stats.failures;
    }
    return true;
  }

  void stray(Area area, const std::string& path, sys::Kind kind) override {
    const std::string_view all = path;
    const std::size_t at = all.rfind(sys::kSeparator);
    m_file = {area, {}, all.substr(0, at), {}, {}};
    if (kind != sys::Kind::kFolder)
      return count(all.substr(at + 1), sys::describe(path), m_stats.strays);
    sys::Folder listing;
    if (listing.open(path).ok()) count_all(listing, m_stats.strays, m_stats.strays);
  }

  void failed(const std::string&, const os::Status&) override { ++m_stats.failures; }

 private:
  /// Counts the files of a folder as @p here, and those of its sub-folders as @p below.
  void count_all(sys::Folder& listing, Sum& here, Sum& below) {
    sys::Entry entry;
    while (listing.next(entry)) {
      if (entry.kind == sys::Kind::kFolder) {
        Sum& kind = is_unfinished(entry.name) ? m_stats.unfinished : below;
        sys::Folder inner;
        if (inner.open_below(listing, entry).ok()) {
          count_all(inner, kind, kind);
        } else {
          ++m_stats.failures;
        }
      } else {
        count(entry.name, listing.describe(entry), here);
      }
    }
    if (!listing.status().ok()) ++m_stats.failures;
  }

  void count(std::string_view name, const sys::Info& info, Sum& expected) {
    if (info.kind == sys::Kind::kMissing) return;
    if (info.kind == sys::Kind::kUnknown) {
      ++m_stats.failures;
      return;
    }
    const bool is_index = index_format::is_index_file(name);
    Sum& kind = is_unfinished(name)                           ? m_stats.unfinished
                : is_index && &expected == &m_stats.documents ? m_stats.indexes
                                                              : expected;
    m_stats.all.add(info.size);
    kind.add(info.size);
    m_file.extension = &kind == &m_stats.unfinished ? "(unfinished)"
                       : is_index                   ? "(index)"
                                                    : index_format::extension_of(name);
    m_file.info = info;
    m_sink(m_file);
  }

  Stats& m_stats;
  Sink m_sink;
  CountedFile m_file;
};

/// Values by name.
template <class Value>
class ByName {
 public:
  /// The value of a name. Fast for the same name as before.
  Value& of(std::string_view name) {
    if (m_last == nullptr || m_last->first != name) {
      auto found = m_all.find(name);
      if (found == m_all.end()) found = m_all.emplace(std::string(name), Value()).first;
      m_last = &*found;
    }
    return m_last->second;
  }
  const std::map<std::string, Value, std::less<>>& all() const { return m_all; }

 private:
  std::map<std::string, Value, std::less<>> m_all;
  std::pair<const std::string, Value>* m_last = nullptr;
};
using Sums = ByName<Sum>;

/// Whether one group precedes another: by size, then number of files, then name.
bool is_larger(const StatsGroup& one, const StatsGroup& other) {
  return std::tie(other.sum.bytes, other.sum.files, one.name) <
         std::tie(one.sum.bytes, one.sum.files, other.name);
}

/// The largest groups. @param top 0: all.
GroupedSpace largest(const Sums& sums, std::size_t top) {
  GroupedSpace result;
  for (const auto& [name, sum] : sums.all()) result.groups.push_back({name, sum});
  std::ranges::sort(result.groups, is_larger);
  while (top != 0 && result.groups.size() > top) {
    ++result.other_groups;
    result.others += result.groups.back().sum;
    result.groups.pop_back();
  }
  return result;
}

std::string_view age_group(const CountedFile& file, std::int64_t now) {
  const std::int64_t age = now - file.info.modify_time;
  return std::ranges::lower_bound(kAges, age, {}, &AgeLimit::seconds)->name;
}

std::vector<StatsGroup> age_groups(Sums& sums) {
  std::vector<StatsGroup> groups;
  for (const AgeLimit& age : kAges) groups.push_back({std::string(age.name), sums.of(age.name)});
  return groups;
}

std::string_view group_of(const CountedFile& file, const StatsOptions& options) {
  switch (options.by) {
    case GroupBy::kArea: return name_of(file.area);
    case GroupBy::kOwner: return file.owner;
    case GroupBy::kExtension: return file.extension;
    case GroupBy::kAge: return age_group(file, options.now);
    default: return file.folder;
  }
}

class StatusVisitor final : public Visitor {
 public:
  explicit StatusVisitor(TreeStatus& status) : m_status(status) {}

  bool folder(const DocumentFolder& folder) override {
    AreaStatus& area = m_status.areas[static_cast<std::size_t>(folder.area)];
    ++area.folders;
    if (!folder.owner.empty() && (folder.owner != m_owner || folder.area != m_area)) {
      ++area.owners;
      m_owner = folder.owner;
      m_area = folder.area;
    }
    const std::string index = sys::join(folder.path, index_format::kIndexFile);
    if (sys::describe(index).kind == sys::Kind::kFile) ++area.with_index;
    return true;
  }
  void stray(Area area, const std::string&, sys::Kind) override {
    ++m_status.areas[static_cast<std::size_t>(area)].strays;
  }
  void failed(const std::string&, const os::Status&) override { ++m_status.failures; }

 private:
  TreeStatus& m_status;
  std::string m_owner;
  Area m_area = Area::kDocs;
};

}  // namespace

TreeStatus status_of(const Tree& tree) {
  TreeStatus status;
  for (std::size_t i = 0; i < kAreas.size(); ++i) status.areas[i].exists = tree.has_area[i];
  StatusVisitor visitor(status);
  walk(tree, {}, visitor);
  return status;
}

Stats collect_stats(const Tree& tree, const StatsOptions& options) {
  Stats stats;
  Sums sums;
  FileVisitor visitor(stats, [&](const CountedFile& file) {
    sums.of(group_of(file, options)).add(file.info.size);
  });
  WalkOptions asked = options;
  asked.on_folder = [&](const DocumentFolder& folder) {
    // A folder without files is a group, too.
    if (options.by == GroupBy::kFolder) sums.of(folder.path);
    if (options.on_folder) options.on_folder(folder);
  };
  stats.was_stopped = !walk(tree, asked, visitor);
  if (options.by == GroupBy::kAge) {
    stats.groups = age_groups(sums);
  } else {
    const std::size_t top = options.by == GroupBy::kArea ? 0 : options.top;
    static_cast<GroupedSpace&>(stats) = largest(sums, top);
  }
  return stats;
}

// ---- the space that a tree takes ---------------------------------------------------------------

namespace {

/// Sorts the children and merges the small ones.
void settle(SpaceNode& node, std::size_t most) {
  std::ranges::sort(node.children, [](const SpaceNode& one, const SpaceNode& other) {
    return is_larger({one.name, one.sum}, {other.name, other.sum});
  });
  for (const SpaceNode& child : node.children) node.sum += child.sum;
  if (node.children.size() <= most) return;
  SpaceNode rest;
  rest.merged = node.children.size() - most + 1;
  for (std::size_t i = most - 1; i < node.children.size(); ++i) rest.sum += node.children[i].sum;
  node.children.resize(most - 1);
  node.children.push_back(std::move(rest));
}

}  // namespace

Space survey_space(const Tree& tree, const StatsOptions& options) {
  constexpr std::size_t kOwners = 12;
  constexpr std::size_t kExtensions = 5;
  Space space;
  Sums ages;
  std::map<Area, ByName<Sums>> by_area;
  FileVisitor visitor(space.stats, [&](const CountedFile& file) {
    ages.of(age_group(file, options.now)).add(file.info.size);
    by_area[file.area].of(file.owner).of(file.extension).add(file.info.size);
  });
  space.stats.was_stopped = !walk(tree, options, visitor);
  space.stats.groups = age_groups(ages);
  Sums areas;
  Sums by_owner;
  Sums by_extension;
  for (const auto& [area, owners] : by_area) {
    SpaceNode of_area{std::string(name_of(area)), {}, 0, {}};
    for (const auto& [owner, extensions] : owners.all()) {
      SpaceNode of_owner{owner, {}, 0, {}};
      for (const auto& [extension, sum] : extensions.all()) {
        of_owner.children.push_back({extension, sum, 0, {}});
        areas.of(of_area.name) += sum;
        by_owner.of(owner) += sum;
        by_extension.of(extension) += sum;
      }
      settle(of_owner, kExtensions);
      of_area.children.push_back(std::move(of_owner));
    }
    settle(of_area, kOwners);
    space.all.children.push_back(std::move(of_area));
  }
  settle(space.all, kAreas.size());
  space.areas = largest(areas, 0);
  space.owners = largest(by_owner, options.top);
  space.extensions = largest(by_extension, options.top);
  return space;
}

// ---- what a clean would remove ------------------------------------------------------------------

namespace {

constexpr std::array<AgeLimit, 12> kLimits = {{{kDay, "1d"},
                                               {7 * kDay, "7d"},
                                               {14 * kDay, "14d"},
                                               {30 * kDay, "30d"},
                                               {60 * kDay, "60d"},
                                               {90 * kDay, "90d"},
                                               {180 * kDay, "180d"},
                                               {kYear, "1y"},
                                               {2 * kYear, "2y"},
                                               {3 * kYear, "3y"},
                                               {5 * kYear, "5y"},
                                               {10 * kYear, "10y"}}};

Loss loss_beyond(std::span<const Forecast::Version> versions, std::int64_t limit) {
  Loss loss;
  for (const Forecast::Version& each : versions) {
    if (each.document_age && *each.document_age > limit) ++loss.documents;
    if (each.age <= limit) continue;
    ++loss.versions;
    loss.bytes += each.bytes;
  }
  return loss;
}

Curve curve_of(std::string owner, std::span<const Forecast::Version> versions) {
  Curve curve{std::move(owner), loss_beyond(versions, INT64_MIN), {}};
  for (const AgeLimit& limit : kLimits)
    curve.losses.push_back(loss_beyond(versions, limit.seconds));
  return curve;
}

}  // namespace

std::span<const AgeLimit> age_limits() { return kLimits; }

class ForecastSink final : public InventorySink {
 public:
  ForecastSink(const ForecastOptions& options, const FailureSink& failed, Forecast& forecast)
      : m_options(options), m_failed(failed), m_forecast(forecast) {}

  bool holding(const Holding& holding) override {
    std::vector<Forecast::Version>& versions = m_forecast.m_versions;
    const sys::Info& info = holding.info;
    if (holding.kind == HoldingKind::kPart) {
      if (!versions.empty()) versions.back().bytes += info.size;
      return true;
    }
    const std::int64_t age =
        m_options.now - (m_options.by_access ? info.access_time : info.modify_time);
    const bool is_same_owner = !versions.empty() && m_last.owner == holding.owner;
    const bool is_same_document =
        is_same_owner && m_last.bucket == holding.bucket && m_last.name == holding.name;
    if (!is_same_owner) m_starts.emplace_back(holding.owner, versions.size());
    std::int64_t youngest = age;
    if (is_same_document) {
      youngest = std::min(age, *versions.back().document_age);
      versions.back().document_age.reset();
    }
    versions.push_back({age, info.size, youngest});
    m_last = holding;
    return true;
  }

  void failed(const std::string& location, const std::string& why) override {
    m_failed(location, why);
  }

  void finish() {
    const std::span<const Forecast::Version> all = m_forecast.m_versions;
    m_forecast.m_all = curve_of("", all);
    std::size_t end = all.size();
    for (auto start = m_starts.rbegin(); start != m_starts.rend(); ++start) {
      const std::size_t begin = start->second;
      m_forecast.m_owners.push_back(curve_of(start->first, all.subspan(begin, end - begin)));
      end = begin;
    }
    std::ranges::sort(m_forecast.m_owners, [](const Curve& one, const Curve& other) {
      return std::tie(other.there.bytes, one.owner) < std::tie(one.there.bytes, other.owner);
    });
    std::ranges::sort(m_forecast.m_versions, std::greater(), &Forecast::Version::age);
  }

 private:
  const ForecastOptions& m_options;
  const FailureSink& m_failed;
  Forecast& m_forecast;
  /// The first versions of the owners.
  std::vector<std::pair<std::string, std::size_t>> m_starts;
  Holding m_last;  ///< the last version
};

LimitFor Forecast::limit_for(std::uint64_t target) const {
  LimitFor result;
  result.kept = m_all.there.bytes;
  result.is_needless = result.kept <= target;
  if (result.is_needless) return result;
  std::uint64_t kept = m_all.there.bytes;
  for (const Version& each : m_versions) {
    kept -= each.bytes;
    if (kept > target) continue;
    // This version must be removed, so the limit is below its age.
    const std::int64_t most = each.age - 1;
    if (most < 0) return result;
    const std::int64_t unit = most >= 2 * kDay ? kDay : most >= 2 * kHour ? kHour : 1;
    result.limit = most / unit * unit;
    result.loss = loss_beyond(m_versions, *result.limit);
    result.kept = m_all.there.bytes - result.loss.bytes;
    return result;
  }
  return result;
}

EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast) {
  WalkOptions asked = options;
  if (!asked.scope.area) asked.scope.area = Area::kDocs;
  ForecastSink sink(options, failed, forecast);
  const EntryFailures failures = take_inventory(tree, asked, sink);
  sink.finish();
  return failures;
}

}  // namespace admin
