#include "client/admin/explain.h"

#include <algorithm>

#include "client/admin/explain_steps.h"
#include "client/admin/writable.h"
#include "index/index_format.h"
#include "storage/layout.h"
#include "vu_file.h"

namespace admin {

namespace {

/// Whether versions of the entry are told apart by the index: corporate documents of this kind
/// only.
bool is_versioned(const Request& request) {
  return request.area == Area::kDocs && index_format::extension_of(request.entry) == ".kdf";
}

void tell_holders(Steps& steps, const Tree& tree, const std::string& path, bool exclusive_only) {
  std::vector<sys::HeldLock> locks;
  sys::find_locks(tree.storage, locks);
  const std::string wanted = sys::absolute(path);
  for (const sys::HeldLock& lock : locks) {
    if (lock.path != wanted || (exclusive_only && !lock.is_exclusive)) continue;
    steps.note("lock", "a process holds the file; opening it waits until that ends",
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
  return steps.yes("open", "the file opens for reading", {{"path", path}});
}

bool read_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named() || !steps.folders(MissingFolder::kEndsIt)) return false;

  const bool by_version = is_versioned(request);
  const std::int32_t asked = by_version ? request.timestamp : 0;
  steps.note(
      "lookup-rule",
      by_version ? "a corporate .kdf document: its exact timestamp is looked up"
                 : "only corporate .kdf documents have versions: timestamp 0 is looked up",
      {{"timestamp", std::to_string(asked)}, {"requested", std::to_string(request.timestamp)}});
  if (!steps.lookup(asked)) return false;

  result.path = steps.path();
  const std::int32_t found = Steps::time_of(result.path);
  if (found == 0)
    return steps.no("file-time", "the file's modification time is 0, which counts as missing",
                    {{"path", result.path}});
  steps.note("file-time", "the file's modification time", {{"found", shown_time(found)}});

  if (request.area != Area::kDocs || by_version) {
    steps.note("age", "its age does not matter for this kind of document");
  } else if (found < request.timestamp) {
    return steps.no("age", "the file is older than the requested timestamp",
                    {{"found", shown_time(found)},
                     {"requested", shown_time(request.timestamp)},
                     {"missing_seconds", std::to_string(std::int64_t{request.timestamp} - found)}});
  } else {
    steps.yes("age", "the file is at least as new as requested",
              {{"found", shown_time(found)}, {"requested", shown_time(request.timestamp)}});
  }
  return opens_for_reading(steps, tree, result.path);
}

// ---- writing -----------------------------------------------------------------------------------

void tell_removals(Steps& steps, const Request& request, const std::string& path) {
  if (request.area == Area::kUser) {
    for (const std::string& category : steps.names_with_extension(".ctg"))
      steps.note("category", "lines that mention the entry would be cut from a category file",
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
    return steps.no("open", "a folder stands where the file would be", {{"path", path}});
  if (info.is_read_only) return steps.no("open", "the file is read-only", {{"path", path}});
  tell_holders(steps, tree, path, false);
  return steps.yes("open", "the file would be opened and cut", {{"path", path}});
}

bool write_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named() || !steps.folders(MissingFolder::kWouldBeMade)) return false;
  bool existed = false;
  if (steps.has_folder()) {
    // That the entry is not there is no refusal of a write.
    existed = steps.lookup(request.timestamp);
    if (result.lock_missed || (!existed && steps.index_failed())) return false;
    for (Step& step : result.steps) {
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
    return steps.no("replace", "the version exists and replacing was not asked for",
                    {{"path", result.path}});
  steps.yes("replace", "the version exists and would be replaced", {{"path", result.path}});
  tell_removals(steps, request, result.path);
  return may_write(steps, tree, result.path);
}

// ---- parts -------------------------------------------------------------------------------------

/// Steps 1 and 2 of the decision: the document.
bool find_document(Steps& steps, const Request& request, Explanation& result) {
  result.code = 2;
  // Whether the file exists is asked with the owner's name, which must not be empty.
  if (request.owner.empty()) return steps.no("owner", "the owner's name is empty");
  if (!steps.folders(MissingFolder::kEndsIt) || !steps.lookup(request.timestamp)) return false;
  const std::int32_t time = Steps::time_of(steps.path());
  if (time != 0) {
    steps.note("document-time", "the document's modification time", {{"found", shown_time(time)}});
    return true;
  }
  result.code = -1;
  return steps.no("document-time", "the document's modification time is 0: it has to be fetched",
                  {{"path", steps.path()}});
}

/// Steps 5 to 7: the part against its preload copy and the document.
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
  if (part_time < preload_time) {
    result.code = 1;
    steps.yes("times", "the preload copy is newer than the part: it is copied over it first",
              times);
    result.path = part;
    return true;
  }
  if (part_time >= document_time) {
    result.code = 0;
    result.path = part;
    return steps.yes("times", "the part is at least as new as the document", times);
  }
  result.code = 2;
  return steps.no("times",
                  part_time == 0 ? "there is neither the part nor a preload copy of it"
                                 : "the part is older than the document",
                  times);
}

bool part_steps(Steps& steps, const Tree& tree, const Request& request, Explanation& result) {
  if (!steps.entry_is_named()) return false;
  if (!find_document(steps, request, result)) return false;
  const std::int32_t document_time = Steps::time_of(steps.path());

  result.code = 2;
  const std::string root = layout::root_of_parts(steps.path(), request.stamp);
  if (!vu_file::exists(root))
    return steps.no("parts-root", "the document has no folder of parts for this stamp",
                    {{"path", root}, {"stamp", request.stamp}});
  steps.yes("parts-root", "the document's folder of parts is there", {{"path", root}});

  const layout::RenditionFolders below = layout::folders_to_read(request.rendition);
  const std::string of_type = below.of_type.empty() ? root : sys::join(root, below.of_type);
  const std::string folder = sys::join(of_type, below.of_parts);
  steps.note("rendition", "where parts of this rendition are read",
             {{"rendition", request.rendition}, {"path", folder}});
  if (below.of_type.empty() && request.rendition.find('@') != std::string::npos)
    steps.note("odd-rendition",
               "writing splits this selector at its \"@\" into two folders, reading does not: what "
               "is written is not found");

  const std::string part = sys::join(folder, request.part);
  if (index_format::extension_of(request.entry) == ".kdf") {
    result.code = 0;
    steps.yes("kind", "parts of .kdf documents are served as they are", {{"path", part}});
    result.path = part;
    return opens_for_reading(steps, tree, part);
  }
  const std::string preload = sys::join(sys::join(of_type, layout::kPreloadFolder), request.part);
  if (!decide(steps, part, preload, document_time, result)) return false;
  return opens_for_reading(steps, tree, result.code == 1 ? preload : part);
}

}  // namespace

const Step* Explanation::first_no() const {
  const auto found = std::find_if(steps.begin(), steps.end(),
                                  [](const Step& step) { return step.answer == Answer::kNo; });
  return found == steps.end() ? nullptr : &*found;
}

Explanation explain_read(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Explanation result;
  Steps steps(tree, request, locking, result);
  result.would_succeed = read_steps(steps, tree, request, result);
  return result;
}

Explanation explain_write(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Explanation result;
  Steps steps(tree, request, locking, result);
  result.would_succeed = write_steps(steps, tree, request, result);
  return result;
}

Explanation explain_part(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Explanation result;
  Request asked = request;
  asked.area = Area::kDocs;
  Steps steps(tree, asked, locking, result);
  result.would_succeed = part_steps(steps, tree, asked, result);
  return result;
}

}  // namespace admin
