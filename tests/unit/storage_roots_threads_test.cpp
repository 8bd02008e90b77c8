#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "storage/roots.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// Threads that meet in the initialisation.

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

constexpr std::int32_t kInitialised = 1234;

TEST_F(StorageRoots, AreInitialisedByOneOfManyCallers) {
  constexpr int kCallers = 8;
  std::atomic<int> ready = 0;
  std::atomic<int> successes = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < kCallers; ++i) {
    callers.emplace_back([&] {
      ++ready;
      while (ready < kCallers) std::this_thread::yield();
      if (vu_storage::initRootStorage(dir.path(), true, false)) ++successes;
      EXPECT_EQ(vu_storage::getMailPath(), dir.path() + "\\storage\\mail");
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(successes, 1);
}

TEST_F(StorageRoots, AreInitialisedByOneOfManyOperations) {
  constexpr int kCallers = 8;
  std::atomic<int> ready = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < kCallers; ++i) {
    callers.emplace_back([&] {
      ++ready;
      while (ready < kCallers) std::this_thread::yield();
      EXPECT_EQ(vu_storage::getMailPath(), dir.path("server") + "\\mail");
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(temp.calls(), (Texts{"initialise MY_PROCESS MY_COMP", "server_folder"}));
}

TEST_F(StorageRoots, AreReadByManyWhileTheyCannotBeMade) {
  const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"), 1,
                                         faults::Times::kLasting);
  Peer::checkInit();
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      for (int repeat = 0; repeat < 20; ++repeat)
        EXPECT_EQ(vu_storage::getMailPath(), dir.path("server") + "\\mail");
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(raised.hits(), 81U);
  EXPECT_EQ(Peer::init_done(), 0);
}

TEST_F(StorageRoots, ReachRunningOperationsWholeWhenARetryNamesAnotherRoot) {
  failing_configuration failing;
  vu_host::install({nullptr, &failing, &temp, &components});
  make_folder(dir.path("shared\\storage\\user"));
  make_folder(dir.path("apart\\storage\\user\\jdoe"));
  vu_storage::initRootStorage(dir.path("shared"), false, false);
  std::atomic<bool> stop = false;
  std::vector<std::thread> callers;
  // These operations start before a successful initialisation. Each one must use paths of one root.
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back([&] {
      const Texts together = {dir.path("shared\\storage\\user"),
                              dir.path("apart\\storage\\user\\jdoe"), dir.path("server\\user"),
                              dir.path("server\\user\\jdoe")};
      while (!stop) {
        std::string folder;
        vu_storage::createUserOrDomainNameDirectory("jdoe", "x", STG::UserRepository, folder,
                                                    false);
        EXPECT_NE(std::find(together.begin(), together.end(), folder), together.end()) << folder;
      }
    });
  }
  for (int repeat = 0; repeat < 200; ++repeat) {
    vu_storage::initRootStorage(dir.path("apart"), true, false);
    vu_storage::initRootStorage(dir.path("shared"), false, false);
  }
  stop = true;
  for (std::thread& caller : callers) caller.join();
  vu_host::install({&sink, &config, &temp, &components});
}

/// Whether one more scope with this label begins within the time limit.
bool begins(const recording_sink& sink, const std::string& label) {
  for (int i = 0; i < 10'000; ++i) {
    const Texts labels = sink.scopes();
    if (std::find(labels.begin(), labels.end(), label) != labels.end()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

TEST_F(StorageRoots, RefuseWithoutATraceIfInitialisedWhileWaitingForTheMutex) {
  // The caller must wait at the mutex before the marker is set. The test cannot see when it
  // arrives. A caller that is late finds the marker at once and traces; then the attempt is
  // repeated.
  bool silent = false;
  for (int attempt = 0; attempt < 20 && !silent; ++attempt) {
    Peer::reset();
    sink.clear();
    bool result = true;
    std::thread caller;
    {
      const StorageLock lock;
      caller = std::thread([&] { result = vu_storage::initRootStorage(dir.path(), false, true); });
      EXPECT_TRUE(begins(sink, "ztVuStorage:initRootStorage"));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      Peer::set_init_done(kInitialised);
    }
    caller.join();
    EXPECT_FALSE(result);
    EXPECT_EQ(Peer::storage_path(), "");
    EXPECT_TRUE(Peer::use_domain());
    silent = facade(trace_event::error).empty();
    if (silent) {
      EXPECT_TRUE(sink.messages().empty());
      EXPECT_TRUE(components.records().empty());
    }
  }
  EXPECT_TRUE(silent);
}

TEST_F(StorageRoots, AreNotCreatedAgainIfInitialisedWhileWaitingForTheMutex) {
  // A caller that is too late to wait finds the marker at once. That is valid too.
  std::thread caller;
  {
    const StorageLock lock;
    caller = std::thread([] { vu_storage::getCorpPath(); });
    EXPECT_TRUE(begins(sink, "ztVuStorage:checkInit"));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Peer::set_init_done(kInitialised);
  }
  caller.join();
  EXPECT_TRUE(temp.calls().empty());
  EXPECT_EQ(Peer::storage_path(), "");
}

TEST_F(StorageRoots, AreInitialisedUnderAMutexThatItsHolderMayTakeAgain) {
  const StorageLock outer;
  const StorageLock inner;
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
}

}  // namespace
