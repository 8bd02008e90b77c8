#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/system.h"
#include "index/index_format.h"

namespace admin {

/// The name and the file in a line of an index. The folder is not read.
struct NameLine {
  std::string_view key;
  std::string_view stored;

  std::string_view logical() const { return index_format::logical_of(key); }
  std::int32_t timestamp() const { return index_format::timestamp_of(key); }
  std::string file() const { return index_format::file_name_of(key, stored); }
  /// Whether the entry has the form of an adopted file: the file's own name at timestamp 0.
  bool is_own_name() const { return timestamp() == 0 && logical() == stored; }
};

/// The physical names by key in the lines of an index that have the form of an entry; of two lines
/// with one key only the first. The results are views of @p text.
std::map<std::string_view, std::string_view> names_in(std::string_view text);

/// How the entry of one key differs between two indexes.
struct NameDifference {
  enum class What : std::uint8_t { kAdded, kRemoved, kMoved };
  What what = What::kAdded;
  std::string_view key;
  std::string_view before;  ///< the physical name; empty if added
  std::string_view after;   ///< the physical name; empty if removed
};
/// "added", "removed", or "moved": the entry has another file.
constexpr std::string_view name_of(NameDifference::What what) {
  return word_of(what, {"added", "removed", "moved"});
}

/// Passes on the differences, sorted by key.
void compare_names(std::string_view before, std::string_view after,
                   const std::function<void(const NameDifference&)>& sink);

// ---- restored entries ---------------------------------------------------------------------------
// Restores entries that an index had before. The content of documents does not change.
//
// An entry is restored if its file exists and no other entry has the file. An adopted entry of the
// same file is removed. If the adoption changed the file's extension to lower case, the file gets
// its old name again. All other entries stay as they are.

/// What happens to a saved entry. Unchanged entries are only counted.
enum class NameFate : std::uint8_t {
  kRestored,
  kKept,    ///< not changed: the name exists now, with another file
  kTaken,   ///< another entry has its file now
  kNoFile,  ///< its file is missing
};

struct RestoredName {
  NameFate fate = NameFate::kRestored;
  std::string logical;
  std::int32_t timestamp = 0;
  std::string stored;
  std::string file;
  std::string renamed_from;  ///< the file's name since its adoption, if that changed it; else empty
  std::string reason;        ///< why; empty for kRestored
};

/// The changes of one folder.
struct RestorePlan {
  std::vector<RestoredName> names;
  std::vector<std::string> dropped;  ///< files whose adopted entries are removed
  std::uint64_t unchanged = 0;       ///< number of entries that are as saved
  std::string text;                  ///< the index after the restore

  std::uint64_t count(NameFate fate) const;
  bool changes() const { return !dropped.empty() || count(NameFate::kRestored) != 0; }
};

/// Plans the restore of @p saved, an earlier text of the folder's index. Changes nothing.
RestorePlan plan_restore(const FolderView& folder, std::string_view saved);

/// Plans and does the restore under an exclusive lock on the index. Creates a missing index. After
/// a kill, the index has the old or the new text. Some files may have their old names already. The
/// next restore completes the work.
/// @param plan on success: what was done.
os::Status restore_names(const DocumentFolder& folder, std::string_view saved,
                         const sys::Locking& locking, RestorePlan& plan);

}  // namespace admin
