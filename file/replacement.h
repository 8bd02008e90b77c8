#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Atomic replacement of a text of lines in its file. An interruption at any moment leaves the old
/// text or the new one. An interruption is a kill, a failed write or a power failure.
///
/// During a replacement the file consists of four parts:
///
///     [ front ][ gap ][ copy ][ trailer ]
///
/// The front is the old text, then the new text written over it. The copy contains the new text.
/// The trailer contains the checksum of the new text. The steps:
///
///  1. Write copy and trailer after the old text. Flush.
///  2. Write the new text over the old text. Flush.
///  3. Cut the file at the end of the new text. No flush.
///
/// A reader checks the trailer (`interrupted_in`). If it is valid, the reader takes the copy.
/// Otherwise the reader takes the lines of the file as they are:
///
///     interrupted                       front          trailer   the reader takes
///     in step 1                         old text       invalid   the front: the old text
///     in step 1, all bytes on disk      old text       valid     the copy:  the new text
///     in step 2, or before the cut      old and new    valid     the copy:  the new text
///     after the cut                     new text       none      the front: the new text
///
/// Step 3 needs no flush. If a power failure undoes the cut, the file still ends in the valid
/// trailer. If a later save has overwritten a part of the trailer, it is invalid, and the front is
/// the text.
///
/// Some readers know only lines, not trailers: other versions of this library. Copy and trailer
/// contain no "/", so these readers find no line in them. Step 2 protects them as well: a kill
/// never leaves a line that consists of half an old and half a new line. The system writes page by
/// page, so a kill can tear the line at each page edge. Therefore step 2 first takes the "/" out of
/// the old lines at page edges. It writes the "/" of the new lines at page edges last:
///
///     old  ...nes.kdb_0000000001/0000|0007\n...     "|" is a page edge
///          ...nes.kdb_0000000001 0000|0007\n...     no "/": not a line
///     new  ...tes.txt_0000000000 note|s.txt\n...     not a line yet
///          ...tes.txt_0000000000/note|s.txt\n...     a line
///
/// docs/formats.md describes every byte.
namespace replacement {

/// A kill leaves each page either written or untouched. Larger pages are multiples of this size.
inline constexpr std::size_t kPageSize = 4096;
/// The same for a power failure and each sector.
inline constexpr std::size_t kSectorSize = 512;

/// A replacement that was interrupted after step 1.
struct Interrupted {
  std::string text;         ///< the new text
  std::size_t base = 0;     ///< the copy contains the text from this position on
  std::size_t copy_at = 0;  ///< where the copy begins in the file; the front ends here or earlier
};

/// The interrupted replacement that a valid trailer at the end of @p bytes describes, if any.
std::optional<Interrupted> interrupted_in(std::string_view bytes);

/// The text of a file that contains @p bytes: the new text of an interrupted replacement, otherwise
/// the bytes without the zeros at their end. (After a power failure a file may have its new size
/// but not all its bytes; then it ends in zeros.) The result is a view of @p bytes or @p storage.
std::string_view text_of(std::string_view bytes, std::string& storage);

/// One write. If the process is killed during it, the bytes up to some page edge are written.
struct Write {
  std::uint64_t offset = 0;
  std::string_view bytes;  ///< a view of a text of the plan, or of an argument of plan()
};

/// Writes in their order. A flush follows the last one.
using Stage = std::vector<Write>;

/// The writes of a replacement. A text that is written unchanged is a view, not a copy.
struct Plan {
  Plan() = default;
  Plan(Plan&&) = default;
  Plan& operator=(Plan&&) = default;
  Plan(const Plan&) = delete;  // the writes of a copy would be views of this plan's texts
  Plan& operator=(const Plan&) = delete;
  ~Plan() = default;

  /// Each stage begins after the flush of the stage before. Empty if nothing changes.
  std::vector<Stage> stages;
  /// The index in `stages` of the stage that writes over the old text. Earlier stages leave the old
  /// text as it is; from this stage on the new text is the text of the file.
  std::size_t first_over_old = 0;
  std::uint64_t reserve = 0;     ///< the largest size of the file during the replacement
  std::uint64_t size = 0;        ///< its size after the cut
  std::list<std::string> texts;  ///< texts that are written in a changed form
};

/// The plan for a file that contains @p old_bytes and has no valid trailer. The new text must
/// outlive the plan.
Plan plan(std::string_view old_bytes, std::string_view new_text, std::size_t page = kPageSize);
template <std::same_as<std::string> Temporary>
Plan plan(std::string_view, Temporary&&, std::size_t = kPageSize) = delete;

/// The plan that completes the interrupted replacement @p found in a file that contains @p bytes.
/// @p found must outlive the plan.
Plan completion(std::string_view bytes, const Interrupted& found, std::size_t page = kPageSize);
Plan completion(std::string_view, Interrupted&&, std::size_t = kPageSize) = delete;

}  // namespace replacement
