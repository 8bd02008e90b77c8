#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "lab/interleavings/judge.h"

// The stories of docs/concurrency.md as rules. Each rule decides whether it explains a difference
// from an order of the operations. A rule is as narrow as its story: it names the operations, and
// the facts or results that it excuses.

namespace interleavings {
namespace {

constexpr std::string_view kNothing = Difference::kNothing;

bool has(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

// ---- what a difference is about -----------------------------------------------------------------

bool is_loose_file(const Difference& d) { return d.answer_of < 0 && has(d.what, ": loose "); }

/// Whether the run left an orphan that the order of the operations does not leave.
bool is_loose_too_many(const Difference& d) { return is_loose_file(d) && d.found != kNothing; }

/// Whether the difference concerns the bytes of this entry, in any folder.
bool is_entry(const Difference& d, const std::string& entry) {
  return d.answer_of < 0 && d.what.ends_with(": " + entry + "_0000000000");
}

/// The entry that an operation creates, or to which it renames.
std::string made_by(const Evidence& s, std::size_t who) {
  const Operation& operation = *s.combination.operations[who];
  const Target target = s.combination.target_of(who, "");
  if (operation.does(kRenames) && operation.does(kRemoves))
    return target.entry == kYoung ? kOld : kYoung;
  if (operation.does(kRenames)) return target.to;
  return operation.does(kMakes) ? target.entry : "";
}

/// Whether the difference is in the entry that an operation with this effect creates.
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

/// Whether two operations with these effects concern one entry.
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

/// Whether an orphan has these bytes at the end.
bool lies_loose(const Evidence& s, const std::string& bytes) {
  return std::any_of(s.outcome.facts.begin(), s.outcome.facts.end(), [&](const auto& fact) {
    return has(fact.first, ": loose ") && fact.first.ends_with(" '" + shown(bytes) + "'");
  });
}

/// Whether an entry has no bytes, or those of an entry before the run.
bool holds_what_stood(const Evidence& s, const Difference& d) {
  if (d.answer_of >= 0 || !d.what.ends_with("_0000000000")) return false;
  return d.found.empty() || d.found == kNothing ||
         std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
           return fact.first.ends_with("_0000000000") && fact.second == d.found;
         });
}

/// Whether a rename concerns this entry.
bool is_renamed(const Evidence& s, const Difference& d) {
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    if (!s.combination.operations[i]->does(kRenames)) continue;
    if (is_entry(d, made_by(s, i)) || is_entry(d, s.combination.target_of(i, "").entry))
      return true;
  }
  return false;
}

/// Whether each name in the operation's result also occurs in its result in some order.
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

/// Whether the difference is in the category file, and all found lines existed before the run.
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

/// Whether adoption can turn an orphan into one of these entries.
bool adopts_one_of(const Evidence& s, const std::set<std::string>& entries) {
  if (!s.combination.synchronize) return false;
  return std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
    return std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
      return has(fact.first, ": loose " + entry + " '");
    });
  });
}

/// Two operations create one entry, each after its own look at the index.
bool same_entry(const Evidence& s, const Difference& d) {
  std::set<std::string> made;
  bool is_shared = false;
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    const std::string entry = made_by(s, i);
    if (!entry.empty() && !made.insert(entry).second) {
      is_shared = true;
      // The orphan contains the document of the other operation.
      const bool has_line = d.found != kNothing;
      if (is_entry(d, entry) && has_line && (lies_loose(s, d.wanted) || d.found.empty()))
        return true;
    }
  }
  is_shared = is_shared || adopts_one_of(s, made);
  if (!is_shared) return false;
  return is_loose_too_many(d) || (s.does(d.answer_of, kMakes) && d.found != "no");
}

/// A document that was created and not written yet is empty.
bool read_before_written(const Evidence& s, const Difference& d) {
  if (has(d.what, "plain/out-")) return s.any_does(kWrites | kMakes) && d.found.empty();
  // The result for a key file without lines is "0".
  return s.does(d.answer_of, kReads) && s.any_does(kWrites | kMakes) &&
         (d.found == "read " || d.found == "0");
}

/// The creator of an entry opens its file after another operation has replaced the content.
bool maker_writes_last(const Evidence& s, const Difference& d) {
  if (s.count(kWrites) < 2 || !is_made_by(s, d, kWrites)) return false;
  for (std::size_t i = 0; i < s.combination.operations.size(); ++i) {
    if (s.combination.operations[i]->does(kWrites) && !d.found.empty() &&
        d.found.starts_with(s.combination.target_of(i, "").mark))
      return true;
  }
  return false;
}

/// A new file was adopted before its entry was saved.
bool adopted_too_early(const Evidence& s, const Difference& d) {
  if (!s.combination.synchronize) return false;
  // An adopted file can also be removed by a clean, which counts it.
  const bool counts = s.does(d.answer_of, kCleans) && s.any_does(kMakes | kRenames);
  if (d.answer_of >= 0) return counts || is_adopted(d.found) || s.some_order_gives(d);
  const std::size_t colon = d.what.find(": ");
  return has(d.what, ": two entries, one file") ||
         (colon != std::string::npos && is_adopted(d.what.substr(colon)));
}

/// The entry is removed during a write: the written bytes are in an orphan, or gone.
bool removed_beside_writer(const Evidence& s, const Difference& d) {
  // An operation that removes lines of a category file writes the others again.
  if (s.any_does(kCuts) && s.any_does(kCleansAll) &&
      (is_loose_too_many(d) || has_lines_from_before(s, d)))
    return true;
  if (!meet_on_one(s, kRemoves | kCleans, kWrites)) return false;
  if (d.found == kNothing && is_made_by(s, d, kWrites)) return true;
  if (s.any_does(kCuts) && has_lines_from_before(s, d)) return true;
  return is_loose_too_many(d) || s.some_order_gives(d);
}

/// The same for a rename. If the writer has the file open, the rename fails.
bool renamed_beside_writer(const Evidence& s, const Difference& d) {
  if (!meet_on_one(s, kRenames, kWrites)) return false;
  if (is_renamed(s, d) && holds_what_stood(s, d)) return true;
  return is_loose_too_many(d) || s.some_order_gives(d);
}

/// An entry that is renamed during a clean or a removal stays.
bool renamed_beside_clean(const Evidence& s, const Difference& d) {
  const auto& all = s.combination.operations;
  const bool any_takes_away = std::any_of(all.begin(), all.end(), [](const auto* each) {
    return each->does(kCleans) || (each->does(kRemoves) && !each->does(kRenames));
  });
  return s.any_does(kRenames) && any_takes_away && is_renamed(s, d) && holds_what_stood(s, d);
}

/// A removal first removes the file, then the line.
bool line_without_file(const Evidence& s, const Difference& d) {
  return s.is(d.answer_of, "repair") && s.any_does(kRemoves | kRenames | kCleans) &&
         d.found == "repaired";
}

/// A clean removes one file after the other, and a list contains those that are left.
bool cleaned_bit_by_bit(const Evidence& s, const Difference& d) {
  return s.any_does(kCleans) && !s.does(d.answer_of, kCleans) && all_names_are_known(s, d);
}

/// A clean treats a missing file as a very old one, so two cleans count it.
bool counted_twice(const Evidence& s, const Difference& d) {
  return s.does(d.answer_of, kCleans) &&
         (s.count(kCleans) > 1 || s.any_does(kRemoves | kRenames)) &&
         d.found.find_first_not_of("0123456789") == std::string::npos;
}

/// The client's folder for copies is an orphan.
bool swept_copies(const Evidence& s, const Difference& d) {
  if (!s.any_does(kSweeps) || !s.any_does(kClient)) return false;
  if (d.answer_of >= 0) return s.is(d.answer_of, "put") && d.found.starts_with("failed");
  if (d.what.ends_with(": index")) return s.any_is("put") && d.found == "none";
  return d.found == kNothing && is_made_by(s, d, kClient);
}

/// In a folder without an index, a sweep stops when an index appears. The remaining orphans stay.
bool sweep_ends(const Evidence& s, const Difference& d) {
  if (s.combination.setup != Setup::kNoIndex || !s.any_does(kSweeps)) return false;
  const auto stood = s.before.find(d.what);
  return is_loose_too_many(d) && stood != s.before.end() && stood->second == d.found;
}

/// Replacing a document removes its sub-parts, and the folder in which a writer creates one.
bool parts_go(const Evidence& s, const Difference& d) {
  if (!s.any_is("write-corporate")) return false;
  if (s.is(d.answer_of, "write-part") || s.is(d.answer_of, "read-part"))
    return d.found == "closed" || d.found == "read " || s.some_order_gives(d);
  return has(d.what, ": below ");
}

/// A new index is empty for a moment, and the client treats it as damaged.
bool first_index_of_no_bytes(const Evidence& s, const Difference& d) {
  if (s.combination.setup != Setup::kNoIndex || !s.any_does(kClient)) return false;
  if (d.answer_of >= 0) return s.is(d.answer_of, "put") && d.found == "failed ";
  return d.found == kNothing && is_made_by(s, d, kClient);
}

/// The file is removed before the reader opens it or reads its size.
bool gone_while_read(const Evidence& s, const Difference& d) {
  if (!s.any_does(kRemoves | kRenames | kCleans) || !s.any_does(kReads)) return false;
  if (d.answer_of < 0) return has(d.what, "plain/out-") && d.found == kNothing;
  if (!s.does(d.answer_of, kReads)) return false;
  // If another document now has the file name, its size limits what is read.
  const bool is_beginning = d.found.starts_with("read ") &&
                            std::any_of(s.before.begin(), s.before.end(), [&](const auto& fact) {
                              return fact.second.starts_with(d.found.substr(5));
                            });
  return is_beginning || d.found == "closed" || d.found == "no" || d.found == "0";
}

#if defined(_WIN32)
/// A file that is open keeps its name until it is closed, and its entry stays.
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
  // Without an index the document is an orphan.
  if (s.combination.setup == Setup::kNoIndex && has(d.what, std::string(": loose ") + kOld)) {
    const bool is_emptied = d.what.ends_with(" ''") && d.found != kNothing;
    return is_emptied || (d.what.ends_with(" 'one'") && d.found == kNothing);
  }
  // The target had been truncated before.
  return d.found.empty() && is_made_by(s, d, kCopies);
}

/// `mv` to another place copies first. It detects a change during the copy, and the document stays.
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

/// Both migrations create the marker, and copy a mail to its new name: one entry, one orphan.
bool two_migrations(const Evidence& s, const Difference& d) {
  return s.count(kConverts) > 1 && is_loose_too_many(d);
}

/// A list without names that exist neither in the tree before the run nor in the one after it.
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
  // A third operation may list both names, or none, or a file that the other rename replaces.
  Difference standing = d;
  standing.found = without_replaced(d.found);
  return (is_renamed(s, d) && holds_what_stood(s, d)) || s.some_order_gives(d) ||
         all_names_are_known(s, standing);
}

/// One operation writes between the other's search and write, so one removal of lines is lost.
bool two_cuts(const Evidence& s, const Difference& d) {
  return s.count(kCuts) > 1 && has_lines_from_before(s, d);
}

/// Renaming or removing an owner requires an agreement with all programs that use the owner.
bool owner_goes(const Evidence& s, const Difference& d) {
  if (!s.any_does(kMovesOwner)) return false;
  return d.answer_of >= 0 || has(d.what, "/anna") || has(d.what, "/carl");
}

/// The state after a kill: before the operation, after it, or one that docs/concurrency.md lists.
bool killed(const Evidence& s, const Difference& d) {
  if (!s.has_kill()) return false;
  if (s.some_order_gives(d)) return true;
  if (d.answer_of >= 0) return false;
  // A read list is truncated, then written.
  const bool is_list_gone = has(d.what, ": loose read.txt ") && d.found == kNothing;
  if (is_list_gone) return s.killed_does(kConverts);
  if (is_loose_file(d)) return d.found != kNothing && s.killed_does(kMakes | kRenames | kConverts);
  if (d.what.ends_with(": index")) return true;
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
