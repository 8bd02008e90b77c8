#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// How a text of lines is replaced inside its file so that a process that dies on the way harms no line.
///
/// A system carries a write out page by page, and a killed process may leave any number of the first
/// pages written. The text is one of lines "key/name\n"; its reader drops a line whose file is missing
/// and takes the first of equal keys. What it must never find is a line glued from two halves.
///
/// The plan, for texts of more than a page:
///
///  1. the new text is written behind the old one (and behind the place that it will take itself);
///  2. over the old text goes the new one again, with blanks up to the copy behind;
///  3. the file is cut at the end of the new text.
///
/// Until 1 is complete the old text stands whole; from then on one copy of the new one does. At every
/// page edge a line may be torn meanwhile: so in 1 and 2 the lines of the new text that an edge splits
/// are written with a blank for their "/" first, which makes them no line at all, and get it once the
/// whole text is there; and before 2 the lines of the old text at an edge lose theirs. That makes five
/// writes, however long the texts are. Only what follows the first difference of the texts is touched. A text within one page is
/// written at once; lines to be cut off are blanks by then.
///
/// Every state in between reads as lines of the old text and of the new one, with every line that both
/// have. The space for it all is reserved first, so that a full disk leaves the old text.
namespace replacement {

/// Systems write pages of this size or multiples of it.
inline constexpr std::size_t kPageSize = 4096;

/// One write. A process that dies within it leaves what lies before some page edge written.
struct Step {
  std::uint64_t offset;
  std::string bytes;
};

struct Plan {
  std::vector<Step> steps;    ///< in their order
  std::size_t appended = 0;   ///< so many of the first steps leave the old text alone
  std::uint64_t reserve = 0;  ///< the largest size of the file on the way
  std::uint64_t size = 0;     ///< where it is cut at last
};

/// The plan for a file that holds @p old_text now.
Plan plan(std::string_view old_text, std::string_view new_text, std::size_t page = kPageSize);

}  // namespace replacement
