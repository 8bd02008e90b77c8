#include "client/admin/folder_view.h"

#include <algorithm>
#include <utility>

#include "client/admin/locked_file.h"
#include "file/replacement.h"

namespace admin {

namespace {

os::EntryKind entry_kind_of(sys::Kind kind) {
  if (kind == sys::Kind::kFile) return os::EntryKind::kFile;
  return kind == sys::Kind::kFolder ? os::EntryKind::kFolder : os::EntryKind::kUnknown;
}

}  // namespace

void FolderView::load(const DocumentFolder& folder, const sys::Locking& locking) {
  m_folder = folder;
  read_index(locking);
  read_names();
}

os::Status FolderView::load_locked(const DocumentFolder& folder, LockedFile& index) {
  m_folder = folder;
  m_index_status = index.read_text(m_index_bytes);
  if (!m_index_status.ok()) m_index_bytes.clear();
  take_text();
  read_names();
  if (m_index_status.ok()) return m_status;
  m_index_state = IndexState::kFailed;
  return m_index_status;
}

const os::Status& FolderView::list(const std::string& folder) {
  m_folder = DocumentFolder();
  m_folder.path = folder;
  m_index_bytes.clear();
  take_text();
  m_index_state = IndexState::kMissing;
  m_index_status = os::Status();
  return read_names();
}

void FolderView::take_text() {
  m_index_text = replacement::text_of(m_index_bytes, m_saved_text);
  // text_of() returns a view of the bytes, except after an interrupted save.
  m_has_interrupted_save = m_index_text.data() != m_index_bytes.data();
  m_index_state = m_index_text.empty() ? IndexState::kNoBytes : IndexState::kRead;
}

const os::Status& FolderView::read_names() {
  m_names.clear();
  os::Listing entries;
  std::vector<sys::Kind> kinds;
  sys::Folder listing;
  m_status = listing.open(m_folder.path);
  if (m_status.ok()) {
    sys::Entry entry;
    while (listing.next(entry)) {
      entries.append(entry.name, entry_kind_of(entry.kind));
      kinds.push_back(entry.kind);
    }
    m_status = listing.status();
  }
  m_files = std::make_unique<FolderFiles>(m_folder.path, std::move(entries));
  for (const os::Entry entry : m_files->listing())
    m_names.push_back({entry.name, kinds[m_names.size()]});
  return m_status;
}

void FolderView::read_index(const sys::Locking& locking) {
  m_index_status = sys::read_file(path_of(index_format::kIndexFile), locking, m_index_bytes);
  take_text();
  if (m_index_status.ok()) return;
  const os::Failure why = m_index_status.failure();
  m_index_state = why == os::Failure::kNotFound ? IndexState::kMissing
                  : why == os::Failure::kLocked ? IndexState::kLocked
                                                : IndexState::kFailed;
}

std::uint32_t FolderView::document_of(std::string_view parts) const {
  for (std::size_t at = parts.rfind('_'); at != std::string_view::npos && at > 0;
       at = parts.rfind('_', at - 1)) {
    const std::uint32_t found = find(parts.substr(0, at));
    if (found != kNone && m_names[found].kind != sys::Kind::kFolder) return found;
  }
  return kNone;
}

std::optional<std::string> FolderView::read_counter(const sys::Locking& locking) const {
  if (find(index_format::kCounterFile) == kNone) return std::nullopt;
  std::string bytes;
  if (!sys::read_file(path_of(index_format::kCounterFile), locking, bytes).ok())
    return std::nullopt;
  std::string saved;
  return std::string(replacement::text_of(bytes, saved));
}

// ---- the lines of its index --------------------------------------------------------------------

namespace {

Verdict verdict_of(LineState state) {
  switch (state) {
    case LineState::kValid: return Verdict::kEntry;
    case LineState::kMissing: return Verdict::kNoFile;
    case LineState::kUnknown: return Verdict::kUnknown;
    case LineState::kNone: break;
  }
  return Verdict::kNoSeparator;
}

}  // namespace

bool belongs_to_entry(const FolderView& folder, std::string_view name) {
  for (const LintedLine& line : IndexLint(folder)) {
    if (is_bad(line.verdict) || line.file.empty() || !name.starts_with(line.file)) continue;
    if (name.size() == line.file.size() || name[line.file.size()] == '_') return true;
  }
  return false;
}

bool has_stamp(std::string_view key) {
  const std::string_view stamp = key.substr(key.size() - index_format::kStampLength);
  return stamp.front() == '_' && stamp.find_first_not_of("0123456789", 1) == std::string_view::npos;
}

IndexLint::IndexLint(const FolderView& view)
    : m_view(view),
      m_reader(view.index_text(), view.files()),
      m_claimed(view.names().size(), false) {}

bool IndexLint::next() {
  const std::string_view text = m_view.index_text();
  IndexLine read;
  const bool is_read = m_reader.next(read);
  // The reader ends at the last "/". An index without entries still contains a blank.
  if (!is_read && text.find_first_not_of(' ', m_at) == std::string_view::npos) return false;
  const std::size_t end = std::min(text.find('\n', m_at), text.size());
  m_line = LintedLine();
  m_line.number = ++m_number;
  m_line.raw = text.substr(m_at, end - m_at);
  m_line.has_zeros = m_line.raw.find('\0') != std::string_view::npos;
  m_line.verdict = Verdict::kNoSeparator;
  m_at = std::min(end + 1, text.size());
  if (is_read) judge(read);
  return true;
}

void IndexLint::judge(const IndexLine& read) {
  m_line.key = read.key;
  m_line.stored = read.stored;
  m_line.verdict = verdict_of(read.state);
  if (m_line.key.size() < index_format::kStampLength) {
    if (!read.runs_on) m_line.verdict = Verdict::kShortKey;
    return;
  }
  m_line.logical = index_format::logical_of(m_line.key);
  m_line.timestamp = index_format::timestamp_of(m_line.key);
  m_line.has_odd_stamp = !has_stamp(m_line.key);
  if (m_line.verdict == Verdict::kUnknown) ++m_unknown;
  note_order(read);
  // Without a "/" in the line, the stored name would be the rest of the text.
  if (m_line.verdict == Verdict::kNoSeparator) return;
  find_file(read);
  if (m_line.verdict == Verdict::kEntry) note_entry(read);
}

void IndexLint::note_order(const IndexLine& read) {
  if (read.runs_on) return;
  if (read.key <= m_last_key) ++m_unordered;
  m_last_key = read.key;
}

void IndexLint::find_file(const IndexLine& read) {
  m_file = index_format::file_name_of(m_line.key, m_line.stored);
  m_line.file = m_file;
  if (read.state != LineState::kValid) return;
  const bool is_extended = m_file.size() != m_line.stored.size();
  if (read.file != FolderFiles::kNone && read.has_extension == is_extended) {
    m_line.listed = static_cast<std::uint32_t>(read.file);
    m_line.has_file = true;
  } else {
    m_line.has_file = m_view.files().find(m_file) != Presence::kMissing;
    if (m_line.has_file) m_line.listed = m_view.find(m_file);
  }
  if (m_line.listed != FolderView::kNone) m_line.file = m_view.names()[m_line.listed].text;
}

void IndexLint::note_entry(const IndexLine& read) {
  const std::size_t same_key = m_keys.insert(m_line.key, m_line.number);
  if (same_key != m_line.number) {
    m_line.same_key_as = same_key;
    m_line.verdict = Verdict::kDuplicateKey;
    return;
  }
  const std::size_t same_stored = m_stored.insert(m_line.stored, m_line.number);
  if (same_stored != m_line.number) m_line.same_stored_as = same_stored;
  // Zeros replaced the bytes that said whose file it was.
  if (m_line.has_zeros) return;
  if (read.file != FolderFiles::kNone) m_claimed[read.file] = true;
  if (m_line.listed != FolderView::kNone) m_claimed[m_line.listed] = true;
}

}  // namespace admin
