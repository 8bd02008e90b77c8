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

/// Appends values; numbers are little-endian.
class Writer {
 public:
  template <class Number>
  void number(Number value) {
    auto rest = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      m_bytes.push_back(static_cast<char>(rest & 0xFFU));
      rest >>= 8U;
    }
  }
  void bytes(std::string_view text) { m_bytes.append(text); }
  void text(std::string_view value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes(value);
  }
  void digest(const Digest& value) {
    number(value.low);
    number(value.high);
  }
  std::string take() { return std::move(m_bytes); }
  const std::string& view() const { return m_bytes; }

 private:
  std::string m_bytes;
};

/// Reads values. After the end, all values are empty or 0, and good() is false.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : m_rest(bytes) {}

  template <class Number>
  Number number() {
    const std::string_view raw = bytes(sizeof(Number));
    std::uint64_t value = 0;
    for (std::size_t i = raw.size(); i > 0; --i)
      value = value << 8U | static_cast<unsigned char>(raw[i - 1]);
    return static_cast<Number>(value);
  }
  std::string_view bytes(std::size_t count) {
    if (count > m_rest.size()) {
      m_good = false;
      m_rest = {};
      return {};
    }
    const std::string_view taken = m_rest.substr(0, count);
    m_rest.remove_prefix(count);
    return taken;
  }
  std::string_view text() { return bytes(number<std::uint32_t>()); }
  Digest digest() {
    Digest value;
    value.low = number<std::uint64_t>();
    value.high = number<std::uint64_t>();
    return value;
  }
  bool good() const { return m_good; }
  bool at_end() const { return m_rest.empty(); }

 private:
  std::string_view m_rest;
  bool m_good = true;
};

enum class Item : std::uint8_t { kGone = 0, kIndex = 1 };

void put(Writer& writer, const SavedIndex& index) {
  writer.number(index.at);
  writer.number(index.size);
  writer.number(index.entries);
  writer.digest(index.digest);
}

SavedIndex take_index(Reader& reader) {
  SavedIndex index;
  index.at = reader.number<std::uint64_t>();
  index.size = reader.number<std::uint64_t>();
  index.entries = reader.number<std::uint64_t>();
  index.digest = reader.digest();
  return index;
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
  for (const auto& [folder, index] : indexes) {
    writer.text(folder);
    writer.digest(index.digest);
  }
  return checksum_of(writer.view());
}

std::string encode(const TextHead& head) {
  Writer writer;
  writer.number(head.base);
  writer.number(head.depth);
  writer.number(head.front);
  writer.number(head.back);
  writer.number(head.own);
  return writer.take();
}

std::optional<TextHead> decode_text_head(std::string_view bytes) {
  Reader reader(bytes);
  TextHead head;
  head.base = reader.number<std::uint64_t>();
  head.depth = reader.number<std::uint32_t>();
  head.front = reader.number<std::uint32_t>();
  head.back = reader.number<std::uint32_t>();
  head.own = reader.number<std::uint32_t>();
  if (!reader.good()) return std::nullopt;
  return head;
}

std::string encode(const Manifest& manifest) {
  const Snapshot& snapshot = manifest.snapshot;
  Writer writer;
  writer.number(snapshot.number);
  writer.number(snapshot.time);
  writer.text(snapshot.storage);
  writer.number(static_cast<std::uint8_t>(snapshot.layout));
  for (const std::uint64_t count :
       {snapshot.folders, snapshot.entries, snapshot.bytes, snapshot.changed, snapshot.added,
        snapshot.removed, snapshot.unread, snapshot.checksum})
    writer.number(count);
  writer.number(static_cast<std::uint8_t>(snapshot.is_whole));
  writer.number(static_cast<std::uint64_t>(manifest.list.size()));
  for (const auto& [folder, index] : manifest.list) {
    writer.number(static_cast<std::uint8_t>(index ? Item::kIndex : Item::kGone));
    writer.text(folder);
    if (index) put(writer, *index);
  }
  return writer.take();
}

std::optional<Manifest> decode_manifest(std::string_view bytes) {
  Reader reader(bytes);
  Manifest manifest;
  Snapshot& snapshot = manifest.snapshot;
  snapshot.number = reader.number<std::uint64_t>();
  snapshot.time = reader.number<std::int64_t>();
  snapshot.storage = reader.text();
  snapshot.layout = reader.number<std::uint8_t>() == static_cast<std::uint8_t>(Layout::kFlat)
                        ? Layout::kFlat
                        : Layout::kOwner;
  for (std::uint64_t* const count :
       {&snapshot.folders, &snapshot.entries, &snapshot.bytes, &snapshot.changed, &snapshot.added,
        &snapshot.removed, &snapshot.unread, &snapshot.checksum})
    *count = reader.number<std::uint64_t>();
  snapshot.is_whole = reader.number<std::uint8_t>() != 0;
  const auto count = reader.number<std::uint64_t>();
  for (std::uint64_t i = 0; i < count && reader.good(); ++i) {
    const auto item = static_cast<Item>(reader.number<std::uint8_t>());
    std::string folder(reader.text());
    std::optional<SavedIndex> index;
    if (item == Item::kIndex) index = take_index(reader);
    manifest.list.insert_or_assign(std::move(folder), index);
  }
  if (!reader.good() || !reader.at_end()) return std::nullopt;
  return manifest;
}

std::string encode(const Trailer& trailer, std::uint64_t at) {
  Writer writer;
  writer.bytes(kTrailerMark);
  for (const std::uint64_t value : {trailer.number, trailer.manifest_at, trailer.manifest_size,
                                    trailer.manifest_checksum, trailer.previous})
    writer.number(value);
  writer.number(XXH3_64bits_withSeed(writer.view().data(), writer.view().size(), at));
  return writer.take();
}

std::optional<Trailer> decode_trailer(std::string_view bytes, std::uint64_t at) {
  if (bytes.size() < kTrailerSize || !bytes.starts_with(kTrailerMark)) return std::nullopt;
  constexpr std::size_t kCovered = kTrailerSize - sizeof(std::uint64_t);
  Reader reader(bytes.substr(kTrailerMark.size()));
  Trailer trailer;
  for (std::uint64_t* const value : {&trailer.number, &trailer.manifest_at, &trailer.manifest_size,
                                     &trailer.manifest_checksum, &trailer.previous})
    *value = reader.number<std::uint64_t>();
  const bool is_whole =
      reader.number<std::uint64_t>() == XXH3_64bits_withSeed(bytes.data(), kCovered, at);
  const bool is_possible = trailer.manifest_at >= kHead.size() && trailer.manifest_at <= at &&
                           trailer.manifest_size <= at - trailer.manifest_at &&
                           trailer.previous < at;
  if (!is_whole || !is_possible) return std::nullopt;
  return trailer;
}

}  // namespace admin::names_format

namespace admin {

// ---- taking a snapshot -------------------------------------------------------------------------

namespace {

using names_format::SavedIndex;
using names_format::SavedIndexes;

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
  const SnapshotOptions& m_options;
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
