// Processes killed at random moments of their operations.

#include <algorithm>
#include <memory>
#include <vector>

#include "lab/reliability/kill_field.h"
#include "lab/reliability/machine.h"

namespace reliability {
namespace {

struct Share {
  std::size_t index_size;
  int kills;  ///< of a round
};
constexpr Share kShares[] = {{2000, 28}, {4000, 28}, {20'000, 28}, {500'000, 12}};

/// One folder, made when its turn comes.
struct Place {
  Share share;
  Adoption adoption;
  std::unique_ptr<KillField> field;
  std::uint64_t killed;
};

/// A short run visits every folder as well.
std::uint64_t kills_of_round(const Run& run, const Share& share, std::size_t places) {
  const std::uint64_t fair = std::max<std::uint64_t>(1, run.wanted() / places);
  return std::min<std::uint64_t>(static_cast<std::uint64_t>(share.kills), fair);
}

void tell(Run& run, const Tally& tally) {
  run.figure("operations that ended before the kills", tally.operations);
  for (const auto& [kind, count] : tally.kills_by_kind) run.figure("killed " + kind, count);
  for (const auto& [what, count] : tally.windows) run.figure("left behind: " + what, count);
  run.figure("kills in the middle of a rewrite of the index", tally.in_the_middle);
}

void kill_many(Run& run, Aim aim) {
  Tally tally;
  std::vector<Place> places;
  for (const Share& share : kShares) {
    if (share.index_size > 100'000 && machine::large_folders_are_slow()) continue;
    for (const Adoption adoption : {Adoption::kOff, Adoption::kOn}) {
      places.push_back({share, adoption, nullptr, 0});
    }
  }
  while (run.goes_on()) {
    for (Place& place : places) {
      if (!run.goes_on()) break;
      if (place.field == nullptr) {
        place.field = std::make_unique<KillField>(run, place.share.index_size, place.adoption, aim);
      }
      const std::uint64_t before = run.reached();
      const std::uint64_t end = before + kills_of_round(run, place.share, places.size());
      while (run.reached() < end && run.goes_on()) place.field->kill_once(tally);
      place.killed += run.reached() - before;
      if (run.failures() == 0) place.field->work_undisturbed();
    }
  }
  for (const Place& place : places) {
    if (place.field != nullptr) run.figure("kills at " + place.field->name(), place.killed);
  }
  tell(run, tally);
}
void kills(Run& run) { kill_many(run, Aim::kAnyMoment); }
REGISTER_SUITE(kills, "kills", "operations killed at random moments; index of 2, 4, 20 and 500 KB",
               "kills", 50'000, Scratch::kDisk)

void kills_writing(Run& run) { kill_many(run, Aim::kWrites); }
REGISTER_SUITE(kills_writing, "kills-writing",
               "the same, each shortly after one of the operation's writes begins", "kills", 5000,
               Scratch::kDisk)

/// The same with a process that rewrites the index as it must not be: cut, then written. Passes
/// when that is noticed, at the latest after the count.
void kills_noticed(Run& run) {
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  KillField field(inner, 2000, Adoption::kOff);
  Tally tally;
  while (inner.failures() == 0 && run.goes_on()) {
    const std::uint64_t before = inner.reached();
    field.kill_once(tally, Victim::kPlanted);
    run.counted(inner.reached() - before);
  }
  if (inner.failures() == 0) {
    run.fail("an index that is cut and then written was never found harmed");
  } else {
    run.figure("found after the last kill", inner.first_failures().front());
  }
}
REGISTER_SUITE(kills_noticed, "kills-noticed",
               "a planted rewrite that cuts the index first is found to harm it", "kills at most",
               300, Scratch::kDisk)

}  // namespace
}  // namespace reliability
