#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How a text of lines replaces another one in its file, so that an interruption at any moment
/// leaves one of the two: the end of the process, a write that fails, or a power failure.
///
/// The file while the new text is on its way:
///
///     [ front: the old text, then the new one over it ][ gap ][ copy ][ trailer ]
///
///  1. The copy of the new text and the trailer are written behind the old text, and flushed.
///  2. The new text is written over the old one, and flushed.
///  3. The file is cut at the end of the new text. Nothing is flushed.
///
/// Until step 1 is flushed, the old text stands untouched. From then on the trailer vouches for the
/// copy, whatever the front holds. A copy or a trailer of which a part is missing does not pass the
/// checksum; the front is the old text then, or, after step 2, the new one. So a reader takes the
/// copy where a trailer fits (`interrupted_in`), and the lines of the file as they stand where none
/// does.
///
/// Step 3 needs no flush: a cut that was lost leaves the trailer, or what a later save wrote over
/// it.
///
/// Neither copy nor trailer holds a "/", so they mean nothing to a reader who knows lines alone.
/// For his sake step 2 never shows a line that is glued from two halves when a process is killed. A
/// system carries a write out page by page; at each page edge a line may be torn meanwhile. So the
/// old lines at page edges lose their "/" first, and the new lines at page edges get theirs last:
///
///     old  ...nes.kdb_0000000001/0000|0007\n...     "|" is a page edge
///          ...nes.kdb_0000000001 0000|0007\n...     the old line is no line any more
///     new  ...tes.txt_0000000000 note|s.txt\n...     nor is the new one
///          ...tes.txt_0000000000/note|s.txt\n...     now it is
///
/// docs/formats.md tells every byte of it.
namespace replacement {

/// A system writes pages of this size, or of a multiple of it, whole or not at all when a process
/// is killed.
inline constexpr std::size_t kPageSize = 4096;
/// A device writes sectors of this size, or of a multiple of it, whole or not at all when the power
/// fails.
inline constexpr std::size_t kSectorSize = 512;

/// A replacement that was interrupted behind its first flush.
struct Interrupted {
  std::string text;         ///< the new text
  std::size_t base = 0;     ///< where in the text the copy begins
  std::size_t copy_at = 0;  ///< where the front ends, at the latest
};

/// What the trailer at the end of a file's bytes vouches for; nothing where none fits.
std::optional<Interrupted> interrupted_in(std::string_view bytes);

/// The text that the bytes of a file stand for: the new text of a replacement that was interrupted
/// behind its first flush, else the bytes themselves without the zeros at their end. (A file's size
/// may reach the device before its bytes; then it ends in zeros.) The result is a view of @p bytes
/// or of @p storage.
std::string_view text_of(std::string_view bytes, std::string& storage);

/// One write. A process that is killed within it leaves what lies before some page edge written.
struct Write {
  std::uint64_t offset = 0;
  std::string_view bytes;  ///< lies in the texts of the plan, or in those that it was made from
};

/// Writes in their order, with a flush behind the last of them.
using Stage = std::vector<Write>;

/// What is written as it stands is not copied.
struct Plan {
  Plan() = default;
  Plan(Plan&&) = default;
  Plan& operator=(Plan&&) = default;
  Plan(const Plan&) = delete;  // the writes of a copy would lie in the texts of this one
  Plan& operator=(const Plan&) = delete;
  ~Plan() = default;

  /// Each is begun when the one before is flushed. None where nothing changes.
  std::vector<Stage> stages;
  /// From here on the new text holds; an earlier stage leaves the old one as it is. An index of
  /// `stages`.
  std::size_t first_over_old = 0;
  std::uint64_t reserve = 0;      ///< the largest size of the file on the way
  std::uint64_t size = 0;         ///< where it is cut at last
  std::deque<std::string> texts;  ///< what is written in another form than it came in
};

/// The plan for a file that holds @p old_bytes, which no trailer ends. The new text outlives it.
Plan plan(std::string_view old_bytes, std::string_view new_text, std::size_t page = kPageSize);
template <std::same_as<std::string> Temporary>
Plan plan(std::string_view, Temporary&&, std::size_t = kPageSize) = delete;

/// The plan that completes an interrupted replacement in a file that holds @p bytes. What was found
/// outlives it.
Plan completion(std::string_view bytes, const Interrupted& found, std::size_t page = kPageSize);
Plan completion(std::string_view, Interrupted&&, std::size_t = kPageSize) = delete;

}  // namespace replacement
