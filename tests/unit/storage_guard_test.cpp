#include "storage/guard.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// What every operation of the facade does first, and how exceptions become results.

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
};

// ---- who initialises ---------------------------------------------------------------------------

struct Operation {
  const char* name;
  std::function<void(vu_storage&)> call;
};

/// Every public operation, with arguments that lead nowhere.
std::vector<Operation> every_operation(const std::string& folder) {
  const vu_utf8string wide("u");
  static std::string text;
  static std::vector<std::string> names;
  static STG::NameValueSeq seq;
  static unsigned long size = 0;
  constexpr auto kType = STG::UserRepository;
  const auto file = std::make_shared<vu_file>();
  return {
      {"vu_storage", [](vu_storage&) { const vu_storage another; }},
      {"getStoragePath", [](vu_storage&) { vu_storage::getStoragePath(); }},
      {"getCorpPath", [](vu_storage&) { vu_storage::getCorpPath(); }},
      {"getUserPath", [](vu_storage&) { vu_storage::getUserPath(); }},
      {"getListPath", [](vu_storage&) { vu_storage::getListPath(); }},
      {"getConfigDirPath", [](vu_storage&) { vu_storage::getConfigDirPath(); }},
      {"getMailPath", [](vu_storage&) { vu_storage::getMailPath(); }},
      {"getSemletPath", [](vu_storage&) { vu_storage::getSemletPath(); }},
      {"getTdcTimeStamp", [](vu_storage&) { vu_storage::getTdcTimeStamp(); }},
      {"createUserOrDomainNameDirectory",
       [](vu_storage&) {
         vu_storage::createUserOrDomainNameDirectory("u", "e", kType, text, false);
       }},
      {"isVuDocExt", [](vu_storage&) { vu_storage::isVuDocExt("kdc"); }},
      {"OpenRead", [=](vu_storage& s) { s.OpenRead(*file, "", "", kType, 0); }},
      {"OpenRead (UTF-8)", [=](vu_storage& s) { s.OpenRead(*file, wide, wide, kType, 0); }},
      {"OpenWrite2", [=](vu_storage& s) { s.OpenWrite2(*file, "", "", kType, false, 0); }},
      {"OpenWrite", [=](vu_storage& s) { s.OpenWrite(*file, "", "", kType, false, 0); }},
      {"OpenWrite (UTF-8)",
       [=](vu_storage& s) { s.OpenWrite(*file, wide, vu_utf8string(), kType, false, 0); }},
      {"Read", [=](vu_storage& s) { s.Read(*file, text, 1); }},
      {"Write", [=](vu_storage& s) { s.Write(*file, "x"); }},
      {"Close", [=](vu_storage& s) { s.Close(*file); }},
      {"IsFileExist", [](vu_storage& s) { s.IsFileExist("", "", kType, 0, nullptr, nullptr); }},
      {"IsFileExist (UTF-8)",
       [=](vu_storage& s) { s.IsFileExist(wide, wide, kType, 0, nullptr, nullptr); }},
      {"getLattestTimestamp", [](vu_storage&) { vu_storage::getLattestTimestamp("", "", kType); }},
      {"getIndexNameFromDocName",
       [=](vu_storage&) { vu_storage::getIndexNameFromDocName(folder, "e", 0, text); }},
      {"update_IndexDat", [=](vu_storage& s) { s.update_IndexDat(folder); }},
      {"copyToStorage",
       [=](vu_storage&) { vu_storage::copyToStorage(folder, "", "", kType, false, 0); }},
      {"copyFromStorage",
       [=](vu_storage&) { vu_storage::copyFromStorage(folder, "", "", kType, 0); }},
      {"copyFileToStorage",
       [=](vu_storage& s) { s.copyFileToStorage(folder, "none", "u", kType); }},
      {"copyFileToStorage (UTF-8)",
       [=](vu_storage& s) { s.copyFileToStorage(folder, "none", wide, kType); }},
      {"copyFileToUserPath", [=](vu_storage& s) { s.copyFileToUserPath(folder, "none", "u"); }},
      {"getStringFromNameValueSeq",
       [](vu_storage&) { vu_storage::getStringFromNameValueSeq(seq); }},
      {"Read (key lines)", [=](vu_storage&) { vu_storage::Read(*file, seq, false); }},
      {"readKeysFile", [=](vu_storage&) { vu_storage::readKeysFile(folder, "k", seq, false); }},
      {"writeKeysFile", [=](vu_storage&) { vu_storage::writeKeysFile(folder, "k", "", true); }},
      {"saveUserOrMasterProfile",
       [](vu_storage&) { vu_storage::saveUserOrMasterProfile("", "", seq); }},
      {"loadUserOrMasterProfile",
       [](vu_storage&) { vu_storage::loadUserOrMasterProfile("", "", seq); }},
      {"OpenWriteSubPart",
       [=](vu_storage& s) { s.OpenWriteSubPart(*file, "", "", "html@x", "p", 0); }},
      {"OpenWriteSubPart (UTF-8)",
       [=](vu_storage& s) { s.OpenWriteSubPart(*file, wide, vu_utf8string(), "t", "p", 0); }},
      {"OpenReadSubPart",
       [=](vu_storage& s) { s.OpenReadSubPart(*file, "", "", "", "t", "p", 0); }},
      {"OpenReadSubPart (UTF-8)",
       [=](vu_storage& s) { s.OpenReadSubPart(*file, wide, wide, wide, "t", "p", 0); }},
      {"OpenReadSubPartEx",
       [=](vu_storage& s) { s.OpenReadSubPartEx(*file, "", "", "", "t", "p", 0, size); }},
      {"OpenReadSubPartEx (UTF-8)",
       [=](vu_storage& s) { s.OpenReadSubPartEx(*file, wide, wide, wide, "t", "p", 0, size); }},
      {"RenameUserStorage", [](vu_storage&) { vu_storage::RenameUserStorage("none", "nobody"); }},
      {"RemoveUserStorage", [=](vu_storage&) { vu_storage::RemoveUserStorage(wide); }},
      {"RemoveUsersStorage", [](vu_storage&) { vu_storage::RemoveUsersStorage({}); }},
      {"RemoveFile", [](vu_storage&) { vu_storage::RemoveFile("", "", kType, 0); }},
      {"RemoveFile (UTF-8)", [=](vu_storage&) { vu_storage::RemoveFile(wide, wide, kType, 0); }},
      {"getAllFileListFromIndexFile",
       [=](vu_storage&) { vu_storage::getAllFileListFromIndexFile(folder, names); }},
      {"getFileListFromIndexFile",
       [=](vu_storage&) { vu_storage::getFileListFromIndexFile(folder, names, nullptr); }},
  };
}

TEST_F(StorageOperations, InitialiseAllButTwo) {
  vu_storage facade;
  for (const Operation& operation : every_operation(server)) {
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
  for (const Operation& operation : every_operation(server)) {
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

TEST_F(StorageOperations, TurnAFailedInitialisationIntoTheirResult) {
  vu_storage client;
  FailingTemporaryFiles failing{vu_file_except("no folder")};
  vu_host::install({&sink, nullptr, &failing, nullptr});
  Peer::reset();
  const auto error_of = [&](auto operation) {
    sink.clear();
    operation();
    return facade(vu_host::trace_event::error);
  };

  vu_file file;
  std::string text = "before";
  constexpr auto kType = STG::UserRepository;
  EXPECT_EQ(error_of([&] { client.OpenRead(file, "u", "e", kType, 0); }),
            Texts{"vu_storage::OpenRead : no folder"});
  EXPECT_EQ(error_of([&] { EXPECT_FALSE(client.OpenWrite2(file, "u", "e", kType, true, 0)); }),
            Texts{"vu_storage::OpenWrite : no folder"});
  EXPECT_EQ(error_of([&] { client.Read(file, text, 1); }), Texts{"vu_storage::Read: no folder"});
  EXPECT_EQ(text, "");
  EXPECT_EQ(error_of([&] { client.Write(file, "x"); }), Texts{"vu_storage::Write : no folder"});
  EXPECT_EQ(
      error_of([&] { EXPECT_FALSE(client.IsFileExist("u", "e", kType, 0, nullptr, nullptr)); }),
      Texts{"Error : vu_storage::IsFileExist : no folder"});
  EXPECT_EQ(
      error_of([&] { EXPECT_FALSE(vu_storage::getIndexNameFromDocName(server, "e", 0, text)); }),
      Texts{"Error : vu_storage::getIndexNameFromFileName"});
  Texts names;
  EXPECT_EQ(error_of([&] {
              EXPECT_TRUE(vu_storage::getAllFileListFromIndexFile(server, names).empty());
            }),
            Texts{"vu_storage::getAllFileListFromIndexFile : " + server + " isn't a directory"});
  EXPECT_EQ(Peer::init_done(), 0);
}

// ---- exceptions and results --------------------------------------------------------------------

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

TEST(StorageGuard, LetsTheOthersPassWhereItIsTold) {
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

}  // namespace
