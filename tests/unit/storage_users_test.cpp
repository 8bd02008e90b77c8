#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "storage/roots.h"
#include "tests/support/host_services.h"
#include "tests/unit/storage_fixture.h"

namespace {

using os::faults::Call;
using vu_host::trace_event;
using vu_host::trace_level;
using Peer = vu_storage_test_peer;
using Pairs = std::multimap<std::string, std::string>;

class Users : public StorageTest {
 protected:
  static std::string mail(const std::string& user) { return Peer::mail_path() + "\\" + user; }
  static std::string list(const std::string& user) { return Peer::list_path() + "\\" + user; }
  static std::string area(const std::string& user) { return Peer::user_path() + "\\" + user; }
  static std::string docs(const std::string& user) { return Peer::corp_path() + "\\" + user; }

  /// Creates a folder with a file for a user in every area.
  static void make_user(const std::string& user) {
    for (const std::string& folder : {mail(user), list(user), area(user), docs(user)}) {
      make_folder(folder + "\\below");
      write_file(folder + "\\below\\file.txt", user);
    }
  }
};

TEST_F(Users, RenamingMovesTheFoldersOfMailListAndUserAndLeavesTheDocuments) {
  make_user("old");
  EXPECT_TRUE(vu_storage::RenameUserStorage("old", "new"));
  for (const std::string& folder : {mail("new"), list("new"), area("new")}) {
    SCOPED_TRACE(folder);
    EXPECT_EQ(read_file(folder + "\\below\\file.txt"), "old");
  }
  for (const std::string& folder : {mail("old"), list("old"), area("old"), docs("new")}) {
    SCOPED_TRACE(folder);
    EXPECT_FALSE(file_exists(folder));
  }
  EXPECT_TRUE(folder_exists(docs("old")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST_F(Users, ATargetInTheListAreaIsNamedAndNothingIsRenamed) {
  make_user("old");
  make_folder(list("new"));
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_EQ(facade(trace_level::xs),
            Texts{"Can't rename to new : because " + list("new") + "already exists"});
  EXPECT_TRUE(folder_exists(mail("old")));
  EXPECT_FALSE(folder_exists(mail("new")));
}

TEST_F(Users, TargetsAreLookedForInMailThenListThenUser) {
  make_user("old");
  make_folder(area("new"));
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  make_folder(list("new"));
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  make_folder(mail("new"));
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_EQ(facade(trace_level::xs),
            (Texts{"Can't rename to new : because " + area("new") + "already exists",
                   "Can't rename to new : because " + list("new") + "already exists",
                   "Can't rename to new : because " + mail("new") + "already exists"}));
  for (const std::string& folder : {mail("old"), list("old"), area("old")})
    EXPECT_TRUE(folder_exists(folder)) << folder;
}

TEST_F(Users, AFileOfTheNewNameIsATargetToo) {
  make_user("old");
  write_file(mail("new"), "a file");
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_EQ(facade(trace_level::xs),
            Texts{"Can't rename to new : because " + mail("new") + "already exists"});
}

TEST_F(Users, AUserWithoutAListFolderIsRenamedInTheOtherAreas) {
  make_user("old");
  std::filesystem::remove_all(native(list("old")));
  EXPECT_TRUE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_TRUE(folder_exists(mail("new")));
  EXPECT_FALSE(folder_exists(list("new")));
  EXPECT_TRUE(folder_exists(area("new")));
  EXPECT_EQ(sink.events(trace_event::warning),
            Texts{"vu_file::rename() \t old Name : " + list("old") + " new name " + list("new")});
}

TEST_F(Users, AnUnknownUserIsRenamedWithSuccess) {
  EXPECT_TRUE(vu_storage::RenameUserStorage("nobody", "new"));
  EXPECT_EQ(
      sink.events(trace_event::warning),
      (Texts{"vu_file::rename() \t old Name : " + mail("nobody") + " new name " + mail("new"),
             "vu_file::rename() \t old Name : " + list("nobody") + " new name " + list("new"),
             "vu_file::rename() \t old Name : " + area("nobody") + " new name " + area("new")}));
}

TEST_F(Users, ARenameThatTheSystemRefusesDoesNotStopTheOthers) {
  make_user("old");
  const auto fault = os::faults::fail(Call::rename, kRefused, 1);
  EXPECT_TRUE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_TRUE(folder_exists(mail("old")));
  EXPECT_TRUE(folder_exists(list("new")));
  EXPECT_TRUE(folder_exists(area("new")));
}

TEST_F(Users, AnEmptyNewNameIsTheMailAreaItself) {
  make_user("old");
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", ""));
  EXPECT_EQ(facade(trace_level::xs),
            Texts{"Can't rename to  : because " + Peer::mail_path() + "\\already exists"});
  EXPECT_TRUE(folder_exists(mail("old")));
}

TEST_F(Users, AnEmptyOldNameRenamesNothingAndSucceeds) {
  make_user("jdoe");
  EXPECT_TRUE(vu_storage::RenameUserStorage("", "new"));
  EXPECT_EQ(list_folder(Peer::mail_path()), Texts{"jdoe"});
  EXPECT_EQ(list_folder(Peer::list_path()), Texts{"jdoe"});
  EXPECT_EQ(list_folder(Peer::user_path()), Texts{"jdoe"});
}

TEST_F(Users, AFileExceptionWhileRenamingIsAnErrorAndUndoesNothing) {
  make_user("old");
  const auto fault = os::faults::throw_from(Call::rename, vu_file_except("planned text"), 2);
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::RenameUserStorage planned text"});
  EXPECT_TRUE(folder_exists(mail("new")));
  EXPECT_TRUE(folder_exists(list("old")));
  EXPECT_TRUE(folder_exists(area("old")));
}

TEST_F(Users, AnyOtherExceptionWhileRenamingIsAnErrorAndUndoesNothing) {
  make_user("old");
  const auto fault = os::faults::throw_from(Call::rename, std::runtime_error("planned"), 3);
  EXPECT_FALSE(vu_storage::RenameUserStorage("old", "new"));
  EXPECT_EQ(facade(trace_event::error), Texts{"Problem in vu_storage::RenameUserStorage "});
  EXPECT_TRUE(folder_exists(mail("new")));
  EXPECT_TRUE(folder_exists(list("new")));
  EXPECT_TRUE(folder_exists(area("old")));
}

TEST_F(Users, RemovingTakesTheFoldersOfMailListAndUserAndLeavesTheDocuments) {
  make_user("jdoe");
  make_user("amy");
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("jdoe")));
  EXPECT_EQ(list_folder(Peer::mail_path()), Texts{"amy"});
  EXPECT_EQ(list_folder(Peer::list_path()), Texts{"amy"});
  EXPECT_EQ(list_folder(Peer::user_path()), Texts{"amy"});
  EXPECT_EQ(list_folder(Peer::corp_path()), (Texts{"amy", "jdoe"}));
}

TEST_F(Users, MailGoesFirstThenTheListThenTheUser) {
  make_user("jdoe");
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("jdoe")));
  Texts roots;
  for (const std::string& text : sink.records(trace_level::xs)) {
    if (text.starts_with("root path->") && !text.ends_with("below")) roots.push_back(text);
  }
  EXPECT_EQ(roots, (Texts{"root path->" + mail("jdoe"), "root path->" + list("jdoe"),
                          "root path->" + area("jdoe")}));
}

TEST_F(Users, RemovingAnUnknownUserSucceeds) {
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("nobody")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST_F(Users, RemovingTheUserWithoutANameTakesTheAreaFoldersThemselves) {
  make_user("jdoe");
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string()));
  EXPECT_FALSE(folder_exists(Peer::mail_path()));
  EXPECT_FALSE(folder_exists(Peer::list_path()));
  EXPECT_FALSE(folder_exists(Peer::user_path()));
  EXPECT_TRUE(folder_exists(docs("jdoe")));
}

TEST_F(Users, ANameEndsAtItsFirstNul) {
  make_user("jdoe");
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string(std::string("jdoe\0x", 6))));
  EXPECT_FALSE(folder_exists(mail("jdoe")));
}

TEST_F(Users, ARemovalThatFailsBelowDoesNotStopTheOthers) {
  make_user("jdoe");
  const auto fault = os::faults::throw_from(Call::list, std::runtime_error("planned"), 1);
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("jdoe")));
  EXPECT_EQ(sink.count(trace_event::error, "vu_file::recurseRemoveDir(" + mail("jdoe") + ")"), 1U);
  EXPECT_EQ(facade(trace_event::error), Texts{});
  EXPECT_TRUE(folder_exists(mail("jdoe")));
  EXPECT_FALSE(folder_exists(list("jdoe")));
  EXPECT_FALSE(folder_exists(area("jdoe")));
}

TEST_F(Users, AFileExceptionWhileRemovingIsAnErrorAndStillASuccess) {
  FailingTemporaryFiles temporary(vu_file_except("planned text"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  Peer::reset();
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("jdoe")));
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::RemoveUserStorage planned text"});
}

TEST_F(Users, AnyOtherExceptionWhileRemovingIsAnErrorThatNamesTheUserAndStillASuccess) {
  FailingTemporaryFiles temporary(std::runtime_error("planned"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  Peer::reset();
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string("jdoe")));
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::RemoveUserStorage jdoe"});
}

TEST_F(Users, SeveralUsersAreRemovedInTheirOrder) {
  for (const char* user : {"a", "b", "c"}) make_user(user);
  sink.clear();
  EXPECT_TRUE(vu_storage::RemoveUsersStorage(
      {vu_utf8string("c"), vu_utf8string("nobody"), vu_utf8string("a")}));
  EXPECT_EQ(list_folder(Peer::mail_path()), Texts{"b"});
  EXPECT_EQ(
      sink.scopes(trace_level::m),
      (Texts{"vu_storage::RemoveUsersStorage", "vu_storage::RemoveUserStorage : 'c '",
             "vu_storage::RemoveUserStorage : 'nobody '", "vu_storage::RemoveUserStorage : 'a '"}));
  EXPECT_TRUE(vu_storage::RemoveUsersStorage({}));
}

TEST_F(Users, RemovingADocumentOfTypeOneTakesItsLinesFromTheAttributesAndEveryCategory) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::UserFilesRepository);
  const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
  const std::string other = make_entry(folder, "sales.kdc", 8, "doc");
  const std::string first = make_entry(folder, "a.ctg", 0, "sales.kdc=1\nother.kdc=2\n");
  const std::string second = make_entry(folder, "b.ctg", 0, "other.kdc=3\nsales.kdc=4\n");
  write_file(folder + "\\attribut.txt", "sales.kdc=x\nother.kdc=y\n");
  EXPECT_TRUE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::UserFilesRepository, 7));
  EXPECT_FALSE(file_exists(document));
  EXPECT_TRUE(file_exists(other));
  EXPECT_EQ(read_file(first), "other.kdc=2\n");
  EXPECT_EQ(read_file(second), "other.kdc=3\n");
  EXPECT_EQ(read_file(folder + "\\attribut.txt"), "other.kdc=y\n");
}

TEST_F(Users, RemovingADocumentOfAnotherTypeTakesItsLinesFromTheCategoriesOnly) {
  for (const STG::RepositoryType type : {STG::CorporateRepository, STG::MailRepository,
                                         STG::MailFilesRepository, STG::UserRepository}) {
    SCOPED_TRACE(static_cast<int>(type));
    const std::string folder = folder_of("jdoe", "sales.kdc", type);
    const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
    const std::string category = make_entry(folder, "a.ctg", 0, "sales.kdc=1\nother.kdc=2\n");
    write_file(folder + "\\attribut.txt", "sales.kdc=x\n");
    EXPECT_TRUE(vu_storage::RemoveFile("jdoe", "sales.kdc", type, 7));
    EXPECT_FALSE(file_exists(document));
    EXPECT_EQ(read_file(category), "other.kdc=2\n");
    EXPECT_EQ(read_file(folder + "\\attribut.txt"), "sales.kdc=x\n");
  }
}

TEST_F(Users, RemovingWithoutAnOwnerSucceedsAndTouchesNothing) {
  const std::string folder = folder_of("", "sales.kdc", STG::CorporateRepository);
  const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
  sink.clear();
  EXPECT_TRUE(vu_storage::RemoveFile("", "sales.kdc", STG::CorporateRepository, 7));
  EXPECT_TRUE(file_exists(document));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST_F(Users, RemovingForAnUnknownOwnerSucceedsAndMakesNothing) {
  EXPECT_TRUE(vu_storage::RemoveFile("nobody", "sales.kdc", STG::CorporateRepository, 7));
  EXPECT_FALSE(folder_exists(docs("nobody")));
}

TEST_F(Users, RemovingAnUnknownVersionSucceedsAndStillTakesTheLines) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::UserFilesRepository);
  const std::string category = make_entry(folder, "a.ctg", 0, "sales.kdc=1\n");
  EXPECT_TRUE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::UserFilesRepository, 7));
  EXPECT_EQ(read_file(category), "");
  EXPECT_EQ(facade(trace_level::xs), Texts{"DeleteKeyLineFromFile : entry=sales.kdc"})
      << "there is no file of attributes";
}

TEST_F(Users, AFileExceptionWhileADocumentIsRemovedIsAnErrorWithItsText) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::UserFilesRepository);
  const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
  const auto fault = os::faults::fail(Call::open, kRefused);
  EXPECT_FALSE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::UserFilesRepository, 7));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"Error : vu_storage::RemoveFile : throw exception on open"});
  EXPECT_TRUE(file_exists(document));
}

TEST_F(Users, AnyOtherExceptionWhileADocumentIsRemovedIsAnError) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::UserFilesRepository);
  make_entry(folder, "sales.kdc", 7, "doc");
  const auto fault = os::faults::throw_from(Call::open, std::runtime_error("planned"));
  EXPECT_FALSE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::UserFilesRepository, 7));
  EXPECT_EQ(facade(trace_event::error), Texts{"Error : vu_storage::RemoveFile"});
}

TEST_F(Users, WhatTheListOfCategoriesRaisesIsAnErrorOfTheRemoval) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::MailRepository);
  const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
  // The index is loaded for the removal, merged and written at its end, and loaded again.
  const auto fault = os::faults::fail(Call::open, kRefused, 3);
  EXPECT_FALSE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::MailRepository, 7));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"Error : vu_storage::RemoveFile : throw exception on open"});
  EXPECT_FALSE(file_exists(document));
}

TEST_F(Users, TheUtf8FormConvertsItsNamesAndCallsTheNarrowOne) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::MailRepository);
  const std::string document = make_entry(folder, "sales.kdc", 7, "doc");
  EXPECT_TRUE(vu_storage::RemoveFile(vu_utf8string(std::string("jdoe\0x", 6)),
                                     vu_utf8string(std::string("sales.kdc\0x", 11)),
                                     STG::MailRepository, 7));
  EXPECT_FALSE(file_exists(document));
}

TEST_F(Users, RemovingADocumentTakesItsLineFromTheAttributesBeforeTheCategories) {
  const std::string folder = folder_of("jdoe", "sales.kdc", STG::UserFilesRepository);
  make_entry(folder, "sales.kdc", 7, "doc");
  make_entry(folder, "a.ctg", 0, "sales.kdc=1\n");
  write_file(folder + "\\attribut.txt", "sales.kdc=x\n");
  Texts emptied;
  std::map<os::Handle, std::string> open;
  const os::faults::Watch watch([&](const os::faults::Made& made) {
    if (made.call == Call::open) open[made.handle] = made.path->narrow();
    if (made.call == Call::set_end) emptied.push_back(open[made.handle]);
  });
  EXPECT_TRUE(vu_storage::RemoveFile("jdoe", "sales.kdc", STG::UserFilesRepository, 7));
  const auto position = [&](const std::string& name) {
    const auto is_it = [&](const std::string& path) { return path.ends_with(name); };
    return std::find_if(emptied.begin(), emptied.end(), is_it);
  };
  ASSERT_NE(position("attribut.txt"), emptied.end());
  ASSERT_NE(position(".ctg"), emptied.end());
  EXPECT_LT(position("attribut.txt"), position(".ctg"));
}

TEST_F(Users, RemovingADocumentWithoutANameCutsTheFirstLineOfEachFile) {
  const std::string folder = folder_of("jdoe", "", STG::UserFilesRepository);
  const std::string category = make_entry(folder, "a.ctg", 0, "one=1\ntwo=2\n");
  write_file(folder + "\\attribut.txt", "one=x\ntwo=y\n");
  EXPECT_TRUE(vu_storage::RemoveFile("jdoe", "", STG::UserFilesRepository, 7));
  EXPECT_EQ(read_file(category), "two=2\n");
  EXPECT_EQ(read_file(folder + "\\attribut.txt"), "two=y\n");
}

TEST_F(Users, EveryNameOfAFolderBecomesAPairSubFoldersIncluded) {
  const std::string folder = scratch.path("listed");
  make_folder(folder + "\\sub.d");
  for (const char* name : {"a.kdc", "README", "x.y.txt", ".rc", "dot."}) {
#if defined(_WIN32)
    // Windows drops a dot at the end of a name.
    if (std::string(name) == "dot.") continue;
#endif
    write_file(folder + "\\" + name, "");
  }
  Pairs map;
  Peer::AddExistVUFilesToMap(folder, map);
  Pairs expected = {{"a.kdc_0000000000", "a"},
                    {"README_0000000000", "README"},
                    {"x.y.txt_0000000000", "x.y"},
                    {".rc_0000000000", ""},
                    {"sub.d_0000000000", "sub"}};
#if !defined(_WIN32)
  expected.emplace("dot._0000000000", "dot");
#endif
  EXPECT_EQ(map, expected);
}

TEST_F(Users, PairsAreAddedToThoseThatTheMapHolds) {
  write_file(scratch.path("a.kdc"), "");
  Pairs map = {{"a.kdc_0000000000", "before"}};
  std::filesystem::remove_all(native(Peer::storage_path()));
  Peer::AddExistVUFilesToMap(scratch.path(), map);
  EXPECT_EQ(map, (Pairs{{"a.kdc_0000000000", "before"}, {"a.kdc_0000000000", "a"}}));
}

TEST_F(Users, AFolderThatDoesNotExistGivesNoPairs) {
  Pairs map;
  Peer::AddExistVUFilesToMap(scratch.path("gone"), map);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(facade(trace_event::error), Texts{});
}

/// Whether the storage mutex is free. @p waiting is the thread that takes it.
bool is_free(std::future<void>& waiting) {
  waiting = std::async(std::launch::async, [] { const StorageLock lock; });
  return waiting.wait_for(std::chrono::milliseconds(200)) == std::future_status::ready;
}

TEST_F(Users, AFolderIsListedUnderTheStorageMutex) {
  bool free = true;
  std::future<void> waiting;
  {
    const auto hook = os::faults::before(Call::list, [&] { free = is_free(waiting); });
    Pairs map;
    Peer::AddExistVUFilesToMap(scratch.path(), map);
  }
  EXPECT_FALSE(free);
  ASSERT_EQ(waiting.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(Users, AnExceptionWhileListingIsAnErrorKeepsThePairsAndFreesTheMutex) {
  Pairs map = {{"kept", "1"}};
  {
    const auto fault = os::faults::throw_from(Call::list, vu_file_except("planned text"));
    Peer::AddExistVUFilesToMap(scratch.path(), map);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::AddExistFilesToMap : planned text"});
  sink.clear();
  {
    const auto fault = os::faults::throw_from(Call::list, std::runtime_error("planned"));
    Peer::AddExistVUFilesToMap(scratch.path(), map);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::AddExistFilesToMap"});
  EXPECT_EQ(map, (Pairs{{"kept", "1"}}));
  std::future<void> waiting;
  EXPECT_TRUE(is_free(waiting));
}

TEST_F(Users, EveryOperationOpensItsScopeFirst) {
  const vu_utf8string name("nobody");
  const std::vector<ScopedOperation> operations = {
      {"RenameUserStorage", trace_level::xs, "vu_storage::RenameUserStorage : nobody\tno one",
       [] { vu_storage::RenameUserStorage("nobody", "no one"); }},
      {"RemoveUserStorage", trace_level::m, "vu_storage::RemoveUserStorage : 'nobody '",
       [&] { vu_storage::RemoveUserStorage(name); }},
      {"RemoveUsersStorage", trace_level::m, "vu_storage::RemoveUsersStorage",
       [&] { vu_storage::RemoveUsersStorage({name}); }},
      {"RemoveFile", trace_level::m, "vu_storage::RemoveFile ",
       [] { vu_storage::RemoveFile("nobody", "x.kdc", STG::UserRepository, 1); }},
      {"RemoveFile", trace_level::xl, "",
       [&] { vu_storage::RemoveFile(name, name, STG::UserRepository, 1); }},
      {"AddExistVUFilesToMap", trace_level::xl, "",
       [&] {
         Pairs map;
         Peer::AddExistVUFilesToMap(scratch.path(), map);
       }},
  };
  for (const ScopedOperation& operation : operations) expect_scope_first(operation);
}

TEST_F(Users, EveryPublicOperationInitialisesTheStorage) {
  fake_temporary_files temporary(scratch.path("server"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  const vu_utf8string name("nobody");
  const std::vector<std::function<void()>> operations = {
      [] { vu_storage::RenameUserStorage("nobody", "no one"); },
      [&] { vu_storage::RemoveUserStorage(name); },
      [] { vu_storage::RemoveUsersStorage({}); },
      [] { vu_storage::RemoveFile("", "", STG::UserRepository, 1); },
      [] { vu_storage::RemoveFile(vu_utf8string(), vu_utf8string(), STG::UserRepository, 1); },
  };
  for (std::size_t n = 0; n < operations.size(); ++n) {
    SCOPED_TRACE(n);
    Peer::reset();
    operations[n]();
    EXPECT_EQ(Peer::init_done(), 1234);
    EXPECT_EQ(Peer::storage_path(), scratch.path("server"));
  }
}

}  // namespace
