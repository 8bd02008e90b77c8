#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "lab/interleavings/judge.h"

// The races that docs/concurrency.md tells, each as a rule about what may differ from an order of
// the operations. A rule is as narrow as its story: it names who must be there, and what of the end
// or the answers it speaks of.

namespace interleavings {
namespace {

constexpr std::string_view kNothing = Difference::kNothing;

bool has(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

// ---- what a difference speaks of ----------------------------------------------------------------

bool is_loose_file(const Difference& d) { return d.answer_of < 0 && has(d.what, ": loose "); }

/// A file that no line names, of which there is one too many.
bool is_loose_too_many(const Difference& d) { return is_loose_file(d) && d.found != kNothing; }

/// The fact of an entry, in whatever folder.
bool is_entry(const Difference& d, const std::string& entry) {
  return d.answer_of < 0 && d.what.ends_with(": " + entry + "_0000000000");
}

/// The entry that an operation makes, or gives another one's document.
std::string made_by(const Evidence& s, std::size_t who) {
  const Operation& operation = *s.combination.operations[who];
  const Target target = s.combination.target_of(who, "");
  if (operation.does(kRenames) && operation.does(kRemoves))
    return target.entry == kYoung ? kOld : kYoung;
  if (operation.does(kRenames)) return target.to;
  return operation.does(kMakes) ? target.entry : "";
}

/// Whether it is the entry that somebody makes with this effect.
bool is_made_by(const Evidence& s, const Difference& d, std::uint32_t effect) {
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    if (s.combination.operations[i]->does(effect) && is_entry(d, made_by(s, i))) return true;
  }
  return false;
}

bool is_about(const Evidence& s, std::size_t who, const std::string& entry) {
  const Operation& operation = *s.combination.operations[who];
  if (operation.does(kCleansAll)) return true;
  if (operation.does(kCleans) && entry == kOld) return true;
  return (operation.is_about_entry && s.combination.target_of(who, "").entry == entry) ||
         made_by(s, who) == entry;
}

/// Whether two different ones, with these effects, are about one entry.
bool meet_on_one(const Evidence& s, std::uint32_t effect, std::uint32_t other) {
  const auto& all = s.combination.operations;
  for (std::size_t a = 0; a < all.size(); ++a) {
    for (std::size_t b = 0; b < all.size(); ++b) {
      if (a == b || !all[a]->does(effect) || !all[b]->does(other)) continue;
      for (const char* const entry : {kOld, kYoung, "new.kdb", "newer.kdb", "moved.kdb"}) {
        if (is_about(s, a, entry) && is_about(s, b, entry)) return true;
      }
    }
  }
  return false;
}

/// Whether a file that no line names holds these bytes at the end.
bool lies_loose(const Evidence& s, const std::string& bytes) {
  return std::any_of(s.outcome.facts.begin(), s.outcome.facts.end(), [&](const auto& fact) {
    return has(fact.first, ": loose ") && fact.first.ends_with(" '" + shown(bytes) + "'");
  });
}

/// Whether an entry has the bytes of one from before, or none.
bool holds_what_stood(const Evidence& s, const Difference& d) {
  if (d.answer_of >= 0 || !d.what.ends_with("_0000000000")) return false;
  return d.found.empty() || d.found == kNothing ||
         std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
           return fact.first.ends_with("_0000000000") && fact.second == d.found;
         });
}

/// Whether it is an entry that some rename takes from or gives to.
bool is_renamed(const Evidence& s, const Difference& d) {
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    if (!s.combination.operations[i]->does(kRenames)) continue;
    if (is_entry(d, made_by(s, i)) || is_entry(d, s.combination.target_of(i, "").entry))
      return true;
  }
  return false;
}

/// Whether each name of an answer is in the same one's answer in some order.
bool all_names_are_known(const Evidence& s, const Difference& d) {
  if (d.answer_of < 0) return false;
  std::istringstream names(d.found);
  for (std::string each; names >> each;) {
    const bool is_known = std::any_of(s.orders.begin(), s.orders.end(), [&](const Outcome& order) {
      return has(order.answers[static_cast<std::size_t>(d.answer_of)] + " ", each + " ");
    });
    if (!is_known) return false;
  }
  return true;
}

/// Whether it is the category file, with lines that it had.
bool has_lines_from_before(const Evidence& s, const Difference& d) {
  const auto before = s.before.find(d.what);
  if (!is_entry(d, kList) || before == s.before.end()) return false;
  std::istringstream lines(d.found);
  for (std::string line; std::getline(lines, line);) {
    if (!has(before->second, line + "\n")) return false;
  }
  return true;
}

bool is_adopted(const std::string& text) { return has(text, "00000"); }

// ---- the stories --------------------------------------------------------------------------------

/// Whether a file that lies in the folder becomes one of these entries by itself.
bool adopts_one_of(const Evidence& s, const std::set<std::string>& entries) {
  if (!s.combination.synchronize) return false;
  return std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
    return std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
      return has(fact.first, ": loose " + entry + " '");
    });
  });
}

/// Two that make one entry, each from its own look at the index.
bool same_entry(const Evidence& s, const Difference& d) {
  std::set<std::string> made;
  bool is_shared = false;
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    const std::string entry = made_by(s, i);
    if (!entry.empty() && !made.insert(entry).second) {
      is_shared = true;
      // The other one's document is in the file that nobody finds.
      const bool has_line = d.found != kNothing;
      if (is_entry(d, entry) && has_line && (lies_loose(s, d.wanted) || d.found.empty()))
        return true;
    }
  }
  is_shared = is_shared || adopts_one_of(s, made);
  if (!is_shared) return false;
  return is_loose_too_many(d) || (s.does(d.answer_of, kMakes) && d.found != "no");
}

/// The empty document of one that has made it and not written it yet.
bool read_before_written(const Evidence& s, const Difference& d) {
  if (has(d.what, "plain/out-")) return s.any_does(kWrites | kMakes) && d.found.empty();
  // A key file without a line is "0" alone.
  return s.does(d.answer_of, kReads) && s.any_does(kWrites | kMakes) &&
         (d.found == "read " || d.found == "0");
}

/// Who has made the entry opens its file behind another one who has replaced it.
bool maker_writes_last(const Evidence& s, const Difference& d) {
  if (s.count(kWrites) < 2 || !is_made_by(s, d, kWrites)) return false;
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    if (s.combination.operations[i]->does(kWrites) && !d.found.empty() &&
        d.found.starts_with(s.combination.target_of(i, "").mark))
      return true;
  }
  return false;
}

/// An entry under its file's own name, of a file whose line was not written yet.
bool adopted_too_early(const Evidence& s, const Difference& d) {
  if (!s.combination.synchronize) return false;
  // What is adopted can be cleaned away, and counts.
  const bool counts = s.does(d.answer_of, kCleans) && s.any_does(kMakes | kRenames);
  if (d.answer_of >= 0) return counts || is_adopted(d.found) || s.some_order_gives(d);
  const std::size_t colon = d.what.find(": ");
  return has(d.what, ": two entries, one file") ||
         (colon != std::string::npos && is_adopted(d.what.substr(colon)));
}

/// What somebody writes whose entry goes meanwhile is in a file that no line names, or gone.
bool removed_beside_writer(const Evidence& s, const Difference& d) {
  // Whoever cuts lines of a category file writes the rest of it.
  if (s.any_does(kCuts) && s.any_does(kCleansAll) &&
      (is_loose_too_many(d) || has_lines_from_before(s, d)))
    return true;
  if (!meet_on_one(s, kRemoves | kCleans, kWrites)) return false;
  if (d.found == kNothing && is_made_by(s, d, kWrites)) return true;
  if (s.any_does(kCuts) && has_lines_from_before(s, d)) return true;
  return is_loose_too_many(d) || s.some_order_gives(d);
}

/// The same where the entry gets another name. Where the writer has the file open the rename fails.
bool renamed_beside_writer(const Evidence& s, const Difference& d) {
  if (!meet_on_one(s, kRenames, kWrites)) return false;
  if (is_renamed(s, d) && holds_what_stood(s, d)) return true;
  return is_loose_too_many(d) || s.some_order_gives(d);
}

/// What gets another name meanwhile is neither cleaned away nor removed.
bool renamed_beside_clean(const Evidence& s, const Difference& d) {
  const auto& all = s.combination.operations;
  const bool any_takes_away = std::any_of(all.begin(), all.end(), [](const auto* each) {
    return each->does(kCleans) || (each->does(kRemoves) && !each->does(kRenames));
  });
  return s.any_does(kRenames) && any_takes_away && is_renamed(s, d) && holds_what_stood(s, d);
}

/// The file goes first, and then its line.
bool line_without_file(const Evidence& s, const Difference& d) {
  return s.is(d.answer_of, "repair") && s.any_does(kRemoves | kRenames | kCleans) &&
         d.found == "repaired";
}

/// One file goes after the other: a list names those that are left.
bool cleaned_bit_by_bit(const Evidence& s, const Difference& d) {
  return s.any_does(kCleans) && !s.does(d.answer_of, kCleans) && all_names_are_known(s, d);
}

/// What one has taken away already is very old to the other one, and counts for both.
bool counted_twice(const Evidence& s, const Difference& d) {
  return s.does(d.answer_of, kCleans) &&
         (s.count(kCleans) > 1 || s.any_does(kRemoves | kRenames)) &&
         d.found.find_first_not_of("0123456789") == std::string::npos;
}

/// The folder in which the client keeps its copies is named by no line.
bool swept_copies(const Evidence& s, const Difference& d) {
  if (!s.any_does(kSweeps) || !s.any_does(kClient)) return false;
  if (d.answer_of >= 0) return s.is(d.answer_of, "put") && d.found.starts_with("failed");
  if (d.what.ends_with(": index")) return s.any_is("put") && d.found == "none";
  return d.found == kNothing && is_made_by(s, d, kClient);
}

/// In a folder without an index a sweep ends when there is one: what it has not reached stays.
bool sweep_ends(const Evidence& s, const Difference& d) {
  if (s.combination.setup != Setup::kNoIndex || !s.any_does(kSweeps)) return false;
  const auto stood = s.before.find(d.what);
  return is_loose_too_many(d) && stood != s.before.end() && stood->second == d.found;
}

/// A document that is replaced loses its parts, and a writer of one the folder to put it in.
bool parts_go(const Evidence& s, const Difference& d) {
  if (!s.any_is("write-corporate")) return false;
  if (s.is(d.answer_of, "write-part") || s.is(d.answer_of, "read-part"))
    return d.found == "closed" || d.found == "read " || s.some_order_gives(d);
  return has(d.what, ": below ");
}

/// The index that somebody is just making has no bytes yet: the client takes it for a damaged one.
bool first_index_of_no_bytes(const Evidence& s, const Difference& d) {
  if (s.combination.setup != Setup::kNoIndex || !s.any_does(kClient)) return false;
  if (d.answer_of >= 0) return s.is(d.answer_of, "put") && d.found == "failed ";
  return d.found == kNothing && is_made_by(s, d, kClient);
}

/// The file is gone when the reader asks for its size, or comes to open it.
bool gone_while_read(const Evidence& s, const Difference& d) {
  if (!s.any_does(kRemoves | kRenames | kCleans) || !s.any_does(kReads)) return false;
  if (d.answer_of < 0) return has(d.what, "plain/out-") && d.found == kNothing;
  if (!s.does(d.answer_of, kReads)) return false;
  // Of the document that is gone so much as the one has that bears the file's name by now.
  const bool is_beginning = d.found.starts_with("read ") &&
                            std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
                              return fact.second.starts_with(d.found.substr(5));
                            });
  return is_beginning || d.found == "closed" || d.found == "no" || d.found == "0";
}

#if defined(_WIN32)
/// A file that somebody has open keeps its name until it is closed, and its line with it.
bool stays_while_open(const Evidence& s, const Difference& d) {
  return s.any_does(kReads | kWrites) && s.any_does(kRenames | kRemoves | kCleans) &&
         (is_renamed(s, d) || is_made_by(s, d, kMakes)) && holds_what_stood(s, d);
}
#endif

/// A copy does not wait for a lock.
bool copy_meets_lock(const Evidence& s, const Difference& d) {
  if (!s.any_does(kCopies | kRenames)) return false;
  if (s.does(d.answer_of, kCopies)) return d.found == "no";
  if (has(d.what, "plain/out-")) return d.found == kNothing;
  // Without an index the document is a file that no line names.
  if (s.combination.setup == Setup::kNoIndex && has(d.what, std::string(": loose ") + kOld)) {
    const bool is_emptied = d.what.ends_with(" ''") && d.found != kNothing;
    return is_emptied || (d.what.ends_with(" 'one'") && d.found == kNothing);
  }
  // What was to be copied into had been cut before.
  return d.found.empty() && is_made_by(s, d, kCopies);
}

/// What is moved elsewhere is copied first; what somebody does to it meanwhile is seen, and stays.
bool moved_while_changed(const Evidence& s, const Difference& d) {
  if (!s.any_is("move-out")) return false;
  if (d.answer_of >= 0)
    return s.is(d.answer_of, "move-out") &&
           (d.found == "meanwhile" || d.found == "not copied" || d.found == "nothing" ||
            (d.found == "removed" && s.any_does(kRenames)));
  if (!has(d.what, "plain/moved-")) return false;
  const bool is_made_empty = d.found.empty() && s.any_does(kWrites | kCopies);
  return d.found == kNothing || is_made_empty || s.some_order_gives(d);
}

/// Both make the marker, and both copy a mail to its new name: one entry, one file too many.
bool two_migrations(const Evidence& s, const Difference& d) {
  return s.count(kConverts) > 1 && is_loose_too_many(d);
}

/// A list without the names whose files are neither in the tree before the run nor in the one
/// behind it.
std::string without_replaced(const std::string& list) {
  std::string kept;
  std::istringstream names(list);
  for (std::string each; names >> each;) {
    if (!each.ends_with("=<nobody's>")) kept += each + " ";
  }
  return kept;
}

bool two_renames(const Evidence& s, const Difference& d) {
  if (s.count(kRenames) < 2) return false;
  // A third one may list both names, or none, or the file of a rename that the other one replaces.
  Difference standing = d;
  standing.found = without_replaced(d.found);
  return (is_renamed(s, d) && holds_what_stood(s, d)) || s.some_order_gives(d) ||
         all_names_are_known(s, standing);
}

/// Between looking for a line and writing the rest another one writes: its cut is lost.
bool two_cuts(const Evidence& s, const Difference& d) {
  return s.count(kCuts) > 1 && has_lines_from_before(s, d);
}

/// Whoever renames or removes an owner agrees with those who work there.
bool owner_goes(const Evidence& s, const Difference& d) {
  if (!s.any_does(kMovesOwner)) return false;
  return d.answer_of >= 0 || has(d.what, "/anna") || has(d.what, "/carl");
}

/// What somebody left who ended on the way: what he was about as it was, as it was to be, or in one
/// of the states that the page lists.
bool killed(const Evidence& s, const Difference& d) {
  if (!s.has_kill()) return false;
  if (s.some_order_gives(d)) return true;
  if (d.answer_of >= 0) return false;
  // A read list is emptied, and then written: its bytes from before are gone.
  const bool is_list_gone = has(d.what, ": loose read.txt ") && d.found == kNothing;
  if (is_list_gone) return s.killed_does(kConverts);
  if (is_loose_file(d)) return d.found != kNothing && s.killed_does(kMakes | kRenames | kConverts);
  if (d.what.ends_with(": index")) return true;
  // The next put removes it.
  if (has(d.what, ": below .stgctl-part-")) return s.killed_does(kClient);
  return s.killed_does(kWrites | kCuts) && d.found.empty();
}

}  // namespace

const std::vector<Race>& accepted_races() {
  static const std::vector<Race> races = {
    {"same-entry", "2. Two operations create the same entry: one file becomes an orphan",
     same_entry},
    {"read-before-written", "10. A read directly after a creation: the document is empty",
     read_before_written},
    {"maker-writes-last", "11. Two operations write a new document: its creator writes last",
     maker_writes_last},
    {"adopted-too-early", "21. A file is adopted too early: two entries, one file",
     adopted_too_early},
    {"removed-beside-writer", "8. A removal during a write: the written bytes are in an orphan",
     removed_beside_writer},
    {"renamed-beside-writer", "4. A rename during a write: the written bytes are lost",
     renamed_beside_writer},
    {"renamed-beside-clean", "6. A clean or a removal during a rename: the renamed entry stays",
     renamed_beside_clean},
    {"line-without-file", "14. A repair during a removal: the repair removes the line",
     line_without_file},
    {"cleaned-bit-by-bit", "15. A list during a clean: it contains what is left",
     cleaned_bit_by_bit},
    {"counted-twice", "16. Two cleans of one folder: both count the removed entries",
     counted_twice},
    {"swept-copies", "17. A clean during a put: the copies are swept", swept_copies},
    {"sweep-ends", "23. A sweep removes a file that is not in the index yet", sweep_ends},
    {"parts-go", "18. A document is replaced while a part is written", parts_go},
    {"first-index", "19. The first index of a folder is empty for a moment",
     first_index_of_no_bytes},
    {"gone-while-read", "9. A removal during a read: the reader gets nothing", gone_while_read},
    {"copy-meets-lock", "12. A copy of a locked document fails", copy_meets_lock},
    {"moved-while-changed", "26. A document changes during `stgctl mv`: it stays",
     moved_while_changed},
    {"two-migrations", "27. Two migrations of one mail folder: orphans remain", two_migrations},
    {"two-renames", "5. Two renames of one entry: both new names stay", two_renames},
    {"two-cuts", "13. Two operations change one category file: a removed line returns", two_cuts},
    {"owner-goes", "20. An owner is renamed or removed during an operation", owner_goes},
    {"killed", "A process is killed", killed, true},
#if defined(_WIN32)
    {"stays-while-open", "22. A file cannot be removed: its entry returns", stays_while_open},
#endif
  };
  return races;
}

}  // namespace interleavings
