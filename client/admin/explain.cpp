#include "client/admin/explain.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "client/admin/locked_file.h"
#include "client/admin/lookup.h"
#include "client/admin/system.h"
#include "index/index_format.h"
#include "storage/layout.h"
#include "vu_file.h"

namespace admin {

namespace {

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
  if (part_time < preload_time) {
    result.code = 1;
    steps.yes("times",
              "the preload copy is newer than the sub-part: the library first replaces the "
              "sub-part by the copy",
              times);
    result.path = part;
    return true;
  }
  if (part_time >= document_time) {
    result.code = 0;
    result.path = part;
    return steps.yes("times", "the sub-part is at least as new as the document", times);
  }
  result.code = 2;
  return steps.no("times",
                  part_time == 0 ? "both the sub-part and its preload copy are missing"
                                 : "the sub-part is older than the document",
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

// ---- the parts of a document -------------------------------------------------------------------

namespace {

/// The names in a folder with their kinds; empty if it cannot be listed.
std::vector<std::pair<std::string, sys::Kind>> names_in(const std::string& folder) {
  std::vector<std::pair<std::string, sys::Kind>> names;
  sys::Folder listing;
  if (!listing.open(folder).ok()) return names;
  sys::Entry entry;
  while (listing.next(entry)) {
    if (!is_unfinished(entry.name)) names.emplace_back(entry.name, entry.kind);
  }
  return names;
}

std::int32_t low_time(const sys::Info& info) {
  return info.kind == sys::Kind::kMissing ? 0 : static_cast<std::int32_t>(info.modify_time);
}

/// Collects the sub-parts below one sub-part folder.
class Collector {
 public:
  Collector(const std::string& document, std::string stamp, std::vector<Part>& parts)
      : m_info(sys::describe(document)),
        m_is_served_as_is(index_format::extension_of(document) == ".kdf"),
        m_stamp(std::move(stamp)),
        m_parts(parts) {}

  void run(const std::string& root) {
    kind(root, "", true);
    kind(sys::join(root, "html"), "html@", false);
    kind(sys::join(root, "pdf"), "pdf@", false);
  }

 private:
  void kind(const std::string& folder, const std::string& prefix, bool is_root) {
    std::map<std::string, sys::Info> preload;
    const std::string copies = sys::join(folder, layout::kPreloadFolder);
    for (const auto& [name, found] : names_in(copies)) {
      if (found == sys::Kind::kFile) preload[name] = sys::describe(sys::join(copies, name));
    }
    for (const auto& [name, found] : names_in(folder)) {
      const bool is_kind = is_root && (name == "html" || name == "pdf");
      if (found != sys::Kind::kFolder || name == layout::kPreloadFolder || is_kind) continue;
      rendition(sys::join(folder, name), prefix + name, preload);
    }
  }

  void rendition(const std::string& folder, const std::string& selector,
                 const std::map<std::string, sys::Info>& preload) {
    std::map<std::string, sys::Info> names;
    for (const auto& [name, info] : preload) names[name] = sys::Info();
    for (const auto& [name, found] : names_in(folder)) {
      if (found == sys::Kind::kFile) names[name] = sys::describe(sys::join(folder, name));
      if (found == sys::Kind::kFolder) written_only(sys::join(folder, name), selector + "@" + name);
    }
    for (const auto& [name, info] : names) {
      Part part{m_stamp, selector, name, sys::join(folder, name), info, {}};
      if (const auto copy = preload.find(name); copy != preload.end()) part.preload = copy->second;
      part.state = decide(part);
      m_parts.push_back(std::move(part));
    }
  }

  void written_only(const std::string& folder, const std::string& selector) {
    for (const auto& [name, found] : names_in(folder)) {
      if (found != sys::Kind::kFile) continue;
      Part part{m_stamp, selector, name, sys::join(folder, name), {}, {}};
      part.info = sys::describe(part.path);
      part.state = PartState::kRegenerate;
      part.is_unreachable = true;
      m_parts.push_back(std::move(part));
    }
  }

  PartState decide(const Part& part) const {
    if (low_time(m_info) == 0) return PartState::kForceRetrieve;
    if (m_is_served_as_is) return PartState::kUpToDate;
    if (low_time(part.info) < low_time(part.preload)) return PartState::kFromPreload;
    return low_time(part.info) >= low_time(m_info) ? PartState::kUpToDate : PartState::kRegenerate;
  }

  sys::Info m_info;
  bool m_is_served_as_is;
  std::string m_stamp;
  std::vector<Part>& m_parts;
};

}  // namespace

std::string_view name_of(PartState state) {
  switch (state) {
    case PartState::kForceRetrieve:
      return "force-retrieve";
    case PartState::kUpToDate:
      return "up-to-date";
    case PartState::kFromPreload:
      return "from-preload";
    default:
      return "regenerate";
  }
}

std::vector<Part> parts_of(const std::string& document) {
  std::vector<Part> parts;
  const std::size_t at = document.rfind(sys::kSeparator);
  const std::string folder = document.substr(0, at);
  const std::string prefix = layout::root_of_parts(document.substr(at + 1), "");
  for (const auto& [name, kind] : names_in(folder)) {
    if (kind != sys::Kind::kFolder || !name.starts_with(prefix)) continue;
    Collector(document, name.substr(prefix.size()), parts).run(sys::join(folder, name));
  }
  std::sort(parts.begin(), parts.end(), [](const Part& one, const Part& other) {
    return std::tie(one.stamp, one.rendition, one.name) <
           std::tie(other.stamp, other.rendition, other.name);
  });
  return parts;
}

}  // namespace admin
