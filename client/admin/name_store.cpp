#include "client/admin/names.h"

#include <xxhash.h>

#include <algorithm>
#include <utility>

#include "client/admin/text.h"

namespace admin {

/// A folder whose index was removed has no value in the list.
struct NameStore::Manifest {
  Snapshot snapshot;
  std::map<std::string, std::optional<SavedIndex>, std::less<>> list;
};

namespace {

using Manifest = NameStore::Manifest;
using Trailer = NameStore::Trailer;
constexpr std::size_t kTrailerSize = NameStore::kTrailerSize;

/// The first bytes of the file.
constexpr std::string_view kHead = "stgctl-names/1\r\n";
constexpr std::string_view kTrailerMark = "\x89nam\r\n\x1a\n";
constexpr std::size_t kTextHeadSize = 24;
/// Every 64th snapshot has a complete list. That limits what damage can affect.
constexpr std::uint64_t kWholeListEvery = 64;
/// The maximum number of earlier texts that are read for one text.
constexpr std::uint32_t kDeepest = 16;
constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;

/// The head of a saved text. Only the bytes that differ from an earlier text are stored.
struct TextHead {
  std::uint64_t base = 0;   ///< position of the earlier text; 0: none
  std::uint32_t depth = 0;  ///< number of earlier texts to read
  std::uint32_t front = 0;  ///< number of shared bytes at the start
  std::uint32_t back = 0;   ///< number of shared bytes at the end
  std::uint32_t own = 0;    ///< number of bytes that follow this head
};

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

// The values of each part in their order, for both directions.

template <class Archive, class Index>
void values_of_index(Archive& archive, Index& index) {
  archive(index.at, index.size, index.entries, index.digest.low, index.digest.high);
}

template <class Archive, class Head>
void values_of_head(Archive& archive, Head& head) {
  archive(head.base, head.depth, head.front, head.back, head.own);
}

template <class Archive, class AnyTrailer>
void values_of_trailer(Archive& archive, AnyTrailer& trailer) {
  archive(trailer.number, trailer.manifest_at, trailer.manifest_size, trailer.manifest_checksum,
          trailer.previous);
}

template <class Archive, class AnySnapshot>
void values_of_snapshot(Archive& archive, AnySnapshot& snapshot) {
  archive(snapshot.number, snapshot.time, snapshot.storage, snapshot.layout, snapshot.folders,
          snapshot.entries, snapshot.bytes, snapshot.changed, snapshot.added, snapshot.removed,
          snapshot.unread, snapshot.checksum, snapshot.is_whole);
}

/// @param seed the position of a trailer: a copy elsewhere is not valid.
std::uint64_t sum_of(std::string_view bytes, std::uint64_t seed = 0) {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

std::uint64_t sum_of(const SavedIndexes& indexes) {
  Writer writer;
  for (const auto& [folder, index] : indexes) writer(folder, index.digest.low, index.digest.high);
  return sum_of(writer.bytes);
}

std::string encoded(const TextHead& head) {
  Writer writer;
  values_of_head(writer, head);
  return std::move(writer.bytes);
}

std::string encoded(const Manifest& manifest) {
  Writer writer;
  values_of_snapshot(writer, manifest.snapshot);
  writer(std::uint64_t{manifest.list.size()});
  for (const auto& [folder, index] : manifest.list) {
    writer(index ? Item::kIndex : Item::kGone, folder);
    if (index) values_of_index(writer, *index);
  }
  return std::move(writer.bytes);
}

std::string encoded(const Trailer& trailer) {
  Writer writer;
  writer.bytes = kTrailerMark;
  values_of_trailer(writer, trailer);
  writer(sum_of(writer.bytes, trailer.at));
  return std::move(writer.bytes);
}

/// Nothing if the bytes are not a manifest.
std::optional<Manifest> decoded_manifest(std::string_view bytes) {
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

std::optional<Trailer> decoded_trailer(std::string_view bytes, std::uint64_t at) {
  if (bytes.size() < kTrailerSize || !bytes.starts_with(kTrailerMark)) return std::nullopt;
  Reader reader(bytes.substr(kTrailerMark.size()));
  Trailer trailer;
  trailer.at = at;
  std::uint64_t checksum = 0;
  values_of_trailer(reader, trailer);
  reader(checksum);
  const bool is_whole = checksum == sum_of(bytes.substr(0, kTrailerSize - sizeof checksum), at);
  const bool is_possible = trailer.manifest_at >= kHead.size() && trailer.manifest_at <= at &&
                           trailer.manifest_size <= at - trailer.manifest_at &&
                           trailer.previous < at;
  return is_whole && is_possible ? std::optional(trailer) : std::nullopt;
}

/// Finds the bytes that two texts share at the start and at the end.
TextHead shared_of(std::string_view old_text, std::string_view new_text) {
  const auto shared = [](auto one, auto one_end, auto other, auto other_end) {
    return static_cast<std::uint32_t>(std::mismatch(one, one_end, other, other_end).first - one);
  };
  TextHead head;
  head.front = shared(old_text.begin(), old_text.end(), new_text.begin(), new_text.end());
  old_text.remove_prefix(head.front);
  new_text.remove_prefix(head.front);
  head.back = shared(old_text.rbegin(), old_text.rend(), new_text.rbegin(), new_text.rend());
  head.own = static_cast<std::uint32_t>(new_text.size() - head.back);
  return head;
}

}  // namespace

// ---- opening -----------------------------------------------------------------------------------

NameStore::NameStore(const std::string& path, For purpose, const sys::Locking& locking)
    : m_path(path) {
  const bool appends = purpose != For::kReading;
  const os::Status opened = m_file.open(path, purpose, locking);
  if (opened.failure() == os::Failure::kNotFound && !appends)
    throw StoreError(StoreError::Why::kMissing, "no names are saved in " + printable(path));
  if (opened.failure() == os::Failure::kLocked)
    throw StoreError(StoreError::Why::kLocked, printable(path) + ": " + sys::reason_of(opened));
  const bool is_odd = opened.failure() == os::Failure::kOther && opened.code() == 0;
  check(opened, is_odd ? "is not a plain file; name another one with --names" : "cannot be opened");
  m_valid_end = m_end = m_file.size();
  check_head();
  if (const auto last = last_trailer_before(m_end)) m_chain.push_back(*last);
  m_valid_end = m_chain.empty() ? std::min<std::uint64_t>(m_end, kHead.size())
                                : m_chain.front().at + kTrailerSize;
  m_torn = m_end - m_valid_end;
  if (!appends) return;
  if (m_valid_end < kHead.size()) {
    check(m_file.write_at(0, kHead), "cannot be written");
    m_valid_end = kHead.size();
    m_torn = 0;
  }
  if (m_torn != 0) check(m_file.cut_at(m_valid_end), "cannot be truncated after its last snapshot");
  m_end = m_valid_end;
}

NameStore::~NameStore() {
  if (m_has_added) static_cast<void>(m_file.cut_at(m_valid_end));
}

void NameStore::check_head() {
  const std::string head = read(0, std::min<std::uint64_t>(m_end, kHead.size()));
  // A process may have been interrupted while it wrote the first bytes.
  if (kHead.starts_with(head)) return;
  throw StoreError(
      StoreError::Why::kForeign,
      printable(m_path) + " is not a file of saved names; name another one with --names");
}

// ---- snapshots ---------------------------------------------------------------------------------

std::optional<Trailer> NameStore::trailer_at(std::uint64_t at) {
  if (at < kHead.size() || at + kTrailerSize > m_end) return std::nullopt;
  return decoded_trailer(read(at, kTrailerSize), at);
}

std::optional<Trailer> NameStore::last_trailer_before(std::uint64_t end) {
  if (end < kHead.size() + kTrailerSize) return std::nullopt;
  if (const auto link = trailer_at(end - kTrailerSize)) return link;
  // The last snapshot was interrupted, or the file is damaged: search for a trailer, backwards.
  for (std::uint64_t above = end; above > kHead.size();) {
    const std::uint64_t from = above - std::min(above - kHead.size(), kPiece);
    // A trailer in this piece may end in the following piece.
    const std::string piece = read(from, std::min(end, above + kTrailerSize) - from);
    for (std::size_t at = piece.rfind(kTrailerMark); at != std::string::npos;
         at = at == 0 ? std::string::npos : piece.rfind(kTrailerMark, at - 1)) {
      const auto trailer = decoded_trailer(std::string_view(piece).substr(at), from + at);
      if (trailer) return trailer;
    }
    above = from;
  }
  return std::nullopt;
}

void NameStore::read_chain(std::uint64_t down_to) {
  while (!m_chain_is_whole && !m_chain.empty() && m_chain.back().number > down_to) {
    const Trailer& last = m_chain.back();
    std::optional<Trailer> before;
    if (last.previous != 0) {
      before = trailer_at(last.previous);
      if (!before) before = last_trailer_before(last.manifest_at);
    }
    m_chain_is_whole = !before;
    if (before) m_chain.push_back(*before);
  }
}

std::optional<Manifest> NameStore::manifest_of(const Trailer& trailer) {
  const std::string bytes = read(trailer.manifest_at, trailer.manifest_size);
  if (sum_of(bytes) != trailer.manifest_checksum) return std::nullopt;
  return decoded_manifest(bytes);
}

std::vector<NameStore::Kept> NameStore::snapshots() {
  read_chain(0);
  std::vector<Kept> all;
  std::uint64_t begin = kHead.size();
  for (auto link = m_chain.rbegin(); link != m_chain.rend(); ++link) {
    const std::uint64_t end = link->at + kTrailerSize;
    Kept kept{link->number, end - begin, std::nullopt};
    if (auto manifest = manifest_of(*link)) kept.snapshot = std::move(manifest->snapshot);
    all.push_back(std::move(kept));
    begin = end;
  }
  return all;
}

SavedIndexes NameStore::indexes_of(std::uint64_t number) {
  std::vector<Manifest> lists;
  const std::string of = "the list of snapshot " + std::to_string(number);
  for (std::uint64_t next = number;; --next) {
    read_chain(next);
    const auto link = std::ranges::find(m_chain, next, &Trailer::number);
    auto manifest = link == m_chain.end() ? std::nullopt : manifest_of(*link);
    if (!manifest || next == 0) damaged(of);
    lists.push_back(std::move(*manifest));
    if (lists.back().snapshot.is_whole) break;
  }
  SavedIndexes indexes;
  for (auto list = lists.rbegin(); list != lists.rend(); ++list) {
    for (const auto& [folder, index] : list->list) {
      if (index) {
        indexes.insert_or_assign(folder, *index);
      } else {
        indexes.erase(folder);
      }
    }
  }
  if (sum_of(indexes) != lists.front().snapshot.checksum) damaged(of);
  return indexes;
}

// ---- texts -------------------------------------------------------------------------------------

std::string NameStore::stored_text(std::uint64_t at, std::uint32_t& depth) {
  const std::string bytes = read(at, kTextHeadSize);
  Reader reader(bytes);
  TextHead head;
  values_of_head(reader, head);
  if (head.base >= at || head.depth > kDeepest) damaged("a saved text");
  depth = head.depth;
  std::string own = read(at + kTextHeadSize, head.own);
  if (head.base == 0) return own;
  std::uint32_t base_depth = 0;
  const std::string base = stored_text(head.base, base_depth);
  // This also prevents an endless recursion.
  if (base_depth >= depth || base.size() < std::uint64_t{head.front} + head.back)
    damaged("a saved text");
  own.insert(0, base, 0, head.front);
  return own.append(base, base.size() - head.back);
}

std::string NameStore::text_of(const SavedIndex& index) {
  std::uint32_t depth = 0;
  std::string text = stored_text(index.at, depth);
  if (digest_of(text) != index.digest) damaged("a saved text");
  return text;
}

// ---- appending ---------------------------------------------------------------------------------

SavedIndex NameStore::add(std::string_view text, const SavedIndex* earlier) {
  SavedIndex index = measure(text);
  index.at = m_end + m_pending.size();
  TextHead head;
  head.own = static_cast<std::uint32_t>(text.size());
  if (earlier != nullptr && earlier->at < m_valid_end) {
    try {
      std::uint32_t depth = 0;
      const TextHead shared = shared_of(stored_text(earlier->at, depth), text);
      if (depth < kDeepest && shared.own <= text.size() / 2) {
        head = shared;
        head.base = earlier->at;
        head.depth = depth + 1;
      }
    } catch (const StoreError&) {
      // The earlier text is damaged: store the new one completely.
    }
  }
  m_has_added = true;
  m_pending += encoded(head);
  m_pending += text.substr(head.front, head.own);
  if (m_pending.size() >= kPiece) write_pending();
  return index;
}

Snapshot NameStore::commit(Snapshot head, const SavedIndexes& before, const SavedIndexes& now) {
  Manifest manifest;
  compare_indexes(before, now,
                  [&](const std::string& folder, const SavedIndex*, const SavedIndex* index) {
                    manifest.list.emplace(folder, index ? std::optional(*index) : std::nullopt);
                  });
  head = description_of(std::move(head), before, now);
  head.number = last_number() + 1;
  head.checksum = sum_of(now);
  head.is_whole =
      before.empty() || head.number % kWholeListEvery == 1 || manifest.list.size() > now.size() / 2;
  if (head.is_whole) manifest.list = {now.begin(), now.end()};
  manifest.snapshot = head;

  // Flush the texts before the trailer that makes them valid.
  const bool has_texts = m_end + m_pending.size() != m_valid_end;
  write_pending();
  if (has_texts) check(m_file.flush(), "could not be flushed to the device");
  m_pending = encoded(manifest);
  const Trailer trailer{
      m_end + m_pending.size(), head.number,       m_end,
      m_pending.size(),         sum_of(m_pending), m_chain.empty() ? 0 : m_chain.front().at};
  m_pending += encoded(trailer);
  m_has_added = true;
  write_pending();
  check(m_file.flush(), "could not be flushed to the device");
  m_has_added = false;
  m_valid_end = m_end;
  m_chain.insert(m_chain.begin(), trailer);
  return head;
}

void NameStore::write_pending() {
  check(m_file.write_at(m_end, m_pending), "cannot be extended; check whether the disk is full");
  m_end += m_pending.size();
  m_pending.clear();
}

// ---- bytes -------------------------------------------------------------------------------------

std::string NameStore::read(std::uint64_t at, std::uint64_t count) {
  if (at > m_end || count > m_end - at) damaged("a part that its list names");
  std::string bytes;
  check(m_file.read_at(at, static_cast<std::size_t>(count), bytes), "cannot be read");
  if (bytes.size() < count) damaged("its end");
  return bytes;
}

void NameStore::check(const os::Status& status, const char* what) const {
  if (status.ok()) return;
  std::string text = printable(m_path) + " " + what;
  if (status.code() != 0) text += ": " + sys::text_of(status);
  throw StoreError(StoreError::Why::kFailed, text);
}

void NameStore::damaged(const std::string& what) const {
  throw StoreError(StoreError::Why::kDamaged,
                   printable(m_path) + " is damaged: " + what +
                       " cannot be read; other snapshots may be undamaged, see 'stgctl index log'");
}

}  // namespace admin
