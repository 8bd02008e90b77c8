#pragma once

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"

/// @file
/// What a repair takes out of indexes and key files, as text. Nothing here opens a file.
namespace admin {

/// A line that readers of an index pass over, and why.
struct BadLine {
  std::string text;
  Verdict verdict = Verdict::kNoFile;
  auto operator<=>(const BadLine&) const = default;
};
/// The lines of the folder's index that readers pass over, each with its number from 1. Blanks,
/// which say nothing, are not told.
std::vector<std::pair<std::size_t, BadLine>> bad_lines(const FolderView& folder);

/// The index without those of its lines that are in @p unwanted, and still passed over for the same
/// reason. A second copy of a line, and blanks, go as well: a writer who was stopped leaves those.
/// @param removed how many of the unwanted ones went.
std::string without_bad_lines(const FolderView& folder, const std::set<BadLine>& unwanted,
                              std::size_t& removed);
/// The index with lines added, where it does not have them, in the order of the keys.
std::string with_lines(std::string_view index, const std::vector<std::string>& lines);

/// A line of a key file by its number, which counts the lines that hold something, from 1.
std::string_view key_line(std::string_view text, std::size_t number);
/// Whether a line of a key file names nothing that the folder has: neither side of it.
bool is_dangling(const FolderView& folder, std::string_view line);
/// The key file without each of these lines. @param removed how many went.
std::string without_key_lines(std::string_view text, const std::set<std::string>& lines,
                              std::size_t& removed);
/// The key file with lines added at its end, where it does not have them.
std::string with_key_lines(std::string_view text, const std::vector<std::string>& lines);

/// Whether a name of the folder is a file that no line of its index claims, nor may claim.
bool is_unclaimed_file(const FolderView& folder, std::string_view name);
/// The number that a stored name was generated from; 0 when it was not drawn from the counter.
std::int32_t number_drawn_for(std::string_view stored);
/// The highest number among the names of the folder that were generated; 0 without one.
std::int32_t highest_number(const FolderView& folder);
/// The name of that number.
std::string highest_name(const FolderView& folder);
/// The number in a counter's text.
std::int32_t counter_in(std::string_view text);
/// Whether a name of the folder is one of parts whose document is not there.
bool is_orphaned_parts(const FolderView& folder, std::string_view name);

// ---- what a damaged index still tells ----------------------------------------------------------
//
// Names in an index whose text was damaged: by line ends of another system, zeros, a cut, or two
// lines glued into one. Readers pass over such lines, and the next writer drops them.

/// The lines that the damaged text still tells: each has a file in the folder that no entry has,
/// and a name that no entry bears. Without a line end, in the order of the text.
std::vector<std::string> salvaged_lines(const FolderView& folder);

/// The index with these lines, as far as their files are there and nobody has name or file by now;
/// what the damaged text holds of them goes. @param added how many came. Lines that tell something
/// else stay; those without a "/" behind all others, where they harm none.
std::string with_restored_lines(const FolderView& folder, const std::vector<std::string>& lines,
                                std::size_t& added);

}  // namespace admin
