#include "client/admin/stats.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_map>

#include "client/admin/folder_view.h"
#include "client/admin/staging_folder.h"
#include "index/index_format.h"

namespace admin {

namespace {

constexpr std::int64_t kDay = 86'400;

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
    // A group is made when its first folder is met, which may be empty.
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
    // Most files of a folder have the extension of the one before.
    if (m_last != nullptr && name == m_last_name) return m_last;
    auto found = m_groups.find(name);
    if (found == m_groups.end()) found = m_groups.emplace(std::string(name), Sum()).first;
    m_last_name = found->first;
    return m_last = &found->second;
  }

  /// Folders are too many to be kept all: a heap of the largest.
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

Stats collect_stats(const Tree& tree, const StatsOptions& options) {
  Stats stats;
  StatsVisitor visitor(options, stats);
  walk(tree, options.scope, visitor);
  visitor.finish();
  return stats;
}

}  // namespace admin
