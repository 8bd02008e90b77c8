#include <algorithm>
#include <string_view>

#include "tests/meetings/judge.h"

// The races that docs/concurrency.md tells, each as a rule about what may differ from an order of
// the operations. A rule is as narrow as its story: it names who must be there, and what of the end
// or the answers it speaks of.

namespace meetings {
namespace {

using std::string_view;

constexpr string_view kNothing = Difference::kNothing;

bool is_loose_file(const Difference& d) {
  return d.answer_of < 0 && d.what.find(": loose ") != std::string::npos &&
         d.what.find(": loose folder") == std::string::npos;
}

/// Two that make one entry, each from its own look at the index.
bool same_entry(const Scene& s, const Difference& d) {
  if (s.count(kMakes) < 2) return false;
  // The loser writes to a file that nobody finds.
  return is_loose_file(d) || (d.answer_of >= 0 && s.does(d.answer_of, kMakes));
}

/// The empty document of one that has made it and not opened it yet.
bool read_before_written(const Scene& s, const Difference& d) {
  return s.does(d.answer_of, kReads) && s.any_does(kWrites) && d.found == "read ";
}

/// An entry under its file's own name, of a file whose line was not written yet.
bool adopted_too_early(const Scene& s, const Difference& d) {
  if (!s.gathering.synchronize || d.answer_of >= 0) return false;
  return d.what.find(": two entries, one file") != std::string::npos;
}

/// What somebody left who ended on the way: what he was about as it was, as it was to be, or in one
/// of the states that the page lists.
bool killed(const Scene& s, const Difference& d) {
  if (!s.has_died()) return false;
  if (s.some_order_gives(d)) return true;
  if (d.answer_of >= 0) return false;
  if (is_loose_file(d)) return d.found != kNothing && s.dead_does(kMakes | kRenames | kConverts);
  if (d.what.find(": a line without a file") != std::string::npos)
    return s.dead_does(kRemoves | kRenames | kCleans | kConverts);
  if (d.what.ends_with(": index")) return !s.gathering.operations.empty();
  return s.dead_does(kWrites) && d.found.empty();
}

}  // namespace

const std::vector<Race>& accepted_races() {
  static const std::vector<Race> races = {
      {"same-entry", "Two create the same entry: one line, one file too many", same_entry},
      {"read-before-written", "A document is created and read at once: an empty one is read",
       read_before_written},
      {"adopted-too-early", "A file is adopted too early: two entries, one file",
       adopted_too_early},
      {"killed", "A process that dies", killed},
  };
  return races;
}

}  // namespace meetings
