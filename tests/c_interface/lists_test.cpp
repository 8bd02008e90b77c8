// Lists, key files, profiles, owners, cleaning, migration, and callbacks.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/c_interface/program_store.h"

using Names = std::vector<std::string>;

namespace {

Names sorted(Names names) {
  std::sort(names.begin(), names.end());
  return names;
}

std::int32_t stop_at_second(void* context, const vu_entry*) {
  return ++*static_cast<int*>(context) == 2 ? 1 : 0;
}

/// Queries the entry that the callback receives.
std::int32_t describe_it(void* context, const vu_entry* entry) {
  const vu_document same = document(entry->owner, entry->name, entry->info.version, entry->area);
  vu_info info = VU_INFO_INIT;
  const bool is_equal = vu_describe(store(), &same, &info) == VU_DONE &&
                        info.size == entry->info.size && info.modified == entry->info.modified &&
                        *entry->file != '\0';
  *static_cast<int*>(context) += is_equal;
  return 0;
}

std::string key_of(const vu_document& file, const char* line) {
  char value[100];
  const vu_status status = vu_key_get(store(), &file, line, value, sizeof value, nullptr);
  return status == VU_DONE ? value : vu_status_name(status);
}

std::int32_t collect_line(void* context, const char* name, const char* value) {
  static_cast<Names*>(context)->push_back(std::string(name) + "=" + value);
  return 0;
}

Names lines_of(const vu_document& file) {
  Names lines;
  if (vu_key_each(store(), &file, collect_line, &lines) != VU_DONE) lines.emplace_back("failed");
  return lines;
}

}  // namespace

TEST(CLists, DocumentsOfEveryFolderAreListed) {
  EXPECT_EQ(documents_of("lists-none"), Names{});
  Names all;
  for (const char* const name : {"a.kdf", "b.kdf", "c.kdc", "d"}) {
    for (const std::int64_t version : {3, 20}) {
      ASSERT_EQ(put(document("lists", name, version), "x"), VU_DONE);
      all.push_back(std::string(name) + "@" + std::to_string(version));
    }
  }
  EXPECT_EQ(sorted(documents_of("lists")), sorted(all));
  Names versions;
  const vu_document one = document("lists", "b.kdf");
  EXPECT_EQ(vu_each_version(store(), &one, 0, collect_entry, &versions), VU_DONE);
  EXPECT_EQ(versions, (Names{"b.kdf@3", "b.kdf@20"}));
}

TEST(CLists, ACallbackMayCallTheLibraryAndEndTheList) {
  for (const char* const name : {"a", "b", "c"})
    ASSERT_EQ(put(document("callbacks", name, 1, VU_AREA_USER), "1234"), VU_DONE);
  int equal = 0;
  EXPECT_EQ(vu_each_document(store(), VU_AREA_USER, "callbacks", VU_WITH_INFO, describe_it, &equal),
            VU_DONE);
  EXPECT_EQ(equal, 3);
  int seen = 0;
  EXPECT_EQ(vu_each_document(store(), VU_AREA_USER, "callbacks", 0, stop_at_second, &seen),
            VU_INTERRUPTED);
  EXPECT_EQ(seen, 2);
}

TEST(CLists, OwnersAreThoseWithAFolder) {
  ASSERT_EQ(put(document("owner-a", "a", 1, VU_AREA_MAIL), "x"), VU_DONE);
  ASSERT_EQ(put(document("owner-b", "a", 1, VU_AREA_MAIL), "x"), VU_DONE);
  Names owners;
  ASSERT_EQ(vu_each_owner(store(), VU_AREA_MAIL, collect_name, &owners), VU_DONE);
  EXPECT_TRUE(std::count(owners.begin(), owners.end(), "owner-a") == 1);
  EXPECT_TRUE(std::count(owners.begin(), owners.end(), "owner-b") == 1);
  EXPECT_TRUE(std::count(owners.begin(), owners.end(), "lists") == 0);
}

TEST(CKeys, LinesAreSetReadAndDeleted) {
  const vu_document file = document("keys", "settings.txt", 0, VU_AREA_USER);
  EXPECT_EQ(key_of(file, "colour"), "VU_NOTHING_MATCHED");
  EXPECT_EQ(vu_key_delete(store(), &file, "colour"), VU_NOTHING_MATCHED);
  ASSERT_EQ(vu_key_set(store(), &file, "colour", "red"), VU_DONE);
  ASSERT_EQ(vu_key_set(store(), &file, "size", "a=b"), VU_DONE);
  ASSERT_EQ(vu_key_set(store(), &file, "colour", "green"), VU_DONE);
  EXPECT_EQ(key_of(file, "colour"), "green");
  EXPECT_EQ(lines_of(file), (Names{"colour=green", "size=a=b"}));
  EXPECT_EQ(content(file), "colour=green\nsize=a=b\n");
  ASSERT_EQ(vu_key_set(store(), &file, "colour", ""), VU_DONE);
  EXPECT_EQ(key_of(file, "colour"), "");
  EXPECT_EQ(vu_key_delete(store(), &file, "colour"), VU_DONE);
  EXPECT_EQ(vu_key_delete(store(), &file, "colour"), VU_NOTHING_MATCHED);
  EXPECT_EQ(vu_key_delete(store(), &file, "size"), VU_DONE);
  EXPECT_EQ(lines_of(file), Names{});
}

TEST(CKeys, SeveralLinesOfOneNameBecomeOne) {
  const vu_document file = document("keys-twice", "settings.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(file, "a=1\nb=2\na=3\nno separator\n"), VU_DONE);
  EXPECT_EQ(key_of(file, "a"), "1");
  ASSERT_EQ(vu_key_set(store(), &file, "a", "4"), VU_DONE);
  EXPECT_EQ(lines_of(file), (Names{"a=4", "b=2"}));
  EXPECT_EQ(content(file), "a=4\nb=2\nno separator\n");
}

TEST(CKeys, LinesWithoutASeparatorStay) {
  const vu_document file = document("keys-foreign", "settings.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(file, "# comment\na=1\nfree text\n\nb=2\tafter a tab\r\na=3\nno end"), VU_DONE);
  ASSERT_EQ(vu_key_set(store(), &file, "a", "9"), VU_DONE);
  EXPECT_EQ(content(file), "# comment\na=9\nfree text\nb=2\nafter a tab\nno end\n");
  ASSERT_EQ(vu_key_delete(store(), &file, "b"), VU_DONE);
  ASSERT_EQ(vu_key_set(store(), &file, "c", "3"), VU_DONE);
  EXPECT_EQ(content(file), "# comment\na=9\nfree text\nafter a tab\nno end\nc=3\n");
}

TEST(CKeys, WhatTheFormatCannotKeepIsRefused) {
  const vu_document file = document("keys-refused", "settings.txt", 0, VU_AREA_USER);
  EXPECT_EQ(vu_key_set(store(), &file, "a=b", "x"), VU_REFUSED);
  EXPECT_EQ(vu_key_set(store(), &file, "", "x"), VU_REFUSED);
  EXPECT_EQ(vu_key_set(store(), &file, "a", "x\ny=z"), VU_REFUSED);
  EXPECT_EQ(vu_key_set(store(), &file, "a", "x\ty"), VU_REFUSED);
  EXPECT_EQ(vu_exists(store(), &file), VU_NOTHING_MATCHED);
}

TEST(CKeys, AProfileIsAKeyFileOfItsOwner) {
  char value[20];
  EXPECT_EQ(vu_profile_get(store(), "profiled", nullptr, "lang", value, sizeof value, nullptr),
            VU_NOTHING_MATCHED);
  ASSERT_EQ(vu_profile_set(store(), "profiled", nullptr, "lang", "de"), VU_DONE);
  EXPECT_EQ(vu_profile_get(store(), "profiled", nullptr, "lang", value, sizeof value, nullptr),
            VU_DONE);
  EXPECT_STREQ(value, "de");
  EXPECT_EQ(key_of(document("profiled", "profile.txt", 0, VU_AREA_USER), "lang"), "de");
  Names lines;
  EXPECT_EQ(vu_profile_each(store(), "profiled", "profile.txt", collect_line, &lines), VU_DONE);
  EXPECT_EQ(lines, Names{"lang=de"});
  EXPECT_EQ(vu_profile_delete(store(), "profiled", nullptr, "lang"), VU_DONE);
  EXPECT_EQ(vu_profile_delete(store(), "profiled", nullptr, "lang"), VU_NOTHING_MATCHED);
  // The configuration folder of this program does not exist.
  EXPECT_EQ(vu_profile_get(store(), nullptr, nullptr, "lang", value, sizeof value, nullptr),
            VU_NOTHING_MATCHED);
  EXPECT_EQ(vu_profile_set(store(), nullptr, nullptr, "lang", "de"), VU_FAILED);
}

TEST(COwners, AreRenamedAndRemovedWithEverything) {
  const vu_document mail = document("owner-old", "a", 1, VU_AREA_MAIL);
  ASSERT_EQ(put(mail, "x"), VU_DONE);
  ASSERT_EQ(put(document("owner-taken", "a", 1, VU_AREA_USER), "x"), VU_DONE);
  EXPECT_EQ(vu_rename_owner(store(), "owner-none", "owner-new"), VU_NOTHING_MATCHED);
  EXPECT_EQ(vu_rename_owner(store(), "owner-old", "owner-taken"), VU_ALREADY);
  EXPECT_EQ(vu_rename_owner(store(), "owner-old", "owner-new"), VU_DONE);
  EXPECT_EQ(vu_exists(store(), &mail), VU_NOTHING_MATCHED);
  EXPECT_EQ(content(document("owner-new", "a", 1, VU_AREA_MAIL)), "x");
  EXPECT_EQ(vu_remove_owner(store(), "owner-new"), VU_DONE);
  EXPECT_EQ(vu_remove_owner(store(), "owner-new"), VU_NOTHING_MATCHED);
  EXPECT_FALSE(folder_exists(program_store().root.path("storage\\mail\\owner-new")));
}

TEST(CClean, ReportsOldVersionsAndRemovesThem) {
  const vu_document old = document("clean", "old.kdf", 1);
  const vu_document fresh = document("clean", "new.kdf", 1);
  const scratch_folder outside;
  write_file(outside.path("old"), "x");
  set_modify_time(outside.path("old"), 1'500'000'000);
  ASSERT_EQ(vu_copy_in(store(), &old, native(outside.path("old")).string().c_str(), 0, nullptr),
            VU_DONE);
  ASSERT_EQ(put(fresh, "x"), VU_DONE);
  std::int64_t count = -1;
  Names told;
  EXPECT_EQ(
      vu_clean(store(), VU_AREA_DOCS, "clean", 3600, VU_DRY_RUN, collect_entry, &told, &count),
      VU_DONE);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(told, Names{"old.kdf@1"});
  EXPECT_EQ(documents_of("clean").size(), 2U);
  told.clear();
  EXPECT_EQ(vu_clean(store(), VU_AREA_DOCS, "clean", 3600, 0, collect_entry, &told, &count),
            VU_DONE);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(told, Names{"old.kdf@1"});
  EXPECT_EQ(documents_of("clean"), Names{"new.kdf@1"});
  EXPECT_EQ(vu_clean(store(), VU_AREA_DOCS, "clean", 0, 0, nullptr, nullptr, &count), VU_REFUSED);
  EXPECT_EQ(vu_clean(store(), VU_AREA_DOCS, "clean", 0, VU_CLEAN_ALL, nullptr, nullptr, &count),
            VU_DONE);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(documents_of("clean"), Names{});
}

TEST(CClean, ACallbackThatEndsItKeepsTheFolder) {
  ASSERT_EQ(put(document("clean-stop", "a", 1, VU_AREA_USER), "x"), VU_DONE);
  ASSERT_EQ(put(document("clean-stop", "b", 1, VU_AREA_USER), "x"), VU_DONE);
  int seen = 0;
  EXPECT_EQ(vu_clean(store(), VU_AREA_USER, "clean-stop", 0, VU_CLEAN_ALL, stop_at_second, &seen,
                     nullptr),
            VU_INTERRUPTED);
  EXPECT_EQ(documents_of("clean-stop", VU_AREA_USER).size(), 2U);
}

TEST(CMigrate, AMailFolderIsConvertedOnce) {
  EXPECT_EQ(vu_migrate_inbox(store(), "mail-none"), VU_NOTHING_MATCHED);
  const std::string folder = program_store().root.path("storage\\mail\\mail-old");
  make_folder(folder);
  write_file(folder + "\\f4#f5#x#A%20B.kdb", "mail");
  write_file(folder + "\\read.txt", "x\tA%20B\tB\tf4\tf5\tf6\t\n");
  // Without adoption the migration would mark the folder and leave the file.
  EXPECT_EQ(vu_migrate_inbox(store(), "mail-old"), VU_REFUSED);
  EXPECT_EQ(documents_of("mail-old", VU_AREA_MAIL), Names{});
  STGIndex::setSynchronizeMode(true);
  EXPECT_EQ(vu_migrate_inbox(store(), "mail-old"), VU_DONE) << last_error().text;
  STGIndex::setSynchronizeMode(false);
  EXPECT_EQ(content(document("mail-old", "f4#f5#x#A B.kdb", 0, VU_AREA_MAIL)), "mail");
  STGIndex::setSynchronizeMode(true);
  EXPECT_EQ(vu_migrate_inbox(store(), "mail-old"), VU_DONE);
  STGIndex::setSynchronizeMode(false);
}

// Callbacks that call the library, change the listed folder, close what is in use, or throw.

namespace {

using Names = std::vector<std::string>;

void put_three(const char* owner) {
  for (const char* const name : {"a", "b", "c"})
    ASSERT_EQ(put(document(owner, name, 1, VU_AREA_USER), "1234"), VU_DONE);
}

vu_status each(const char* owner, vu_entry_visitor visit, void* context) {
  return vu_each_document(store(), VU_AREA_USER, owner, 0, visit, context);
}

}  // namespace

TEST(CCallbacks, MayRemoveTheDocumentThatTheyReceive) {
  put_three("back-remove");
  const auto remove = [](void* context, const vu_entry* entry) -> std::int32_t {
    const vu_document same = document(entry->owner, entry->name, entry->info.version, entry->area);
    *static_cast<int*>(context) += vu_remove(store(), &same) == VU_DONE;
    return 0;
  };
  int removed = 0;
  EXPECT_EQ(each("back-remove", remove, &removed), VU_DONE);
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(documents_of("back-remove", VU_AREA_USER), Names{});
}

TEST(CCallbacks, MayListAgainAndStore) {
  put_three("back-nested");
  const auto nested = [](void* context, const vu_entry* entry) -> std::int32_t {
    auto* const names = static_cast<Names*>(context);
    const std::string copy = std::string(entry->name) + "-copy";
    if (put(document("back-copies", copy.c_str(), 1, VU_AREA_USER), "x") != VU_DONE) return 1;
    return each("back-nested", collect_entry, names) == VU_DONE ? 0 : 1;
  };
  Names names;
  EXPECT_EQ(each("back-nested", nested, &names), VU_DONE);
  EXPECT_EQ(names.size(), 9U);
  EXPECT_EQ(documents_of("back-copies", VU_AREA_USER), (Names{"a-copy@1", "b-copy@1", "c-copy@1"}));
}

TEST(CCallbacks, CannotCloseTheStoreThatCallsThem) {
  put_three("back-close");
  vu_status status = VU_FAILED;
  vu_store* const own = program_store().open(0, 0, status);
  struct Context {
    vu_store* store;
    vu_status closed;
  } context = {own, VU_DONE};
  const auto close = [](void* given, const vu_entry*) -> std::int32_t {
    auto* const all = static_cast<Context*>(given);
    all->closed = vu_close_store(all->store);
    return 0;
  };
  EXPECT_EQ(vu_each_document(own, VU_AREA_USER, "back-close", 0, close, &context), VU_DONE);
  EXPECT_EQ(context.closed, VU_BUSY);
  EXPECT_EQ(vu_close_store(own), VU_DONE);
}

TEST(CCallbacks, ErrorsOfTheirOwnCallsDoNotReachTheCaller) {
  put_three("back-errors");
  const auto fail_and_end = [](void* context, const vu_entry*) -> std::int32_t {
    const vu_document missing = document("back-errors", "..", 1);
    EXPECT_EQ(vu_exists(store(), &missing), VU_REFUSED);
    *static_cast<std::string*>(context) = last_error().operation;
    return 1;
  };
  std::string told;
  EXPECT_EQ(each("back-errors", fail_and_end, &told), VU_INTERRUPTED);
  EXPECT_EQ(told, "vu_exists");
  EXPECT_STREQ(last_error().operation, "vu_each_document");
  EXPECT_STREQ(last_error().text, "the callback ended the call");
  EXPECT_STREQ(last_error().path, "");
}

TEST(CCallbacks, AFailureAfterThemIsNotTheirs) {
  // The second folder of the list fails, because its index is a folder.
  ASSERT_EQ(put(document("back-later", "a.kdf", 1), "x"), VU_DONE);
  Names folders = list_folder(program_store().root.path("storage\\docs\\back-later"));
  ASSERT_EQ(folders.size(), 1U);
  const std::string broken =
      program_store().root.path("storage\\docs\\back-later\\99999999\\index.dat");
  make_folder(program_store().root.path("storage\\docs\\back-later\\99999999"));
  make_folder(broken);
  const auto refused = [](void*, const vu_entry*) -> std::int32_t {
    const vu_document missing = document("back-later", "..", 1);
    EXPECT_EQ(vu_exists(store(), &missing), VU_REFUSED);
    return 0;
  };
  EXPECT_EQ(vu_each_document(store(), VU_AREA_DOCS, "back-later", 0, refused, nullptr), VU_FAILED);
  EXPECT_STREQ(last_error().operation, "vu_each_document");
  EXPECT_NE(std::string(last_error().path).find("99999999"), std::string::npos)
      << last_error().text << last_error().path;
}

TEST(CCallbacks, AnExceptionOutOfOneEndsTheCallAndGivesTheStoreBack) {
  // Callbacks must not throw. If both sides have the same runtime, the exception becomes a failure.
  put_three("back-throw");
  vu_status status = VU_FAILED;
  vu_store* const own = program_store().open(0, 0, status);
  const auto raise = [](void*, const vu_entry*) -> std::int32_t { throw std::runtime_error("x"); };
  EXPECT_EQ(vu_each_document(own, VU_AREA_USER, "back-throw", 0, raise, nullptr), VU_FAILED);
  EXPECT_EQ(vu_close_store(own), VU_DONE);
  EXPECT_EQ(documents_of("back-throw", VU_AREA_USER).size(), 3U);
}
