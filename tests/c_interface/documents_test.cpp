// Stores and documents. The first cases test stores: opening, versions, the last error, traces.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/c_interface/program_store.h"
#include "tests/support/real_kernel.h"
#include "vu_file.h"

TEST(CStore, ReturnsItsVersion) {
  EXPECT_EQ(vu_version_number(), VU_VERSION_NUMBER);
  EXPECT_STREQ(vu_version(), VU_PROJECT_VERSION);
  EXPECT_EQ(vu_version(), std::to_string(VU_VERSION_MAJOR) + "." +
                              std::to_string(VU_VERSION_MINOR) + "." +
                              std::to_string(VU_VERSION_PATCH));
}

TEST(CStore, EveryStatusHasItsName) {
  EXPECT_STREQ(vu_status_name(VU_DONE), "VU_DONE");
  EXPECT_STREQ(vu_status_name(VU_LOCK_TIMEOUT), "VU_LOCK_TIMEOUT");
  EXPECT_STREQ(vu_status_name(VU_INTERRUPTED), "VU_INTERRUPTED");
  EXPECT_STREQ(vu_status_name(77), "?");
  EXPECT_STREQ(vu_status_name(VU_FAILED), "VU_FAILED");
  EXPECT_STREQ(vu_status_name(VU_PARTLY_DONE), "VU_PARTLY_DONE");
  EXPECT_STREQ(vu_status_name(VU_NO_MEMORY), "VU_NO_MEMORY");
}

TEST(CStore, TheFirstOpeningInitialisesAndALaterOneJoins) {
  EXPECT_EQ(program_store().opened, VU_DONE);
  vu_status status = VU_FAILED;
  vu_store* const second = program_store().open(0, 0, status);
  EXPECT_EQ(status, VU_ALREADY);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(vu_close_store(second), VU_DONE);
  EXPECT_EQ(vu_close_store(second), VU_BAD_HANDLE);
  EXPECT_EQ(vu_folder(store(), 0, nullptr, 0, nullptr), VU_USAGE);
}

TEST(CStore, ANullRootJoinsTheStorageInForce) {
  ASSERT_NE(store(), nullptr);
  const vu_settings settings = VU_SETTINGS_INIT;
  vu_store* joined = nullptr;
  EXPECT_EQ(vu_open_store(&settings, &joined), VU_ALREADY);
  EXPECT_STREQ(last_error().text, "the storage is open already; use this handle, and close it too");
  const std::string in_use = last_error().path;
  char folder[2000];
  EXPECT_EQ(vu_folder(store(), 0, folder, sizeof folder, nullptr), VU_DONE);
  EXPECT_EQ(in_use, folder);
  EXPECT_EQ(vu_close_store(joined), VU_DONE);
}

TEST(CStore, ARootIsMadeWhereItsPathLeadsAndNotBelowTheCurrentFolder) {
  // Two leading separators belong to a share or to the prefix for long paths.
  const scratch_folder where;
  const std::string below = native(where.path()).string();
#if defined(_WIN32)
  const std::string root = "\\\\?\\" + below + "\\new\\root";
#else
  const std::string root = "/" + below + "/new/root";
#endif
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = root.c_str();
  settings.flags = VU_MAKE_ROOT;
  vu_store* handle = nullptr;
  // The storage of this program has another root.
  ASSERT_NE(store(), nullptr);
  EXPECT_EQ(vu_open_store(&settings, &handle), VU_REFUSED);
  EXPECT_TRUE(folder_exists(where.path("new\\root")));
  const std::filesystem::path stray =
      std::filesystem::current_path() / std::filesystem::path(below).relative_path() / "new";
  EXPECT_EQ(std::filesystem::exists(stray), stray == std::filesystem::path(below) / "new");
}

TEST(CStore, AnotherRootOrLayoutIsRefusedAndTheCurrentOneNamed) {
  ASSERT_NE(store(), nullptr);
  const scratch_folder other;
  const std::string path = native(other.path()).string();
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = path.c_str();
  vu_store* handle = store();
  EXPECT_EQ(vu_open_store(&settings, &handle), VU_REFUSED);
  EXPECT_EQ(handle, nullptr);
  EXPECT_NE(std::string(last_error().path).find("storage"), std::string::npos);
  vu_status status = VU_DONE;
  EXPECT_EQ(program_store().open(VU_SHARED_FOLDERS, 0, status), nullptr);
  EXPECT_EQ(status, VU_REFUSED);
}

TEST(CStore, ALargerErrorOfALaterHeaderIsFilled) {
  struct Later {
    vu_error known;
    const char* news;
  };
  Later later = {VU_ERROR_INIT, "untouched"};
  later.known.struct_size = sizeof later;
  EXPECT_EQ(vu_close_store(nullptr), VU_BAD_HANDLE);
  EXPECT_EQ(vu_last_error(&later.known), VU_DONE);
  EXPECT_EQ(later.known.struct_size, sizeof later);
  EXPECT_STREQ(later.known.operation, "vu_close_store");
  EXPECT_STREQ(later.news, "untouched");
}

TEST(CStore, AMissingRootIsNotAStorageTree) {
  vu_settings settings = VU_SETTINGS_INIT;
  const std::string missing = program_store().native_root + "/missing/root";
  settings.root = missing.c_str();
  vu_store* handle = nullptr;
  EXPECT_EQ(vu_open_store(&settings, &handle), VU_NO_TREE);
}

TEST(CStore, FoldersComeWithTheSystemsSeparators) {
  std::size_t needed = 0;
  ASSERT_EQ(vu_folder(store(), VU_AREA_DOCS, nullptr, 0, &needed), VU_DONE);
  std::string path(needed + 1, '?');
  ASSERT_EQ(vu_folder(store(), VU_AREA_DOCS, path.data(), path.size(), &needed), VU_DONE);
  path.pop_back();
  EXPECT_TRUE(folder_exists(path)) << path;
  EXPECT_EQ(path, (std::filesystem::path(program_store().native_root) / "storage" / "docs")
                      .make_preferred()
                      .string());
  std::string shorter(needed, '?');
  std::size_t again = 0;
  EXPECT_EQ(vu_folder(store(), VU_AREA_DOCS, shorter.data(), shorter.size(), &again), VU_TOO_SHORT);
  EXPECT_EQ(again, needed);
  EXPECT_EQ(shorter, std::string(needed, '?'));
}

TEST(CStore, TheLastErrorIsTheThreadsOwn) {
  const vu_document missing = document("none", "a.kdf");
  EXPECT_EQ(vu_exists(store(), &missing), VU_NOTHING_MATCHED);
  std::thread([] {
    EXPECT_EQ(vu_close_store(nullptr), VU_BAD_HANDLE);
    EXPECT_STREQ(last_error().operation, "vu_close_store");
  }).join();
  const vu_error error = last_error();
  EXPECT_EQ(error.status, VU_NOTHING_MATCHED);
  EXPECT_STREQ(error.operation, "vu_exists");
  EXPECT_STREQ(error.text, "there is no such version");
  EXPECT_EQ(error.system_code, 0);
  EXPECT_STREQ(error.system_text, "");
}

TEST(CStore, TheLastErrorContainsThePathAndTheSystemsReason) {
  const vu_document where = document("anna-locked-out", "a.kdf", 1);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  const std::string path = make_unopenable(where);
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(store(), &where, VU_WRITE_OVER, &stream), VU_FAILED);
  EXPECT_EQ(stream, nullptr);
  const vu_error error = last_error();
  EXPECT_EQ(error.path, path);
  EXPECT_NE(error.system_code, 0);
  EXPECT_STRNE(error.system_text, "");
  EXPECT_EQ(std::string(error.text).rfind("open o_read", 0), 0U) << error.text;
}

TEST(CStore, ASuccessClearsTheLastError) {
  EXPECT_EQ(vu_close_store(nullptr), VU_BAD_HANDLE);
  const vu_document where = document("clears", "a.kdf", 1);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  EXPECT_EQ(last_error().status, VU_DONE);
  EXPECT_STREQ(last_error().text, "");
}

namespace {

struct Traced {
  int scopes = 0;
  int records = 0;
  int failures = 0;
  std::string text;
};

void count_trace(void* context, const vu_trace* record) {
  auto* const traced = static_cast<Traced*>(context);
  traced->scopes += record->kind == VU_KIND_SCOPE_BEGIN;
  traced->records += record->kind == VU_KIND_RECORD;
  traced->failures += record->kind == VU_KIND_FAILURE;
  if (record->kind == VU_KIND_FAILURE) traced->text.assign(record->text, record->text_size);
}

}  // namespace

TEST(CStore, TracesGoToTheCallbackUpToItsLevel) {
  const vu_document where = document("traced", "a.kdf", 1);
  Traced traced;
  ASSERT_EQ(vu_set_trace(count_trace, &traced, 4), VU_DONE);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  EXPECT_GT(traced.scopes, 0);
  EXPECT_GT(traced.records, 0);
  traced = {};
  ASSERT_EQ(vu_set_trace(count_trace, &traced, -1), VU_DONE);
  const vu_document part = document("traced", "b.kdf", 1);
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(store(), &part, VU_READ_EXACT, &stream), VU_NOTHING_MATCHED);
  EXPECT_EQ(traced.scopes + traced.records, 0);
  EXPECT_EQ(vu_set_trace(count_trace, &traced, 5), VU_USAGE);
  EXPECT_EQ(vu_set_trace(nullptr, nullptr, 0), VU_DONE);
}

// Storing, reading, describing, copying, renaming and removing documents.

using Names = std::vector<std::string>;

TEST(CDocuments, WhatIsPutIsReadInEveryAreaAndVersion) {
  for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS, VU_AREA_MAIL}) {
    for (const char* const name : {"a.kdf", "a.kdc", "no extension",
                                   "gr\xC3\xBC\xC3\x9F"
                                   "e.kdc"}) {
      for (const std::int64_t version :
           {std::int64_t{0}, std::int64_t{7}, std::int64_t{2147483647}}) {
        const vu_document where = document("everywhere", name, version, area);
        const std::string bytes = name + std::to_string(version) + std::string("\0\n", 2);
        ASSERT_EQ(put(where, bytes), VU_DONE) << name << last_error().text;
        EXPECT_EQ(content(where), bytes);
        EXPECT_EQ(vu_exists(store(), &where), VU_DONE);
      }
    }
  }
}

TEST(CDocuments, AnEmptyDocumentAndALargeOneKeepTheirBytes) {
  const vu_document empty = document("sizes", "empty.kdf", 1);
  EXPECT_EQ(vu_put(store(), &empty, nullptr, 0, 0, nullptr), VU_DONE);
  EXPECT_EQ(content(empty), "");
  std::string bytes(3'000'001, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 >> 3);
  const vu_document large = document("sizes", "large.kdf", 1);
  EXPECT_EQ(put(large, bytes), VU_DONE);
  EXPECT_EQ(content(large), bytes);
}

TEST(CDocuments, PutReportsHowItStored) {
  const vu_document where = document("how", "a.kdf", 1);
  std::int32_t how = 0;
  EXPECT_EQ(vu_put(store(), &where, "one", 3, 0, &how), VU_DONE);
  EXPECT_EQ(how, VU_STORED_AT_ONCE);
  EXPECT_EQ(vu_put(store(), &where, "two", 3, VU_REPLACE | VU_IN_PLACE, &how), VU_DONE);
  EXPECT_EQ(how, VU_STORED_IN_PLACE);
  EXPECT_EQ(content(where), "two");
}

TEST(CDocuments, AnExistingVersionIsReplacedOnRequestOnly) {
  const vu_document where = document("replace", "a.kdc", 5);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  EXPECT_EQ(put(where, "new"), VU_ALREADY);
  EXPECT_EQ(content(where), "old");
  EXPECT_EQ(put(where, "new", VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(where), "new");
  EXPECT_EQ(documents_of("replace"), Names{"a.kdc@5"});
}

TEST(CDocuments, ReplacingLeavesOneFileAndTakesThePartsAway) {
  const vu_document where = document("parts-go", "a.kdf", 5);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_WRITE_OVER, &stream), VU_DONE);
  ASSERT_EQ(vu_stream_close(stream), VU_DONE);
  const std::string path = path_of(where);
  ASSERT_TRUE(folder_exists(path + "_"));
  ASSERT_EQ(put(where, "new", VU_REPLACE), VU_DONE);
  EXPECT_FALSE(folder_exists(path + "_"));
  const std::string folder = path.substr(0, path.find_last_of("/\\"));
  Names files = list_folder(folder);
  EXPECT_EQ(files.size(), 3U) << testing::PrintToString(files);  // index, index.dat, the document
}

TEST(CDocuments, ReadFillsTheCallersBuffer) {
  const vu_document where = document("buffer", "a.kdf", 1);
  ASSERT_EQ(put(where, "12345"), VU_DONE);
  std::size_t size = 0;
  ASSERT_EQ(vu_read(store(), &where, nullptr, 0, &size), VU_DONE);
  EXPECT_EQ(size, 5U);
  std::string bytes(4, '?');
  EXPECT_EQ(vu_read(store(), &where, bytes.data(), bytes.size(), &size), VU_TOO_SHORT);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(bytes, "????");
  bytes.assign(6, '?');
  EXPECT_EQ(vu_read(store(), &where, bytes.data(), bytes.size(), &size), VU_DONE);
  EXPECT_EQ(bytes, "12345?");
}

TEST(CDocuments, DescribeReturnsSizeTimesAndVersion) {
  const vu_document where = document("describe", "a.kdf", 3);
  ASSERT_EQ(put(where, "1234567"), VU_DONE);
  const vu_document latest = document("describe", "a.kdf", VU_LATEST);
  vu_info info = VU_INFO_INIT;
  ASSERT_EQ(vu_describe(store(), &latest, &info), VU_DONE);
  EXPECT_EQ(info.version, 3);
  EXPECT_EQ(info.size, 7);
  EXPECT_GT(info.modified, 1'600'000'000);
  EXPECT_GT(info.accessed, 1'600'000'000);
  const vu_document missing = document("describe", "b.kdf", 3);
  EXPECT_EQ(vu_describe(store(), &missing, &info), VU_NOTHING_MATCHED);
}

TEST(CDocuments, TheLatestVersionIsTheGreatest) {
  std::int64_t version = -5;
  const vu_document any = document("latest", "a.kdf");
  EXPECT_EQ(vu_latest(store(), &any, &version), VU_NOTHING_MATCHED);
  EXPECT_EQ(version, -5);
  for (const std::int64_t one : {9, 100, 20})
    ASSERT_EQ(put(document("latest", "a.kdf", one), "x"), VU_DONE);
  EXPECT_EQ(vu_latest(store(), &any, &version), VU_DONE);
  EXPECT_EQ(version, 100);
}

TEST(CDocuments, RemoveTakesTheVersionThatIsNamed) {
  ASSERT_EQ(put(document("remove", "a.kdf", 1), "x"), VU_DONE);
  ASSERT_EQ(put(document("remove", "a.kdf", 2), "x"), VU_DONE);
  const vu_document first = document("remove", "a.kdf", 1);
  EXPECT_EQ(vu_remove(store(), &first), VU_DONE);
  EXPECT_EQ(documents_of("remove"), Names{"a.kdf@2"});
  EXPECT_EQ(vu_remove(store(), &first), VU_NOTHING_MATCHED);
  const vu_document latest = document("remove", "a.kdf", VU_LATEST);
  EXPECT_EQ(vu_remove(store(), &latest), VU_DONE);
  EXPECT_EQ(documents_of("remove"), Names{});
}

TEST(CDocuments, RenameMovesWithinAFolderAndBetweenFolders) {
  const vu_document from = document("rename", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(from, "bytes"), VU_DONE);
  const vu_document near = document("rename", "b.txt", 2, VU_AREA_USER);
  EXPECT_EQ(vu_rename(store(), &from, &near, 0), VU_DONE);
  EXPECT_EQ(content(near), "bytes");
  EXPECT_EQ(vu_exists(store(), &from), VU_NOTHING_MATCHED);
  const vu_document far = document("rename-2", "c.kdf", 3);
  EXPECT_EQ(vu_rename(store(), &near, &far, 0), VU_DONE);
  EXPECT_EQ(content(far), "bytes");
  EXPECT_EQ(vu_exists(store(), &near), VU_NOTHING_MATCHED);
  EXPECT_EQ(vu_rename(store(), &near, &far, 0), VU_NOTHING_MATCHED);
}

TEST(CDocuments, RenameReplacesOnRequestOnly) {
  const vu_document from = document("rename-over", "a.txt", 1, VU_AREA_USER);
  const vu_document to = document("rename-over", "b.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(from, "new"), VU_DONE);
  ASSERT_EQ(put(to, "old"), VU_DONE);
  EXPECT_EQ(vu_rename(store(), &from, &to, 0), VU_ALREADY);
  EXPECT_EQ(content(to), "old");
  EXPECT_EQ(vu_rename(store(), &from, &to, VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(to), "new");
  EXPECT_EQ(documents_of("rename-over", VU_AREA_USER), Names{"b.txt@1"});
}

TEST(CDocuments, FilesAreCopiedInAndOutWithTheirTime) {
  const scratch_folder outside;
  write_file(outside.path("in"), "from outside");
  set_modify_time(outside.path("in"), 1'500'000'000);
  const std::string in = native(outside.path("in")).string();
  const std::string out = native(outside.path("out")).string();
  const vu_document where = document("copies", "a.kdf", 1);
  for (const std::uint32_t flags :
       {std::uint32_t{0}, std::uint32_t{VU_REPLACE}, std::uint32_t{VU_REPLACE | VU_IN_PLACE}}) {
    std::int32_t how = 0;
    ASSERT_EQ(vu_copy_in(store(), &where, in.c_str(), flags, &how), VU_DONE) << last_error().text;
    EXPECT_EQ(how, (flags & VU_IN_PLACE) != 0 ? VU_STORED_IN_PLACE : VU_STORED_AT_ONCE);
    EXPECT_EQ(content(where), "from outside");
    vu_info info = VU_INFO_INIT;
    ASSERT_EQ(vu_describe(store(), &where, &info), VU_DONE);
    EXPECT_EQ(info.modified, 1'500'000'000);
  }
  EXPECT_EQ(vu_copy_in(store(), &where, in.c_str(), 0, nullptr), VU_ALREADY);
  EXPECT_EQ(vu_copy_out(store(), &where, out.c_str(), 0), VU_DONE);
  EXPECT_EQ(read_file(outside.path("out")), "from outside");
  EXPECT_EQ(get_modify_time(outside.path("out")), 1'500'000'000);
  EXPECT_EQ(vu_copy_out(store(), &where, out.c_str(), 0), VU_ALREADY);
  EXPECT_EQ(vu_copy_out(store(), &where, out.c_str(), VU_REPLACE), VU_DONE);
  const std::string missing = out + ".missing";
  EXPECT_EQ(vu_copy_in(store(), &where, missing.c_str(), VU_REPLACE, nullptr), VU_NOTHING_MATCHED);
  EXPECT_EQ(content(where), "from outside");
}

TEST(CDocuments, AFolderThatCannotBeWrittenFailsAndKeepsTheOldVersion) {
  const vu_document where = document("kept", "a.kdf", 1);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  const scratch_folder outside;
  make_folder(outside.path("folder"));
  const std::string folder = native(outside.path("folder")).string();
  EXPECT_EQ(vu_copy_in(store(), &where, folder.c_str(), VU_REPLACE, nullptr), VU_FAILED);
  EXPECT_NE(last_error().system_code, 0);
  EXPECT_EQ(content(where), "old");
  EXPECT_EQ(documents_of("kept"), Names{"a.kdf@1"});
}

TEST(CDocuments, AFileThatBearsTheNameIsReplacedInPlace) {
  const vu_document where = document("shadow", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(document("shadow", "other.txt", 1, VU_AREA_USER), "x"), VU_DONE);
  const std::string folder = program_store().root.path("storage\\user\\shadow");
  write_file(folder + "\\a.txt", "bare");
  EXPECT_EQ(content(where), "bare");
  std::int32_t how = 0;
  EXPECT_EQ(vu_put(store(), &where, "new", 3, VU_REPLACE, &how), VU_DONE);
  EXPECT_EQ(how, VU_STORED_IN_PLACE);
  EXPECT_EQ(content(where), "new");
}

TEST(CDocuments, ACopyInPlaceThatCannotBeMadeLeavesTheOldBytes) {
  const vu_document numbered = document("copy-source", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(numbered, "precious"), VU_DONE);
  // The file of the other one bears its name: it is always written in place.
  const std::string folder = program_store().root.path("storage\\user\\copy-source");
  write_file(folder + "\\own.txt", "precious");
  const vu_document own = document("copy-source", "own.txt", 1, VU_AREA_USER);
  const scratch_folder outside;
  make_folder(outside.path("folder"));
  write_file(outside.path("locked"), "x");
  vu_file writer(outside.path(), "locked");
  writer.open(vu_file::o_append);
#if !defined(_WIN32)
  std::filesystem::create_symlink(native(path_of(numbered)), native(outside.path("link")));
  std::filesystem::create_hard_link(native(path_of(own)), native(outside.path("second")));
#endif
  const auto copy = [&](const vu_document& where, const std::string& path) {
    const std::uint32_t flags = VU_REPLACE | VU_IN_PLACE;
    EXPECT_EQ(name_of(vu_copy_in(store(), &where, path.c_str(), flags, nullptr)), "VU_FAILED")
        << path;
    EXPECT_EQ(content(where), "precious") << path;
  };
  for (const vu_document& where : {numbered, own}) {
    copy(where, path_of(where));
    copy(where, native(outside.path("folder")).string());
    if (!is_emulated()) copy(where, native(outside.path("locked")).string());
  }
#if !defined(_WIN32)
  copy(numbered, native(outside.path("link")).string());
  copy(own, native(outside.path("second")).string());
#endif
  writer.close();
  // Without the flag the file of the name is written in place, too.
  EXPECT_EQ(vu_copy_in(store(), &own, path_of(own).c_str(), VU_REPLACE, nullptr), VU_FAILED);
  EXPECT_EQ(content(own), "precious");
  // Its own file is a source like any other if the version gets a new one.
  EXPECT_EQ(vu_copy_in(store(), &numbered, path_of(numbered).c_str(), VU_REPLACE, nullptr),
            VU_DONE);
  EXPECT_EQ(content(numbered), "precious");
  EXPECT_EQ(vu_copy_in(store(), &own, path_of(numbered).c_str(), VU_REPLACE, nullptr), VU_DONE);
}

TEST(CDocuments, TheFileOfAnotherDocumentIsNotAValidName) {
  const vu_document where = document("stored-name", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  const std::string path = path_of(where);
  const std::string file = path.substr(path.find_last_of("/\\") + 1);
  for (const std::int64_t version : {0, 1}) {
    const vu_document same = document("stored-name", file.c_str(), version, VU_AREA_USER);
    EXPECT_EQ(vu_exists(store(), &same), VU_REFUSED);
    EXPECT_EQ(put(same, "x", VU_REPLACE), VU_REFUSED);
    EXPECT_EQ(vu_remove(store(), &same), VU_REFUSED);
    vu_stream* stream = nullptr;
    EXPECT_EQ(vu_open(store(), &same, VU_WRITE_OVER, &stream), VU_REFUSED);
    EXPECT_EQ(vu_open(store(), &same, VU_READ_SERVED, &stream), VU_REFUSED);
    EXPECT_EQ(vu_key_set(store(), &same, "a", "b"), VU_REFUSED);
    EXPECT_EQ(vu_profile_set(store(), "stored-name", file.c_str(), "a", "b"), VU_REFUSED);
  }
  EXPECT_EQ(content(where), "bytes");
  // A name that is not a physical name here is a normal name, also one of digits.
  const vu_document dated = document("stored-name", "20240501.txt", 1, VU_AREA_USER);
  EXPECT_EQ(put(dated, "dated"), VU_DONE);
  EXPECT_EQ(content(dated), "dated");
}

TEST(CDocuments, DescribeLeavesTheCallersSizeOfTheStructure) {
  struct Later {
    vu_info known;
    std::int64_t news[2];
  };
  const vu_document where = document("describe-later", "a.kdf", 3);
  ASSERT_EQ(put(where, "1234567"), VU_DONE);
  Later later = {VU_INFO_INIT, {0, 0}};
  later.known.struct_size = sizeof later;
  ASSERT_EQ(vu_describe(store(), &where, &later.known), VU_DONE);
  EXPECT_EQ(later.known.struct_size, sizeof later);
  EXPECT_EQ(later.known.size, 7);
}

TEST(CDocuments, ACopyIntoAFolderThatIsMissingFailsAndNamesIt) {
  const vu_document where = document("copy-nowhere", "a.kdf", 1);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  const std::string out = program_store().native_root + "/no such folder/out";
  EXPECT_EQ(vu_copy_out(store(), &where, out.c_str(), 0), VU_FAILED);
  EXPECT_NE(std::string(last_error().path).find("no such folder"), std::string::npos);
  EXPECT_NE(last_error().system_code, 0);
  const vu_document missing = document("copy-nowhere", "b.kdf", 1);
  EXPECT_EQ(vu_copy_out(store(), &missing, out.c_str(), 0), VU_NOTHING_MATCHED);
}

TEST(CDocuments, ACopyOntoAFolderFailsAndNamesIt) {
  const vu_document where = document("copy-onto", "a.kdf", 1);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  const scratch_folder outside;
  const std::string out = native(outside.path()).string();
  for (const std::uint32_t flags : {0U, std::uint32_t{VU_REPLACE}}) {
    EXPECT_EQ(vu_copy_out(store(), &where, out.c_str(), flags), VU_FAILED) << flags;
    EXPECT_STREQ(last_error().text, "the target is a folder; name a file in it");
    EXPECT_EQ(std::string(last_error().path), out);
    EXPECT_NE(last_error().system_code, 0);
  }
  EXPECT_TRUE(folder_exists(outside.path()));
  EXPECT_EQ(content(where), "bytes");
}

TEST(CDocuments, AReadOnlyFileIsCopiedInAndReplacedAgain) {
  const scratch_folder outside;
  write_file(outside.path("in"), "read-only");
  make_read_only(outside.path("in"));
  const std::string in = native(outside.path("in")).string();
  const vu_document where = document("copy-read-only", "a.kdf", 1);
  ASSERT_EQ(vu_copy_in(store(), &where, in.c_str(), 0, nullptr), VU_DONE) << last_error().text;
  EXPECT_EQ(content(where), "read-only");
  EXPECT_EQ(put(where, "new", VU_REPLACE), VU_DONE) << last_error().text;
  EXPECT_EQ(content(where), "new");
  EXPECT_EQ(documents_of("copy-read-only"), Names{"a.kdf@1"});
}
