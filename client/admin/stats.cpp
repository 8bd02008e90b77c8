#include "client/admin/stats.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "index/index_format.h"

namespace admin {

namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;

struct AgeGroup {
  std::int64_t limit;
  std::string_view name;
};
constexpr std::array<AgeGroup, 7> kAges = {{{kDay, "up to a day"},
                                            {7 * kDay, "up to a week"},
                                            {30 * kDay, "up to 30 days"},
                                            {90 * kDay, "up to 90 days"},
                                            {365 * kDay, "up to a year"},
                                            {3 * 365 * kDay, "up to three years"},
                                            {INT64_MAX, "older"}}};

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

class StatsVisitor final : public Visitor {
 public:
  StatsVisitor(const StatsOptions& options, Stats& stats) : m_options(options), m_stats(stats) {}

  bool folder(const DocumentFolder& folder) override {
    if (m_options.stop != nullptr && m_options.stop->load()) {
      m_stats.was_stopped = true;
      return false;
    }
    if (m_options.on_folder) m_options.on_folder(folder);
    ++m_stats.folders;
    m_file.area = folder.area;
    m_file.owner = folder.owner;
    if (m_options.by == GroupBy::kOwner) m_current = group(folder.owner);
    if (m_options.by == GroupBy::kArea) m_current = group(name_of(folder.area));
    if (m_options.by == GroupBy::kFolder) m_of_folder = Sum();
    sys::Folder listing;
    const os::Status opened = listing.open(folder.path);
    if (opened.ok()) {
      documents(listing);
    } else if (opened.failure() != os::Failure::kNotFound) {
      ++m_stats.failures;
    }
    if (m_options.by == GroupBy::kFolder) keep_folder({folder.path, m_of_folder});
    return true;
  }

  void stray(Area area, const std::string& path, sys::Kind kind) override {
    if (m_options.by == GroupBy::kArea) m_current = group(name_of(area));
    if (m_options.by == GroupBy::kOwner) m_current = group("");
    m_file.area = area;
    m_file.owner = {};
    if (kind == sys::Kind::kFolder) {
      sys::Folder listing;
      if (listing.open(path).ok()) below(listing, m_stats.strays);
      return;
    }
    const std::size_t at = path.rfind(sys::kSeparator);
    count(std::string_view(path).substr(at + 1), sys::describe(path), m_stats.strays);
  }

  void failed(const std::string&, const os::Status&) override { ++m_stats.failures; }

  void finish() {
    // A group is created with its first folder, which may be empty.
    for (const auto& [name, sum] : m_groups) {
      if (sum.files != 0) m_stats.groups.push_back({name, sum});
    }
    if (m_options.by == GroupBy::kAge) {
      for (std::size_t i = 0; i < kAges.size(); ++i)
        m_stats.groups.push_back({std::string(kAges[i].name), m_ages[i]});
      return;
    }
    std::sort(m_stats.groups.begin(), m_stats.groups.end(), is_larger);
    if (m_options.by != GroupBy::kArea) cut();
  }

 private:
  void documents(sys::Folder& listing) {
    sys::Entry entry;
    while (listing.next(entry)) {
      if (entry.kind == sys::Kind::kFolder) {
        sys::Folder inner;
        if (inner.open_below(listing, entry).ok())
          below(inner, is_unfinished(entry.name) ? m_stats.unfinished : m_stats.parts);
        else
          ++m_stats.failures;
        continue;
      }
      Sum& kind = index_format::is_index_file(entry.name) ? m_stats.indexes : m_stats.documents;
      count(entry.name, listing.describe(entry), kind);
    }
    if (!listing.status().ok()) ++m_stats.failures;
  }

  void below(sys::Folder& listing, Sum& kind) {
    sys::Entry entry;
    while (listing.next(entry)) {
      if (entry.kind == sys::Kind::kFolder) {
        sys::Folder inner;
        if (inner.open_below(listing, entry).ok())
          below(inner, kind);
        else
          ++m_stats.failures;
      } else {
        count(entry.name, listing.describe(entry), kind);
      }
    }
  }

  void count(std::string_view name, const sys::Info& info, Sum& expected) {
    if (info.kind == sys::Kind::kMissing) return;
    Sum& kind = is_unfinished(name) ? m_stats.unfinished : expected;
    const std::string_view extension =
        &kind == &m_stats.unfinished ? kUnfinishedFiles : extension_of(name);
    m_stats.all.add(info.size);
    kind.add(info.size);
    if (m_options.on_file) {
      m_file.extension = extension;
      m_file.size = info.size;
      m_options.on_file(m_file);
    }
    switch (m_options.by) {
      case GroupBy::kArea:
      case GroupBy::kOwner:
        m_current->add(info.size);
        break;
      case GroupBy::kExtension:
        group(extension)->add(info.size);
        break;
      case GroupBy::kAge:
        age_group(m_options.now - info.modify_time).add(info.size);
        break;
      case GroupBy::kFolder:
        m_of_folder.add(info.size);
        break;
    }
  }

  static std::string_view extension_of(std::string_view name) {
    return index_format::is_index_file(name) ? kIndexFiles : index_format::extension_of(name);
  }

  Sum& age_group(std::int64_t age) {
    std::size_t at = 0;
    while (age > kAges[at].limit) ++at;
    return m_ages[at];
  }

  Sum* group(std::string_view name) {
    // Most files have the same extension as the file before.
    if (m_last != nullptr && name == m_last_name) return m_last;
    auto found = m_groups.find(name);
    if (found == m_groups.end()) found = m_groups.emplace(std::string(name), Sum()).first;
    m_last_name = found->first;
    return m_last = &found->second;
  }

  /// Keeps only the largest folders, in a heap.
  void keep_folder(StatsGroup folder) {
    std::vector<StatsGroup>& heap = m_stats.groups;
    heap.push_back(std::move(folder));
    if (m_options.top == 0) return;
    std::push_heap(heap.begin(), heap.end(), is_larger);
    if (heap.size() <= m_options.top) return;
    std::pop_heap(heap.begin(), heap.end(), is_larger);
    leave_out(heap.back());
    heap.pop_back();
  }

  void cut() {
    std::vector<StatsGroup>& groups = m_stats.groups;
    if (m_options.top == 0) return;
    while (groups.size() > m_options.top) {
      leave_out(groups.back());
      groups.pop_back();
    }
  }

  void leave_out(const StatsGroup& group) {
    ++m_stats.other_groups;
    m_stats.others.files += group.sum.files;
    m_stats.others.bytes += group.sum.bytes;
  }

  const StatsOptions& m_options;
  Stats& m_stats;
  CountedFile m_file;
  std::unordered_map<std::string, Sum, TextHash, std::equal_to<>> m_groups;
  std::string_view m_last_name;
  Sum* m_last = nullptr;
  Sum* m_current = nullptr;
  std::array<Sum, kAges.size()> m_ages{};
  Sum m_of_folder;
};

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

bool is_larger(const StatsGroup& one, const StatsGroup& other) {
  if (one.sum.bytes != other.sum.bytes) return one.sum.bytes > other.sum.bytes;
  if (one.sum.files != other.sum.files) return one.sum.files > other.sum.files;
  return one.name < other.name;
}

std::vector<std::string> age_group_names() {
  std::vector<std::string> names;
  for (const AgeGroup& group : kAges) names.emplace_back(group.name);
  return names;
}

TreeStatus status_of(const Tree& tree) {
  TreeStatus status;
  for (const Area area : kAreas) {
    const std::string path = tree.folder_of(area);
    status.areas[static_cast<std::size_t>(area)].exists =
        sys::describe(path).kind == sys::Kind::kFolder;
  }
  StatusVisitor visitor(status);
  walk(tree, Scope(), visitor);
  return status;
}

Stats collect_stats(const Tree& tree, const StatsOptions& options) {
  Stats stats;
  StatsVisitor visitor(options, stats);
  walk(tree, options.scope, visitor);
  visitor.finish();
  return stats;
}

// ---- the space that a tree takes ---------------------------------------------------------------

namespace {

using ByName = std::map<std::string, Sum, std::less<>>;

void add(Sum& sum, const Sum& more) {
  sum.files += more.files;
  sum.bytes += more.bytes;
}

GroupedSpace grouped(const ByName& sums, std::size_t top) {
  GroupedSpace result;
  for (const auto& [name, sum] : sums) result.groups.push_back({name, sum});
  std::sort(result.groups.begin(), result.groups.end(), is_larger);
  while (top != 0 && result.groups.size() > top) {
    ++result.other_groups;
    add(result.others, result.groups.back().sum);
    result.groups.pop_back();
  }
  return result;
}

/// Sorts the children and merges the small ones.
void settle(SpaceNode& node, std::size_t most) {
  std::sort(node.children.begin(), node.children.end(),
            [](const SpaceNode& one, const SpaceNode& other) {
              return is_larger({one.name, one.sum}, {other.name, other.sum});
            });
  for (const SpaceNode& child : node.children) add(node.sum, child.sum);
  if (node.children.size() <= most) return;
  SpaceNode rest;
  rest.merged = node.children.size() - most + 1;
  for (std::size_t i = most - 1; i < node.children.size(); ++i) add(rest.sum, node.children[i].sum);
  node.children.resize(most - 1);
  node.children.push_back(std::move(rest));
}

class Survey {
 public:
  void count(const CountedFile& file) {
    ByOwner& owners = m_areas[file.area];
    auto owner = owners.find(file.owner);
    if (owner == owners.end()) owner = owners.emplace(std::string(file.owner), ByName()).first;
    auto extension = owner->second.find(file.extension);
    if (extension == owner->second.end())
      extension = owner->second.emplace(std::string(file.extension), Sum()).first;
    extension->second.add(file.size);
  }

  void finish(const SpaceOptions& options, Space& space) const {
    ByName areas;
    ByName by_owner;
    ByName by_extension;
    for (const auto& [area, owners] : m_areas) {
      SpaceNode of_area;
      of_area.name = name_of(area);
      for (const auto& [owner, extensions] : owners) {
        SpaceNode of_owner;
        of_owner.name = owner;
        for (const auto& [extension, sum] : extensions) {
          of_owner.children.push_back({extension, sum, 0, {}});
          add(areas[of_area.name], sum);
          add(by_owner[owner], sum);
          add(by_extension[extension], sum);
        }
        settle(of_owner, options.extensions);
        of_area.children.push_back(std::move(of_owner));
      }
      settle(of_area, options.owners);
      space.all.children.push_back(std::move(of_area));
    }
    settle(space.all, kAreas.size());
    space.areas = grouped(areas, 0);
    space.owners = grouped(by_owner, options.top);
    space.extensions = grouped(by_extension, options.top);
  }

 private:
  using ByOwner = std::map<std::string, ByName, std::less<>>;
  std::map<Area, ByOwner> m_areas;
};

}  // namespace

Space survey_space(const Tree& tree, const SpaceOptions& options) {
  Space space;
  Survey survey;
  StatsOptions asked = options.stats;
  asked.by = GroupBy::kAge;
  asked.on_file = [&](const CountedFile& file) { survey.count(file); };
  space.stats = collect_stats(tree, asked);
  survey.finish(options, space);
  return space;
}

// ---- what a clean would remove ------------------------------------------------------------------

namespace {

constexpr std::int64_t kYear = 365 * kDay;

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

class ForecastSink final : public InventorySink {
 public:
  ForecastSink(const ForecastOptions& options, const FailureSink& failed, Forecast& forecast)
      : m_options(options), m_failed(failed), m_forecast(forecast) {}
  bool holding(const Holding& holding) override {
    m_forecast.add(holding, m_options);
    return true;
  }
  void failed(const std::string& location, const std::string& why) override {
    m_failed(location, why);
  }

 private:
  const ForecastOptions& m_options;
  const FailureSink& m_failed;
  Forecast& m_forecast;
};

}  // namespace

std::span<const AgeLimit> age_limits() { return kLimits; }

void Forecast::add(const Holding& holding, const ForecastOptions& options) {
  if (holding.kind == HoldingKind::kPart) {
    m_bytes += holding.info.size;
    return;
  }
  end_version();
  const bool is_same_document = m_version && m_version->owner == holding.owner &&
                                m_version->bucket == holding.bucket &&
                                m_version->name == holding.name;
  if (m_version && !is_same_document) end_document();
  if (m_owners.empty() || m_owners.back().owner != holding.owner)
    m_owners.push_back({holding.owner, {}, std::vector<Loss>(kLimits.size())});
  m_age = options.now - (options.by_access ? holding.info.access_time : holding.info.modify_time);
  m_bytes = holding.info.size;
  m_youngest = is_same_document ? std::min(m_youngest, m_age) : m_age;
  m_version = holding;
}

void Forecast::count(Curve& curve, std::int64_t age, std::uint64_t Loss::*what,
                     std::uint64_t amount) {
  curve.there.*what += amount;
  for (std::size_t i = 0; i < kLimits.size() && age > kLimits[i].seconds; ++i)
    curve.losses[i].*what += amount;
}

void Forecast::end_version() {
  if (!m_version) return;
  m_versions.push_back({m_age, m_bytes});
  count(m_owners.back(), m_age, &Loss::versions, 1);
  count(m_owners.back(), m_age, &Loss::bytes, m_bytes);
}

void Forecast::end_document() {
  m_documents.push_back(m_youngest);
  count(m_owners.back(), m_youngest, &Loss::documents, 1);
}

void Forecast::finish() {
  end_version();
  if (m_version) end_document();
  m_version.reset();
  m_all.losses.resize(kLimits.size());
  const auto add = [](Loss& sum, const Loss& loss) {
    sum.versions += loss.versions;
    sum.documents += loss.documents;
    sum.bytes += loss.bytes;
  };
  for (const Curve& curve : m_owners) {
    add(m_all.there, curve.there);
    for (std::size_t i = 0; i < kLimits.size(); ++i) add(m_all.losses[i], curve.losses[i]);
  }
  std::sort(m_owners.begin(), m_owners.end(), [](const Curve& one, const Curve& other) {
    if (one.there.bytes != other.there.bytes) return one.there.bytes > other.there.bytes;
    return one.owner < other.owner;
  });
  std::sort(m_versions.begin(), m_versions.end(),
            [](const Aged& one, const Aged& other) { return one.age > other.age; });
}

Loss Forecast::loss_beyond(std::int64_t limit) const {
  Loss loss;
  for (const Aged& each : m_versions) {
    if (each.age <= limit) break;
    ++loss.versions;
    loss.bytes += each.bytes;
  }
  loss.documents = static_cast<std::uint64_t>(std::count_if(
      m_documents.begin(), m_documents.end(), [limit](std::int64_t age) { return age > limit; }));
  return loss;
}

LimitFor Forecast::limit_for(std::uint64_t target) const {
  LimitFor result;
  result.kept = m_all.there.bytes;
  result.is_needless = result.kept <= target;
  if (result.is_needless) return result;
  std::uint64_t kept = m_all.there.bytes;
  for (const Aged& each : m_versions) {
    kept -= each.bytes;
    if (kept > target) continue;
    // This version must be removed, so the limit is below its age.
    const std::int64_t most = each.age - 1;
    if (most < 0) return result;
    const std::int64_t unit = most >= 2 * kDay ? kDay : most >= 2 * kHour ? kHour : 1;
    result.limit = most / unit * unit;
    result.loss = loss_beyond(*result.limit);
    result.kept = m_all.there.bytes - result.loss.bytes;
    return result;
  }
  return result;
}

EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast) {
  InventoryOptions asked;
  asked.scope = options.scope;
  if (!asked.scope.area) asked.scope.area = Area::kDocs;
  asked.locking = options.locking;
  asked.stop = options.stop;
  asked.on_folder = options.on_folder;
  ForecastSink sink(options, failed, forecast);
  const EntryFailures failures = take_inventory(tree, asked, sink);
  forecast.finish();
  return failures;
}

}  // namespace admin
