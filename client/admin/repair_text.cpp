#include "client/admin/repair_text.h"

#include <algorithm>

#include "storage/key_text.h"

namespace admin {

namespace {

constexpr std::string_view kLineEnds = "\r\n\t";

bool is_blank(std::string_view line) {
  return line.find_first_not_of(' ') == std::string_view::npos;
}

std::string_view key_part(std::string_view line) { return line.substr(0, line.find('/')); }

std::set<std::string, std::less<>> lines_of(std::string_view index) {
  std::set<std::string, std::less<>> lines;
  for (std::string_view rest = index; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    lines.emplace(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return lines;
}

}  // namespace

// ---- indexes -----------------------------------------------------------------------------------

std::vector<std::pair<std::size_t, BadLine>> bad_lines(const FolderView& folder) {
  std::vector<std::pair<std::size_t, BadLine>> lines;
  IndexLint lint;
  lint.start(folder);
  LintedLine line;
  while (lint.next(line)) {
    if (is_bad(line.verdict) && !is_blank(line.raw))
      lines.emplace_back(line.number, BadLine{std::string(line.raw), line.verdict});
  }
  return lines;
}

std::string without_bad_lines(const FolderView& folder, const std::set<BadLine>& unwanted,
                              std::size_t& removed) {
  removed = 0;
  std::string text;
  std::set<std::string, std::less<>> seen;
  IndexLint lint;
  lint.start(folder);
  LintedLine line;
  while (lint.next(line)) {
    if (is_bad(line.verdict) && unwanted.contains({std::string(line.raw), line.verdict})) {
      ++removed;
      continue;
    }
    if (is_blank(line.raw)) continue;
    const bool is_new = seen.emplace(line.raw).second;
    if (line.verdict == Verdict::kDuplicateKey && !is_new) continue;
    text.append(line.raw).append("\n");
  }
  // So the library writes an index without entries.
  return text.empty() ? " " : text;
}

std::string with_lines(std::string_view index, const std::vector<std::string>& lines) {
  const auto present = lines_of(index);
  // Lines with one key keep their order: the first one counts. A second copy of a line says
  // nothing.
  std::vector<std::string_view> in_order;
  std::set<std::string_view> seen;
  for (std::string_view rest = index; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    if (!is_blank(line) && seen.insert(line).second) in_order.push_back(line);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  for (const std::string& line : lines) {
    if (!present.contains(line)) in_order.push_back(line);
  }
  std::stable_sort(
      in_order.begin(), in_order.end(),
      [](std::string_view one, std::string_view other) { return key_part(one) < key_part(other); });
  std::string text;
  for (const std::string_view line : in_order) text.append(line).append("\n");
  return text.empty() ? " " : text;
}

// ---- key files ---------------------------------------------------------------------------------

std::string_view key_line(std::string_view text, std::size_t number) {
  key_text::Lines lines(text);
  std::string_view line;
  std::size_t count = 0;
  while (lines.next(line)) {
    if (!line.empty() && ++count == number) return line;
  }
  return {};
}

bool is_dangling(const FolderView& folder, std::string_view line) {
  const auto pair = key_text::split(line, key_text::Separator::kFirst);
  if (!pair) return false;
  if (folder.find(pair->name) != FolderView::kNone || folder.find(pair->value) != FolderView::kNone)
    return false;
  IndexLint lint;
  lint.start(folder);
  LintedLine entry;
  while (lint.next(entry)) {
    if ((entry.verdict == Verdict::kEntry || entry.verdict == Verdict::kUnknown) &&
        (entry.logical == pair->name || entry.logical == pair->value))
      return false;
  }
  return true;
}

std::string without_key_lines(std::string_view text, const std::set<std::string>& lines,
                              std::size_t& removed) {
  removed = 0;
  std::string rest;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of(kLineEnds, at), text.size());
    const std::size_t next = std::min(text.find_first_not_of(kLineEnds, end), text.size());
    const std::string_view line = text.substr(at, end - at);
    if (!line.empty() && lines.contains(std::string(line))) {
      ++removed;
    } else {
      rest.append(text.substr(at, next - at));
    }
    at = next;
  }
  return rest;
}

std::string with_key_lines(std::string_view text, const std::vector<std::string>& lines) {
  std::string all(text);
  for (const std::string& line : lines) {
    bool is_there = false;
    key_text::Lines present(text);
    std::string_view each;
    while (present.next(each)) is_there = is_there || each == line;
    if (is_there) continue;
    if (!all.empty() && kLineEnds.find(all.back()) == std::string_view::npos) all += '\n';
    all.append(line).append("\n");
  }
  return all;
}

// ---- names -------------------------------------------------------------------------------------

bool is_unclaimed_file(const FolderView& folder, std::string_view name) {
  const std::uint32_t at = folder.find(name);
  if (at == FolderView::kNone || folder.names()[at].kind != sys::Kind::kFile ||
      index_format::is_index_file(name) || folder.index_state() != IndexState::kRead)
    return false;
  IndexLint lint;
  lint.start(folder);
  LintedLine line;
  while (lint.next(line)) {
  }
  // A line of which nobody knows may lead to any file.
  return lint.unknown_lines() == 0 && !lint.is_claimed(at);
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
  return index_format::generated_name(highest_number(folder));
}

std::int32_t counter_in(std::string_view text) { return index_format::parse_decimal(text); }

bool is_orphaned_parts(const FolderView& folder, std::string_view name) {
  const std::uint32_t at = folder.find(name);
  if (at == FolderView::kNone || folder.names()[at].kind != sys::Kind::kFolder) return false;
  for (std::size_t end = name.find('_'); end != std::string_view::npos;
       end = name.find('_', end + 1)) {
    if (folder.find(name.substr(0, end)) != FolderView::kNone) return false;
  }
  return name.find('_') != std::string_view::npos;
}

}  // namespace admin
