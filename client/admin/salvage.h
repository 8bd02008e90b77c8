#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/admin/folder_view.h"

/// @file
/// Names in an index whose text was damaged: by line ends of another system, zeros, a cut, or two
/// lines glued into one. Readers pass over such lines, and the next writer drops them.
namespace admin {

/// The lines that the damaged text still tells: each has a file in the folder that no entry has,
/// and a name that no entry bears. Without a line end, in the order of the text.
std::vector<std::string> salvaged_lines(const FolderView& folder);

/// The index with these lines, as far as their files are there and nobody has name or file by now;
/// what the damaged text holds of them goes. @param added how many came. Lines that tell something
/// else stay; those without a "/" behind all others, where they harm none.
std::string with_restored_lines(const FolderView& folder, const std::vector<std::string>& lines,
                                std::size_t& added);

}  // namespace admin
