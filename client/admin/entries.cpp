#include "client/admin/entries.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/text.h"
#include "index/index_format.h"

namespace admin {

namespace {

class EntryVisitor final : public Visitor {
 public:
  EntryVisitor(const EntryQuery& query, const EntrySink& sink, const FailureSink& failed)
      : m_query(query), m_sink(sink), m_failed(failed) {
    m_needs_info = query.with_info || query.least_size || query.most_size || query.modified_after ||
                   query.modified_before;
    m_wants_missing = query.with_missing || query.state == EntryState::kMissing;
  }

  bool folder(const DocumentFolder& folder) override {
    m_view.load(folder, m_query.locking);
    const os::Status& listed = m_view.status();
    if (!listed.ok()) {
      if (listed.failure() != os::Failure::kNotFound) failed(folder.path, listed);
      return true;
    }
    const IndexState state = m_view.index_state();
    if (state == IndexState::kLocked || state == IndexState::kFailed)
      failed(m_view.path_of(index_format::kIndexFile), m_view.index_status());
    return state == IndexState::kLocked || (lines() && files());
  }

  void failed(const std::string& path, const os::Status& status) override {
    ++m_failures.folders;
    m_failures.lock_missed |= status.failure() == os::Failure::kLocked;
    m_failed(path, sys::reason_of(status));
  }

  const EntryFailures& failures() const { return m_failures; }

 private:
  bool lines() {
    m_lint.emplace(m_view);
    for (const LintedLine& line : *m_lint) {
      if (line.verdict != Verdict::kEntry && line.verdict != Verdict::kNoFile) continue;
      const bool has_file = line.verdict == Verdict::kEntry && line.has_file;
      if (!has_file && !m_wants_missing) continue;
      const EntryState state = has_file ? EntryState::kIndexed : EntryState::kMissing;
      m_entry = {&m_view.folder(), state, line.logical, line.timestamp, line.stored, line.file, {}};
      if (!offer()) return false;
    }
    return true;
  }

  bool files() {
    if (m_query.state && *m_query.state != EntryState::kUnindexed) return true;
    std::uint32_t number = 0;
    for (const Name& name : m_view.names()) {
      const std::uint32_t listed = number++;
      if (name.kind != sys::Kind::kFile || m_lint->is_claimed(listed) ||
          index_format::is_index_file(name.text) || is_unfinished(name.text))
        continue;
      m_entry = {&m_view.folder(), EntryState::kUnindexed, name.text, 0, name.text, name.text, {}};
      if (!offer()) return false;
    }
    return true;
  }

  bool offer() {
    if (!matches_name()) return true;
    if (m_needs_info) {
      m_entry.info = m_entry.state == EntryState::kMissing
                         ? sys::Info()
                         : sys::describe(m_view.path_of(m_entry.file));
      if (!matches_info()) return true;
    }
    return m_sink(m_entry);
  }

  bool matches_name() const {
    const EntryView& entry = m_entry;
    if (m_query.state && *m_query.state != entry.state) return false;
    if (m_query.timestamp && *m_query.timestamp != entry.timestamp) return false;
    if (m_query.logical && *m_query.logical != entry.logical) return false;
    if (m_query.extension) {
      const std::string_view extension = index_format::extension_of(entry.logical);
      if (extension.empty() || extension.substr(1) != *m_query.extension) return false;
    }
    return !m_query.pattern || matches(*m_query.pattern, entry.logical);
  }

  bool matches_info() const {
    const sys::Info& info = m_entry.info;
    if (m_query.least_size && info.size < *m_query.least_size) return false;
    if (m_query.most_size && info.size > *m_query.most_size) return false;
    if (m_query.modified_after && info.modify_time <= *m_query.modified_after) return false;
    return !m_query.modified_before || info.modify_time < *m_query.modified_before;
  }

  const EntryQuery& m_query;
  const EntrySink& m_sink;
  const FailureSink& m_failed;
  EntryFailures m_failures;
  FolderView m_view;
  std::optional<IndexLint> m_lint;
  EntryView m_entry;
  bool m_needs_info = false;
  bool m_wants_missing = false;
};

/// The only folder that can contain the entry, if the query names the owner and the entry.
std::optional<DocumentFolder> only_folder(const Tree& tree, const EntryQuery& query) {
  if (!query.logical || !query.scope.area) return std::nullopt;
  if (*query.scope.area != Area::kDocs) return std::nullopt;
  if (tree.layout != Layout::kFlat && !query.scope.owner) return std::nullopt;
  return folder_for(tree, Area::kDocs, query.scope.owner.value_or(""), *query.logical);
}

}  // namespace

EntryFailures for_each_entry(const Tree& tree, const EntryQuery& query, const EntrySink& sink,
                             const FailureSink& failed) {
  EntryVisitor visitor(query, sink, failed);
  const std::optional<DocumentFolder> folder = only_folder(tree, query);
  const bool ended = folder ? visitor.folder(*folder) : walk(tree, query, visitor);
  EntryFailures failures = visitor.failures();
  failures.was_stopped = !ended && query.is_stopped();
  return failures;
}

// ---- inventories -------------------------------------------------------------------------------

namespace {

constexpr const char* kLink = "a link: stgctl does not follow it";
constexpr const char* kUnfinished = "unfinished: stgctl was killed while it wrote this";

/// An entry of the current folder.
struct Version {
  std::string name;
  std::int32_t timestamp;
  std::string file;
  std::string key;
  std::vector<std::string> part_folders;
};

class Inventory final : public Visitor {
 public:
  Inventory(const WalkOptions& options, InventorySink& sink) : m_options(options), m_sink(sink) {}

  EntryFailures take(const Tree& tree) {
    WalkOptions all;
    all.scope = m_options.scope;
    walk(tree, all, *this);
    for (const DocumentFolder& folder : m_folders) {
      if (!list(folder)) break;
    }
    return m_failures;
  }

  bool folder(const DocumentFolder& folder) override {
    m_folders.push_back(folder);
    return true;
  }
  void stray(Area, const std::string& path, sys::Kind) override {
    m_sink.left_out(path, "it does not belong at this place");
  }
  void failed(const std::string& path, const os::Status& status) override {
    ++m_failures.folders;
    m_failures.lock_missed |= status.failure() == os::Failure::kLocked;
    m_sink.failed(path, sys::reason_of(status));
  }

 private:
  bool list(const DocumentFolder& folder) {
    if (is_stopped()) return false;
    if (m_options.on_folder) m_options.on_folder(folder);
    m_holding = Holding();
    m_holding.area = folder.area;
    m_holding.owner = folder.owner;
    m_holding.bucket = folder.bucket;
    if (!expects_index(folder.area)) {
      m_holding.kind = HoldingKind::kFile;
      return files_below(folder.path, "");
    }
    if (!load(folder)) return true;
    collect_versions();
    collect_parts();
    return hand_on_versions();
  }

  bool is_stopped() {
    m_failures.was_stopped = m_options.is_stopped();
    return m_failures.was_stopped;
  }

  bool load(const DocumentFolder& folder) {
    m_view.load(folder, m_options.locking);
    if (!m_view.status().ok()) {
      if (m_view.status().failure() != os::Failure::kNotFound) failed(folder.path, m_view.status());
      return false;
    }
    const IndexState state = m_view.index_state();
    if (state != IndexState::kLocked && state != IndexState::kFailed) return true;
    failed(m_view.path_of(index_format::kIndexFile), m_view.index_status());
    return false;
  }

  void collect_versions() {
    m_versions.clear();
    m_lint.emplace(m_view);
    for (const LintedLine& line : *m_lint) {
      if (line.verdict == Verdict::kUnknown) {
        ++m_failures.folders;
        m_sink.failed(m_view.path_of(line.stored),
                      "unknown entry: the system could not check whether its file exists");
      }
      if (line.verdict != Verdict::kEntry || !line.has_file) continue;
      m_versions.push_back({std::string(line.logical),
                            line.timestamp,
                            std::string(line.file),
                            std::string(line.key),
                            {}});
    }
    std::ranges::sort(m_versions, {}, [](const Version& each) {
      return std::tie(each.name, each.timestamp, each.key);
    });
  }

  /// Assigns each sub-part folder to its document. Passes to left_out() what is not content: other
  /// folders, orphans, links and unfinished files.
  void collect_parts() {
    std::unordered_map<std::string_view, Version*> by_file;
    for (Version& version : m_versions) by_file.emplace(version.file, &version);
    std::uint32_t number = 0;
    for (const Name& name : m_view.names()) {
      const std::uint32_t listed = number++;
      if (index_format::is_index_file(name.text)) continue;
      if (is_unfinished(name.text)) {
        m_sink.left_out(m_view.path_of(name.text), kUnfinished);
        continue;
      }
      if (name.kind == sys::Kind::kFolder) {
        const std::uint32_t document = m_view.document_of(name.text);
        const auto owner = document == FolderView::kNone
                               ? by_file.end()
                               : by_file.find(m_view.names()[document].text);
        if (owner != by_file.end()) {
          owner->second->part_folders.emplace_back(name.text);
        } else {
          m_sink.left_out(m_view.path_of(name.text), "a folder that belongs to no document");
        }
      } else if (name.kind == sys::Kind::kLink && !m_lint->is_claimed(listed)) {
        m_sink.left_out(m_view.path_of(name.text), kLink);
      } else if (!m_lint->is_claimed(listed)) {
        m_sink.left_out(m_view.path_of(name.text), "orphan: no entry names it");
      }
    }
    for (Version& version : m_versions) std::ranges::sort(version.part_folders);
  }

  bool hand_on_versions() {
    for (const Version& version : m_versions) {
      if (is_stopped()) return false;
      m_holding.kind = HoldingKind::kVersion;
      m_holding.name = version.name;
      m_holding.timestamp = version.timestamp;
      m_holding.out_of_reach = why_out_of_reach(version);
      if (!hand_on(m_view.path_of(version.file), "", "the entry's file is not a plain file"))
        return false;
      if (m_holding.info.kind != sys::Kind::kFile) continue;
      m_holding.kind = HoldingKind::kPart;
      for (const std::string& folder : version.part_folders) {
        if (!files_below(m_view.path_of(folder), folder.substr(version.file.size()))) return false;
      }
    }
    return true;
  }

  const char* why_out_of_reach(const Version& version) const {
    if (m_holding.area == Area::kDocs && bucket_of(version.name) != m_holding.bucket)
      return "it is in another bucket than its name requires";
    if (index_format::key_of(version.name, version.timestamp) != version.key)
      return "its key in the index does not have the form that the library writes";
    return nullptr;
  }

  /// Passes on every file below a folder. @param path the folder's path in the holding, may be
  /// empty.
  bool files_below(const std::string& folder, const std::string& path) {
    std::vector<sys::Child> children;
    const os::Status listed = sys::list_sorted(folder, children);
    if (!listed.ok() && listed.failure() != os::Failure::kNotFound) failed(folder, listed);
    for (const sys::Child& child : children) {
      if (is_stopped()) return false;
      const std::string location = sys::join(folder, child.name);
      if (is_unfinished(child.name)) {
        m_sink.left_out(location, kUnfinished);
        continue;
      }
      const std::string child_path = path.empty() ? child.name : path + '/' + child.name;
      if (child.kind == sys::Kind::kFolder) {
        if (!files_below(location, child_path)) return false;
        continue;
      }
      if (child.kind != sys::Kind::kFile) {
        m_sink.left_out(location, child.kind == sys::Kind::kLink ? kLink : "not a plain file");
        continue;
      }
      if (!hand_on(location, child_path, "not a plain file")) return false;
    }
    return true;
  }

  /// Passes on a file, unless it was removed after its name was read.
  bool hand_on(const std::string& location, const std::string& path, const char* why_not) {
    m_holding.path = path;
    m_holding.location = location;
    m_holding.info = sys::describe(location);
    if (m_holding.info.kind == sys::Kind::kFile) return m_sink.holding(m_holding);
    if (m_holding.info.kind != sys::Kind::kMissing) m_sink.left_out(location, why_not);
    return true;
  }

  const WalkOptions& m_options;
  InventorySink& m_sink;
  EntryFailures m_failures;
  std::vector<DocumentFolder> m_folders;
  FolderView m_view;
  std::optional<IndexLint> m_lint;
  std::vector<Version> m_versions;
  Holding m_holding;
};

}  // namespace

std::strong_ordering compare_paths(std::string_view one, std::string_view other) {
  const auto [a, b] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  // The end of a name sorts before every byte of a longer name.
  const auto rank = [](auto at, auto end) {
    return at == end ? -1 : *at == '/' ? 0 : static_cast<int>(static_cast<unsigned char>(*at));
  };
  return rank(a, one.end()) <=> rank(b, other.end());
}

std::strong_ordering operator<=>(const Holding& one, const Holding& other) {
  const auto key = [](const Holding& holding) {
    return std::tie(holding.area, holding.owner, holding.bucket, holding.name, holding.timestamp,
                    holding.kind);
  };
  const std::strong_ordering order = key(one) <=> key(other);
  return order != 0 ? order : compare_paths(one.path, other.path);
}

EntryFailures take_inventory(const Tree& tree, const WalkOptions& options, InventorySink& sink) {
  return Inventory(options, sink).take(tree);
}

}  // namespace admin
