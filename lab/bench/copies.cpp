#include <memory>
#include <string>
#include <utility>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/stage.h"
#include "vu_storage.h"

namespace bench {
namespace {

constexpr std::size_t kBytes = std::size_t{4} << 20U;
constexpr std::size_t kEntries = 100;
constexpr std::size_t kCopied = 50;

/// A mail document, and an ordinary file outside the storage.
struct Pair {
  Pair(Stage& stage, Place place)
      : folder(stage.room(place, "copied"), kEntries),
        owner(StorageRoot::of(stage).mailbox(folder.path(), std::string("copied-") + name(place))),
        area(StorageRoot::of(stage).area("mail")),
        path(folder.path()),
        logical(folder.logical(kCopied)),
        timestamp(folder.timestamp(kCopied)),
        outside(stage.room(place, "outside") + "/document") {
    put_file(outside, std::string(kBytes, 'o'));
    put_file(folder.path(folder.file(kCopied)), std::string(kBytes, 'i'));
  }
  Folder folder;
  std::string owner;
  std::string area;
  std::string path;
  std::string logical;
  long timestamp;
  std::string outside;
};

}  // namespace

std::vector<Contest> copies(Stage& stage) {
  std::vector<Contest> contests;
  const auto add = [&](const char* workload, Place place, std::function<Jobs()> prepare) {
    Contest contest;
    contest.workload = workload;
    contest.place = name(place);
    contest.size = "4 MB";
    contest.entries = kEntries;
    contest.requirements = {at_most(1.1, Who::kFloor)};
    contest.prepare = std::move(prepare);
    contests.push_back(std::move(contest));
  };
  for (const Place place : {Place::kDisk, Place::kMemory}) {
    add("copyFile", place, [&stage, place] {
      const std::string folder = stage.room(place, "outside");
      const std::string from = folder + "/from";
      const std::string to = folder + "/to";
      put_file(from, std::string(kBytes, 'f'));
      put_file(to, std::string(kBytes, 't'));
      Jobs jobs;
      jobs[Who::kLibrary].run = [from, to] {
        if (!vu_file::copyFile(from, to, true)) bare::broken("no copy of", from);
      };
      jobs[Who::kFloor].run = [from, to] { bare::copy_onto(from, to); };
      return jobs;
    });
    add("copyToStorage", place, [&stage, place] {
      const auto pair = std::make_shared<Pair>(stage, place);
      Jobs jobs;
      jobs[Who::kLibrary].run = [pair] {
        if (!vu_storage::copyToStorage(pair->outside, pair->owner, pair->logical,
                                       STG::MailRepository, true, pair->timestamp))
          bare::broken("no copy of", pair->outside);
      };
      // The library opens the document for writing, truncates it and flushes it before the copy.
      jobs[Who::kFloor].run = [pair] {
        std::string physical;
        if (!bare::entry_exists(pair->area) || !bare::entry_exists(pair->path)) return;
        floor_of::exists(pair->path, pair->logical, pair->timestamp, physical);
        floor_of::write_document(pair->path + "/" + physical, "");
        bare::copy_onto(pair->outside, pair->path + "/" + physical);
      };
      return jobs;
    });
    add("copyFromStorage", place, [&stage, place] {
      const auto pair = std::make_shared<Pair>(stage, place);
      put_file(pair->folder.path("index.dat"),
               key_of(pair->logical, 0) + "/" + pair->folder.file(kCopied).substr(0, 8) + "\n");
      Jobs jobs;
      jobs[Who::kLibrary].run = [pair] {
        if (!vu_storage::copyFromStorage(pair->outside, pair->owner, pair->logical,
                                         STG::MailRepository, 0))
          bare::broken("no copy of", pair->path);
      };
      jobs[Who::kFloor].run = [pair] {
        std::string physical;
        if (!bare::entry_exists(pair->area) || !bare::entry_exists(pair->path)) return;
        floor_of::exists(pair->path, pair->logical, 0, physical);
        const std::string document = pair->path + "/" + physical;
        { const bare::File file(document, bare::File::Mode::kRead); }
        bare::copy_onto(document, pair->outside);
      };
      return jobs;
    });
  }
  return contests;
}

}  // namespace bench
