#include "client/admin/name_snapshot.h"

#include <xxhash.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "client/admin/text.h"
#include "file/replacement.h"
#include "index/index_format.h"

namespace admin::names_format {

namespace {

/// Appends texts and numbers (also of enumerations), which are little-endian.
class Writer {
 public:
  template <class... Values>
  void operator()(const Values&... values) {
    (put(values), ...);
  }
  std::string bytes;

 private:
  template <class Number>
  void put(const Number& value) {
    auto rest = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      bytes.push_back(static_cast<char>(rest & 0xFFU));
      rest >>= 8U;
    }
  }
  void put(const std::string& text) {
    put(static_cast<std::uint32_t>(text.size()));
    bytes += text;
  }
};

/// Reads values. After the end, all values are empty or 0, and is_good is false.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : m_rest(bytes) {}

  template <class... Values>
  void operator()(Values&... values) {
    (get(values), ...);
  }
  bool at_end() const { return m_rest.empty(); }

  bool is_good = true;

 private:
  template <class Number>
  void get(Number& number) {
    const std::string_view raw = take(sizeof(Number));
    std::uint64_t value = 0;
    for (std::size_t i = raw.size(); i > 0; --i)
      value = value << 8U | static_cast<unsigned char>(raw[i - 1]);
    number = static_cast<Number>(value);
  }
  void get(std::string& text) {
    std::uint32_t size = 0;
    get(size);
    text = take(size);
  }
  std::string_view take(std::size_t count) {
    is_good = is_good && count <= m_rest.size();
    if (!is_good) m_rest = {};
    const std::string_view taken = m_rest.substr(0, is_good ? count : 0);
    m_rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view m_rest;
};

enum class Item : std::uint8_t { kGone = 0, kIndex = 1 };

// The values in their order, for both directions.

template <class Archive, class Index>
void values_of_index(Archive& archive, Index& index) {
  archive(index.at, index.size, index.entries, index.digest.low, index.digest.high);
}

template <class Archive, class Head>
void values_of_head(Archive& archive, Head& head) {
  archive(head.base, head.depth, head.front, head.back, head.own);
}

template <class Archive, class Trailer>
void values_of_trailer(Archive& archive, Trailer& trailer) {
  archive(trailer.number, trailer.manifest_at, trailer.manifest_size, trailer.manifest_checksum,
          trailer.previous);
}

template <class Archive, class Snapshot>
void values_of_snapshot(Archive& archive, Snapshot& snapshot) {
  archive(snapshot.number, snapshot.time, snapshot.storage, snapshot.layout, snapshot.folders,
          snapshot.entries, snapshot.bytes, snapshot.changed, snapshot.added, snapshot.removed,
          snapshot.unread, snapshot.checksum, snapshot.is_whole);
}

/// The checksum of a trailer, without the checksum itself.
std::uint64_t checksum_at(std::string_view bytes, std::uint64_t at) {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), at);
}

}  // namespace

Digest digest_of(std::string_view bytes) {
  const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
  return {hash.low64, hash.high64};
}

std::uint64_t checksum_of(std::string_view bytes) {
  return XXH3_64bits(bytes.data(), bytes.size());
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

std::uint64_t checksum_of(const SavedIndexes& indexes) {
  Writer writer;
  for (const auto& [folder, index] : indexes) writer(folder, index.digest.low, index.digest.high);
  return checksum_of(writer.bytes);
}

std::string encode(const TextHead& head) {
  Writer writer;
  values_of_head(writer, head);
  return std::move(writer.bytes);
}

std::optional<TextHead> decode_text_head(std::string_view bytes) {
  Reader reader(bytes);
  TextHead head;
  values_of_head(reader, head);
  return reader.is_good ? std::optional(head) : std::nullopt;
}

std::string encode(const Manifest& manifest) {
  Writer writer;
  values_of_snapshot(writer, manifest.snapshot);
  writer(std::uint64_t{manifest.list.size()});
  for (const auto& [folder, index] : manifest.list) {
    writer(index ? Item::kIndex : Item::kGone, folder);
    if (index) values_of_index(writer, *index);
  }
  return std::move(writer.bytes);
}

std::optional<Manifest> decode_manifest(std::string_view bytes) {
  Reader reader(bytes);
  Manifest manifest;
  std::uint64_t count = 0;
  values_of_snapshot(reader, manifest.snapshot);
  if (manifest.snapshot.layout != Layout::kFlat) manifest.snapshot.layout = Layout::kOwner;
  reader(count);
  for (std::uint64_t i = 0; i < count && reader.is_good; ++i) {
    Item item = Item::kGone;
    std::string folder;
    reader(item, folder);
    std::optional<SavedIndex> index;
    if (item == Item::kIndex) values_of_index(reader, index.emplace());
    manifest.list.insert_or_assign(std::move(folder), index);
  }
  if (!reader.is_good || !reader.at_end()) return std::nullopt;
  return manifest;
}

std::string encode(const Trailer& trailer, std::uint64_t at) {
  Writer writer;
  writer.bytes = kTrailerMark;
  values_of_trailer(writer, trailer);
  writer(checksum_at(writer.bytes, at));
  return std::move(writer.bytes);
}

std::optional<Trailer> decode_trailer(std::string_view bytes, std::uint64_t at) {
  if (bytes.size() < kTrailerSize || !bytes.starts_with(kTrailerMark)) return std::nullopt;
  Reader reader(bytes.substr(kTrailerMark.size()));
  Trailer trailer;
  std::uint64_t checksum = 0;
  values_of_trailer(reader, trailer);
  reader(checksum);
  const bool is_whole =
      checksum == checksum_at(bytes.substr(0, kTrailerSize - sizeof checksum), at);
  const bool is_possible = trailer.manifest_at >= kHead.size() && trailer.manifest_at <= at &&
                           trailer.manifest_size <= at - trailer.manifest_at &&
                           trailer.previous < at;
  return is_whole && is_possible ? std::optional(trailer) : std::nullopt;
}

}  // namespace admin::names_format

namespace admin {

// ---- taking a snapshot -------------------------------------------------------------------------

namespace {

using names_format::SavedIndex;
using names_format::SavedIndexes;

class SnapshotVisitor final : public Visitor {
 public:
  SnapshotVisitor(const Tree& tree, const SavedIndexes& before, const WalkOptions& options,
                  const KeepText& keep, const FailureSink& failed)
      : m_tree(tree), m_before(before), m_options(options), m_keep(keep), m_failed(failed) {
    for (const auto& [name, index] : before) m_known.emplace(index.digest.low, index);
  }

  bool folder(const DocumentFolder& folder) override {
    m_path.assign(folder.path).push_back(sys::kSeparator);
    m_path += index_format::kIndexFile;
    const os::Status read = sys::read_file(m_path, m_options.locking, m_bytes);
    if (read.ok()) {
      m_text = replacement::text_of(m_bytes, m_saved_text);
      take(saved_name_of(m_tree, folder.path));
    } else if (read.failure() != os::Failure::kNotFound) {
      m_taken.lock_missed = m_taken.lock_missed || read.failure() == os::Failure::kLocked;
      leave(saved_name_of(m_tree, folder.path));
      m_failed(m_path, read.failure() == os::Failure::kLocked
                           ? "another process has locked it (--lock-timeout sets how long to wait)"
                           : sys::text_of(read));
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
    const names_format::Digest digest = names_format::digest_of(m_text);
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
  std::string m_path;
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

TakenIndexes take_indexes(const Tree& tree, const names_format::SavedIndexes& before,
                          const WalkOptions& options, const KeepText& keep,
                          const FailureSink& failed) {
  SnapshotVisitor visitor(tree, before, options, keep, failed);
  const bool ended = walk(tree, options, visitor);
  TakenIndexes taken = visitor.take_all();
  taken.was_stopped = !ended;
  return taken;
}

}  // namespace admin
