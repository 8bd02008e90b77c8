#include "client/admin/entries.h"

#include <array>

#include "client/admin/staging_folder.h"
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
    if (m_query.stop != nullptr && m_query.stop->load()) {
      m_failures.was_stopped = true;
      return false;
    }
    m_view.load(folder, m_query.locking);
    m_entry.folder = &m_view.folder();
    const os::Status& listed = m_view.status();
    if (!listed.ok()) {
      if (listed.failure() != os::Failure::kNotFound) failed(folder.path, listed);
      return true;
    }
    if (m_view.index_state() == IndexState::kLocked) {
      m_failures.lock_missed = true;
      failed(m_view.path_of(index_format::kIndexFile), m_view.index_status());
      return true;
    }
    if (m_view.index_state() == IndexState::kFailed)
      failed(m_view.path_of(index_format::kIndexFile), m_view.index_status());
    return lines() && files();
  }

  void failed(const std::string& path, const os::Status& status) override {
    ++m_failures.folders;
    const bool locked = status.failure() == os::Failure::kLocked;
    m_failed(path, locked ? "another process holds it locked" : sys::text_of(status));
  }

  const EntryFailures& failures() const { return m_failures; }

 private:
  bool lines() {
    m_lint.start(m_view);
    LintedLine line;
    while (m_lint.next(line)) {
      if (line.verdict != Verdict::kEntry && line.verdict != Verdict::kNoFile) continue;
      const bool has_file = line.verdict == Verdict::kEntry && line.has_file;
      if (!has_file && !m_wants_missing) continue;
      m_entry.state = has_file ? EntryState::kIndexed : EntryState::kMissing;
      m_entry.logical = line.logical;
      m_entry.timestamp = line.timestamp;
      m_entry.stored = line.stored;
      m_entry.file = line.file;
      m_entry.line = line.number;
      if (!offer()) return false;
    }
    return true;
  }

  bool files() {
    if (m_query.state && *m_query.state != EntryState::kUnindexed) return true;
    m_entry.state = EntryState::kUnindexed;
    m_entry.timestamp = 0;
    m_entry.line = 0;
    std::uint32_t number = 0;
    for (const Name& name : m_view.names()) {
      const std::uint32_t listed = number++;
      if (name.kind != sys::Kind::kFile || m_lint.is_claimed(listed) ||
          index_format::is_index_file(name.text) || is_unfinished(name.text))
        continue;
      m_entry.logical = m_entry.stored = m_entry.file = name.text;
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
  IndexLint m_lint;
  EntryView m_entry;
  bool m_needs_info = false;
  bool m_wants_missing = false;
};

/// The one folder that the library would look into, when the query names both owner and entry.
std::optional<DocumentFolder> only_folder(const Tree& tree, const EntryQuery& query) {
  if (!query.logical || !query.scope.area) return std::nullopt;
  if (*query.scope.area != Area::kDocs) return std::nullopt;
  if (tree.layout != Layout::kFlat && !query.scope.owner) return std::nullopt;
  return folder_for(tree, Area::kDocs, query.scope.owner.value_or(""), *query.logical);
}

}  // namespace

std::string_view name_of(EntryState state) {
  constexpr std::array<std::string_view, 3> kNames = {"indexed", "unindexed", "missing"};
  return kNames[static_cast<std::size_t>(state)];
}

EntryFailures for_each_entry(const Tree& tree, const EntryQuery& query, const EntrySink& sink,
                             const FailureSink& failed) {
  EntryVisitor visitor(query, sink, failed);
  if (const std::optional<DocumentFolder> folder = only_folder(tree, query)) {
    visitor.folder(*folder);
  } else {
    walk(tree, query.scope, visitor);
  }
  return visitor.failures();
}

}  // namespace admin
