#include "client/admin/lookup.h"

#include <algorithm>
#include <string_view>

#include "client/admin/text.h"
#include "index/index_format.h"
#include "storage/key_text.h"
#include "storage/layout.h"
#include "vu_file.h"

namespace admin {

namespace {

std::string in_words(sys::Kind kind) {
  switch (kind) {
    case sys::Kind::kFolder:
      return "folder";
    case sys::Kind::kLink:
      return "link";
    case sys::Kind::kFile:
      return "file";
    default:
      return "something else";
  }
}

}  // namespace

std::string shown_time(std::int64_t seconds) {
  return std::to_string(seconds) + " (" + format_time(seconds) + " UTC)";
}

bool Steps::yes(std::string name, std::string text, Values values) {
  m_result.steps.push_back({std::move(name), Answer::kYes, std::move(text), std::move(values)});
  return true;
}

bool Steps::no(std::string name, std::string text, Values values) {
  m_result.steps.push_back({std::move(name), Answer::kNo, std::move(text), std::move(values)});
  return false;
}

void Steps::note(std::string name, std::string text, Values values) {
  m_result.steps.push_back({std::move(name), Answer::kNote, std::move(text), std::move(values)});
}

std::int32_t Steps::time_of(const std::string& path) {
  return static_cast<std::int32_t>(vu_file::modify_time(path));
}

bool Steps::entry_is_named() {
  if (m_request.entry.empty()) return no("entry", "the entry's name is empty");
  if (const char* why = why_not_safe(m_request.entry))
    note("unsafe-name", std::string("the name is used as part of a path, and ") + why,
         {{"entry", m_request.entry}});
  return yes("entry", "the entry has a name", {{"entry", m_request.entry}});
}

// ---- folders -----------------------------------------------------------------------------------

bool Steps::folders(MissingFolder missing) {
  m_folder = folder_for(m_tree, m_request.area, m_request.owner, m_request.entry);
  const std::string area = m_tree.folder_of(m_request.area);
  if (!one_folder("area-folder", area, MissingFolder::kWouldBeMade, {{"path", area}})) return false;
  if (m_tree.layout != Layout::kFlat) {
    const std::string path = sys::join(area, m_folder.owner);
    if (!one_folder("owner-folder", path, missing, {{"owner", m_folder.owner}, {"path", path}}))
      return false;
  }
  if (m_request.area != Area::kDocs) return true;
  const std::int32_t hash = layout::hash_of(m_request.entry, layout::kBuckets);
  return one_folder(
      "bucket-folder", m_folder.path, missing,
      {{"hash", std::to_string(hash)}, {"bucket", m_folder.bucket}, {"path", m_folder.path}});
}

bool Steps::one_folder(std::string name, const std::string& path, MissingFolder missing,
                       Values values) {
  // Like the library: checks only for existence, and follows links.
  if (vu_file::exists(path)) {
    const sys::Kind kind = sys::describe(path).kind;
    if (kind == sys::Kind::kFolder)
      return yes(std::move(name), "the folder exists", std::move(values));
    values.emplace_back("kind", in_words(kind));
    return yes(std::move(name), "it exists; the library does not check that it is a folder",
               std::move(values));
  }
  m_has_folder = false;
  if (missing == MissingFolder::kEndsIt)
    return no(std::move(name), "the folder does not exist", std::move(values));
  return yes(std::move(name), "the folder does not exist; the library would create it",
             std::move(values));
}

// ---- looking an entry up -----------------------------------------------------------------------

bool Steps::lookup(std::int32_t timestamp) {
  const std::string& entry = m_request.entry;
  if (vu_file::exists(m_folder.path + "\\" + entry)) {
    m_file = entry;
    return yes("plain-name",
               "a file or folder has the entry's name as its own name: the library serves it, "
               "whatever the timestamp and the index",
               {{"path", path()}});
  }
  note("plain-name",
       "no file or folder has the entry's name as its own name, so the library searches the index");
  return in_index(timestamp);
}

bool Steps::index_is_readable() {
  m_view.load(m_folder, m_locking);
  const Values where = {{"path", m_view.path_of(index_format::kIndexFile)}};
  switch (m_view.index_state()) {
    case IndexState::kMissing:
      return no("index",
                "index.dat is missing; the library would first create it and, with synchronisation "
                "on, adopt the folder's files under their own names at timestamp 0",
                where);
    case IndexState::kLocked:
      m_result.lock_missed = true;
      return no("index",
                "another process has locked index.dat; the library would wait for the lock", where);
    case IndexState::kFailed:
      return no("index", "index.dat cannot be read: " + sys::text_of(m_view.index_status()), where);
    case IndexState::kNoBytes:
      return no("index",
                "index.dat has no bytes: a writer was interrupted, and the logical names are lost",
                where);
    case IndexState::kRead:
      break;
  }
  return yes("index",
             m_view.has_interrupted_save()
                 ? "index.dat was read; a save was interrupted, and its new text is valid"
                 : "index.dat was read",
             {{"path", m_view.path_of(index_format::kIndexFile)},
              {"bytes", std::to_string(m_view.index_text().size())}});
}

bool Steps::in_index(std::int32_t timestamp) {
  if (!index_is_readable()) return false;
  const std::string key = index_format::key_of(m_request.entry, timestamp);
  m_lint.start(m_view);
  LintedLine line;
  std::vector<LintedLine> skipped;
  while (m_lint.next(line)) {
    if (line.key != key) continue;
    if (line.verdict == Verdict::kEntry) {
      const Values values = {{"key", key},
                             {"line", std::to_string(line.number)},
                             {"physical", std::string(line.stored)},
                             {"file", std::string(line.file)}};
      yes("index-line", "the index has an entry with this key", values);
      m_file = line.file;
      if (line.has_file) return yes("file", "the entry's file exists", {{"path", path()}});
      return no("file", "the entry's file is missing", {{"path", path()}});
    }
    skipped.push_back(line);
  }
  if (skipped.empty()) {
    tell_near_misses(key);
    return no("index-line", "the index has no entry with this key", {{"key", key}});
  }
  const LintedLine& first = skipped.front();
  const bool is_unknown = first.verdict == Verdict::kUnknown;
  return no(
      "index-line",
      is_unknown
          ? "the index has an unknown entry with this key: the system could not check whether its "
            "file exists, so readers skip it"
          : "the index has a dangling entry with this key: its file is missing, so readers skip it",
      {{"key", key},
       {"line", std::to_string(first.number)},
       {"physical", std::string(first.stored)},
       {"verdict", std::string(name_of(first.verdict))}});
}

void Steps::tell_near_misses(std::string_view wanted) {
  std::string folded_entry;
  std::string folded;
  fold_case(m_request.entry, folded_entry);
  LintedLine line;
  m_lint.start(m_view);
  while (m_lint.next(line)) {
    if (line.verdict != Verdict::kEntry || line.key == wanted) continue;
    const Values values = {{"entry", std::string(line.logical)},
                           {"timestamp", std::to_string(line.timestamp)},
                           {"line", std::to_string(line.number)}};
    if (line.logical == m_request.entry) {
      note("other-version", "the index has the entry at another timestamp", values);
      continue;
    }
    fold_case(line.logical, folded);
    if (folded == folded_entry)
      note("other-case", "the index has the name in another letter case", values);
  }
}

std::vector<std::string> Steps::names_with_extension(std::string_view extension) {
  std::vector<std::string> names;
  m_view.load(m_folder, m_locking);
  m_lint.start(m_view);
  LintedLine line;
  while (m_lint.next(line)) {
    if (line.verdict == Verdict::kEntry && index_format::extension_of(line.logical) == extension)
      names.emplace_back(line.logical);
  }
  return names;
}

// ---- finding an entry --------------------------------------------------------------------------

Lookup look_up(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Explanation told;
  Steps steps(tree, request, locking, told);
  Lookup result;
  result.found = steps.entry_is_named() && steps.folders(MissingFolder::kEndsIt) &&
                 steps.lookup(request.timestamp);
  result.lock_missed = told.lock_missed;
  result.folder = steps.folder();
  if (result.found) {
    result.file = steps.file();
    result.path = steps.path();
    for (const Step& step : told.steps) {
      if (step.name == "plain-name" && step.answer == Answer::kYes) result.by_plain_name = true;
    }
  } else if (const Step* no = told.first_no()) {
    result.why = no->text;
  }
  return result;
}

// ---- key files ---------------------------------------------------------------------------------

namespace {

constexpr std::string_view kEnds = "\r\n\t";

/// The end of the line that begins at a position, without its line end.
std::size_t end_of_line(std::string_view text, std::size_t begin) {
  return std::min(text.find_first_of(kEnds, begin), text.size());
}

/// Whether the line has this key. The first "=" separates key and value.
bool is_of_key(std::string_view line, std::string_view key) {
  return line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=';
}

/// Removes the key's lines from a position on, each with all line ends after it.
bool remove_lines(std::string& text, std::size_t from, std::string_view key) {
  bool any = false;
  std::size_t begin = from;
  while (begin < text.size()) {
    const std::size_t end = end_of_line(text, begin);
    const std::size_t next = std::min(text.find_first_not_of(kEnds, end), text.size());
    if (is_of_key(std::string_view(text).substr(begin, end - begin), key)) {
      text.erase(begin, next - begin);
      any = true;
    } else {
      begin = next;
    }
  }
  return any;
}

}  // namespace

KeyEdit set_key(std::string& text, std::string_view key, std::string_view value) {
  const std::string line = std::string(key) + "=" + std::string(value);
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = end_of_line(text, begin);
    const std::string_view old = std::string_view(text).substr(begin, end - begin);
    if (is_of_key(old, key)) {
      const bool differs = old != line;
      text.replace(begin, end - begin, line);
      const std::size_t rest =
          std::min(text.find_first_not_of(kEnds, begin + line.size()), text.size());
      return remove_lines(text, rest, key) || differs ? KeyEdit::kChanged : KeyEdit::kUnchanged;
    }
    begin = std::min(text.find_first_not_of(kEnds, end), text.size());
  }
  if (!text.empty() && kEnds.find(text.back()) == std::string_view::npos) text += '\n';
  text += line + "\n";
  return KeyEdit::kChanged;
}

KeyEdit unset_key(std::string& text, std::string_view key) {
  return remove_lines(text, 0, key) ? KeyEdit::kChanged : KeyEdit::kUnchanged;
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

}  // namespace admin
