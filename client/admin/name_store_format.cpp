#include "client/admin/name_store_format.h"

#include <xxhash.h>

#include "index/index_format.h"

namespace admin::names_format {

namespace {

/// Puts values together, numbers with their low byte first.
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

/// Takes values apart. Behind the end everything reads as nothing, and good() says so.
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
