#include "file/replacement.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace replacement {
namespace {

constexpr auto kNone = std::string_view::npos;

// ---- copy and trailer --------------------------------------------------------------------------

/// Begins an escape sequence in a copy. It replaces "/" and itself; the next byte says which.
constexpr char kEscape = '\x1b';
constexpr char kSlash = 's';
constexpr char kEscapeItself = 'e';

/// The text with "/" escaped. (Not inlined: GCC 12 warns of a length that has wrapped.)
[[gnu::noinline]] std::string escaped(std::string_view text) {
  constexpr std::string_view kBoth("/\x1b");
  const bool has_both = text.find(kEscape) != kNone;  // hardly ever
  const auto next = [&](std::size_t from) {
    return has_both ? text.find_first_of(kBoth, from) : text.find('/', from);
  };
  std::string result;
  result.reserve(text.size() + text.size() / 16);
  std::size_t from = 0;
  for (std::size_t at = next(0); at != kNone; at = next(from)) {
    result.append(text, from, at - from);
    result += kEscape;
    result += text[at] == '/' ? kSlash : kEscapeItself;
    from = at + 1;
  }
  result.append(text, from);
  return result;
}

/// Decodes @p copy and appends the result. @return false on an invalid escape sequence.
bool append_plain(std::string_view copy, std::string& text) {
  std::size_t from = 0;
  for (std::size_t at = copy.find(kEscape); at != kNone; at = copy.find(kEscape, from)) {
    text.append(copy, from, at - from);
    const char which = at + 1 < copy.size() ? copy[at + 1] : '\0';
    if (which != kSlash && which != kEscapeItself) return false;
    text += which == kSlash ? '/' : kEscape;
    from = at + 2;
  }
  text.append(copy, from);
  return true;
}

constexpr std::string_view kMagic = "\nvu-index-save 1 ";
constexpr std::size_t kDigits = 16;
/// The trailer: the magic, three numbers with a blank after each, the checksum, a line feed.
constexpr std::size_t kTrailerSize = kMagic.size() + 4 * (kDigits + 1);

void append_number(std::string& text, std::uint64_t number) {
  std::array<char, kDigits> digits{};
  const auto end = std::to_chars(digits.begin(), digits.end(), number, 16).ptr;
  text.append(kDigits - static_cast<std::size_t>(end - digits.begin()), '0');
  text.append(digits.begin(), end);
}

/// The number of 16 hexadecimal digits at @p at.
std::optional<std::uint64_t> number_at(std::string_view text, std::size_t at) {
  const std::string_view digits = text.substr(at, kDigits);
  std::uint64_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  if (error != std::errc() || end != digits.data() + kDigits) return std::nullopt;
  return number;
}

/// The trailer for a copy of @p text from @p base on.
std::string trailer_of(std::string_view text, std::size_t base, std::size_t copy_size) {
  std::string trailer(kMagic);
  for (const std::size_t number : {base, text.size(), copy_size}) {
    append_number(trailer, number);
    trailer += ' ';
  }
  // The checksum covers the new text and, through its seed, the rest of the trailer.
  const std::uint64_t seed = XXH3_64bits(trailer.data(), trailer.size());
  append_number(trailer, XXH3_64bits_withSeed(text.data(), text.size(), seed));
  trailer += '\n';
  return trailer;
}

// ---- lines at page edges -----------------------------------------------------------------------

/// Which lines at a page edge are selected.
enum class AtEdge : std::uint8_t {
  kSplit,            ///< lines that the edge splits
  kSplitOrBeginning  ///< also lines that begin at the edge: half of a torn line could precede them
};

/// A line at a page edge: the positions of its "/".
using Separators = std::vector<std::size_t>;

/// The lines at page edges that contain a "/", each once. The text is at @p offset of the file.
std::vector<Separators> lines_at_edges(std::string_view text, std::uint64_t offset,
                                       std::size_t page, AtEdge which) {
  std::vector<Separators> lines;
  std::size_t done = 0;  // lines before this position are done
  for (std::uint64_t edge = (offset / page + 1) * page; edge < offset + text.size(); edge += page) {
    const auto at = static_cast<std::size_t>(edge - offset);
    const bool begins_here = text[at - 1] == '\n';
    if (at < done || (begins_here && which == AtEdge::kSplit)) continue;
    const std::size_t before = begins_here ? at : text.rfind('\n', at - 1) + 1;  // npos + 1 is 0
    const std::size_t end = std::min(text.find('\n', at), text.size());
    Separators& separators = lines.emplace_back();
    for (std::size_t i = text.find('/', before); i < end; i = text.find('/', i + 1)) {
      separators.push_back(i);
    }
    if (separators.empty()) lines.pop_back();
    done = end;
  }
  return lines;
}

/// The text from the first "/" of these lines to the last one. There is at least one line.
std::string_view between(const std::vector<Separators>& lines, std::string_view text) {
  const std::size_t first = lines.front().front();
  return text.substr(first, lines.back().back() - first + 1);
}

/// Replaces the "/" of these lines by blanks. @param begin the position of the first byte of @p
/// text, as counted in @p lines.
void take_out(const std::vector<Separators>& lines, std::string& text, std::size_t begin) {
  for (const Separators& separators : lines) {
    for (const std::size_t at : separators) text[at - begin] = ' ';
  }
}

/// Removes the "/" from the lines of the old text at page edges.
void unmake_lines_at_edges(Plan& plan, Stage& stage, std::uint64_t offset,
                           std::string_view old_text, std::size_t page) {
  const std::vector<Separators> early =
      lines_at_edges(old_text, offset, page, AtEdge::kSplitOrBeginning);
  // The library does not write lines with several "/". Such a line loses its last "/" first, each
  // by one write: "k/x/y", "k/x y", "k x y". So its key never changes, and no file has its name.
  for (const Separators& separators : early) {
    if (separators.size() == 1) continue;
    for (auto at = separators.rbegin(); at != separators.rend(); ++at) {
      stage.push_back({offset + *at, " "});
    }
  }
  if (early.empty()) return;
  const std::size_t first = early.front().front();
  std::string& blanked = plan.texts.emplace_back(between(early, old_text));
  take_out(early, blanked, first);
  stage.push_back({offset + first, blanked});
}

/// Writes @p text at @p offset. The "/" of the lines that a page edge splits follow last.
void write_text(Plan& plan, Stage& stage, std::uint64_t offset, std::string_view text,
                std::size_t page) {
  const std::vector<Separators> late = lines_at_edges(text, offset, page, AtEdge::kSplit);
  if (late.empty()) {
    stage.push_back({offset, text});
    return;
  }
  std::string& blanked = plan.texts.emplace_back(text);
  take_out(late, blanked, 0);
  stage.push_back({offset, blanked});
  stage.push_back({offset + late.front().front(), between(late, text)});
}

// ---- the stages --------------------------------------------------------------------------------

/// The number of bytes at the start that both have in common.
std::size_t length_in_common(std::string_view one, std::string_view other) {
  constexpr std::size_t kBlock = 256;
  const std::size_t size = std::min(one.size(), other.size());
  std::size_t at = 0;
  while (size - at >= kBlock && std::memcmp(one.data() + at, other.data() + at, kBlock) == 0)
    at += kBlock;
  while (at < size && one[at] == other[at]) ++at;
  return at;
}

/// The start of the first line in which the texts differ.
std::size_t start_of_difference(std::string_view one, std::string_view other) {
  const std::size_t at = length_in_common(one, other);
  return at == 0 ? 0 : one.rfind('\n', at - 1) + 1;
}

std::uint64_t sector_before(std::uint64_t offset) { return offset / kSectorSize * kSectorSize; }

/// Writes the new text over the front, from @p from on, and blanks up to the front's end.
void write_over(Plan& plan, std::string_view front, std::string_view new_text, std::size_t from,
                std::size_t page) {
  std::string_view tail = new_text.substr(from);
  if (new_text.size() < front.size()) {
    std::string& filled = plan.texts.emplace_back(tail);
    filled.resize(front.size() - from, ' ');
    tail = filled;
  }
  Stage& stage = plan.stages.emplace_back();
  unmake_lines_at_edges(plan, stage, from, front.substr(from), page);
  write_text(plan, stage, from, tail, page);
}

std::string_view without_zeros_behind(std::string_view bytes) {
  return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

/// Whether the last line has a "/" and no line feed. Bytes written after it would extend the line.
bool last_line_is_open(std::string_view text) {
  return text.find('/', text.rfind('\n') + 1) != kNone;
}

/// Whether a single write replaces the text completely or not at all, for any reader. This is true
/// for the digits of a counter, within one sector. A torn write of a new counter leaves zeros, the
/// same value as an empty file. It is not true for lines: a failing device may write a part of one.
bool is_replaced_at_once(std::string_view old_bytes, std::string_view new_text) {
  return (old_bytes.empty() || old_bytes.size() == new_text.size()) &&
         new_text.size() <= kSectorSize && old_bytes.find('/') == kNone &&
         new_text.find('/') == kNone;
}

}  // namespace

std::optional<Interrupted> interrupted_in(std::string_view bytes) {
  if (bytes.size() < kTrailerSize) return std::nullopt;
  const std::string_view trailer = bytes.substr(bytes.size() - kTrailerSize);
  if (!trailer.starts_with(kMagic)) return std::nullopt;
  const auto number = [&](std::size_t which) {
    return number_at(trailer, kMagic.size() + which * (kDigits + 1));
  };
  const auto base = number(0);
  const auto size = number(1);
  const auto copied = number(2);
  if (!base || !size || !copied) return std::nullopt;
  const std::size_t room = bytes.size() - kTrailerSize;
  if (*copied > room || *base > room - *copied || *size < *base || *size - *base > *copied)
    return std::nullopt;

  Interrupted found;
  found.base = static_cast<std::size_t>(*base);
  found.copy_at = room - static_cast<std::size_t>(*copied);
  found.text.reserve(static_cast<std::size_t>(*size));
  found.text.assign(bytes.substr(0, static_cast<std::size_t>(*base)));
  if (!append_plain(bytes.substr(found.copy_at, static_cast<std::size_t>(*copied)), found.text))
    return std::nullopt;
  const bool fits = found.text.size() == *size &&
                    trailer == trailer_of(found.text, static_cast<std::size_t>(*base),
                                          static_cast<std::size_t>(*copied));
  return fits ? std::optional(std::move(found)) : std::nullopt;
}

std::string_view text_of(std::string_view bytes, std::string& storage) {
  if (std::optional<Interrupted> found = interrupted_in(bytes)) {
    storage = std::move(found->text);
    return storage;
  }
  return without_zeros_behind(bytes);
}

Plan plan(std::string_view old_bytes, std::string_view new_text, std::size_t page) {
  Plan result;
  result.size = new_text.size();
  result.reserve = new_text.size();
  if (old_bytes == new_text) return result;
  if (is_replaced_at_once(old_bytes, new_text)) {
    result.stages.push_back({{0, new_text}});
    return result;
  }

  const std::size_t old_size = old_bytes.size();
  old_bytes = without_zeros_behind(old_bytes);
  if (last_line_is_open(old_bytes)) {
    result.stages.push_back({{old_bytes.size(), "\n"}});
    old_bytes = result.texts.emplace_back(old_bytes).append("\n");
  }

  // The copy contains the new text from the start of the sector in which the texts begin to differ.
  // So it contains every byte of each sector that step 2 overwrites. It begins in a new sector.
  const std::size_t from = start_of_difference(old_bytes, new_text);
  const auto base = static_cast<std::size_t>(sector_before(from));
  const std::uint64_t copy_at =
      sector_before(std::max({old_size, old_bytes.size(), new_text.size()}) + kSectorSize - 1);
  std::string& copy = result.texts.emplace_back(escaped(new_text.substr(base)));
  copy += trailer_of(new_text, base, copy.size());
  result.reserve = copy_at + copy.size();
  result.stages.push_back({{copy_at, copy}});

  result.first_over_old = result.stages.size();
  write_over(result, old_bytes, new_text, from, page);
  return result;
}

Plan completion(std::string_view bytes, const Interrupted& found, std::size_t page) {
  // The gap between text and copy may contain the rest of an older text, so the front includes it.
  const std::string_view front = bytes.substr(0, found.copy_at);
  Plan result;
  result.size = found.text.size();
  result.reserve = bytes.size();
  // The copy contains the text from `base` on. Sectors before `base` exist only in the front, and
  // are not overwritten.
  const std::size_t from = std::max(found.base, start_of_difference(front, found.text));
  write_over(result, front, found.text, from, page);
  return result;
}

}  // namespace replacement
