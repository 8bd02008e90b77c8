#include "file/replacement.h"

#include <algorithm>
#include <iterator>

namespace replacement {
namespace {

constexpr auto kNone = std::string_view::npos;

/// Where the "/" of lines stand that lie at a page edge. The text lies at @p offset of the file.
/// @param split_only false: also lines that begin at an edge, onto which a torn one could be glued.
std::vector<std::size_t> separators_at_edges(std::string_view text, std::uint64_t offset,
                                             std::size_t page, bool split_only) {
  std::vector<std::size_t> found;
  std::size_t done = 0;  // lines before this position have been looked at
  for (std::uint64_t edge = (offset / page + 1) * page; edge < offset + text.size(); edge += page) {
    const auto at = static_cast<std::size_t>(edge - offset);
    const bool begins_here = text[at - 1] == '\n';
    if (at < done || (begins_here && split_only)) continue;
    const std::size_t before = begins_here ? at : text.rfind('\n', at - 1) + 1;  // 0 when none
    const std::size_t end = std::min(text.find('\n', at), text.size());
    for (std::size_t i = text.find('/', before); i < end; i = text.find('/', i + 1)) {
      found.push_back(i);
    }
    done = end;
  }
  return found;
}

/// Writes bytes of @p text again that were or become a blank: those at the positions @p at, and what lies
/// between them, by one write a page.
std::vector<Step> writes_within_pages(std::string_view text, std::uint64_t offset, std::size_t page,
                                      const std::vector<std::size_t>& at) {
  std::vector<Step> steps;
  for (std::size_t i = 0; i < at.size();) {
    const std::size_t first = at[i];
    std::size_t last = first;
    while (i < at.size() && (offset + at[i]) / page == (offset + first) / page) last = at[i++];
    steps.push_back({offset + first, std::string(text.substr(first, last - first + 1))});
  }
  return steps;
}

/// Writes @p text at @p offset, and the "/" of the lines that a page edge splits only then.
void write_text(Plan& plan, std::uint64_t offset, const std::string& text, std::size_t page) {
  const std::vector<std::size_t> late = separators_at_edges(text, offset, page, true);
  std::string first_form = text;
  for (const std::size_t at : late) first_form[at] = ' ';
  plan.steps.push_back({offset, std::move(first_form)});
  std::ranges::move(writes_within_pages(text, offset, page, late), std::back_inserter(plan.steps));
}

/// Takes their "/" from the lines of the old text at page edges, the last ones first: what is left of
/// a line with several is a name that no file bears, not another key.
void unmake_lines_at_edges(Plan& plan, std::uint64_t offset, std::string_view old_text,
                           std::size_t page) {
  const std::vector<std::size_t> early = separators_at_edges(old_text, offset, page, false);
  std::string blanked(old_text);
  for (const std::size_t at : early) blanked[at] = ' ';
  std::vector<Step> steps = writes_within_pages(blanked, offset, page, early);
  std::ranges::reverse(steps);
  std::ranges::move(steps, std::back_inserter(plan.steps));
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
    write_text(result, base, std::string(new_tail) + std::string(whole - new_text.size(), ' '),
               page);
    return result;
  }

  // Blanks up to the copy, which begins a line; an old text without a line end gets one.
  std::string lead(whole - old_text.size(), ' ');
  if (!lead.empty()) lead.back() = '\n';
  if (old_text.back() != '\n') {
    if (lead.empty()) {
      lead = "\n";
      ++whole;
    } else {
      lead.front() = '\n';
    }
  }
  write_text(result, old_text.size(), lead + std::string(new_tail), page);
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
