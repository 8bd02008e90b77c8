#include "client/admin/check.h"

#include <algorithm>
#include <array>

#include "client/admin/folder_check.h"

namespace admin {

namespace {

using enum Severity;

constexpr std::array<FindingKind, kCodes> kKinds = {{
    {Code::kLineWithoutFile, "line-without-file", kWarning,
     "a line of index.dat names a file that is not there; readers pass over it and the next "
     "rewrite drops it",
     "restore the file, or let the next write drop the line"},
    {Code::kFileWithoutLine, "file-without-line", kWarning,
     "no line of index.dat names this file; with synchronisation on it is adopted under its own "
     "name, a sweep removes it",
     "adopt it with sync, or remove it"},
    {Code::kDuplicateKey, "duplicate-key", kError,
     "two lines have the same key; only the first counts", "let the index be rewritten"},
    {Code::kDuplicatePhysicalName, "duplicate-physical-name", kError,
     "two entries share one physical name; removing one takes the other's data",
     "store one of the documents anew"},
    {Code::kMalformedLine, "malformed-line", kError,
     "a line of index.dat is none; readers pass over it", "let the index be rewritten"},
    {Code::kUnorderedLines, "unordered-lines", kInfo,
     "the lines of index.dat do not ascend by their keys, as the library writes them",
     "nothing has to be done; the next write orders them"},
    {Code::kEmptyIndex, "empty-index", kError,
     "index.dat has no bytes, or zeros alone, which the library never leaves: a writer was stopped "
     "half-way, "
     "and the names are lost",
     "restore index.dat before anything writes to the folder"},
    {Code::kMissingIndex, "missing-index", kWarning, "the folder holds files and no index.dat",
     "adopt them with sync"},
    {Code::kUnreadableIndex, "unreadable-index", kError, "index.dat could not be read",
     "look at its permissions and at the disk"},
    {Code::kCounterBehind, "counter-behind", kWarning,
     "files bear higher generated numbers than the counter; a new document could get the name of "
     "a file that no line mentions",
     "set the counter file to the highest number"},
    {Code::kCounterUnreadable, "counter-unreadable", kWarning,
     "the counter holds no number above or equal to 0; the next name is 00000000",
     "set the counter file to the highest number"},
    {Code::kWrongBucket, "wrong-bucket", kError,
     "the entry lies in another hash bucket than its name leads to, so it is never found",
     "move it to its bucket"},
    {Code::kShadowedName, "shadowed-name", kWarning,
     "a plain file or folder bears the logical name of the entry; the library serves that one, "
     "whatever the timestamp",
     "rename or remove the plain file"},
    {Code::kUnreachableTimestamp, "unreachable-timestamp", kWarning,
     "reading looks this name up at timestamp 0 alone, so this version is never served",
     "store it at timestamp 0"},
    {Code::kPartsWithoutDocument, "parts-without-document", kWarning,
     "a sub-part folder whose document is gone", "remove it, or let a sweep do so"},
    {Code::kPreloadNewer, "preload-newer", kInfo,
     "the preload copy is newer than the part; the next reading replaces the part",
     "nothing has to be done"},
    {Code::kDanglingKeyLine, "dangling-key-line", kWarning,
     "a line of attribut.txt names a document that the folder does not have", "remove the line"},
    {Code::kDanglingCategoryLine, "dangling-category-line", kWarning,
     "a line of a category file names a document that the folder does not have", "remove the line"},
    {Code::kEmptyDocument, "empty-document", kWarning,
     "a document without a byte: it was made and never written, or its writer was stopped",
     "fetch it again"},
    {Code::kCaseCollision, "case-collision", kInfo,
     "two names differ in letter case only; Windows takes them for one", "rename one of them"},
    {Code::kNotPortableName, "not-portable-name", kInfo, "a name that not every system can keep",
     "rename it"},
    {Code::kUnsafeName, "unsafe-name", kWarning,
     "a logical name that leads out of its folder or matches others when it is used as a path",
     "store the document under another name"},
    {Code::kPathNearLimit, "path-near-limit", kWarning,
     "a path close to the longest one, or a name close to the longest name, that the system takes",
     "move the tree nearer to the root, or shorten the name"},
    {Code::kLockNotObtained, "lock-not-obtained", kError,
     "another process held index.dat until time was out; the folder was not checked",
     "ask locks who it is, and check again"},
    {Code::kLinkInTree, "link-in-tree", kWarning,
     "a link; what it leads to is not looked at here, but the library follows it",
     "replace it by what it leads to"},
    {Code::kStrayItem, "stray-item", kInfo, "something that the layout does not have at this place",
     "look what it is, and move it away"},
    {Code::kUnreadableFolder, "unreadable-folder", kError, "a folder could not be listed",
     "look at its permissions and at the disk"},
    {Code::kEntryWithoutFile, "entry-without-file", kWarning,
     "a line of index.dat counts, since its physical name with or without the extension is there, "
     "but the entry's file is the other of the two; reading it finds nothing",
     "store the document anew, or remove the entry"},
    {Code::kUnknownLine, "unknown-line", kWarning,
     "the system does not tell whether the file of a line is there; readers pass over the line, "
     "writers keep it, and nothing is adopted or swept beside it",
     "look at the permissions and at the disk on the way to the file"},
    {Code::kInterruptedSave, "interrupted-save", kInfo,
     "a save of index.dat was interrupted when the new text was safe behind the old one; the new "
     "text counts",
     "nothing has to be done; the next write completes it"},
    {Code::kCounterUnusable, "counter-unusable", kError,
     "the counter cannot be written, so that every new document of the folder gets the same file, "
     "99999999",
     "make it a plain file that may be written, or remove it"},
    {Code::kNotWritable, "not-writable", kError,
     "whoever runs the check cannot write here; nothing new can be stored, and nothing removed",
     "look at the permissions; run the check as the programs do"},
    {Code::kMissingArea, "missing-area", kError,
     "the folder of an area is not there, with all that was in it",
     "bring it back from a backup; 'init' makes an empty one"},
    {Code::kDocumentReplaced, "document-replaced", kError,
     "something that is no file stands in the place of a document",
     "move it away, and bring the document back from a backup"},
    {Code::kFolderReplaced, "folder-replaced", kError,
     "a file stands in the place of a document folder; nothing of that folder is served",
     "move the file away, and bring the folder back from a backup"},
    {Code::kKeyFileWithoutLine, "key-file-without-line", kInfo,
     "a key file that no line of index.dat names: programs that address it by its path find it",
     "nothing has to be done; sync gives it an entry"},
    {Code::kUnfinishedFile, "unfinished-file", kWarning,
     "a file or folder that this program had begun when it was killed; nothing else uses it",
     "let repair move it away; while an import runs, wait for its end"},
}};

constexpr bool is_in_order() {
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (static_cast<std::size_t>(kKinds[i].code) != i) return false;
  }
  return true;
}
static_assert(is_in_order());

}  // namespace

std::string_view name_of(Severity severity) {
  constexpr std::array<std::string_view, 3> kNames = {"info", "warning", "error"};
  return kNames[static_cast<std::size_t>(severity)];
}

std::span<const FindingKind> finding_kinds() { return kKinds; }

const FindingKind& kind_of(Code code) { return kKinds[static_cast<std::size_t>(code)]; }

std::optional<Code> code_named(std::string_view name) {
  const auto found = std::find_if(kKinds.begin(), kKinds.end(),
                                  [&](const FindingKind& kind) { return kind.name == name; });
  if (found == kKinds.end()) return std::nullopt;
  return found->code;
}

// ---- checking ----------------------------------------------------------------------------------

namespace {

class CheckVisitor final : public Visitor {
 public:
  CheckVisitor(const CheckOptions& options, CheckSummary& summary, const FindingSink& sink)
      : m_options(options), m_folders(options, summary, sink), m_summary(summary) {}

  bool folder(const DocumentFolder& folder) override {
    if (m_options.stop != nullptr && m_options.stop->load()) {
      m_summary.was_stopped = true;
      return false;
    }
    if (m_options.on_folder) m_options.on_folder(folder);
    m_folders.run(folder);
    return true;
  }

  void stray(Area area, const std::string& path, sys::Kind kind) override {
    const bool is_link = kind == sys::Kind::kLink;
    const std::string_view name = std::string_view(path).substr(path.rfind(sys::kSeparator) + 1);
    if (kind == sys::Kind::kFile && area == Area::kDocs && is_bucket_name(name))
      return tell(Code::kFolderReplaced, area, path, "");
    std::string what = "neither a file nor a folder";
    if (kind == sys::Kind::kFile) what = "a file where only folders are expected";
    if (kind == sys::Kind::kFolder) what = "a folder whose name is no bucket's";
    tell(is_link ? Code::kLinkInTree : Code::kStrayItem, area, path, is_link ? "" : what);
  }

  void failed(const std::string& path, const os::Status& status) override {
    tell(Code::kUnreadableFolder, std::nullopt, path, sys::text_of(status));
  }

  void missing_area(const Tree& tree, Area area) {
    tell(Code::kMissingArea, area, tree.folder_of(area), "");
  }
  void read_only(const std::string& storage) {
    tell(Code::kNotWritable, std::nullopt, storage, "the file system is read-only");
  }

 private:
  void tell(Code code, std::optional<Area> area, const std::string& path, std::string detail) {
    const std::size_t at = path.rfind(sys::kSeparator);
    m_folders.report(
        {code, area, "", path.substr(0, at), path.substr(at + 1), 0, std::move(detail)});
  }

  const CheckOptions& m_options;
  FolderCheck m_folders;
  CheckSummary& m_summary;
};

}  // namespace

std::uint64_t CheckSummary::count(Severity severity) const {
  std::uint64_t sum = 0;
  for (const FindingKind& kind : finding_kinds()) {
    if (kind.severity == severity) sum += findings[static_cast<std::size_t>(kind.code)];
  }
  return sum;
}

CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink) {
  CheckSummary summary;
  CheckOptions asked = options;
  const bool is_read_only = sys::file_system_of(tree.storage).is_read_only;
  // Told once, instead of for each folder.
  if (is_read_only) asked.ask_writable = false;
  CheckVisitor visitor(asked, summary, sink);
  if (is_read_only && options.ask_writable) visitor.read_only(tree.storage);
  for (const Area area : kAreas) {
    const bool is_meant = !options.scope.area || *options.scope.area == area;
    if (is_meant && expects_index(area) && !tree.has_area[static_cast<std::size_t>(area)])
      visitor.missing_area(tree, area);
  }
  walk(tree, options.scope, visitor);
  return summary;
}

}  // namespace admin
