#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

/// @file
/// What the bytes of an index.dat stand for, told a second time, from docs/formats.md alone: the
/// suites judge with it what a kill, a full disk or a power failure has left. And a storage folder
/// as it lies on disk.
namespace reliability {

/// key -> stored name
using Lines = std::map<std::string, std::string>;

/// The trailer of an interrupted save, as its four numbers tell.
struct Trailer {
  std::uint64_t base = 0;
  std::uint64_t size = 0;
  std::uint64_t copied = 0;
  std::uint64_t checksum = 0;
};
inline constexpr std::size_t kTrailerSize = 85;

/// Whether the bytes end as a trailer does. Nothing is said of what it vouches for.
bool ends_in_trailer(std::string_view bytes, Trailer& trailer);

/// How much of the bytes a reader understands.
enum class Reader : std::uint8_t {
  /// This format's: where a trailer at the end vouches for a new text, it is that, else the bytes
  /// without the zeros at their end.
  kWhole,
  kLines,  ///< one that knows lines alone: the bytes as they stand
};

/// The text that the bytes stand for.
std::string text_of_index(std::string_view bytes, Reader reader = Reader::kWhole);

/// Whether the bytes stand for another text than they are.
bool is_interrupted(std::string_view bytes);

/// Calls @p visit with key and stored name of each line of a text.
template <class Visit>
void visit_lines(std::string_view text, const Visit& visit) {
  constexpr auto kNone = std::string_view::npos;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t slash = text.find('/', start);
    if (slash == kNone) break;
    const std::size_t end = text.find('\n', start);
    // A line without a "/" of its own runs on: the next "/" ends its key, and its name is the rest.
    const std::size_t name_end = end == kNone || end < slash ? text.size() : end;
    visit(text.substr(start, slash - start), text.substr(slash + 1, name_end - slash - 1));
    if (end == kNone) break;
    start = end + 1;
  }
}

/// All lines of a text, whatever files there are: of equal keys the first one.
Lines all_lines(std::string_view text);

// ------------------------------------------------------------------------------------------------
// A storage folder as it lies on disk, read by the reader's rules (docs/formats.md) and without
// the library: what the suites compare with what they know must be there.

/// file name -> size
using Files = std::map<std::string, std::uint64_t>;

/// The lines of a text that count when a folder holds these files. A stored name that would lead to
/// anything but a file of the listing (the folder itself, a pattern) counts as well: no operation
/// here writes one, so it shows as an entry that nobody made.
Lines read_index(std::string_view text, const Files& files);

/// The file that an entry stands for.
std::string file_of(const std::string& key, const std::string& stored);
/// The extension of a key's logical name, with its dot.
std::string extension_of_key(const std::string& key);
/// logical + "_" + ten digits
std::string key_for(const std::string& logical, long stamp);
/// The two parts of a key.
std::pair<std::string, long> parts_of_key(const std::string& key);

struct FolderState {
  std::string index_text;  ///< its bytes as they stand
  std::string counter_text;
  bool has_index = false;
  Lines lines;        ///< those that count, of the text that the bytes stand for
  Lines plain_lines;  ///< what a reader finds that knows lines alone
  Files files;        ///< all but "index.dat" and "index"
};

FolderState look_at(const std::string& folder);

/// The text that an index of these lines has after a save.
std::string index_text_of(const Lines& lines);

}  // namespace reliability
