#pragma once

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"

/// @file
/// Repairs of indexes, as functions of texts. Nothing here opens a file.
namespace admin {

/// The text of an index with these lines, as the library writes it.
std::string index_text_of(const std::vector<std::string>& lines);
/// Sorts lines by their keys, as the library does. Lines with the same key keep their order,
/// because the first one is valid.
void sort_by_key(std::vector<std::string>& lines);

/// A line of an index that readers skip, and why.
struct BadLine {
  std::string text;
  Verdict verdict = Verdict::kNoFile;
  auto operator<=>(const BadLine&) const = default;
};
/// The lines of the folder's index that readers skip, with their numbers from 1; without blank
/// lines and unknown entries.
std::vector<std::pair<std::size_t, BadLine>> bad_lines(const FolderView& folder);

/// The index without the lines in @p unwanted that readers still skip for the same reason. Also
/// drops second copies of a line and blank lines, which an interrupted writer leaves.
/// @param removed the number of unwanted lines that were removed.
std::string without_bad_lines(const FolderView& folder, const std::set<BadLine>& unwanted,
                              std::size_t& removed);
/// The index with the @p lines that it does not have, sorted by key.
std::string with_lines(std::string_view index, const std::vector<std::string>& lines);

/// Whether a name in the folder is an orphan. False if the index has unknown entries: the file may
/// belong to one.
bool is_unclaimed_file(const FolderView& folder, std::string_view name);
/// The number in a generated physical name; 0 if the name is not a number from the counter.
std::int32_t number_drawn_for(std::string_view stored);
/// The highest number in the folder's generated file names; 0 if it has none.
std::int32_t highest_number(const FolderView& folder);
/// The name with the highest number, of a file or an entry.
std::string highest_name(const FolderView& folder);
std::int32_t counter_in(std::string_view text);
/// Whether a name in the folder is a sub-part folder of no document: no file has its document's
/// name, and no entry names such a file. A folder can be in the place of an entry's file.
bool is_orphaned_parts(const FolderView& folder, std::string_view name);

// ---- entries of a damaged index -----------------------------------------------------------------
// Restores entries from an index whose text is damaged: by line ends of another system, zeros, a
// truncation, or two joined lines. Readers skip such lines, and the next save drops them.

/// The lines that can be restored from the damaged text, in its order, without line ends. The
/// file of such a line exists, and no entry has its file or key.
std::vector<std::string> salvaged_lines(const FolderView& folder);

/// The index with the @p lines added; skips a line if its file is missing or an entry has its file
/// or key. Damaged lines that contain only restored or present keys are removed. Other damaged
/// lines stay; those without a "/" are put at the end, where they do not damage other lines.
/// @param added the number of added lines.
std::string with_restored_lines(const FolderView& folder, const std::vector<std::string>& lines,
                                std::size_t& added);

}  // namespace admin
