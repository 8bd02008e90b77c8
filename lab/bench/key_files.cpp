#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/stage.h"
#include "vu_storage.h"

namespace bench {
namespace {

constexpr std::size_t kLines = 10000;
constexpr const char* kFile = "attribut.txt";

std::string key_text() {
  std::string text;
  for (std::size_t i = 0; i < kLines; ++i)
    text += "Report " + std::to_string(100000 + i) + ".kdb=the attribute of document " +
            std::to_string(i) + "\n";
  return text;
}

std::size_t read_pairs(const std::string& path) {
  const bare::Text text = bare::read_locked(path);
  std::vector<std::pair<std::string, std::string>> pairs;
  const char* at = text.view().data();
  const char* const stop = at + text.view().size();
  while (at < stop) {
    const auto left = static_cast<std::size_t>(stop - at);
    const char* const end = static_cast<const char*>(std::memchr(at, '\n', left));
    const char* const equals =
        static_cast<const char*>(std::memchr(at, '=', static_cast<std::size_t>(end - at)));
    pairs.emplace_back(std::string(at, equals), std::string(equals + 1, end));
    at = end + 1;
  }
  return pairs.size();
}

Jobs read_jobs(Stage& stage) {
  static_cast<void>(StorageRoot::of(stage));
  const std::string folder = stage.room(Place::kDisk, "keys");
  const std::string path = folder + "/" + kFile;
  put_file(path, key_text());
  const auto expect_all = [](std::size_t count) {
    if (count != kLines) bare::broken("wrong pairs", "of a key file");
  };
  Jobs jobs;
  jobs[Who::kLibrary].run = [folder, expect_all] {
    STG::NameValueSeq pairs;
    vu_storage::readKeysFile(folder, kFile, pairs, false);
    expect_all(pairs.size());
  };
  jobs[Who::kFloor].run = [path, expect_all] { expect_all(read_pairs(path)); };
  return jobs;
}

Jobs write_jobs(Stage& stage, Place place) {
  static_cast<void>(StorageRoot::of(stage));
  const std::string folder = stage.room(place, "keys");
  const std::string path = folder + "/" + kFile;
  put_file(path, key_text());
  const auto pairs = std::make_shared<STG::NameValueSeq>();
  if (vu_storage::readKeysFile(folder, kFile, *pairs, false) != 0)
    bare::broken("cannot read", path);
  Jobs jobs;
  jobs[Who::kLibrary].run = [folder, pairs] {
    vu_storage::writeKeysFile(folder, kFile, vu_storage::getStringFromNameValueSeq(*pairs), true);
  };
  jobs[Who::kFloor].run = [path, pairs] {
    std::string text;
    for (const STG::NameValue& pair : *pairs)
      text.append(pair.name).append("=").append(pair.value).append("\n");
    floor_of::write_document(path, text);
  };
  return jobs;
}

}  // namespace

std::vector<Contest> key_files(Stage& stage) {
  std::vector<Contest> contests;
  const auto add = [&](const char* workload, Place place, std::function<Jobs()> prepare) {
    Contest contest;
    contest.workload = workload;
    contest.place = name(place);
    contest.size = std::to_string(kLines) + " lines";
    contest.requirements = {at_most(2, Who::kFloor)};
    contest.prepare = std::move(prepare);
    contests.push_back(std::move(contest));
  };
  add("key file read", Place::kDisk, [&stage] { return read_jobs(stage); });
  for (const Place place : {Place::kDisk, Place::kMemory})
    add("key file written", place, [&stage, place] { return write_jobs(stage, place); });
  return contests;
}

}  // namespace bench
