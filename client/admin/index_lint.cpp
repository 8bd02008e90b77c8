#include "client/admin/index_lint.h"

#include <algorithm>
#include <array>

namespace admin {

namespace {

/// Whether what ends the key is "_" and ten digits.
bool has_stamp(std::string_view key) {
  const std::string_view stamp = key.substr(key.size() - index_format::kStampLength);
  return stamp.front() == '_' && stamp.find_first_not_of("0123456789", 1) == std::string_view::npos;
}

Verdict verdict_of(LineState state) {
  switch (state) {
    case LineState::kValid:
      return Verdict::kEntry;
    case LineState::kMissing:
      return Verdict::kNoFile;
    case LineState::kUnknown:
      return Verdict::kUnknown;
    case LineState::kNone:
      break;
  }
  return Verdict::kNoSeparator;
}

}  // namespace

std::string_view name_of(Verdict verdict) {
  constexpr std::array<std::string_view, 6> kNames = {"entry",   "no-separator",  "short-key",
                                                      "no-file", "duplicate-key", "unknown"};
  return kNames[static_cast<std::size_t>(verdict)];
}

void IndexLint::start(const FolderView& view) {
  m_view = &view;
  m_reader.emplace(view.index_text(), view.files());
  m_number = 0;
  m_at = 0;
  m_unordered = 0;
  m_unknown = 0;
  m_last_key = {};
  m_claimed.assign(view.names().size(), false);
  m_stored.clear();
  m_keys.clear();
}

bool IndexLint::next(LintedLine& line) {
  const std::string_view text = m_view->index_text();
  IndexLine read;
  const bool is_read = m_reader->next(read);
  // The reader ends with the last "/"; of an index without entries a blank is left.
  if (!is_read && text.find_first_not_of(' ', m_at) == std::string_view::npos) return false;
  const std::size_t end = std::min(text.find('\n', m_at), text.size());
  line = LintedLine();
  line.number = ++m_number;
  line.raw = text.substr(m_at, end - m_at);
  line.has_zeros = line.raw.find('\0') != std::string_view::npos;
  line.verdict = Verdict::kNoSeparator;
  m_at = std::min(end + 1, text.size());
  if (is_read) judge(line, read);
  return true;
}

void IndexLint::judge(LintedLine& line, const IndexLine& read) {
  line.key = read.key;
  line.stored = read.stored;
  line.verdict = verdict_of(read.state);
  if (line.key.size() < index_format::kStampLength) {
    if (!read.runs_on) line.verdict = Verdict::kShortKey;
    return;
  }
  line.logical = index_format::logical_of(line.key);
  line.timestamp = index_format::timestamp_of(line.key);
  line.has_odd_stamp = !has_stamp(line.key);
  if (line.verdict == Verdict::kUnknown) ++m_unknown;
  note_order(read);
  // The stored name of a line without a "/" of its own is the rest of the text.
  if (line.verdict == Verdict::kNoSeparator) return;
  find_file(line, read);
  if (line.verdict == Verdict::kEntry) note_entry(line, read);
}

void IndexLint::note_order(const IndexLine& read) {
  if (read.runs_on) return;
  if (read.key <= m_last_key) ++m_unordered;
  m_last_key = read.key;
}

void IndexLint::find_file(LintedLine& line, const IndexLine& read) {
  m_file = index_format::file_name_of(line.key, line.stored);
  line.file = m_file;
  if (read.state != LineState::kValid) return;
  const bool is_extended = m_file.size() != line.stored.size();
  if (read.entry != FolderFiles::kNone && read.has_extension == is_extended) {
    line.listed = static_cast<std::uint32_t>(read.entry);
    line.has_file = true;
  } else {
    line.has_file = m_view->files().find(m_file).presence != Presence::kMissing;
    if (line.has_file) line.listed = m_view->find(m_file);
  }
  if (line.listed != FolderView::kNone) line.file = m_view->names()[line.listed].text;
}

void IndexLint::note_entry(LintedLine& line, const IndexLine& read) {
  const auto number = static_cast<std::uint32_t>(line.number);
  const std::uint32_t same_key = m_keys.insert(line.key, number);
  if (same_key != number) {
    line.same_key_as = same_key;
    line.verdict = Verdict::kDuplicateKey;
    return;
  }
  const std::uint32_t same_stored = m_stored.insert(line.stored, number);
  if (same_stored != number) line.same_stored_as = same_stored;
  // Whose file it was stands in what is lost.
  if (line.has_zeros) return;
  if (read.entry != FolderFiles::kNone) m_claimed[read.entry] = true;
  if (line.listed != FolderView::kNone) m_claimed[line.listed] = true;
}

}  // namespace admin
