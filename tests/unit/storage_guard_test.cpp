#include "storage/guard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "storage/roots.h"
#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// What every operation of the facade does first, and how exceptions become results. Threads that
// meet in the initialisation.

namespace {

using Peer = vu_storage_test_peer;

class StorageOperations : public StorageTest {
 protected:
  StorageOperations() {
    make_folder(server);
    vu_host::install({&sink, nullptr, &temp, nullptr});
  }
  ~StorageOperations() override { vu_host::install({&sink}); }

  std::string server = scratch.path("server");
  fake_temporary_files temp{server};
  const std::shared_ptr<vu_file> file = std::make_shared<vu_file>();
};

/// The trace of an operation in place of an exception; nothing if the exception leaves it.
using Said = std::optional<std::string>;
const Said kLeaves = std::nullopt;
const Said kNothing = "";

struct Operation {
  const char* name;
  std::function<void(vu_storage&)> call;
  Said of_file_error;       ///< when the initialisation throws vu_file_except("no folder")
  Said of_any_other_error;  ///< when it throws another exception
};

/// Every public operation, with arguments that name nothing.
std::vector<Operation> every_operation(const std::string& folder,
                                       const std::shared_ptr<vu_file>& file) {
  const vu_utf8string wide("u");
  static std::string text;
  static std::vector<std::string> names;
  static STG::NameValueSeq seq;
  static unsigned long size = 0;
  constexpr auto kType = STG::UserRepository;
  const std::string not_folder = folder + " isn't a directory";
  const std::string read_part = "vu_storage::OpenReadSubPart : unknown error, force retrieve doc";
  const Said no_read = "vu_storage::OpenRead : Exception when try open file for read : \\";
  const Said no_write = "vu_storage::OpenWrite : Can't open file for write : ";
  const Said no_part =
      "vu_storage::OpenWriteSubPart : Can't open file for write : sDir->   strPartId->p";
  return {
      {"vu_storage", [](vu_storage&) { const vu_storage another; }, kLeaves, kLeaves},
      {"getStoragePath", [](vu_storage&) { vu_storage::getStoragePath(); }, kLeaves, kLeaves},
      {"getCorpPath", [](vu_storage&) { vu_storage::getCorpPath(); }, kLeaves, kLeaves},
      {"getUserPath", [](vu_storage&) { vu_storage::getUserPath(); }, kLeaves, kLeaves},
      {"getListPath", [](vu_storage&) { vu_storage::getListPath(); }, kLeaves, kLeaves},
      {"getConfigDirPath", [](vu_storage&) { vu_storage::getConfigDirPath(); }, kLeaves, kLeaves},
      {"getMailPath", [](vu_storage&) { vu_storage::getMailPath(); }, kLeaves, kLeaves},
      {"getSemletPath", [](vu_storage&) { vu_storage::getSemletPath(); }, kLeaves, kLeaves},
      {"getTdcTimeStamp", [](vu_storage&) { vu_storage::getTdcTimeStamp(); }, kLeaves, kLeaves},
      {"createUserOrDomainNameDirectory",
       [](vu_storage&) {
         vu_storage::createUserOrDomainNameDirectory("u", "e", kType, text, false);
       },
       kLeaves, kLeaves},
      {"isVuDocExt", [](vu_storage&) { vu_storage::isVuDocExt("kdc"); }, kLeaves, kLeaves},
      {"OpenRead", [=](vu_storage& s) { s.OpenRead(*file, "", "", kType, 0); },
       "vu_storage::OpenRead : no folder", no_read},
      {"OpenRead (UTF-8)", [=](vu_storage& s) { s.OpenRead(*file, wide, wide, kType, 0); },
       "vu_storage::OpenRead : no folder", no_read},
      {"OpenWrite2", [=](vu_storage& s) { s.OpenWrite2(*file, "", "", kType, false, 0); },
       "vu_storage::OpenWrite : no folder", no_write},
      {"OpenWrite", [=](vu_storage& s) { s.OpenWrite(*file, "", "", kType, false, 0); },
       "vu_storage::OpenWrite : no folder", no_write},
      {"OpenWrite (UTF-8)",
       [=](vu_storage& s) { s.OpenWrite(*file, wide, vu_utf8string(), kType, false, 0); },
       "vu_storage::OpenWrite : no folder", no_write},
      {"Read", [=](vu_storage& s) { s.Read(*file, text, 1); }, "vu_storage::Read: no folder",
       "vu_storage::Read : Cannot read from file not opened"},
      {"Write", [=](vu_storage& s) { s.Write(*file, "x"); }, "vu_storage::Write : no folder",
       "vu_storage::Write : Cannot Write to file"},
      {"Close", [=](vu_storage& s) { s.Close(*file); }, "Error in vu_storage::Close : no folder",
       kLeaves},
      {"IsFileExist", [](vu_storage& s) { s.IsFileExist("", "", kType, 0, nullptr, nullptr); },
       "Error : vu_storage::IsFileExist : no folder", "Error : vu_storage::IsFileExist"},
      {"IsFileExist (UTF-8)",
       [=](vu_storage& s) { s.IsFileExist(wide, wide, kType, 0, nullptr, nullptr); },
       "Error : vu_storage::IsFileExist : no folder", "Error : vu_storage::IsFileExist"},
      {"getLattestTimestamp", [](vu_storage&) { vu_storage::getLattestTimestamp("", "", kType); },
       kLeaves, kLeaves},
      {"getIndexNameFromDocName",
       [=](vu_storage&) { vu_storage::getIndexNameFromDocName(folder, "e", 0, text); },
       "Error : vu_storage::getIndexNameFromFileName",
       "Error : vu_storage::getIndexNameFromFileName"},
      {"update_IndexDat", [=](vu_storage& s) { s.update_IndexDat(folder); }, kLeaves, kLeaves},
      {"copyToStorage",
       [=](vu_storage&) { vu_storage::copyToStorage(folder, "", "", kType, false, 0); }, kLeaves,
       kLeaves},
      {"copyFromStorage",
       [=](vu_storage&) { vu_storage::copyFromStorage(folder, "", "", kType, 0); }, kLeaves,
       kLeaves},
      {"copyFileToStorage", [=](vu_storage& s) { s.copyFileToStorage(folder, "none", "u", kType); },
       kLeaves, kLeaves},
      {"copyFileToStorage (UTF-8)",
       [=](vu_storage& s) { s.copyFileToStorage(folder, "none", wide, kType); }, kLeaves, kLeaves},
      {"copyFileToUserPath", [=](vu_storage& s) { s.copyFileToUserPath(folder, "none", "u"); },
       kLeaves, kLeaves},
      {"getStringFromNameValueSeq", [](vu_storage&) { vu_storage::getStringFromNameValueSeq(seq); },
       "vu_storage::getStringFromNameValueSeq no folder", "vu_storage::getStringFromNameValueSeq "},
      {"Read (key lines)", [=](vu_storage&) { vu_storage::Read(*file, seq, false); }, kNothing,
       kNothing},
      {"readKeysFile", [=](vu_storage&) { vu_storage::readKeysFile(folder, "k", seq, false); },
       "vu_storage::readKeysFile no folder",
       "vu_storage::readKeysFile failed file" + folder + "\\k"},
      {"writeKeysFile", [=](vu_storage&) { vu_storage::writeKeysFile(folder, "k", "", true); },
       "vu_storage::writeKeysFile : no folder",
       "vu_storage::writeKeysFile failed file" + folder + "\\k"},
      {"saveUserOrMasterProfile",
       [](vu_storage&) { vu_storage::saveUserOrMasterProfile("", "", seq); },
       "vu_storage::saveUserOrMasterProfile : no folder", kLeaves},
      {"loadUserOrMasterProfile",
       [](vu_storage&) { vu_storage::loadUserOrMasterProfile("", "", seq); },
       "vu_storage::loadUserOrMasterProfile : no folder", kLeaves},
      {"OpenWriteSubPart",
       [=](vu_storage& s) { s.OpenWriteSubPart(*file, "", "", "html@x", "p", 0); },
       "vu_storage::OpenWriteSubPart :no folder", no_part},
      {"OpenWriteSubPart (UTF-8)",
       [=](vu_storage& s) { s.OpenWriteSubPart(*file, wide, vu_utf8string(), "t", "p", 0); },
       "vu_storage::OpenWriteSubPart :no folder", no_part},
      {"OpenReadSubPart", [=](vu_storage& s) { s.OpenReadSubPart(*file, "", "", "", "t", "p", 0); },
       "vu_storage::OpenReadSubPart: no folder", read_part},
      {"OpenReadSubPart (UTF-8)",
       [=](vu_storage& s) { s.OpenReadSubPart(*file, wide, wide, wide, "t", "p", 0); },
       "vu_storage::OpenReadSubPart: no folder", read_part},
      {"OpenReadSubPartEx",
       [=](vu_storage& s) { s.OpenReadSubPartEx(*file, "", "", "", "t", "p", 0, size); }, read_part,
       read_part},
      {"OpenReadSubPartEx (UTF-8)",
       [=](vu_storage& s) { s.OpenReadSubPartEx(*file, wide, wide, wide, "t", "p", 0, size); },
       read_part, read_part},
      {"RenameUserStorage", [](vu_storage&) { vu_storage::RenameUserStorage("none", "nobody"); },
       "vu_storage::RenameUserStorage no folder", "Problem in vu_storage::RenameUserStorage "},
      {"RemoveUserStorage", [=](vu_storage&) { vu_storage::RemoveUserStorage(wide); },
       "vu_storage::RemoveUserStorage no folder", "vu_storage::RemoveUserStorage u"},
      {"RemoveUsersStorage", [](vu_storage&) { vu_storage::RemoveUsersStorage({}); },
       "vu_storage::RemoveUsersStorage no folder", "vu_storage::RemoveUsersStorage"},
      {"RemoveFile", [](vu_storage&) { vu_storage::RemoveFile("", "", kType, 0); },
       "Error : vu_storage::RemoveFile : no folder", "Error : vu_storage::RemoveFile"},
      {"RemoveFile (UTF-8)", [=](vu_storage&) { vu_storage::RemoveFile(wide, wide, kType, 0); },
       "Error : vu_storage::RemoveFile : no folder", "Error : vu_storage::RemoveFile"},
      {"getAllFileListFromIndexFile",
       [=](vu_storage&) { vu_storage::getAllFileListFromIndexFile(folder, names); },
       "vu_storage::getAllFileListFromIndexFile : " + not_folder,
       "vu_storage::getAllFileListFromIndexFile : " + not_folder},
      {"getFileListFromIndexFile",
       [=](vu_storage&) { vu_storage::getFileListFromIndexFile(folder, names, nullptr); },
       "vu_storage::getFileListFromIndexFile : " + not_folder,
       "vu_storage::getFileListFromIndexFile : " + not_folder},
  };
}

TEST_F(StorageOperations, InitialiseAllButTwo) {
  vu_storage facade;
  for (const Operation& operation : every_operation(server, file)) {
    SCOPED_TRACE(operation.name);
    Peer::reset();
    sink.clear();
    operation.call(facade);
    EXPECT_EQ(Peer::init_done(), 1234);
    EXPECT_EQ(Peer::storage_path(), server);
  }
}

TEST_F(StorageOperations, OpenTheirScopeFirst) {
  vu_storage facade;
  for (const Operation& operation : every_operation(server, file)) {
    SCOPED_TRACE(operation.name);
    sink.clear();
    operation.call(facade);
    const std::vector<traced> all = sink.all();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.front().kind, traced::kind_t::scope);
    EXPECT_EQ(all.front().source, "vu_storage");
    EXPECT_NE(all.front().text, "ztVuStorage:checkInit");
    EXPECT_NE(all.front().signature.find("vu_storage"), std::string::npos);
  }
}

/// The trace of an operation after an exception, or nothing if the exception leaves it.
template <class Exception>
Said said_by(const Operation& operation, vu_storage& client, const recording_sink& sink) {
  try {
    operation.call(client);
  } catch (const Exception&) {
    return kLeaves;
  }
  std::string all;
  for (const traced& each : sink.all()) {
    if (each.kind == traced::kind_t::event && each.source == "vu_storage") all += each.text;
  }
  return all;
}

TEST_F(StorageOperations, TurnAFailedInitialisationIntoTheirResult) {
  vu_storage client;
  write_file(scratch.path("other"), "");
  const auto expect = [&]<class Exception>(const Exception& exception, Said Operation::*expected) {
    FailingTemporaryFiles failing{exception};
    vu_host::install({&sink, nullptr, &failing, nullptr});
    for (const Operation& operation : every_operation(server, file)) {
      SCOPED_TRACE(operation.name);
      Peer::reset();
      file->close();
      file->open(scratch.path(), "other", vu_file_base::o_read);
      sink.clear();
      EXPECT_EQ(said_by<Exception>(operation, client, sink), operation.*expected);
      EXPECT_EQ(Peer::init_done(), 0);
      // An operation that opens or closes a handle closes one that is already open.
      const std::string name = operation.name;
      const bool is_of_a_handle = name.starts_with("Open") || name == "Close";
      EXPECT_EQ(file->is_open(), !is_of_a_handle);
    }
  };
  expect(vu_file_except("no folder"), &Operation::of_file_error);
  expect(std::runtime_error("no folder"), &Operation::of_any_other_error);
  vu_host::install({&sink, nullptr, &temp, nullptr});
}

TEST_F(StorageOperations, GiveTheTextOfKeyLinesWhetherTheStorageCanBeInitialisedOrNot) {
  FailingTemporaryFiles failing{vu_file_except("no folder")};
  vu_host::install({&sink, nullptr, &failing, nullptr});
  Peer::reset();
  STG::NameValueSeq seq;
  seq.push_back({"a", "1"});
  EXPECT_EQ(vu_storage::getStringFromNameValueSeq(seq), "a=1\n");
  vu_host::install({&sink, nullptr, &temp, nullptr});
}

TEST(StorageGuard, GivesTheResultOfTheBodyBack) {
  const auto never = [](const auto&...) { ADD_FAILURE(); };
  EXPECT_EQ(storage::guarded(
                1L, [] { return 0L; }, never, never),
            0L);
}

TEST(StorageGuard, TurnsAnExceptionIntoTheStatedResult) {
  std::string heard;
  const auto file_error = [&](const std::string& text) { heard = text; };
  const auto any_other = [&] { heard = "other"; };
  EXPECT_EQ(storage::guarded(
                7, []() -> int { throw vu_file_except("boom"); }, file_error, any_other),
            7);
  EXPECT_EQ(heard, "boom");
  EXPECT_EQ(storage::guarded(
                7, []() -> int { throw 1; }, file_error, any_other),
            7);
  EXPECT_EQ(heard, "other");
}

TEST(StorageGuard, LetsOtherExceptionsPassOnRequest) {
  std::string heard;
  const auto file_error = [&](const std::string& text) { heard = text; };
  EXPECT_THROW(
      storage::guarded([] { throw std::runtime_error("x"); }, file_error, storage::kPassOn),
      std::runtime_error);
  storage::guarded([] { throw vu_file_except("boom"); }, file_error, storage::kPassOn);
  EXPECT_EQ(heard, "boom");
}

TEST(StorageGuard, KeepsTheResultWhenTheTraceCannotBeMade) {
  const auto no_memory = [](const auto&...) { throw std::bad_alloc(); };
  EXPECT_EQ(storage::guarded(
                3, []() -> int { throw vu_file_except("x"); }, no_memory, no_memory),
            3);
  EXPECT_EQ(storage::guarded(
                4, []() -> int { throw 1; }, no_memory, no_memory),
            4);
}

// ---- threads that meet in the initialisation ----------------------------------------------------

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
