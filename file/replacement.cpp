#include "file/replacement.h"

#include <algorithm>

namespace replacement {
namespace {

constexpr auto kNone = std::string_view::npos;

/// Which lines at a page edge are meant.
enum class AtEdge : std::uint8_t {
  kSplit,            ///< those that it splits
  kSplitOrBeginning  ///< also those that begin there, onto which a torn one could be glued
};

/// A line at a page edge: where its "/" stand in the text.
using Separators = std::vector<std::size_t>;

/// The lines at the page edges, each once. The text lies at @p offset of the file.
std::vector<Separators> lines_at_edges(std::string_view text, std::uint64_t offset,
                                       std::size_t page, AtEdge which) {
  std::vector<Separators> lines;
  std::size_t done = 0;  // lines before this position have been looked at
  for (std::uint64_t edge = (offset / page + 1) * page; edge < offset + text.size(); edge += page) {
    const auto at = static_cast<std::size_t>(edge - offset);
    const bool begins_here = text[at - 1] == '\n';
    if (at < done || (begins_here && which == AtEdge::kSplit)) continue;
    const std::size_t before = begins_here ? at : text.rfind('\n', at - 1) + 1;  // 0 when none
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

/// The text with a blank for the "/" of these lines.
std::string without(const std::vector<Separators>& lines, std::string_view text) {
  std::string result(text);
  for (const Separators& separators : lines) {
    for (const std::size_t at : separators) result[at] = ' ';
  }
  return result;
}

/// Writes again what lies between the first of the "/" and the last one.
void write_between(Plan& plan, std::uint64_t offset, std::string_view text,
                   const std::vector<Separators>& lines) {
  if (lines.empty()) return;
  const std::size_t first = lines.front().front();
  const std::size_t last = lines.back().back();
  plan.steps.push_back({offset + first, std::string(text.substr(first, last - first + 1))});
}

/// Writes @p text at @p offset, and the "/" of the lines that a page edge splits only then.
void write_text(Plan& plan, std::uint64_t offset, std::string_view text, std::size_t page) {
  const std::vector<Separators> late = lines_at_edges(text, offset, page, AtEdge::kSplit);
  plan.steps.push_back({offset, without(late, text)});
  write_between(plan, offset, text, late);
}

/// Takes their "/" from the lines of the old text at page edges.
void unmake_lines_at_edges(Plan& plan, std::uint64_t offset, std::string_view old_text,
                           std::size_t page) {
  const std::vector<Separators> early =
      lines_at_edges(old_text, offset, page, AtEdge::kSplitOrBeginning);
  // Lines with several, which the library does not write, lose the last one first, each by itself:
  // what is left of them then is a name that no file bears, not another key.
  for (const Separators& separators : early) {
    if (separators.size() == 1) continue;
    for (auto at = separators.rbegin(); at != separators.rend(); ++at) {
      plan.steps.push_back({offset + *at, " "});
    }
  }
  write_between(plan, offset, without(early, old_text), early);
}

/// The start of the line in which the texts begin to differ.
std::size_t start_of_difference(std::string_view one, std::string_view other) {
  const auto differ = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  const auto at = static_cast<std::size_t>(differ.first - one.begin());
  return at == 0 ? 0 : one.rfind('\n', at - 1) + 1;
}

}  // namespace

Plan plan(std::string_view old_text, std::string_view new_text, std::size_t page) {
  Plan result;
  result.size = new_text.size();
  std::size_t whole = std::max(old_text.size(), new_text.size());
  result.reserve = whole;

  if (whole <= page || old_text == new_text) {
    result.steps.push_back({0, std::string(new_text)});
    result.steps.front().bytes.resize(whole, ' ');
    return result;
  }

  const std::size_t base = start_of_difference(old_text, new_text);
  const std::string_view old_tail = old_text.substr(base);
  const std::string_view new_tail = new_text.substr(base);
  if (old_tail.find('/') == kNone) {
    // No line is lost with the old text from here on.
    std::string over(new_tail);
    over.resize(whole - base, ' ');
    write_text(result, base, over, page);
    return result;
  }

  // Blanks up to the copy, which begins a line; an old text without a line end gets one.
  std::string lead(whole - old_text.size(), ' ');
  if (!lead.empty()) lead.back() = '\n';
  if (old_text.back() != '\n') {
    if (lead.empty()) {
      lead.push_back('\n');
      ++whole;
    } else {
      lead.front() = '\n';
    }
  }
  lead.append(new_tail);
  write_text(result, old_text.size(), lead, page);
  result.appended = result.steps.size();
  result.reserve = whole + new_tail.size();

  unmake_lines_at_edges(result, base, old_tail, page);
  std::string over(new_tail);
  over.resize(whole - base, ' ');
  if (whole > new_text.size()) over.back() = '\n';
  write_text(result, base, over, page);
  return result;
}

}  // namespace replacement
