#include "tools/admin/index_lint.h"

#include <algorithm>
#include <array>
#include <limits>

#include "vu_file.h"

namespace admin {

namespace {

/// Longer than any name that a system takes.
constexpr std::size_t kBeyondAnyName = 32768;

/// Reads the ten digits that end a key; false when it does not end in "_" and ten digits.
bool read_stamp(std::string_view key, std::int32_t& timestamp) {
  const std::string_view stamp = key.substr(key.size() - index_format::kStampLength);
  std::uint64_t value = 0;
  bool all_digits = stamp.front() == '_';
  for (const char c : stamp.substr(1)) {
    const auto digit = static_cast<unsigned char>(c - '0');
    all_digits = all_digits && digit <= 9;
    value = value * 10 + digit;
  }
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  timestamp = static_cast<std::int32_t>(std::min(value, kMost));
  return all_digits;
}

}  // namespace

std::string_view name_of(Verdict verdict) {
  constexpr std::array<std::string_view, 5> kNames = {"entry", "no-separator", "short-key",
                                                      "no-file", "duplicate-key"};
  return kNames[static_cast<std::size_t>(verdict)];
}

void IndexLint::start(const FolderView& view) {
  m_view = &view;
  m_lines = index_format::Lines(view.index_text());
  m_number = 0;
  m_at = 0;
  m_in_tail = false;
  m_unordered = 0;
  m_last_key = {};
  m_claimed.assign(view.names().size(), false);
  m_stored.clear();
  m_keys.clear();
  m_keys_ascend = true;
}

void IndexLint::collect_keys_before(std::size_t number) {
  index_format::Lines lines(m_view->index_text());
  index_format::Line parsed;
  for (std::size_t at = 1; at < number && lines.next(parsed); ++at) {
    if (parsed.key.size() < index_format::kStampLength) continue;
    IndexLine line;
    line.key = parsed.key;
    line.stored = parsed.stored;
    line.logical = index_format::logical_of(parsed.key);
    line.timestamp = index_format::timestamp_of(parsed.key);
    if (find_file(line, parsed.runs_on)) m_keys.insert(line.key, static_cast<std::uint32_t>(at));
  }
}

bool IndexLint::next(IndexLine& line) {
  if (m_in_tail) return next_after_separators(line);
  index_format::Line parsed;
  if (!m_lines.next(parsed)) {
    m_in_tail = true;
    return next_after_separators(line);
  }
  const std::string_view text = m_view->index_text();
  const std::size_t end = std::min(text.find('\n', m_at), text.size());
  line = IndexLine();
  line.number = ++m_number;
  line.raw = text.substr(m_at, end - m_at);
  m_at = std::min(end + 1, text.size());
  judge(line, parsed);
  return true;
}

bool IndexLint::next_after_separators(IndexLine& line) {
  const std::string_view text = m_view->index_text();
  if (m_at >= text.size()) return false;
  // An index without an entry, and what a shortened one leaves behind: blanks say nothing.
  if (text.find_first_not_of(' ', m_at) == std::string_view::npos) return false;
  const std::size_t end = std::min(text.find('\n', m_at), text.size());
  line = IndexLine();
  line.number = ++m_number;
  line.raw = text.substr(m_at, end - m_at);
  line.verdict = Verdict::kNoSeparator;
  m_at = end + 1;
  return true;
}

void IndexLint::judge(IndexLine& line, const index_format::Line& parsed) {
  line.key = parsed.key;
  line.stored = parsed.stored;
  if (parsed.key.size() < index_format::kStampLength) {
    line.verdict = parsed.runs_on ? Verdict::kNoSeparator : Verdict::kShortKey;
    return;
  }
  line.logical = index_format::logical_of(parsed.key);
  line.has_odd_stamp = !read_stamp(parsed.key, line.timestamp);
  if (line.has_odd_stamp) line.timestamp = index_format::timestamp_of(parsed.key);
  // The writer's keys ascend, and then none comes twice: they are remembered from the first that
  // does not.
  const bool ascends = parsed.key > m_last_key && !parsed.runs_on;
  if (!ascends && !parsed.runs_on) ++m_unordered;
  if (!parsed.runs_on) m_last_key = parsed.key;
  if (m_keys_ascend && !ascends) {
    m_keys_ascend = false;
    collect_keys_before(line.number);
  }
  if (!find_file(line, parsed.runs_on)) {
    line.verdict = parsed.runs_on ? Verdict::kNoSeparator : Verdict::kNoFile;
    return;
  }
  note_key(line);
  if (line.verdict != Verdict::kEntry) return;
  const auto number = static_cast<std::uint32_t>(line.number);
  const std::uint32_t first = m_stored.insert(line.stored, number);
  if (first != number) line.same_stored_as = first;
  if (line.listed != FolderView::kNone) m_claimed[line.listed] = true;
}

void IndexLint::note_key(IndexLine& line) {
  if (m_keys_ascend) return;
  const auto number = static_cast<std::uint32_t>(line.number);
  const std::uint32_t first = m_keys.insert(line.key, number);
  if (first == number) return;
  line.same_key_as = first;
  line.verdict = Verdict::kDuplicateKey;
}

bool IndexLint::find_file(IndexLine& line, bool runs_on) {
  // The reader asks for the rest of the whole text as a name; only a short one can be one.
  if (runs_on && line.stored.size() >= kBeyondAnyName) return false;
  const std::string_view extension = index_format::extension_of(line.logical);
  const bool is_own_name = line.timestamp == 0 && line.logical == line.stored;
  // Valid is a line when either name exists; the entry's file is the one that its timestamp tells.
  if (!is_own_name && !extension.empty()) {
    m_file.assign(line.stored).append(extension);
  } else {
    m_file.assign(line.stored);
  }
  line.listed = m_view->find(m_file);
  if (line.listed != FolderView::kNone) {
    line.file = m_view->names()[line.listed].text;
    line.has_file = true;
    return true;
  }
  line.file = m_file;
  line.has_file = probe(m_file);
  return line.has_file || (m_file != line.stored && probe(line.stored));
}

bool IndexLint::probe(std::string_view name) {
  if (m_view->find(name) != FolderView::kNone) return true;
  // A separator, a pattern, another letter case, a dropped dot: the library's own question answers.
  return vu_file::exists(m_view->folder().path + "\\" + std::string(name));
}

}  // namespace admin
