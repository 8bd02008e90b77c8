#include "client/admin/names.h"

#include <xxhash.h>

#include <algorithm>
#include <unordered_map>

#include "client/admin/text.h"
#include "file/replacement.h"
#include "index/index_format.h"

namespace admin {

Digest digest_of(std::string_view bytes) {
  const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
  return {hash.low64, hash.high64};
}

SavedIndex measure(std::string_view text) {
  SavedIndex index;
  index.size = text.size();
  index.digest = digest_of(text);
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line))
    index.entries += !line.runs_on && line.key.size() >= index_format::kStampLength ? 1U : 0U;
  return index;
}

void compare_indexes(const SavedIndexes& before, const SavedIndexes& now,
                     const std::function<void(const std::string& folder, const SavedIndex* before,
                                              const SavedIndex* now)>& sink) {
  for (const auto& [folder, index] : now) {
    const auto old = before.find(folder);
    if (old == before.end() || old->second.digest != index.digest)
      sink(folder, old == before.end() ? nullptr : &old->second, &index);
  }
  for (const auto& [folder, index] : before) {
    if (!now.contains(folder)) sink(folder, &index, nullptr);
  }
}

Snapshot description_of(Snapshot head, const SavedIndexes& before, const SavedIndexes& now) {
  head.folders = now.size();
  for (const auto& [folder, index] : now) {
    head.entries += index.entries;
    head.bytes += index.size;
  }
  compare_indexes(
      before, now, [&](const std::string&, const SavedIndex* old, const SavedIndex* index) {
        ++(old == nullptr ? head.added : index == nullptr ? head.removed : head.changed);
      });
  return head;
}

// ---- taking a snapshot -------------------------------------------------------------------------

namespace {

class SnapshotVisitor final : public Visitor {
 public:
  SnapshotVisitor(const Tree& tree, const SavedIndexes& before, const WalkOptions& options,
                  const KeepText& keep, const FailureSink& failed)
      : m_tree(tree), m_before(before), m_options(options), m_keep(keep), m_failed(failed) {
    for (const auto& [name, index] : before) m_known.emplace(index.digest.low, index);
  }

  bool folder(const DocumentFolder& folder) override {
    const std::string path = sys::join(folder.path, index_format::kIndexFile);
    const os::Status read = sys::read_file(path, m_options.locking, m_bytes);
    if (read.ok()) {
      m_text = replacement::text_of(m_bytes, m_saved_text);
      take(saved_name_of(m_tree, folder.path));
    } else if (read.failure() != os::Failure::kNotFound) {
      m_taken.lock_missed = m_taken.lock_missed || read.failure() == os::Failure::kLocked;
      leave(saved_name_of(m_tree, folder.path));
      m_failed(path, sys::reason_of(read));
    }
    return true;
  }

  void failed(const std::string& path, const os::Status& status) override {
    // Keep the previous state of all indexes below this folder.
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
    const Digest digest = digest_of(m_text);
    const bool has_earlier = earlier != m_before.end();
    if (has_earlier && earlier->second.digest == digest) {
      m_taken.indexes.insert_or_assign(std::move(name), earlier->second);
      return;
    }
    // The same text exists for another folder: the owner was renamed, or the index is empty.
    auto known = m_known.find(digest.low);
    if (known == m_known.end() || known->second.digest != digest) {
      const SavedIndex kept = m_keep(m_text, has_earlier ? &earlier->second : nullptr);
      known = m_known.insert_or_assign(digest.low, kept).first;
    }
    m_taken.indexes.insert_or_assign(std::move(name), known->second);
  }

  /// Keeps the previous state of an index.
  void leave(const std::string& name) {
    const auto earlier = m_before.find(name);
    ++m_taken.unread;
    if (earlier != m_before.end()) m_taken.indexes.insert(*earlier);
  }

  const Tree& m_tree;
  const SavedIndexes& m_before;
  const WalkOptions& m_options;
  const KeepText& m_keep;
  const FailureSink& m_failed;
  TakenIndexes m_taken;
  std::unordered_map<std::uint64_t, SavedIndex> m_known;
  std::string m_bytes;
  std::string m_saved_text;  ///< the new text of an interrupted save
  std::string_view m_text;   ///< the valid text in the bytes
};

}  // namespace

std::string saved_name_of(const Tree& tree, std::string_view folder) {
  std::string name(folder.substr(std::min(folder.size(), tree.storage.size() + 1)));
  if (sys::kSeparator != '/') std::replace(name.begin(), name.end(), sys::kSeparator, '/');
  return name;
}

std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name) {
  std::string path(name);
  std::replace(path.begin(), path.end(), '/', sys::kSeparator);
  const std::optional<Located> located = locate_below(tree, path);
  if (!located || !located->rest.empty()) return std::nullopt;
  const std::string& owner = located->folder.owner;
  if (!owner.empty() && why_not_safe(owner) != nullptr) return std::nullopt;
  return located->folder;
}

TakenIndexes take_indexes(const Tree& tree, const SavedIndexes& before, const WalkOptions& options,
                          const KeepText& keep, const FailureSink& failed) {
  SnapshotVisitor visitor(tree, before, options, keep, failed);
  walk(tree, options, visitor);
  return visitor.take_all();
}

}  // namespace admin
