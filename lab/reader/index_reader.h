#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

/// @file
/// A second reader of index.dat, written from docs/formats.md without the library. The suites use
/// it to check what a kill, a full disk or a power failure left. It also reads whole storage
/// folders.
namespace reader {

/// key -> physical name
using Lines = std::map<std::string, std::string>;

/// The four numbers of the trailer of an interrupted save.
struct Trailer {
  std::uint64_t base = 0;
  std::uint64_t size = 0;
  std::uint64_t copied = 0;
  std::uint64_t checksum = 0;
};
inline constexpr std::size_t kTrailerSize = 85;

/// Whether the bytes end in a trailer. Its checksum is not checked.
bool ends_in_trailer(std::string_view bytes, Trailer& trailer);

/// What a reader knows of the format.
enum class Reader : std::uint8_t {
  /// Everything: a trailer with a correct checksum yields the new text. Otherwise the text is the
  /// bytes without the zeros at their end.
  kWhole,
  kLines,  ///< only plain lines: the text is all bytes
};

std::string text_of_index(std::string_view bytes, Reader reader = Reader::kWhole);

/// Whether the text differs from the bytes.
bool is_interrupted(std::string_view bytes);

/// Calls @p visit with key and physical name of each line.
template <class Visit>
void visit_lines(std::string_view text, const Visit& visit) {
  constexpr auto kNone = std::string_view::npos;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t slash = text.find('/', start);
    if (slash == kNone) break;
    const std::size_t end = text.find('\n', start);
    // A line without "/" continues: its key ends at the next "/", its name is the rest of the text.
    const std::size_t name_end = end == kNone || end < slash ? text.size() : end;
    visit(text.substr(start, slash - start), text.substr(slash + 1, name_end - slash - 1));
    if (end == kNone) break;
    start = end + 1;
  }
}

/// All entries of a text, valid or not. Of several entries with one key, only the first.
Lines all_lines(std::string_view text);

// ------------------------------------------------------------------------------------------------
// A storage folder as the second reader sees it. The suites compare it with what they expect.

/// file name -> size
using Files = std::map<std::string, std::uint64_t>;

/// The entries of a text that are valid in a folder with these files. Includes entries whose stored
/// name is no file name, for example "" or "*": the library finds something under such a name. No
/// operation here writes one, so the suites report it as invented.
Lines read_index(std::string_view text, const Files& files);

/// The file of an entry.
std::string file_of(const std::string& key, const std::string& stored);
/// The extension of a key's logical name, with its dot.
std::string extension_of_key(const std::string& key);
/// logical + "_" + ten digits
std::string key_for(const std::string& logical, long stamp);
/// The logical name and the timestamp of a key.
std::pair<std::string, long> parts_of_key(const std::string& key);

struct FolderState {
  std::string index_text;  ///< all bytes of index.dat
  std::string counter_text;
  bool has_index = false;
  Lines lines;        ///< the valid entries
  Lines plain_lines;  ///< the valid entries for a reader of plain lines
  Files files;        ///< all except "index.dat" and "index"
};

FolderState look_at(const std::string& folder);

/// The text of the index after a save of these entries.
std::string index_text_of(const Lines& lines);

}  // namespace reader
