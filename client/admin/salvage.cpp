#include "client/admin/salvage.h"

#include <algorithm>
#include <set>

#include "client/admin/index_lint.h"
#include "index/index_format.h"

namespace admin {

namespace {

using Names = std::set<std::string, std::less<>>;

constexpr std::size_t kFewestDigits = 8;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The text without carriage returns and zeros.
std::string cleaned(std::string_view text) {
  std::string clean;
  for (const char c : text) {
    if (c != '\r' && c != '\0') clean += c;
  }
  return clean;
}

/// Whether a key ends in "_" and ten digits, and has a name before it.
bool is_key(std::string_view key) {
  if (key.size() <= index_format::kStampLength) return false;
  const std::string_view stamp = key.substr(key.size() - index_format::kStampLength);
  return stamp.front() == '_' && std::all_of(stamp.begin() + 1, stamp.end(), is_digit);
}

/// Where a stored name ends: a generated one after its digits, also where another line is glued
/// to it; any other at the end of the line.
std::size_t end_of_stored(std::string_view text, std::size_t from) {
  std::size_t digits = from;
  while (digits < text.size() && is_digit(text[digits])) ++digits;
  if (digits - from >= kFewestDigits) {
    const bool ends_there = digits == text.size() || text[digits] == '\n';
    return ends_there ? digits : from + kFewestDigits;
  }
  return std::min(text.find('\n', from), text.size());
}

/// Everything in the text that has the form of a line.
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

std::string_view key_part(std::string_view line) { return line.substr(0, line.find('/')); }
std::string_view stored_part(std::string_view line) { return line.substr(line.find('/') + 1); }

bool is_blank(std::string_view line) {
  return line.find_first_not_of(' ') == std::string_view::npos;
}

/// What the entries of a folder have.
struct Taken {
  Names keys;
  Names files;
};

Taken taken_by_entries(const FolderView& folder) {
  Taken taken;
  IndexLint lint;
  lint.start(folder);
  LintedLine line;
  while (lint.next(line)) {
    if (line.verdict != Verdict::kEntry && line.verdict != Verdict::kUnknown) continue;
    taken.keys.emplace(line.key);
    taken.files.emplace(line.file);
  }
  return taken;
}

/// Takes a line in when its file is there, and neither the file nor the name is somebody's.
bool take(const FolderView& folder, std::string_view line, Taken& taken) {
  const std::string_view key = key_part(line);
  if (!is_key(key) || stored_part(line).empty()) return false;
  const std::string file = index_format::file_name_of(key, stored_part(line));
  const std::uint32_t at = folder.find(file);
  if (at == FolderView::kNone || folder.names()[at].kind != sys::Kind::kFile) return false;
  if (taken.keys.contains(key) || taken.files.contains(file)) return false;
  taken.keys.emplace(key);
  taken.files.emplace(file);
  return true;
}

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
  Taken taken = taken_by_entries(folder);
  Names restored;
  for (const std::string& line : lines) {
    if (take(folder, line, taken)) restored.insert(line);
  }
  added = restored.size();
  std::vector<std::string> all(restored.begin(), restored.end());
  Names restored_keys;
  for (const std::string& line : restored) restored_keys.emplace(key_part(line));
  std::vector<std::string> loose;
  IndexLint lint;
  lint.start(folder);
  LintedLine line;
  while (lint.next(line)) {
    if (is_blank(line.raw)) continue;
    if (line.verdict == Verdict::kEntry || line.verdict == Verdict::kUnknown) {
      all.emplace_back(line.raw);
      continue;
    }
    // Of a damaged line stays what no restored line has told.
    std::vector<std::string> told = lines_in(cleaned(line.raw));
    const bool is_told = !told.empty() && std::all_of(told.begin(), told.end(), [&](auto& each) {
      return restored_keys.contains(key_part(each)) || taken.keys.contains(key_part(each));
    });
    if (is_told || cleaned(line.raw).empty()) continue;
    (line.raw.find('/') == std::string_view::npos ? loose : all).push_back(cleaned(line.raw));
  }
  std::stable_sort(all.begin(), all.end(), [](std::string_view one, std::string_view other) {
    return key_part(one) < key_part(other);
  });
  all.insert(all.end(), loose.begin(), loose.end());
  std::string text;
  for (const std::string& each : all) text.append(each).append("\n");
  return text.empty() ? " " : text;
}

}  // namespace admin
