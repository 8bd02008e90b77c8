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

/// The kinds of findings. Only their names (see FindingKind) are stable, not their numbers.
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
  kOddTimestamp,
};
inline constexpr std::size_t kCodes = 38;

enum class Severity : std::uint8_t {
  kInfo,     ///< a problem only for a strict check
  kWarning,  ///< something behaves differently from what users expect
  kError,    ///< data or names are lost, or will be
};
constexpr std::string_view name_of(Severity severity) {
  return word_of(severity, {"info", "warning", "error"});
}

struct FindingKind {
  Code code;
  std::string_view name;  ///< stable: scripts compare it
  Severity severity;
  std::string_view meaning;
  std::string_view remedy;
};
/// All kinds, sorted by code.
std::span<const FindingKind> finding_kinds();
const FindingKind& kind_of(Code code);
std::optional<Code> code_named(std::string_view name);

struct Finding {
  Code code = Code::kLineWithoutFile;
  std::optional<Area> area;
  std::string owner;
  std::string folder;    ///< the path of the folder that contains it
  std::string name;      ///< the logical name, file or folder concerned
  std::size_t line = 0;  ///< of index.dat or a key file, from 1; 0: no line
  std::string detail;    ///< the values that led to the finding
  /// Set if the finding is about a version of a document; the name is then its logical name.
  std::optional<std::int32_t> timestamp = std::nullopt;
  /// Set if the finding is about the key of a line of index.dat; the name is then "index.dat".
  std::string key = {};
};
using FindingSink = std::function<void(const Finding&)>;

// ---- checking ----------------------------------------------------------------------------------

enum class Depth : std::uint8_t {
  kQuick,  ///< names and indexes
  kFull,   ///< also sizes and times of files, key files and sub-parts
};

struct CheckOptions : WalkOptions {
  Depth depth = Depth::kFull;
  /// A path longer than 9/10 of this is near the limit.
  std::size_t path_limit = sys::kPathLimit;
  /// Whether to test that indexes, counters and folders are writable. The test writes nothing.
  bool ask_writable = true;
};

struct CheckSummary {
  std::uint64_t folders = 0;
  std::uint64_t entries = 0;   ///< valid entries
  std::uint64_t files = 0;     ///< plain files in document folders, without indexes
  std::uint64_t unserved = 0;  ///< documents that an index names but the library does not find
  std::array<std::uint64_t, kCodes> findings{};
  bool was_stopped = false;

  std::uint64_t count(Severity severity) const;
};

/// Checks a tree, folder by folder, and passes each finding to @p sink at once.
CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink);

}  // namespace admin
