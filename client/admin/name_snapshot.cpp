#include "client/admin/name_snapshot.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "client/admin/text.h"
#include "file/replacement.h"
#include "index/index_format.h"

namespace admin {

namespace {

using names_format::SavedIndex;
using names_format::SavedIndexes;

/// Reads one index after the other.
class SnapshotVisitor final : public Visitor {
 public:
  SnapshotVisitor(const Tree& tree, const SavedIndexes& before, const SnapshotOptions& options,
                  const KeepText& keep, const FailureSink& failed)
      : m_tree(tree), m_before(before), m_options(options), m_keep(keep), m_failed(failed) {
    for (const auto& [name, index] : before) m_known.emplace(index.digest.low, index);
  }

  bool folder(const DocumentFolder& folder) override {
    if (m_options.stop != nullptr && m_options.stop->load()) {
      m_taken.was_stopped = true;
      return false;
    }
    if (m_options.on_folder) m_options.on_folder(folder);
    m_path.assign(folder.path).push_back(sys::kSeparator);
    m_path += index_format::kIndexFile;
    const os::Status read = sys::read_file(m_path, m_options.locking, m_bytes);
    if (read.ok()) {
      m_text = replacement::text_of(m_bytes, m_saved_text);
      take(saved_name_of(m_tree, folder.path));
    } else if (read.failure() != os::Failure::kNotFound) {
      m_taken.lock_missed = m_taken.lock_missed || read.failure() == os::Failure::kLocked;
      leave(saved_name_of(m_tree, folder.path));
      m_failed(m_path, read.failure() == os::Failure::kLocked ? "locked elsewhere (--lock-timeout)"
                                                              : sys::text_of(read));
    }
    return true;
  }

  void failed(const std::string& path, const os::Status& status) override {
    // Nothing is known about what lies below.
    const std::string below = saved_name_of(m_tree, path) + "/";
    for (auto at = m_before.lower_bound(below); at != m_before.end(); ++at) {
      if (!at->first.starts_with(below)) break;
      leave(at->first);
    }
    m_failed(path, sys::text_of(status));
  }

  TakenIndexes take_all() { return std::move(m_taken); }

 private:
  void take(std::string name) {
    const auto earlier = m_before.find(name);
    const names_format::Digest digest = names_format::digest_of(m_text);
    const bool has_earlier = earlier != m_before.end();
    if (has_earlier && earlier->second.digest == digest) {
      m_taken.indexes.insert_or_assign(std::move(name), earlier->second);
      return;
    }
    // The same text somewhere else: an owner who was renamed, one of many empty indexes.
    auto known = m_known.find(digest.low);
    if (known == m_known.end() || known->second.digest != digest) {
      const SavedIndex kept = m_keep(m_text, has_earlier ? &earlier->second : nullptr);
      known = m_known.insert_or_assign(digest.low, kept).first;
    }
    m_taken.indexes.insert_or_assign(std::move(name), known->second);
  }

  /// Keeps what was known about an index.
  void leave(const std::string& name) {
    const auto earlier = m_before.find(name);
    ++m_taken.unread;
    if (earlier != m_before.end()) m_taken.indexes.insert(*earlier);
  }

  const Tree& m_tree;
  const SavedIndexes& m_before;
  const SnapshotOptions& m_options;
  const KeepText& m_keep;
  const FailureSink& m_failed;
  TakenIndexes m_taken;
  std::unordered_map<std::uint64_t, SavedIndex> m_known;
  std::string m_path;
  std::string m_bytes;
  std::string m_saved_text;  ///< of an interrupted save
  std::string_view m_text;   ///< what the bytes stand for
};

}  // namespace

std::string saved_name_of(const Tree& tree, std::string_view folder) {
  std::string name(folder.substr(std::min(folder.size(), tree.storage.size() + 1)));
  if (sys::kSeparator != '/') std::replace(name.begin(), name.end(), sys::kSeparator, '/');
  return name;
}

std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name) {
  std::vector<std::string_view> parts;
  for (std::string_view rest = name; !rest.empty();) {
    const std::size_t end = std::min(rest.find('/'), rest.size());
    parts.push_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  DocumentFolder folder;
  const auto area = parts.empty() ? std::nullopt : area_named(parts.front());
  if (!area) return std::nullopt;
  folder.area = *area;
  folder.path = tree.folder_of(*area);
  const bool has_owner = tree.layout != Layout::kFlat && *area != Area::kSemlets;
  const bool has_bucket = *area == Area::kDocs;
  if (parts.size() != 1U + (has_owner ? 1U : 0U) + (has_bucket ? 1U : 0U)) return std::nullopt;
  if (has_owner) folder.owner = parts[1];
  if (has_bucket) folder.bucket = parts.back();
  if (has_owner && why_not_safe(folder.owner) != nullptr) return std::nullopt;
  if (has_bucket && !is_bucket_name(folder.bucket)) return std::nullopt;
  for (std::size_t i = 1; i < parts.size(); ++i) folder.path = sys::join(folder.path, parts[i]);
  return folder;
}

TakenIndexes take_indexes(const Tree& tree, const names_format::SavedIndexes& before,
                          const SnapshotOptions& options, const KeepText& keep,
                          const FailureSink& failed) {
  SnapshotVisitor visitor(tree, before, options, keep, failed);
  walk(tree, {}, visitor);
  return visitor.take_all();
}

}  // namespace admin
