#include "client/admin/repair_text.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "client/admin/locked_file.h"
#include "index/index_format.h"

namespace admin {

namespace {

std::string_view key_part(std::string_view line) { return line.substr(0, line.find('/')); }

}  // namespace

std::string index_text_of(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(line).append("\n");
  // Without entries, an index contains a blank.
  return text.empty() ? " " : text;
}

void sort_by_key(std::vector<std::string>& lines) { std::ranges::stable_sort(lines, {}, key_part); }

// ---- indexes -----------------------------------------------------------------------------------

std::vector<std::pair<std::size_t, BadLine>> bad_lines(const FolderView& folder) {
  std::vector<std::pair<std::size_t, BadLine>> lines;
  for (const LintedLine& line : IndexLint(folder)) {
    if (is_bad(line.verdict) && !line.is_blank())
      lines.emplace_back(line.number, BadLine{std::string(line.raw), line.verdict});
  }
  return lines;
}

std::string without_bad_lines(const FolderView& folder, const std::set<BadLine>& unwanted,
                              std::size_t& removed) {
  removed = 0;
  std::vector<std::string> kept;
  std::set<std::string_view> seen;
  for (const LintedLine& line : IndexLint(folder)) {
    if (is_bad(line.verdict) && unwanted.contains({std::string(line.raw), line.verdict})) {
      ++removed;
      continue;
    }
    if (line.is_blank()) continue;
    const bool is_new = seen.insert(line.raw).second;
    if (is_new || line.verdict != Verdict::kDuplicateKey) kept.emplace_back(line.raw);
  }
  return index_text_of(kept);
}

std::string with_lines(std::string_view index, const std::vector<std::string>& lines) {
  std::vector<std::string> all;
  std::set<std::string, std::less<>> present;
  std::istringstream text{std::string(index)};
  // Drops second copies and blank lines.
  for (std::string line; std::getline(text, line);) {
    const bool is_blank = line.find_first_not_of(' ') == std::string::npos;
    if (present.insert(line).second && !is_blank) all.push_back(line);
  }
  for (const std::string& line : lines) {
    if (!present.contains(line)) all.push_back(line);
  }
  sort_by_key(all);
  return index_text_of(all);
}

// ---- names -------------------------------------------------------------------------------------

bool is_unclaimed_file(const FolderView& folder, std::string_view name) {
  if (folder.kind_of(name) != sys::Kind::kFile || index_format::is_index_file(name) ||
      folder.index_state() != IndexState::kRead)
    return false;
  IndexLint lint(folder);
  for ([[maybe_unused]] const LintedLine& line : lint) {
  }
  // An unknown entry may belong to any file.
  return lint.unknown_lines() == 0 && !lint.is_claimed(folder.find(name));
}

std::int32_t number_drawn_for(std::string_view stored) {
  constexpr std::size_t kMostDigits = 10;
  const bool is_drawn = index_format::is_generated_name(stored) && stored.size() <= kMostDigits &&
                        stored != index_format::kTroubleName;
  return is_drawn ? index_format::parse_decimal(stored) : 0;
}

std::int32_t highest_number(const FolderView& folder) {
  std::int32_t highest = 0;
  for (const Name& name : folder.names()) {
    const std::string_view stem = name.text.substr(0, name.text.find('.'));
    if (name.kind == sys::Kind::kFile) highest = std::max(highest, number_drawn_for(stem));
  }
  return highest;
}

std::string highest_name(const FolderView& folder) {
  std::int32_t highest = highest_number(folder);
  // A link or a folder can be in the place of an entry's file. Its number is in use, too.
  for (const LintedLine& line : IndexLint(folder)) {
    if (line.verdict == Verdict::kEntry) highest = std::max(highest, number_drawn_for(line.stored));
  }
  return index_format::generated_name(highest);
}

std::int32_t counter_in(std::string_view text) { return index_format::parse_decimal(text); }

bool is_orphaned_parts(const FolderView& folder, std::string_view name) {
  if (folder.kind_of(name) != sys::Kind::kFolder) return false;
  if (name.find('_') == std::string_view::npos) return false;
  return folder.document_of(name) == FolderView::kNone && !belongs_to_entry(folder, name);
}

// ---- entries of a damaged index -----------------------------------------------------------------

namespace {

using Names = std::set<std::string, std::less<>>;

constexpr std::size_t kFewestDigits = 8;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The text without a byte order mark of UTF-16.
std::string_view without_mark(std::string_view text) {
  constexpr std::string_view kMark = "\xFF\xFE";
  return text.starts_with(kMark) ? text.substr(kMark.size()) : text;
}

/// Whether every second byte is zero: an editor has saved the text as UTF-16.
bool is_wide(std::string_view text) {
  text = without_mark(text);
  for (std::size_t i = 1; i < text.size(); i += 2) {
    if (text[i] != '\0') return false;
  }
  return text.size() > 1;
}

/// The text without carriage returns. A line with a zero ends there: what follows is the end of
/// another line. What precedes the zeros stays, and may be truncated.
std::string cleaned(std::string_view text) {
  const bool wide = is_wide(text);
  if (wide) text = without_mark(text);
  std::string clean;
  bool is_behind_zeros = false;
  for (std::size_t i = 0; i < text.size(); i += wide ? 2 : 1) {
    if (text[i] == '\0') is_behind_zeros = true;
    if (text[i] == '\n') is_behind_zeros = false;
    if (text[i] != '\r' && !is_behind_zeros) clean += text[i];
  }
  return clean;
}

/// Whether the text is a key: a name, "_" and ten digits.
bool is_key(std::string_view key) {
  return key.size() > index_format::kStampLength && has_stamp(key);
}

/// The end of a physical name: a generated name ends after its digits, even if another line was
/// joined to it. Any other name ends with its line.
std::size_t end_of_stored(std::string_view text, std::size_t from) {
  std::size_t digits = from;
  while (digits < text.size() && is_digit(text[digits])) ++digits;
  if (digits - from >= kFewestDigits) {
    const bool ends_there = digits == text.size() || text[digits] == '\n';
    return ends_there ? digits : from + kFewestDigits;
  }
  return std::min(text.find('\n', from), text.size());
}

/// All parts of the text that have the form of an entry.
std::vector<std::string> lines_in(std::string_view text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t slash = text.find('/'); slash != std::string_view::npos;
       slash = text.find('/', slash + 1)) {
    std::string_view key = text.substr(begin, slash - begin);
    key = key.substr(key.find_last_of('\n') + 1);
    if (!is_key(key)) continue;
    const std::size_t end = end_of_stored(text, slash + 1);
    lines.emplace_back(std::string(key) + std::string(text.substr(slash, end - slash)));
    begin = end;
    if (end > slash) slash = end - 1;
  }
  return lines;
}

std::string_view stored_part(std::string_view line) { return line.substr(line.find('/') + 1); }

/// The keys and files of a folder's entries.
struct Taken {
  Names keys;
  Names files;
};

Taken taken_by_entries(const FolderView& folder) {
  Taken taken;
  for (const LintedLine& line : IndexLint(folder)) {
    if (line.verdict != Verdict::kEntry && line.verdict != Verdict::kUnknown) continue;
    if (line.has_zeros) continue;
    taken.keys.emplace(line.key);
    taken.files.emplace(line.file);
  }
  return taken;
}

/// Accepts a line if its file exists, and no entry has its key or file.
bool take(const FolderView& folder, std::string_view line, Taken& taken) {
  const std::string_view key = key_part(line);
  if (!is_key(key) || stored_part(line).empty()) return false;
  const std::string file = index_format::file_name_of(key, stored_part(line));
  if (folder.kind_of(file) != sys::Kind::kFile) return false;
  if (taken.keys.contains(key) || taken.files.contains(file)) return false;
  taken.keys.emplace(key);
  taken.files.emplace(file);
  return true;
}

/// Whether the folder has other documents: the damage may have destroyed their names.
bool has_more_files(const FolderView& folder, const Names& known) {
  return std::ranges::any_of(folder.names(), [&](const Name& name) {
    return name.kind == sys::Kind::kFile && !index_format::is_index_file(name.text) &&
           !is_unfinished(name.text) && !known.contains(name.text);
  });
}

/// Builds the text of an index from entries, restored lines and the rest of damaged lines.
class RestoredText {
 public:
  RestoredText(const FolderView& folder, const std::vector<std::string>& lines)
      : m_taken(taken_by_entries(folder)) {
    for (const std::string& line : lines) {
      if (take(folder, line, m_taken)) m_lines.push_back(line);
    }
    m_restored = m_lines.size();
    m_keeps_zeros = has_more_files(folder, m_taken.files);
  }

  std::size_t restored() const { return m_restored; }
  void add(std::string_view line) { m_lines.emplace_back(line); }
  /// Adds a damaged line, unless all its keys are in restored lines or entries.
  void add_rest(std::string_view raw) {
    const bool has_zeros = raw.find('\0') != std::string_view::npos;
    // If names are still lost, the zeros stay as the only evidence. Otherwise they are dropped.
    if (has_zeros && !m_keeps_zeros) return;
    std::string rest = has_zeros ? std::string(raw) : cleaned(raw);
    if (rest.empty() || (!has_zeros && is_told(rest))) return;
    (rest.find('/') == std::string::npos ? m_loose : m_lines).push_back(std::move(rest));
  }
  std::string text() {
    sort_by_key(m_lines);
    m_lines.insert(m_lines.end(), m_loose.begin(), m_loose.end());
    return index_text_of(m_lines);
  }

 private:
  bool is_told(std::string_view text) const {
    const std::vector<std::string> told = lines_in(text);
    return !told.empty() && std::ranges::all_of(told, [&](const std::string& each) {
      return m_taken.keys.contains(key_part(each));
    });
  }

  Taken m_taken;  ///< by entries and restored lines
  std::size_t m_restored = 0;
  bool m_keeps_zeros = false;
  std::vector<std::string> m_lines;
  std::vector<std::string> m_loose;  ///< lines without a "/", for the end
};

}  // namespace

std::vector<std::string> salvaged_lines(const FolderView& folder) {
  Taken taken = taken_by_entries(folder);
  std::vector<std::string> lines;
  for (std::string& line : lines_in(cleaned(folder.index_text()))) {
    if (take(folder, line, taken)) lines.push_back(std::move(line));
  }
  return lines;
}

std::string with_restored_lines(const FolderView& folder, const std::vector<std::string>& lines,
                                std::size_t& added) {
  RestoredText text(folder, lines);
  added = text.restored();
  if (is_wide(folder.index_text())) {
    std::istringstream plain(cleaned(folder.index_text()));
    for (std::string line; std::getline(plain, line);) text.add_rest(line);
    return text.text();
  }
  for (const LintedLine& line : IndexLint(folder)) {
    if (line.is_blank()) continue;
    const bool is_entry = line.verdict == Verdict::kEntry && !line.has_zeros;
    if (is_entry || line.verdict == Verdict::kUnknown) {
      text.add(line.raw);
    } else {
      text.add_rest(line.raw);
    }
  }
  return text.text();
}

}  // namespace admin
