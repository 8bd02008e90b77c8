#include "client/admin/name_store.h"

#include <algorithm>
#include <utility>

#include "client/admin/text.h"

namespace admin {

namespace {

using names_format::decode_manifest;
using names_format::decode_text_head;
using names_format::decode_trailer;
using names_format::kHead;
using names_format::kTextHeadSize;
using names_format::kTrailerSize;
using names_format::Manifest;
using names_format::TextHead;
using names_format::Trailer;

/// Every 64th snapshot has a complete list. That limits what damage can affect.
constexpr std::uint64_t kWholeListEvery = 64;
/// The maximum number of earlier texts that are read for one text.
constexpr std::uint32_t kDeepest = 16;
constexpr std::uint64_t kPiece = std::uint64_t{1} << 20U;

/// Finds the bytes that two texts share at the start and at the end.
TextHead shared_of(std::string_view old_text, std::string_view new_text) {
  TextHead head;
  const std::size_t most = std::min(old_text.size(), new_text.size());
  std::size_t front = 0;
  while (front < most && old_text[front] == new_text[front]) ++front;
  std::size_t back = 0;
  while (back < most - front &&
         old_text[old_text.size() - 1 - back] == new_text[new_text.size() - 1 - back])
    ++back;
  head.front = static_cast<std::uint32_t>(front);
  head.back = static_cast<std::uint32_t>(back);
  head.own = static_cast<std::uint32_t>(new_text.size() - front - back);
  return head;
}

}  // namespace

// ---- opening -----------------------------------------------------------------------------------

NameStore::NameStore(const std::string& path, For purpose, const sys::Locking& locking)
    : m_path(path) {
  const bool appends = purpose == For::kAppending;
  const os::Status opened =
      m_file.open(path, appends ? LockedFile::For::kChanging : LockedFile::For::kReading,
                  appends ? LockedFile::IfMissing::kMake : LockedFile::IfMissing::kFail, locking);
  if (opened.failure() == os::Failure::kNotFound && !appends)
    throw StoreError(StoreError::Why::kMissing, "no names are saved in " + printable(path));
  if (opened.failure() == os::Failure::kLocked) {
    throw StoreError(
        StoreError::Why::kLocked,
        printable(path) + " is locked by another process (--lock-timeout sets how long to wait)");
  }
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

std::optional<NameStore::Link> NameStore::trailer_at(std::uint64_t at) {
  if (at < kHead.size() || at + kTrailerSize > m_end) return std::nullopt;
  const auto trailer = decode_trailer(read(at, kTrailerSize), at);
  if (!trailer) return std::nullopt;
  return Link{at, *trailer};
}

std::optional<NameStore::Link> NameStore::last_trailer_before(std::uint64_t end) {
  if (end < kHead.size() + kTrailerSize) return std::nullopt;
  if (const auto link = trailer_at(end - kTrailerSize)) return link;
  // The last snapshot was interrupted, or the file is damaged: search for a trailer, backwards.
  for (std::uint64_t above = end; above > kHead.size();) {
    const std::uint64_t from = above - std::min(above - kHead.size(), kPiece);
    // A trailer in this piece may end in the following piece.
    const std::string piece = read(from, std::min(end, above + kTrailerSize) - from);
    for (std::size_t at = piece.rfind(names_format::kTrailerMark); at != std::string::npos;
         at = at == 0 ? std::string::npos : piece.rfind(names_format::kTrailerMark, at - 1)) {
      const auto trailer = decode_trailer(std::string_view(piece).substr(at), from + at);
      if (trailer) return Link{from + at, *trailer};
    }
    above = from;
  }
  return std::nullopt;
}

void NameStore::read_chain(std::uint64_t down_to) {
  while (!m_chain_is_whole && !m_chain.empty() && m_chain.back().trailer.number > down_to) {
    const Link& link = m_chain.back();
    std::optional<Link> before;
    if (link.trailer.previous != 0) {
      before = trailer_at(link.trailer.previous);
      if (!before) before = last_trailer_before(link.trailer.manifest_at);
    }
    m_chain_is_whole = !before;
    if (before) m_chain.push_back(*before);
  }
}

std::optional<Manifest> NameStore::manifest_of(const Link& link) {
  const std::string bytes = read(link.trailer.manifest_at, link.trailer.manifest_size);
  if (names_format::checksum_of(bytes) != link.trailer.manifest_checksum) return std::nullopt;
  return decode_manifest(bytes);
}

std::vector<NameStore::Kept> NameStore::snapshots() {
  read_chain(0);
  std::vector<Kept> all;
  std::uint64_t begin = kHead.size();
  for (auto link = m_chain.rbegin(); link != m_chain.rend(); ++link) {
    const std::uint64_t end = link->at + kTrailerSize;
    Kept kept{link->trailer.number, end - begin, std::nullopt};
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
    const auto link = std::find_if(m_chain.begin(), m_chain.end(),
                                   [&](const Link& each) { return each.trailer.number == next; });
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
  if (names_format::checksum_of(indexes) != lists.front().snapshot.checksum) damaged(of);
  return indexes;
}

// ---- texts -------------------------------------------------------------------------------------

std::string NameStore::stored_text(std::uint64_t at, std::uint32_t& depth) {
  const auto head = decode_text_head(read(at, kTextHeadSize));
  if (!head || head->base >= at || head->depth > kDeepest) damaged("a saved text");
  depth = head->depth;
  std::string own = read(at + kTextHeadSize, head->own);
  if (head->base == 0) return own;
  std::uint32_t base_depth = 0;
  const std::string base = stored_text(head->base, base_depth);
  // This also prevents an endless recursion.
  if (base_depth >= depth || base.size() < std::uint64_t{head->front} + head->back)
    damaged("a saved text");
  own.insert(0, base, 0, head->front);
  return own.append(base, base.size() - head->back);
}

std::string NameStore::text_of(const SavedIndex& index) {
  std::uint32_t depth = 0;
  std::string text = stored_text(index.at, depth);
  if (names_format::digest_of(text) != index.digest) damaged("a saved text");
  return text;
}

// ---- appending ---------------------------------------------------------------------------------

SavedIndex NameStore::add(std::string_view text, const SavedIndex* earlier) {
  SavedIndex index = names_format::measure(text);
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
  m_pending += encode(head);
  m_pending += text.substr(head.front, head.own);
  if (m_pending.size() >= kPiece) write_pending();
  return index;
}

Snapshot NameStore::commit(Snapshot head, const SavedIndexes& before, const SavedIndexes& now) {
  Manifest manifest;
  for (const auto& [folder, index] : now) {
    head.entries += index.entries;
    head.bytes += index.size;
    const auto old = before.find(folder);
    if (old != before.end() && old->second == index) continue;
    manifest.list.emplace(folder, index);
    ++(old == before.end() ? head.added : head.changed);
  }
  for (const auto& [folder, index] : before) {
    if (now.contains(folder)) continue;
    manifest.list.emplace(folder, std::nullopt);
    ++head.removed;
  }
  head.number = last_number() + 1;
  head.folders = now.size();
  head.checksum = names_format::checksum_of(now);
  head.is_whole =
      before.empty() || head.number % kWholeListEvery == 1 || manifest.list.size() > now.size() / 2;
  if (head.is_whole) manifest.list = {now.begin(), now.end()};
  manifest.snapshot = head;

  // Flush the texts before the trailer that makes them valid.
  const bool has_texts = m_end + m_pending.size() != m_valid_end;
  write_pending();
  if (has_texts) check(m_file.flush(), "could not be flushed to the device");
  m_pending = encode(manifest);
  Trailer trailer;
  trailer.number = head.number;
  trailer.manifest_at = m_end;
  trailer.manifest_size = m_pending.size();
  trailer.manifest_checksum = names_format::checksum_of(m_pending);
  trailer.previous = m_chain.empty() ? 0 : m_chain.front().at;
  const std::uint64_t at = m_end + m_pending.size();
  m_pending += encode(trailer, at);
  m_has_added = true;
  write_pending();
  check(m_file.flush(), "could not be flushed to the device");
  m_has_added = false;
  m_valid_end = m_end;
  m_chain.insert(m_chain.begin(), Link{at, trailer});
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
