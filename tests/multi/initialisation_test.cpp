// The initialisation happens once per process. Therefore each case runs in a separate helper
// process.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr std::size_t kThreads = 8;

const Arguments kAreas = {"docs", "list", "mail", "semlets", "user"};

/// Runs a function on several threads that start at the same moment.
template <class Function>
void run_at_once(Function function) {
  std::atomic<std::size_t> waiting = 0;
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      ++waiting;
      while (waiting < kThreads) std::this_thread::yield();
      function(number);
    });
  }
  for (std::thread& each : threads) each.join();
}

/// args: a root for each thread.
int race_of_initialisers(const Arguments& args) {
  const recording_sink sink;
  std::vector<int> results(kThreads);
  std::vector<std::string> seen(kThreads);
  run_at_once([&](std::size_t number) {
    results[number] = vu_storage::initRootStorage(args.at(number), false, false) ? 1 : 0;
    seen[number] = vu_storage::getCorpPath();
  });
  const auto winner = std::find(results.begin(), results.end(), 1);
  say("winners " + std::to_string(std::count(results.begin(), results.end(), 1)));
  say(winner == results.end() ? "none"
                              : args.at(static_cast<std::size_t>(winner - results.begin())));
  say(vu_storage::getStoragePath());
  say("different answers " +
      std::to_string(std::count_if(seen.begin(), seen.end(), [](const std::string& each) {
        return each != vu_storage::getStoragePath() + "\\docs";
      })));
  // A caller that came during the first initialisation traces nothing; a later one traces a
  // refusal.
  const std::size_t refusals = sink.messages().size();
  say(refusals < kThreads && sink.count(vu_host::trace_event::error) == refusals
          ? "refusals traced"
          : "refusals wrong");
  return 0;
}
REGISTER_ROLE(race_of_initialisers, race_of_initialisers)

/// args: a root. Half of the threads initialise, half ask for a folder.
int race_with_getters(const Arguments& args) {
  std::atomic<int> winners = 0;
  std::vector<std::string> seen(kThreads);
  run_at_once([&](std::size_t number) {
    if (number % 2 == 0) {
      if (vu_storage::initRootStorage(args.at(0), true, false)) ++winners;
      seen[number] = vu_storage::getUserPath();
    } else {
      seen[number] = vu_storage::getUserPath();
    }
  });
  say("winners " + std::to_string(winners));
  say(vu_storage::getStoragePath());
  const bool agreed = std::all_of(seen.begin(), seen.end(), [](const std::string& each) {
    return each == vu_storage::getStoragePath() + "\\user";
  });
  say(agreed ? "agreed" : "disagreed");
  return 0;
}
REGISTER_ROLE(race_with_getters, race_with_getters)

const std::map<std::string, const std::string& (*)()>& getters() {
  static const std::map<std::string, const std::string& (*)()> known = {
      {"getStoragePath", vu_storage::getStoragePath},
      {"getCorpPath", vu_storage::getCorpPath},
      {"getUserPath", vu_storage::getUserPath},
      {"getListPath", vu_storage::getListPath},
      {"getMailPath", vu_storage::getMailPath},
      {"getSemletPath", vu_storage::getSemletPath},
      {"getConfigDirPath", vu_storage::getConfigDirPath},
      {"getTdcTimeStamp", vu_storage::getTdcTimeStamp}};
  return known;
}

/// args: the first call, a getter or "constructor"; another root.
int first_call(const Arguments& args) {
  if (args.at(0) == "constructor") {
    const vu_storage storage;
    say("constructed");
  } else {
    const std::string answer = getters().at(args.at(0))();
    say(answer == getters().at(args.at(0))() ? "same answer again" : "another answer");
  }
  say(vu_storage::initRootStorage(args.at(1), false, false) ? "true" : "false");
  say(vu_storage::getStoragePath());
  return 0;
}
REGISTER_ROLE(first_call, first_call)

/// args: a root. Storage operations before and after the initialisation.
int set_stamp_then_initialise(const Arguments& args) {
  vu_storage::setTdcTimeStamp("stamp");
  say(vu_storage::initRootStorage(args.at(0), false, false) ? "true" : "false");
  say(vu_storage::getTdcTimeStamp());
  return 0;
}
REGISTER_ROLE(set_stamp_then_initialise, set_stamp_then_initialise)

}  // namespace

TEST(Initialisation, IsDoneByExactlyOneOfManyThreads) {
  for (int round = 0; round < 5; ++round) {
    const scratch_folder folder;
    Arguments roots;
    for (std::size_t number = 0; number < kThreads; ++number) {
      roots.push_back(folder.path(std::to_string(number)));
      make_folder(roots.back());
    }
    child_process child("race_of_initialisers", roots);
    ASSERT_TRUE(child.hears("winners 1"));
    const std::string winner = child.next_line().value_or("no answer");
    EXPECT_TRUE(child.hears(winner + "\\storage"));
    EXPECT_TRUE(child.hears("different answers 0"));
    EXPECT_TRUE(child.hears("refusals traced"));
    EXPECT_EQ(child.wait(), 0);
    for (const std::string& each : roots) {
      EXPECT_EQ(list_folder(each), each == winner ? Arguments{"storage"} : Arguments{}) << each;
    }
    EXPECT_EQ(list_folder(winner + "\\storage"), kAreas);
  }
}

TEST(Initialisation, IsDoneOnceAlsoWhenGettersTakePart) {
  for (int round = 0; round < 5; ++round) {
    const scratch_folder folder;
    make_folder(folder.path("root"));
    const std::string by_default = folder.path("by default");
    child_process child("race_with_getters", {folder.path("root")},
                        {{"VU_STORAGE_SERVER_TEMP", by_default}});
    const std::string winners = child.next_line().value_or("no answer");
    ASSERT_TRUE(winners == "winners 0" || winners == "winners 1") << winners;
    const std::string storage =
        winners == "winners 1" ? folder.path("root") + "\\storage" : by_default;
    EXPECT_TRUE(child.hears(storage));
    EXPECT_TRUE(child.hears("agreed"));
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(list_folder(storage), kAreas);
    EXPECT_EQ(folder_exists(by_default), winners == "winners 0");
  }
}

TEST(Initialisation, HappensBelowTheServerFolderWithAnyFirstCall) {
  Arguments calls = {"constructor"};
  for (const auto& [name, getter] : getters()) calls.push_back(name);
  for (const std::string& call : calls) {
    const scratch_folder folder;
    const std::string by_default = folder.path("by default");
    child_process child("first_call", {call, folder.path()},
                        {{"VU_STORAGE_SERVER_TEMP", by_default}});
    EXPECT_TRUE(child.hears(call == "constructor" ? "constructed" : "same answer again")) << call;
    EXPECT_TRUE(child.hears("false")) << call;
    EXPECT_TRUE(child.hears(by_default)) << call;
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(list_folder(by_default), kAreas) << call;
    EXPECT_EQ(list_folder(folder.path()), Arguments{"by default"}) << call;
  }
}

TEST(Initialisation, IsNotBroughtAboutBySettingTheStamp) {
  const scratch_folder folder;
  child_process child("set_stamp_then_initialise", {folder.path()});
  EXPECT_TRUE(child.hears("true"));
  EXPECT_TRUE(child.hears("stamp"));
  EXPECT_EQ(child.wait(), 0);
}
