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

constexpr Place kPlace = Place::kDisk;

constexpr unsigned long kLongAgo = 1000000;  // seconds

/// How many folders of a size are there to be emptied.
std::size_t supply_for(std::size_t entries) {
  return std::clamp<std::size_t>(4000 / entries, entries < 100000 ? 3 : 1, 40);
}

/// Folders to be emptied, each once. All are made before the first is used.
class Supply {
 public:
  Supply(Stage& stage, std::size_t largest) {
    const std::string room = stage.room(kPlace, "cleaned");
    for (const std::size_t entries : kSizes) {
      if (entries > largest) continue;
      for (std::size_t i = 0; i < supply_for(entries); ++i)
        m_folders[entries].push_back(std::make_unique<Folder>(
            room + "/" + std::to_string(entries) + "-" + std::to_string(i), entries));
    }
  }
  std::string next(std::size_t entries) { return m_folders[entries].at(m_used[entries]++)->path(); }

 private:
  std::map<std::size_t, std::vector<std::unique_ptr<Folder>>> m_folders;
  std::map<std::size_t, std::size_t> m_used;
};

void clean(const std::string& path, unsigned long limit, std::size_t removed, std::size_t kept) {
  STGIndex::AgeMap ages;
  if (STGIndex::cleanOutOfDateOutput(path, limit, ages, false) != removed || ages.size() != kept)
    bare::broken("a wrong result in", path);
}

}  // namespace

std::vector<Contest> cleaning(Stage& stage) {
  std::vector<Contest> contests;
  const auto add = [&](const char* workload, std::size_t entries, std::function<Jobs()> prepare,
                       std::vector<Requirement> requirements) {
    Contest contest;
    contest.workload = workload;
    contest.place = name(kPlace);
    contest.size = std::to_string(entries) + " entries";
    contest.entries = entries;
    contest.prepare = std::move(prepare);
    contest.requirements = std::move(requirements);
    contests.push_back(std::move(contest));
  };
  for (const std::size_t entries : kSizes) {
    add("clean, nothing removed", entries,
        [&stage, entries] {
          const std::string path = stage.folder(kPlace, entries).path();
          Jobs jobs;
          jobs[Who::kLibrary].run = [path, entries] { clean(path, kLongAgo, 0, entries); };
          jobs[Who::kFloor].run = [path] {
            floor_of::Ages ages;
            floor_of::clean_nothing(path, ages);
          };
          return jobs;
        },
        {at_most(1.3, Who::kFloor)});
  }
  const auto supply = std::make_shared<std::unique_ptr<Supply>>();
  for (const std::size_t entries : kSizes) {
    add("clean, everything removed", entries,
        [&stage, entries, supply] {
          if (!*supply) *supply = std::make_unique<Supply>(stage, stage.largest());
          Jobs jobs;
          Job& job = jobs[Who::kLibrary];
          job.run = [entries, supply] { clean((*supply)->next(entries), 0, entries, 0); };
          job.supply = supply_for(entries);
          return jobs;
        },
        {});
  }
  return contests;
}

}  // namespace bench
