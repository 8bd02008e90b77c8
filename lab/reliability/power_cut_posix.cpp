// The power goes off on real file systems: the kernel is told to write nothing more, and to forget
// what it has not written.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/power_cut_posix.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

namespace reliability {
namespace {

struct Found {
  std::map<std::string, std::uint64_t> crashes;  ///< by file system
  std::map<std::string, std::uint64_t> harm;     ///< by kind
  std::map<std::string, std::string> examples;
  std::uint64_t operations = 0;
  std::uint64_t unmountable = 0;
  std::string why_unmountable;
  std::vector<std::string> refusals;

  std::uint64_t of(const std::string& kind) const {
    const auto found = harm.find(kind);
    return found == harm.end() ? 0 : found->second;
  }
  bool has_harmed_entries() const {
    return of("lost") + of("invented") + of("redirected") + of("between") != 0;
  }
};

void take(const std::string& line, const std::string& disk, Run& run, Found& found) {
  const auto rest = [&](const std::string& word) { return line.substr(word.size()); };
  if (line.starts_with("crash ")) {
    run.counted(1);
    ++found.crashes[disk];
    found.operations += std::stoull(rest("crash "));
  } else if (line.starts_with("harm ")) {
    const std::size_t tab = line.find('\t');
    const std::string kind = line.substr(5, tab - 5);
    ++found.harm[kind];
    found.examples.emplace(kind, disk + ", " + line.substr(tab + 1));
  } else if (line.starts_with("unmountable ")) {
    ++found.unmountable;
    found.why_unmountable = disk + ", " + rest("unmountable ");
  } else if (line.starts_with("refused ")) {
    found.refusals.push_back(rest("refused "));
  } else {
    run.fail(disk + ": " + line);
  }
}

enum class Flushes : std::uint8_t { kDone, kPlanted };

/// All file systems at once, each in a process of its own. Where no flush is done, until an entry
/// is harmed.
Found cut_many(Run& run, std::uint64_t count, const std::string& budget, Flushes flushes) {
  Found found;
  struct Bench {
    std::string disk;
    child_process process;
    bool is_over;
  };
  // Around theirs, which a process leaves behind that is ended.
  const scratch_folder scratch;
  std::vector<Bench> benches;
  const std::size_t kinds = kinds_of_disk();
  for (std::size_t kind = 0; kind < kinds; ++kind) {
    const std::uint64_t share = count / kinds + (kind < count % kinds ? 1 : 0);
    if (share == 0) continue;
    // What it waits for has limits of its own.
    benches.push_back(
        {name_of_disk(kind),
         child_process("power_cut_bench",
                       {std::to_string(kind), std::to_string(run.random()()), std::to_string(share),
                        budget, flushes == Flushes::kDone ? "flushes" : "planted"},
                       {{"VU_TEST_ALARM", "0"}, {"VU_TEST_TMP", native(scratch.path()).string()}}),
         false});
  }
  for (std::size_t left = benches.size(); left != 0;) {
    if (flushes == Flushes::kPlanted && run.reached() != 0 && found.has_harmed_entries()) break;
    for (Bench& bench : benches) {
      if (bench.is_over) continue;
      const auto line = bench.process.next_line(std::chrono::milliseconds(20));
      if (line) {
        take(*line, bench.disk, run, found);
      } else if (bench.process.wait(std::chrono::milliseconds(0))) {
        while (const auto last = bench.process.next_line(std::chrono::milliseconds(0))) {
          take(*last, bench.disk, run, found);
        }
        bench.is_over = true;
        --left;
      }
    }
  }
  return found;
}

bool may_run(Run& run) {
  if (machine::is_superuser()) return true;
  run.not_run("mounting file systems on loop devices takes the superuser");
  return false;
}

void tell(Run& run, const Found& found) {
  for (const auto& [disk, crashes] : found.crashes) run.figure("crashes on " + disk, crashes);
  run.figure("operations that had returned before", found.operations);
  for (const char* kind : {"lost", "invented", "redirected", "between", "other bytes"}) {
    run.figure(kind, found.of(kind));
  }
  if (found.unmountable != 0) {
    run.figure("file systems that the system could not mount again, not judged",
               std::to_string(found.unmountable) + " (" + found.why_unmountable + ")");
  }
  std::string reasons;
  for (const std::string& each : found.refusals) reasons += (reasons.empty() ? "" : "; ") + each;
  if (!reasons.empty()) run.not_run(reasons);
}

void power_cut(Run& run) {
  if (!may_run(run)) return;
  const Found found =
      cut_many(run, run.wanted(), std::to_string(run.budget().count()), Flushes::kDone);
  tell(run, found);
  for (const auto& [kind, example] : found.examples) {
    run.fail(std::to_string(found.of(kind)) + " times " + kind + ", first on " + example);
  }
}
REGISTER_SUITE(power_cut, "power-cut", "file systems that are shut down while operations go on",
               "crashes", 10'000, Scratch::kMemory)

void power_cut_noticed(Run& run) {
  if (!may_run(run)) return;
  const Found found = cut_many(run, run.wanted(), "0", Flushes::kPlanted);
  tell(run, found);
  for (const auto& [kind, example] : found.examples) run.figure("first " + kind, example);
  if (!found.has_harmed_entries() && found.refusals.empty()) {
    run.fail("operations that flush nothing were not found");
  }
}
REGISTER_SUITE(power_cut_noticed, "power-cut-noticed",
               "operations that flush nothing are found to lose entries", "crashes", 200,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
