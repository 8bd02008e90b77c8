#include "client/admin/explain.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "client/admin/folder_view.h"
#include "client/admin/text.h"
#include "index/index_format.h"
#include "storage/layout.h"
#include "vu_file.h"

namespace admin {

std::string shown_time(std::int64_t seconds) {
  return std::to_string(seconds) + " (" + format_time(seconds) + " UTC)";
}

namespace {

/// What a missing folder means for the request.
enum class MissingFolder : std::uint8_t { kEndsIt, kWouldBeMade };

/// The steps that reads, writes and sub-parts share. Each returns whether to continue.
class Steps {
 public:
  Steps(const Tree& tree, const Request& request, const sys::Locking& locking, Explanation& result)
      : m_tree(tree), m_request(request), m_locking(locking), m_result(result) {}

  using Values = std::vector<std::pair<std::string, std::string>>;
  bool yes(const char* name, const std::string& text, const Values& values = {}) {
    m_result.steps.push_back({name, Answer::kYes, text, values});
    return true;
  }
  bool no(const char* name, const std::string& text, const Values& values = {}) {
    m_result.steps.push_back({name, Answer::kNo, text, values});
    return false;
  }
  void note(const char* name, const std::string& text, const Values& values = {}) {
    m_result.steps.push_back({name, Answer::kNote, text, values});
  }

  /// The modification time of a file in the library's 32 bits; 0 if the file is missing.
  static std::int32_t time_of(const std::string& path) {
    return static_cast<std::int32_t>(vu_file::modify_time(path));
  }

  /// Whether the entry's name is not empty.
  bool entry_is_named() {
    if (m_request.entry.empty()) return no("entry", "the entry's name is empty");
    if (const char* why = why_not_safe(m_request.entry))
      note("unsafe-name", std::string("the name is used as part of a path, and ") + why,
           {{"entry", m_request.entry}});
    return yes("entry", "the entry has a name", {{"entry", m_request.entry}});
  }

  /// Whether the folders of the area, the owner and the bucket exist.
  bool folders(MissingFolder missing) {
    const DocumentFolder& folder = m_result.folder =
        folder_for(m_tree, m_request.area, m_request.owner, m_request.entry);
    const std::string area = m_tree.folder_of(m_request.area);
    if (!one_folder("area-folder", area, MissingFolder::kWouldBeMade, {{"path", area}}))
      return false;
    if (m_tree.layout != Layout::kFlat) {
      const std::string path = sys::join(area, folder.owner);
      if (!one_folder("owner-folder", path, missing, {{"owner", folder.owner}, {"path", path}}))
        return false;
    }
    if (m_request.area != Area::kDocs) return true;
    const std::int32_t hash = layout::hash_of(m_request.entry, layout::kBuckets);
    return one_folder(
        "bucket-folder", folder.path, missing,
        {{"hash", std::to_string(hash)}, {"bucket", folder.bucket}, {"path", folder.path}});
  }

  /// Looks up the entry as the library does: first a file with its name, then the index.
  bool lookup(std::int32_t timestamp) {
    const std::string& entry = m_request.entry;
    if (vu_file::exists(m_result.folder.path + "\\" + entry)) {
      m_file = entry;
      return yes("plain-name",
                 "a file or folder has the entry's name as its own name: the library serves it, "
                 "whatever the timestamp and the index",
                 {{"path", path()}});
    }
    note("plain-name",
         "no file or folder has the entry's name as its own name, so the library searches the "
         "index");
    return in_index(timestamp);
  }

  /// The logical names in the folder's index that have this extension.
  std::vector<std::string> names_with_extension(std::string_view extension) {
    std::vector<std::string> names;
    m_view.load(m_result.folder, m_locking);
    for (const LintedLine& line : IndexLint(m_view)) {
      if (line.verdict == Verdict::kEntry && index_format::extension_of(line.logical) == extension)
        names.emplace_back(line.logical);
    }
    return names;
  }

  /// After folders(): whether the folder exists.
  bool has_folder() const { return m_has_folder; }
  const DocumentFolder& folder() const { return m_result.folder; }
  /// After lookup(): of the file.
  std::string path() const { return sys::join(m_result.folder.path, m_file); }
  /// Whether the index could not be read. That also ends a write.
  bool index_failed() const { return m_view.index_state() == IndexState::kFailed; }

 private:
  bool one_folder(const char* name, const std::string& path, MissingFolder missing, Values values) {
    // Like the library: checks only for existence, and follows links.
    m_has_folder = vu_file::exists(path);
    if (!m_has_folder && missing == MissingFolder::kEndsIt)
      return no(name, "the folder does not exist", values);
    if (!m_has_folder)
      return yes(name, "the folder does not exist; the library would create it", values);
    const sys::Kind kind = sys::describe(path).kind;
    if (kind == sys::Kind::kFolder) return yes(name, "the folder exists", values);
    values.emplace_back(
        "kind", word_of(kind, {"something else", "file", "folder", "link", "something else"}));
    return yes(name, "it exists; the library does not check that it is a folder", values);
  }

  bool index_is_readable() {
    m_view.load(m_result.folder, m_locking);
    Values where = {{"path", m_view.path_of(index_format::kIndexFile)}};
    m_result.lock_missed = m_view.index_state() == IndexState::kLocked;
    if (m_view.index_state() != IndexState::kRead) return no("index", why_not_read(), where);
    where.emplace_back("bytes", std::to_string(m_view.index_text().size()));
    return yes("index",
               m_view.has_interrupted_save()
                   ? "index.dat was read; a save was interrupted, and its new text is valid"
                   : "index.dat was read",
               where);
  }

  std::string why_not_read() const {
    switch (m_view.index_state()) {
      case IndexState::kMissing:
        return "index.dat is missing; the library would first create it and, with synchronisation "
               "on, adopt the folder's files under their own names at timestamp 0";
      case IndexState::kLocked:
        return "another process has locked index.dat; the library would wait for the lock";
      case IndexState::kNoBytes:
        return "index.dat has no bytes: a writer was interrupted, and the logical names are lost";
      default: return "index.dat cannot be read: " + sys::text_of(m_view.index_status());
    }
  }

  bool in_index(std::int32_t timestamp) {
    if (!index_is_readable()) return false;
    const std::string key = index_format::key_of(m_request.entry, timestamp);
    Values values = {{"key", key}};
    std::optional<Verdict> skipped;  ///< of the first line
    for (const LintedLine& line : IndexLint(m_view)) {
      if (line.key != key || (skipped && line.verdict != Verdict::kEntry)) continue;
      values = {{"key", key},
                {"line", std::to_string(line.number)},
                {"physical", std::string(line.stored)}};
      if (line.verdict == Verdict::kEntry) {
        m_file = line.file;
        values.emplace_back("file", line.file);
        yes("index-line", "the index has an entry with this key", values);
        return line.has_file ? yes("file", "the entry's file exists", {{"path", path()}})
                             : no("file", "the entry's file is missing", {{"path", path()}});
      }
      values.emplace_back("verdict", name_of(line.verdict));
      skipped = line.verdict;
    }
    if (!skipped) tell_near_misses(key);
    return no("index-line",
              !skipped ? "the index has no entry with this key"
              : *skipped == Verdict::kUnknown
                  ? "the index has an unknown entry with this key: the system could not check "
                    "whether its file exists, so readers skip it"
                  : "the index has a dangling entry with this key: its file is missing, so readers "
                    "skip it",
              values);
  }

  void tell_near_misses(std::string_view wanted) {
    std::string folded_entry;
    std::string folded;
    fold_case(m_request.entry, folded_entry);
    for (const LintedLine& line : IndexLint(m_view)) {
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

  const Tree& m_tree;
  const Request& m_request;
  const sys::Locking& m_locking;
  Explanation& m_result;
  bool m_has_folder = true;
  FolderView m_view;
  std::string m_file;
};

/// Whether the library distinguishes versions of the entry: only for corporate .kdf documents.
bool is_versioned(const Request& request) {
  return request.area == Area::kDocs && index_format::extension_of(request.entry) == ".kdf";
}

void tell_holders(Steps& steps, const Tree& tree, const std::string& path, bool exclusive_only) {
  std::vector<sys::HeldLock> locks;
  sys::find_locks(tree.storage, locks);
  const std::string wanted = sys::absolute(path);
  for (const sys::HeldLock& lock : locks) {
    if (lock.path != wanted || (exclusive_only && !lock.is_exclusive)) continue;
    steps.note("lock", "a process has locked the file; opening it waits until the lock is released",
               {{"process", std::to_string(lock.process)},
                {"command", lock.command},
                {"lock", lock.is_exclusive ? "exclusive" : "shared"}});
  }
}

bool opens_for_reading(Steps& steps, const Tree& tree, const std::string& path) {
  const os::Status opened = sys::probe_readable(path);
  if (!opened.ok())
    return steps.no("open", "the file cannot be opened: " + sys::text_of(opened), {{"path", path}});
  tell_holders(steps, tree, path, true);
  return steps.yes("open", "the file can be opened for reading", {{"path", path}});
}

bool lookup_steps(Steps& steps, const Tree&, const Request& request, Explanation& result) {
  if (!steps.entry_is_named() || !steps.folders(MissingFolder::kEndsIt) ||
      !steps.lookup(request.timestamp))
    return false;
  result.path = steps.path();
  return true;
}

bool read_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named() || !steps.folders(MissingFolder::kEndsIt)) return false;

  const bool by_version = is_versioned(request);
  const std::int32_t asked = by_version ? request.timestamp : 0;
  steps.note(
      "lookup-rule",
      by_version ? "a corporate .kdf document: the library looks for exactly this timestamp"
                 : "only corporate .kdf documents have versions: the library looks for timestamp 0",
      {{"timestamp", std::to_string(asked)}, {"requested", std::to_string(request.timestamp)}});
  if (!steps.lookup(asked)) return false;

  result.path = steps.path();
  const std::int32_t found = Steps::time_of(result.path);
  if (found == 0)
    return steps.no("file-time",
                    "the file's modification time is 0, so the library treats the file as missing",
                    {{"path", result.path}});
  steps.note("file-time", "the file's modification time", {{"found", shown_time(found)}});

  if (request.area != Area::kDocs || by_version) {
    steps.note("age", "the library ignores the age of this kind of document");
  } else if (found < request.timestamp) {
    return steps.no("age", "the file is older than the requested timestamp",
                    {{"found", shown_time(found)},
                     {"requested", shown_time(request.timestamp)},
                     {"missing_seconds", std::to_string(std::int64_t{request.timestamp} - found)}});
  } else {
    steps.yes("age", "the file is at least as new as the requested timestamp",
              {{"found", shown_time(found)}, {"requested", shown_time(request.timestamp)}});
  }
  return opens_for_reading(steps, tree, result.path);
}

// ---- writing -----------------------------------------------------------------------------------

void tell_removals(Steps& steps, const Request& request, const std::string& path) {
  if (request.area == Area::kUser) {
    for (const std::string& category : steps.names_with_extension(".ctg"))
      steps.note("category", "lines that name the entry would be removed from a category file",
                 {{"category", category}});
  }
  if (request.area != Area::kDocs) return;
  const std::string parts = layout::root_of_parts(path, request.stamp);
  if (sys::describe(parts).kind == sys::Kind::kFolder)
    steps.note("parts", "the sub-parts would be removed", {{"path", parts}});
}

bool may_write(Steps& steps, const Tree& tree, const std::string& path) {
  const sys::Info info = sys::describe(path);
  if (info.kind == sys::Kind::kFolder)
    return steps.no("open", "a folder is in the place of the file", {{"path", path}});
  if (info.is_read_only) return steps.no("open", "the file is read-only", {{"path", path}});
  tell_holders(steps, tree, path, false);
  return steps.yes("open", "the file would be opened and truncated", {{"path", path}});
}

bool write_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named() || !steps.folders(MissingFolder::kWouldBeMade)) return false;
  bool existed = false;
  if (steps.has_folder()) {
    // A missing entry does not prevent a write.
    existed = steps.lookup(request.timestamp);
    if (result.lock_missed || (!existed && steps.index_failed())) return false;
    for (ExplainStep& step : result.steps) {
      if (step.answer == Answer::kNo) step.answer = Answer::kNote;
    }
  }
  if (const std::string why = why_not_storable(steps.folder().path); !why.empty())
    return steps.no("writable", why, {{"folder", steps.folder().path}});
  if (!existed) {
    result.path = steps.folder().path;
    return steps.yes(
        "create", "the entry is new: it gets the next free number of the folder",
        {{"folder", result.path}, {"key", index_format::key_of(request.entry, request.timestamp)}});
  }
  result.path = steps.path();
  if (!request.replace)
    return steps.no("replace", "the version exists, and the request does not allow replacing it",
                    {{"path", result.path}});
  steps.yes("replace", "the version exists and would be replaced", {{"path", result.path}});
  tell_removals(steps, request, result.path);
  return may_write(steps, tree, result.path);
}

// ---- parts -------------------------------------------------------------------------------------

/// Steps 1 and 2 of the library's decision: the document.
bool find_document(Steps& steps, const Request& request, Explanation& result) {
  result.code = 2;
  // The library's check for the file fails for an empty owner.
  if (request.owner.empty()) return steps.no("owner", "the owner's name is empty");
  if (!steps.folders(MissingFolder::kEndsIt) || !steps.lookup(request.timestamp)) return false;
  const std::int32_t time = Steps::time_of(steps.path());
  if (time != 0) {
    steps.note("document-time", "the document's modification time", {{"found", shown_time(time)}});
    return true;
  }
  result.code = -1;
  return steps.no("document-time",
                  "the document's modification time is 0: the document must be fetched",
                  {{"path", steps.path()}});
}

/// Steps 5 to 7: compares the times of sub-part, preload copy and document.
bool decide(Steps& steps, const std::string& part, const std::string& preload,
            std::int32_t document_time, Explanation& result) {
  const std::int32_t preload_time = Steps::time_of(preload);
  const std::int32_t part_time = Steps::time_of(part);
  const auto shown = [](std::int32_t time) {
    return time == 0 ? std::string("missing") : shown_time(time);
  };
  const Steps::Values times = {{"part", shown(part_time)},
                               {"preload", shown(preload_time)},
                               {"document", shown_time(document_time)}};
  const PartState state = state_of(part_time, preload_time, document_time);
  result.code = static_cast<int>(state);
  if (state == PartState::kRegenerate)
    return steps.no("times",
                    part_time == 0 ? "both the sub-part and its preload copy are missing"
                                   : "the sub-part is older than the document",
                    times);
  result.path = part;
  return steps.yes("times",
                   state == PartState::kFromPreload
                       ? "the preload copy is newer than the sub-part: the library first replaces "
                         "the sub-part by the copy"
                       : "the sub-part is at least as new as the document",
                   times);
}

bool part_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named()) return false;
  if (!find_document(steps, request, result)) return false;
  const std::int32_t document_time = Steps::time_of(steps.path());

  result.code = 2;
  const std::string root = layout::root_of_parts(steps.path(), request.stamp);
  if (!vu_file::exists(root))
    return steps.no("parts-root", "the document has no sub-part folder for this stamp",
                    {{"path", root}, {"stamp", request.stamp}});
  steps.yes("parts-root", "the document's sub-part folder exists", {{"path", root}});

  const layout::RenditionFolders below = layout::folders_to_read(request.rendition);
  const std::string of_type = below.of_type.empty() ? root : sys::join(root, below.of_type);
  const std::string folder = sys::join(of_type, below.of_parts);
  steps.note("rendition", "the folder from which sub-parts of this rendition are read",
             {{"rendition", request.rendition}, {"path", folder}});
  if (below.of_type.empty() && request.rendition.find('@') != std::string::npos)
    steps.note("odd-rendition",
               "a write splits this selector at its \"@\" into two folders, a read does not: "
               "readers do not find what was written");

  const std::string part = sys::join(folder, request.part);
  if (index_format::extension_of(request.entry) == ".kdf") {
    result.code = 0;
    steps.yes("kind", "sub-parts of .kdf documents are served as they are", {{"path", part}});
    result.path = part;
    return opens_for_reading(steps, tree, part);
  }
  const std::string preload = sys::join(sys::join(of_type, layout::kPreloadFolder), request.part);
  if (!decide(steps, part, preload, document_time, result)) return false;
  return opens_for_reading(steps, tree, result.code == 1 ? preload : part);
}

Explanation explain(const Tree& tree, const Request& request, const sys::Locking& locking,
                    bool (*steps_of)(Steps&, const Tree&, const Request&, Explanation&)) {
  Explanation result;
  Steps steps(tree, request, locking, result);
  result.would_succeed = steps_of(steps, tree, request, result);
  return result;
}

}  // namespace

const ExplainStep* Explanation::first_no() const {
  const auto found = std::ranges::find(steps, Answer::kNo, &ExplainStep::answer);
  return found == steps.end() ? nullptr : &*found;
}

Explanation explain_lookup(const Tree& tree, const Request& request, const sys::Locking& locking) {
  return explain(tree, request, locking, lookup_steps);
}

Explanation explain_read(const Tree& tree, const Request& request, const sys::Locking& locking) {
  return explain(tree, request, locking, read_steps);
}

Explanation explain_write(const Tree& tree, const Request& request, const sys::Locking& locking) {
  return explain(tree, request, locking, write_steps);
}

Explanation explain_part(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Request asked = request;
  asked.area = Area::kDocs;
  return explain(tree, asked, locking, part_steps);
}

}  // namespace admin
