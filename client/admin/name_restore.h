#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/system.h"
#include "index/index_format.h"

namespace admin {

/// A line of an index as text, without a look at the folder: its name and its file.
struct NameLine {
  std::string_view key;
  std::string_view stored;

  std::string_view logical() const { return index_format::logical_of(key); }
  std::int32_t timestamp() const { return index_format::timestamp_of(key); }
  /// The name of its file.
  std::string file() const { return index_format::file_name_of(key, stored); }
  /// Whether it is the line of a file under the file's own name, as adoption writes it.
  bool is_own_name() const { return timestamp() == 0 && logical() == stored; }
};

/// The lines of an index text that can be entries, by key; of two with one key the first. Views
/// into the text.
std::vector<NameLine> names_in(std::string_view text);

/// How the line of a key differs between two texts.
struct NameDifference {
  enum class What : std::uint8_t { kAdded, kRemoved, kMoved };
  What what = What::kAdded;
  std::string_view key;
  std::string_view before;  ///< the physical name, empty when added
  std::string_view after;   ///< the physical name, empty when removed
};
/// "added", "removed", "moved": the name leads to another file.
std::string_view name_of(NameDifference::What what);

/// Hands on the differences, by key.
void compare_names(std::string_view before, std::string_view after,
                   const std::function<void(const NameDifference&)>& sink);

// ---- names brought back ------------------------------------------------------------------------
//
// Names that an index had once, brought back without touching the documents.
//
// A name comes back when its file is there and no other name has it. What adoption made of the
// file, an entry under the file's own name, goes then; and where adoption has put the file's
// extension into lower case, the file gets its old name again. Names that the index has by now
// stay as they are, whatever they lead to.

/// What becomes of a name that was saved. Names that are there unchanged are only counted.
enum class NameFate : std::uint8_t {
  kRestored,
  kKept,    ///< the name is there, and leads to another file than it did
  kTaken,   ///< another name has its file by now
  kNoFile,  ///< its file is gone
};

struct RestoredName {
  NameFate fate = NameFate::kRestored;
  std::string logical;
  std::int32_t timestamp = 0;
  std::string stored;
  std::string file;
  std::string renamed_from;  ///< the name that adoption gave the file; empty when it bears its own
  std::string reason;        ///< of all but kRestored
};

/// What is to be done in one folder.
struct RestorePlan {
  std::vector<RestoredName> names;
  std::vector<std::string> dropped;  ///< files whose entries under their own names go
  std::uint64_t unchanged = 0;       ///< names that are there as they were
  std::string text;                  ///< the index afterwards

  std::uint64_t count(NameFate fate) const;
  bool changes() const { return !dropped.empty() || count(NameFate::kRestored) != 0; }
};

/// The plan for a folder as it is, and the text that its index had. Nothing is changed.
RestorePlan plan_restore(const FolderView& folder, std::string_view saved);

/// Plans and carries it out, under an exclusive lock on the index, which is made when it is
/// missing. A process that is killed on the way leaves the names as they were or as they shall be,
/// and some files maybe under their own names already; the next restore completes it. @p plan says
/// what was done, when it succeeds.
os::Status restore_names(const DocumentFolder& folder, std::string_view saved,
                         const sys::Locking& locking, RestorePlan& plan);

}  // namespace admin
