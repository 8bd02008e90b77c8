#include "client/admin/key_files.h"

#include <algorithm>

#include "storage/key_text.h"

namespace admin {

namespace {

constexpr std::string_view kEnds = "\r\n\t";

struct LineEnd {
  std::size_t end;   ///< of the line that begins at a position, without its line end
  std::size_t next;  ///< the begin of the next line that is not empty
};

LineEnd end_of_line(std::string_view text, std::size_t begin) {
  const std::size_t end = std::min(text.find_first_of(kEnds, begin), text.size());
  return {end, std::min(text.find_first_not_of(kEnds, end), text.size())};
}

/// Whether the line has this key. The first "=" separates key and value.
bool is_of_key(std::string_view line, std::string_view key) {
  return line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=';
}

/// Removes lines from a position on, each with all line ends after it. @return their number.
template <class Wanted>
std::size_t remove_lines(std::string& text, std::size_t from, const Wanted& is_wanted) {
  std::size_t removed = 0;
  for (std::size_t begin = from; begin < text.size();) {
    const auto [end, next] = end_of_line(text, begin);
    if (is_wanted(std::string_view(text).substr(begin, end - begin))) {
      text.erase(begin, next - begin);
      ++removed;
    } else {
      begin = next;
    }
  }
  return removed;
}

void append_line(std::string& text, const std::string& line) {
  if (!text.empty() && kEnds.find(text.back()) == std::string_view::npos) text += '\n';
  text += line + "\n";
}

}  // namespace

KeyEdit set_key(std::string& text, std::string_view key, std::string_view value) {
  const std::string line = std::string(key) + "=" + std::string(value);
  const auto is_wanted = [&](std::string_view each) { return is_of_key(each, key); };
  for (std::size_t begin = 0; begin < text.size();) {
    const auto [end, next] = end_of_line(text, begin);
    const std::string_view old = std::string_view(text).substr(begin, end - begin);
    if (is_wanted(old)) {
      const bool differs = old != line;
      text.replace(begin, end - begin, line);
      const std::size_t rest = end_of_line(text, begin + line.size()).next;
      return remove_lines(text, rest, is_wanted) != 0 || differs ? KeyEdit::kChanged
                                                                 : KeyEdit::kUnchanged;
    }
    begin = next;
  }
  append_line(text, line);
  return KeyEdit::kChanged;
}

KeyEdit unset_key(std::string& text, std::string_view key) {
  const auto is_wanted = [&](std::string_view line) { return is_of_key(line, key); };
  return remove_lines(text, 0, is_wanted) != 0 ? KeyEdit::kChanged : KeyEdit::kUnchanged;
}

os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file) {
  std::string text;
  const os::Status status = sys::read_file(path, locking, text);
  if (!status.ok()) return status;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    if (const auto pair = key_text::split(line, key_text::Separator::kFirst)) {
      file.lines.emplace_back(pair->name, pair->value);
    } else if (!line.empty()) {
      ++file.passed_over;
    }
  }
  return {};
}

std::string master_profile(const std::string& config_folder) {
  for (const char* name : {"profile.txt", "master.txt"}) {
    const std::string path = sys::join(config_folder, name);
    if (sys::describe(path).kind != sys::Kind::kMissing) return path;
  }
  return {};
}

// ---- repairs -----------------------------------------------------------------------------------

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
  // Without the names of the index, every line would look dangling.
  if (!pair || folder.index_state() != IndexState::kRead) return false;
  if (folder.find(pair->name) != FolderView::kNone || folder.find(pair->value) != FolderView::kNone)
    return false;
  for (const LintedLine& entry : IndexLint(folder)) {
    if (!is_bad(entry.verdict) && (entry.logical == pair->name || entry.logical == pair->value))
      return false;
  }
  return true;
}

std::string without_key_lines(std::string_view text, const std::set<std::string>& lines,
                              std::size_t& removed) {
  std::string rest(text);
  removed = remove_lines(rest, 0, [&](std::string_view line) {
    return !line.empty() && lines.contains(std::string(line));
  });
  return rest;
}

std::string with_key_lines(std::string_view text, const std::vector<std::string>& lines) {
  std::set<std::string_view> present;
  key_text::Lines old_lines(text);
  std::string_view each;
  while (old_lines.next(each)) present.insert(each);
  std::string all(text);
  for (const std::string& line : lines) {
    if (!present.contains(line)) append_line(all, line);
  }
  return all;
}

}  // namespace admin
