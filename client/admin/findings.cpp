// The kinds of findings.

#include <algorithm>
#include <array>

#include "client/admin/check.h"

namespace admin {

namespace {

using enum Severity;

constexpr std::array<FindingKind, kCodes> kKinds = {{
    {Code::kLineWithoutFile, "line-without-file", kWarning,
     "dangling entry: its file is missing. Readers skip it, and the next save drops it",
     "restore the file from a backup, or let the next save drop the entry"},
    {Code::kFileWithoutLine, "file-without-line", kWarning,
     "orphan: no entry of index.dat names this file. With synchronisation on, the library adopts "
     "it under its own name; a sweep removes it",
     "adopt it with 'stgctl sync', or move it away with 'stgctl repair'"},
    {Code::kDuplicateKey, "duplicate-key", kError,
     "two lines of index.dat have the same key. Only the first one is valid; if it is removed, the "
     "second one becomes the entry",
     "remove the second one with 'stgctl repair', or let the next save drop it"},
    {Code::kDuplicatePhysicalName, "duplicate-physical-name", kError,
     "two entries have the same physical name. Replacing or removing one document does the same to "
     "the other",
     "copy the file with 'stgctl get', remove both entries with 'stgctl rm', and store both "
     "documents again"},
    {Code::kMalformedLine, "malformed-line", kError,
     "a line of index.dat is damaged: it does not have the form of an entry",
     "run 'stgctl repair', which restores what it can and removes the line. Correct a line that it "
     "leaves by hand"},
    {Code::kUnorderedLines, "unordered-lines", kInfo,
     "the lines of index.dat are not sorted by key. The library sorts them when it writes",
     "nothing to do: the next save sorts them"},
    {Code::kEmptyIndex, "empty-index", kError,
     "index.dat has no bytes, or only zeros: the first save of the folder was interrupted, or the "
     "logical names are lost",
     "if the folder had names, restore it with 'stgctl index restore' or from a backup before any "
     "program writes to the folder"},
    {Code::kMissingIndex, "missing-index", kWarning, "the folder has files but no index.dat",
     "restore it with 'stgctl index restore', or adopt the files with 'stgctl sync'"},
    {Code::kUnreadableIndex, "unreadable-index", kError, "index.dat cannot be read",
     "check its permissions and the disk"},
    {Code::kCounterBehind, "counter-behind", kWarning,
     "a file has a higher number than the counter. A new document could get the name of an orphan",
     "set the counter to the highest number with 'stgctl repair'"},
    {Code::kCounterUnreadable, "counter-unreadable", kWarning,
     "the counter does not contain a number of 0 or more. The next file is named 00000000",
     "set the counter to the highest number with 'stgctl repair'"},
    {Code::kWrongBucket, "wrong-bucket", kError,
     "the entry is in another bucket than its logical name requires. No reader finds it",
     "copy its file out of the tree and store the copy with 'stgctl put'; a bucket without other "
     "entries can then be moved away"},
    {Code::kShadowedName, "shadowed-name", kWarning,
     "a file or folder has the entry's logical name as its own name. The library serves that file "
     "instead of the entry, for every timestamp",
     "rename or remove that file"},
    {Code::kUnreachableTimestamp, "unreachable-timestamp", kWarning,
     "readers look for this name only at timestamp 0, so they never find this version",
     "move it to timestamp 0 with 'stgctl mv'"},
    {Code::kPartsWithoutDocument, "parts-without-document", kWarning,
     "a sub-part folder whose document is missing",
     "move it away with 'stgctl repair', or let a sweep remove it"},
    {Code::kPreloadNewer, "preload-newer", kInfo,
     "the preload copy is newer than the sub-part. The next read replaces the sub-part",
     "nothing to do"},
    {Code::kDanglingKeyLine, "dangling-key-line", kWarning,
     "a line of attribut.txt names a document that the folder does not contain",
     "remove the line with 'stgctl repair'"},
    {Code::kDanglingCategoryLine, "dangling-category-line", kWarning,
     "a line of a category file names a document that the folder does not contain",
     "remove the line with 'stgctl repair'"},
    {Code::kEmptyDocument, "empty-document", kWarning,
     "a document with no bytes: its writer has not written yet, or was interrupted",
     "store it again"},
    {Code::kCaseCollision, "case-collision", kInfo,
     "two names differ only in letter case. On Windows they are the same name",
     "rename one of them"},
    {Code::kNotPortableName, "not-portable-name", kInfo,
     "a name that is not allowed on every system", "rename it"},
    {Code::kUnsafeName, "unsafe-name", kWarning,
     "a logical name that, used as a path, leaves its folder or matches other files",
     "store the document under another name"},
    {Code::kPathNearLimit, "path-near-limit", kWarning,
     "the path or the name is almost as long as the system allows",
     "move the tree nearer to the root, or shorten the name"},
    {Code::kLockNotObtained, "lock-not-obtained", kError,
     "another process held the lock on index.dat for too long. The folder was not checked",
     "find the process with 'stgctl locks', and check again"},
    {Code::kLinkInTree, "link-in-tree", kWarning,
     "a link. The library follows it; this check does not", "replace the link by its target"},
    {Code::kStrayItem, "stray-item", kInfo, "something that does not belong at this place",
     "find out what it is, and move it away"},
    {Code::kUnreadableFolder, "unreadable-folder", kError, "the folder cannot be listed",
     "check its permissions and the disk"},
    {Code::kEntryWithoutFile, "entry-without-file", kWarning,
     "the entry is valid, but readers do not find its file. A file exists under the physical name "
     "with the extension or without it, and readers look for the other one",
     "store the document again, or remove the entry"},
    {Code::kUnknownLine, "unknown-line", kWarning,
     "unknown entry: the system could not check whether its file exists. Readers skip it, saves "
     "keep it, and nothing in the folder is adopted or swept",
     "check the permissions on the path to the file, and the disk"},
    {Code::kInterruptedSave, "interrupted-save", kInfo,
     "a save of index.dat was interrupted after the new text was safe. Readers use the new text",
     "nothing to do: the next writer completes the save"},
    {Code::kCounterUnusable, "counter-unusable", kError,
     "the counter cannot be written. New documents share one file, 99999999, or are refused",
     "make it a writable plain file, or remove it; then run 'stgctl repair'"},
    {Code::kNotWritable, "not-writable", kError,
     "the user who runs the check cannot write here, so nothing can be stored or removed",
     "check the permissions, or run the check as the user of the programs"},
    {Code::kMissingArea, "missing-area", kError,
     "the folder of an area is missing, and with it all its content",
     "restore it from a backup; 'stgctl init' creates an empty one"},
    {Code::kDocumentReplaced, "document-replaced", kError,
     "a document's path leads to something that is not a file",
     "move it away, and restore the document from a backup"},
    {Code::kFolderReplaced, "folder-replaced", kError,
     "a file is where a document folder should be. No document of that folder can be read",
     "move the file away, and restore the folder from a backup"},
    {Code::kKeyFileWithoutLine, "key-file-without-line", kInfo,
     "a key file that no entry of index.dat names. Programs find it by its path",
     "nothing to do; 'stgctl sync' creates an entry for it"},
    {Code::kUnfinishedFile, "unfinished-file", kWarning,
     "a file or folder that stgctl left when it was killed. Nothing uses it",
     "move it away with 'stgctl repair'; if an import is running, wait for its end first"},
    {Code::kOddTimestamp, "odd-timestamp", kError,
     "the key of an entry does not end in \"_\" and ten digits. No reader finds the entry",
     "copy its file out of the tree, store the copy with 'stgctl put', and remove the line of "
     "index.dat by hand"},
}};

constexpr bool is_in_order() {
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (static_cast<std::size_t>(kKinds[i].code) != i) return false;
  }
  return true;
}
static_assert(is_in_order());

}  // namespace

std::span<const FindingKind> finding_kinds() { return kKinds; }

const FindingKind& kind_of(Code code) { return kKinds[static_cast<std::size_t>(code)]; }

std::optional<Code> code_named(std::string_view name) {
  const auto found = std::ranges::find(kKinds, name, &FindingKind::name);
  return found == kKinds.end() ? std::nullopt : std::optional(found->code);
}

std::uint64_t CheckSummary::count(Severity severity) const {
  std::uint64_t sum = 0;
  for (const FindingKind& kind : finding_kinds()) {
    if (kind.severity == severity) sum += findings[static_cast<std::size_t>(kind.code)];
  }
  return sum;
}

}  // namespace admin
