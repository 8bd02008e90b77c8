#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// @file
/// What the bytes of an index.dat stand for, told a second time, from docs/formats.md alone: the
/// suites judge with it what a kill, a full disk or the power has left.
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

}  // namespace reliability
