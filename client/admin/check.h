#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "client/admin/system.h"
#include "client/admin/tree.h"

namespace admin {

/// What a check can find. The numbers are of no meaning; the names (see FindingKind) are stable.
enum class Code : std::uint8_t {
  kLineWithoutFile,
  kFileWithoutLine,
  kDuplicateKey,
  kDuplicatePhysicalName,
  kMalformedLine,
  kUnorderedLines,
  kEmptyIndex,
  kMissingIndex,
  kUnreadableIndex,
  kCounterBehind,
  kCounterUnreadable,
  kWrongBucket,
  kShadowedName,
  kUnreachableTimestamp,
  kPartsWithoutDocument,
  kPreloadNewer,
  kDanglingKeyLine,
  kDanglingCategoryLine,
  kEmptyDocument,
  kCaseCollision,
  kNotPortableName,
  kUnsafeName,
  kPathNearLimit,
  kLockNotObtained,
  kLinkInTree,
  kStrayItem,
  kUnreadableFolder,
  kEntryWithoutFile,
  kUnknownLine,
  kInterruptedSave,
  kCounterUnusable,
  kNotWritable,
  kMissingArea,
  kDocumentReplaced,
  kFolderReplaced,
  kKeyFileWithoutLine,
  kUnfinishedFile,
};
inline constexpr std::size_t kCodes = 37;

enum class Severity : std::uint8_t {
  kInfo,     ///< worth knowing; a problem only to a strict check
  kWarning,  ///< something does not do what it looks like
  kError,    ///< something is lost, or will be
};
std::string_view name_of(Severity severity);

/// A kind of finding.
struct FindingKind {
  Code code;
  std::string_view name;  ///< stable: scripts compare it
  Severity severity;
  std::string_view meaning;
  std::string_view remedy;
};
/// All kinds, in the order of their codes.
std::span<const FindingKind> finding_kinds();
const FindingKind& kind_of(Code code);
std::optional<Code> code_named(std::string_view name);

/// One thing found.
struct Finding {
  Code code = Code::kLineWithoutFile;
  std::optional<Area> area;
  std::string owner;
  std::string folder;    ///< the path of the folder it lies in
  std::string name;      ///< the logical name, file or folder that it is about
  std::size_t line = 0;  ///< of index.dat or a key file, from 1; 0 where there is none
  std::string detail;    ///< the values that made it one
  /// Of a version of a document, whose logical name the name is then.
  std::optional<std::int32_t> timestamp = std::nullopt;
};
using FindingSink = std::function<void(const Finding&)>;

// ---- checking ----------------------------------------------------------------------------------

enum class Depth : std::uint8_t {
  kQuick,  ///< names and indexes
  kFull,   ///< sizes and times of files, key files and sub-parts as well
};

struct CheckOptions {
  Scope scope;
  Depth depth = Depth::kFull;
  sys::Locking locking;
  /// A path longer than nine tenths of this is near the limit.
  std::size_t path_limit = sys::kPathLimit;
  /// Ends the check at the next folder once it is set.
  const std::atomic<bool>* stop = nullptr;
  /// Whether indexes, counters and folders are tried for writing, as their users would; nothing is
  /// written.
  bool ask_writable = true;
  /// Told of each folder before it is looked at.
  std::function<void(const DocumentFolder&)> on_folder;
};

/// What a check has looked at and counted.
struct CheckSummary {
  std::uint64_t folders = 0;
  std::uint64_t entries = 0;   ///< valid lines
  std::uint64_t files = 0;     ///< plain files in document folders, indexes left out
  std::uint64_t unserved = 0;  ///< documents that an index names and nobody is served
  std::array<std::uint64_t, kCodes> findings{};
  bool was_stopped = false;

  std::uint64_t count(Severity severity) const;
};

/// Checks a tree and hands on each finding as it is met, folder after folder.
CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink);

}  // namespace admin
