#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/stage.h"
#include "stg_index.h"

namespace bench {
namespace {

constexpr unsigned long kLongAgo = 1000000;  // seconds

/// The number of folders of a size that each contender empties.
std::size_t supply_for(Place place, std::size_t entries) {
  const bool is_quick = place == Place::kMemory || entries < 100000;
  return std::clamp<std::size_t>(4000 / entries, is_quick ? 3 : 1, 40);
}

/// Folders to empty, each once. All are created before the first is used.
class Supply {
 public:
  Supply(Stage& stage, Place place, std::size_t entries, const std::string& contender) {
    const std::string room = stage.room(place, "cleaned") + "/" + contender;
    for (std::size_t i = 0; i < supply_for(place, entries); ++i)
      m_folders.push_back(std::make_unique<Folder>(
          room + std::to_string(entries) + "-" + std::to_string(i), entries));
  }
  const std::string& next() { return m_folders.at(m_used++)->path(); }

 private:
  std::vector<std::unique_ptr<Folder>> m_folders;
  std::size_t m_used = 0;
};

void clean(const std::string& path, unsigned long limit, std::size_t removed, std::size_t kept) {
  STGIndex::AgeMap ages;
  if (STGIndex::cleanOutOfDateOutput(path, limit, ages, false) != removed || ages.size() != kept)
    bare::broken("a wrong result in", path);
}

Jobs nothing_removed(Stage& stage, Place place, std::size_t entries) {
  const std::string path = stage.folder(place, entries).path();
  Jobs jobs;
  jobs[Who::kLibrary].run = [path, entries] { clean(path, kLongAgo, 0, entries); };
  jobs[Who::kFloor].run = [path] {
    floor_of::Ages ages;
    floor_of::clean_nothing(path, ages);
  };
  return jobs;
}

Jobs everything_removed(Stage& stage, Place place, std::size_t entries) {
  Jobs jobs;
  const auto add = [&](Who who, const char* contender, auto empty) {
    const auto supply = std::make_shared<Supply>(stage, place, entries, contender);
    jobs[who].supply = supply_for(place, entries);
    jobs[who].run = [supply, empty] { empty(supply->next()); };
  };
  add(Who::kLibrary, "library", [entries](const std::string& path) { clean(path, 0, entries, 0); });
  add(Who::kFloor, "floor", floor_of::clean_everything);
  return jobs;
}

}  // namespace

std::vector<Contest> cleaning(Stage& stage) {
  std::vector<Contest> contests;
  for (const auto prepare : {nothing_removed, everything_removed}) {
    const char* const workload =
        prepare == nothing_removed ? "clean, nothing removed" : "clean, everything removed";
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      for (const std::size_t entries : kSizes) {
        contests.push_back(folder_contest(
            workload, place, entries,
            [&stage, place, entries, prepare] { return prepare(stage, place, entries); }));
      }
    }
  }
  return contests;
}

}  // namespace bench
