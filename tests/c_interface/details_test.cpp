#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/c_interface/program_store.h"
#include "tests/support/process.h"

// Edge cases of single calls; owners that share folders; two processes.

namespace {

using Names = std::vector<std::string>;

}  // namespace

TEST(CDetails, ABufferThatIsJustLargeEnoughIsFilled) {
  const vu_document where = document("details", "just.kdf", 1);
  ASSERT_EQ(put(where, "12345"), VU_DONE);
  char bytes[5] = {};
  std::size_t size = 0;
  EXPECT_EQ(vu_read(store(), &where, bytes, 5, &size), VU_DONE);
  EXPECT_EQ(std::string(bytes, 5), "12345");
  std::string path = path_of(where);
  std::string same(path.size() + 1, '?');
  EXPECT_EQ(vu_file_path(store(), &where, same.data(), same.size(), &size), VU_DONE);
  EXPECT_EQ(vu_file_path(store(), &where, same.data(), path.size(), &size), VU_TOO_SHORT);
}

TEST(CDetails, ANulFollowsWhatIsReadWhole) {
  const vu_document where = document("details", "ended.kdf", 1);
  for (std::size_t length = 0; length < 40; ++length) {
    ASSERT_EQ(put(where, std::string(length, 'x'), VU_REPLACE), VU_DONE);
    // The next allocation probably returns this dirty memory.
    void* const dirty = std::malloc(length + 1);
    std::memset(dirty, 0x7F, length + 1);
    std::free(dirty);
    void* bytes = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(vu_read_whole(store(), &where, &bytes, &size), VU_DONE);
    EXPECT_EQ(std::strlen(static_cast<const char*>(bytes)), length);
    vu_free(bytes);
  }
}

TEST(CDetails, TextsOfErrorsAreCutBetweenCharacters) {
  for (const char* const shift : {"", "x", "xy"}) {
    std::string owner = shift;
    for (int i = 0; i < 500; ++i) owner += "\xE8\xA1\xA8";
    const std::string refused = owner + "/";
    const vu_document named = document(refused.c_str(), "a.kdf", 1);
    EXPECT_EQ(vu_exists(store(), &named), VU_REFUSED);
    const std::string told = last_error().path;
    EXPECT_EQ(told, owner.substr(0, told.size()));
    EXPECT_EQ((told.size() - std::strlen(shift)) % 3, 0U);
    EXPECT_GT(told.size(), 1018U);
    EXPECT_LT(told.size(), 1024U);
  }
}

TEST(CDetails, ARootMayEndInSeparators) {
  vu_settings settings = VU_SETTINGS_INIT;
  for (const char* const end : {"/", "\\", "//", "/."}) {
    const std::string root = program_store().native_root + end;
    settings.root = root.c_str();
    vu_store* joined = nullptr;
    EXPECT_EQ(name_of(vu_open_store(&settings, &joined)), "VU_ALREADY") << end;
    EXPECT_EQ(vu_close_store(joined), VU_DONE);
  }
}

TEST(CDetails, TheFolderOfSubPartsIsNotAValidName) {
  const vu_document where = document("details-parts", "a.kdf", 1);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open_part(store(), &where, "html@a", "p", VU_WRITE_OVER, &stream), VU_DONE);
  ASSERT_EQ(vu_stream_close(stream), VU_DONE);
  const std::filesystem::path folder = native(path_of(where) + "_");
  // In the bucket of that document.
  const std::string moved = program_store().root.path("storage\\user\\details-parts");
  make_folder(moved);
  std::filesystem::rename(folder, native(moved) / folder.filename());
  const std::string name = folder.filename().string();
  const vu_document same = document("details-parts", name.c_str(), 1, VU_AREA_USER);
  EXPECT_EQ(name_of(vu_exists(store(), &same)), "VU_REFUSED");
  const vu_document other = document("details-parts", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(other, "x"), VU_DONE);
  EXPECT_EQ(vu_open_part(store(), &other, "html@a", "p", VU_WRITE_OVER, &stream), VU_USAGE);
}

TEST(CDetails, ADocumentAsNewAsRequestedIsServed) {
  const vu_document where = document("details-served", "a.kdc", 0);
  ASSERT_EQ(put(where, "page"), VU_DONE);
  set_modify_time(path_of(where), 1'500'000'000);
  vu_stream* stream = nullptr;
  vu_document asked = document("details-served", "a.kdc", 1'500'000'000);
  EXPECT_EQ(vu_open(store(), &asked, VU_READ_SERVED, &stream), VU_DONE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  asked.version += 1;
  EXPECT_EQ(vu_open(store(), &asked, VU_READ_SERVED, &stream), VU_OUTDATED);
}

TEST(CDetails, LinesThatNameADocumentGoWithIt) {
  const vu_document where = document("details-lines", "a.txt", 0, VU_AREA_USER);
  const vu_document category = document("details-lines", "list.ctg", 0, VU_AREA_USER);
  const vu_document attributes = document("details-lines", "attribut.txt", 0, VU_AREA_USER);
  const auto has_line = [&](const vu_document& file) {
    return vu_key_get(store(), &file, "a.txt", nullptr, 0, nullptr) != VU_NOTHING_MATCHED;
  };
  for (const bool replaces : {true, false}) {
    ASSERT_EQ(put(where, "x", VU_REPLACE), VU_DONE);
    ASSERT_EQ(vu_key_set(store(), &category, "a.txt", "1"), VU_DONE);
    ASSERT_EQ(vu_key_set(store(), &attributes, "a.txt", "1"), VU_DONE);
    ASSERT_TRUE(has_line(category));
    if (replaces) {
      ASSERT_EQ(put(where, "new", VU_REPLACE), VU_DONE);
    } else {
      ASSERT_EQ(vu_remove(store(), &where), VU_DONE);
    }
    EXPECT_FALSE(has_line(category)) << replaces;
    EXPECT_EQ(has_line(attributes), replaces);
  }
}

TEST(CDetails, ANameForItselfChangesNothing) {
  const vu_document where = document("details-same", "a.txt", 1, VU_AREA_USER);
  const vu_document latest = document("details-same", "a.txt", VU_LATEST, VU_AREA_USER);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  const std::string path = path_of(where);
  EXPECT_EQ(vu_rename(store(), &where, &where, 0), VU_DONE);
  EXPECT_EQ(vu_rename(store(), &latest, &where, VU_REPLACE), VU_DONE);
  EXPECT_EQ(path_of(where), path);
  EXPECT_EQ(content(where), "bytes");
  EXPECT_EQ(documents_of("details-same", VU_AREA_USER), Names{"a.txt@1"});
}

TEST(CDetails, ANewKeyFileDoesNotBeginWithForeignBytes) {
  const vu_document first = document("details-orphan", "a.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(first, "x"), VU_DONE);
  const std::string folder = program_store().root.path("storage\\user\\details-orphan");
  for (int number = 2; number < 9; ++number)
    write_file(folder + "\\0000000" + std::to_string(number) + ".ini", "left=behind\n");
  const vu_document file = document("details-orphan", "keys.ini", 0, VU_AREA_USER);
  ASSERT_EQ(vu_key_set(store(), &file, "a", "b"), VU_DONE);
  EXPECT_EQ(content(file), "a=b\n");
}

TEST(CDetails, OnlyBucketsHoldCorporateDocuments) {
  ASSERT_EQ(put(document("details-buckets", "a.kdf", 1), "x"), VU_DONE);
  const std::string other = program_store().root.path("storage\\docs\\details-buckets\\other");
  make_folder(other);
  write_file(other + "\\00000001.kdf", "x");
  write_file(other + "\\index.dat", "b.kdf_0000000001/00000001\n");
  EXPECT_EQ(documents_of("details-buckets"), Names{"a.kdf@1"});
}

TEST(CDetails, VersionsOnTheirWayAreNotListed) {
  ASSERT_EQ(put(document("details-staged", "a.txt", 1, VU_AREA_USER), "x"), VU_DONE);
  vu_status status = VU_FAILED;
  vu_store* const bare = program_store().open(VU_NO_GUARD, 0, status);
  const vu_document staged = document("details-staged", ".vu-storing-1.txt", 1, VU_AREA_USER);
  ASSERT_EQ(vu_put(bare, &staged, "left", 4, VU_IN_PLACE, nullptr), VU_DONE);
  EXPECT_EQ(documents_of("details-staged", VU_AREA_USER), Names{"a.txt@1"});
  // A clean by age removes it like any other version.
  std::int64_t count = 0;
  EXPECT_EQ(
      vu_clean(store(), VU_AREA_USER, "details-staged", 0, VU_CLEAN_ALL, nullptr, nullptr, &count),
      VU_DONE);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

TEST(CDetails, CleaningUsesTheRequestedAge) {
  const vu_document where = document("details-age", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  // The last change is long ago; the last read is now.
  set_modify_time(path_of(where), 1'500'000'000);
  EXPECT_EQ(content(where), "x");
  const auto outdated = [&](std::uint32_t flags) {
    std::int64_t count = -1;
    EXPECT_EQ(vu_clean(store(), VU_AREA_USER, "details-age", 3600, VU_DRY_RUN | flags, nullptr,
                       nullptr, &count),
              VU_DONE);
    return count;
  };
  vu_info info = VU_INFO_INIT;
  ASSERT_EQ(vu_describe(store(), &where, &info), VU_DONE);
  EXPECT_EQ(outdated(0), 1);
  EXPECT_EQ(outdated(VU_BY_ACCESS), info.accessed < 1'600'000'000 ? 1 : 0);
}

namespace {

/// A process whose owners share folders. @return 0, or the number of the line that fails.
int owners_share_folders(const std::vector<std::string>& args) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = args.at(0).c_str();
  settings.flags = VU_SHARED_FOLDERS;
  vu_store* shared = nullptr;
  if (vu_open_store(&settings, &shared) != VU_DONE) return __LINE__ % 100;
  const vu_document nobodys = document(nullptr, "a.txt", 1, VU_AREA_USER);
  const vu_document annas = document("anna", "a.txt", 1, VU_AREA_USER);
  if (vu_put(shared, &nobodys, "x", 1, 0, nullptr) != VU_DONE) return __LINE__ % 100;
  if (vu_put(shared, &annas, "x", 1, 0, nullptr) != VU_ALREADY) return __LINE__ % 100;
  Names names;
  if (vu_each_document(shared, VU_AREA_USER, nullptr, 0, collect_entry, &names) != VU_DONE ||
      names != Names{"a.txt@1"})
    return __LINE__ % 100;
  names.clear();
  if (vu_each_owner(shared, VU_AREA_USER, collect_name, &names) != VU_DONE || !names.empty())
    return __LINE__ % 100;
  if (vu_migrate_inbox(shared, "anna") != VU_USAGE) return __LINE__ % 100;
  if (vu_rename_owner(shared, "anna", "berta") != VU_USAGE) return __LINE__ % 100;
  if (vu_remove_owner(shared, "anna") != VU_USAGE) return __LINE__ % 100;
  std::int64_t count = 0;
  if (vu_clean(shared, VU_AREA_USER, nullptr, 0, VU_CLEAN_ALL, nullptr, nullptr, &count) !=
          VU_DONE ||
      count != 1)
    return __LINE__ % 100;
  return vu_close_store(shared) == VU_DONE ? 0 : 99;
}
REGISTER_ROLE(owners_share_folders, owners_share_folders)

#if !defined(_WIN32)
/// A process whose root is longer than the texts of vu_last_error(). Two files are replaced by
/// folders, which cannot be opened. @return as above.
int has_a_long_root(const std::vector<std::string>& args) {
  std::string root = args.at(0);
  for (int i = 0; i < 6; ++i) root += "/" + std::string(200, 'd');
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = root.c_str();
  settings.flags = VU_MAKE_ROOT | VU_NO_ADOPTION;
  vu_store* own = nullptr;
  if (vu_open_store(&settings, &own) != VU_DONE) return __LINE__ % 100;
  const vu_document where = document("anna", "a.kdc");
  if (vu_put(own, &where, "x", 1, 0, nullptr) != VU_DONE) return __LINE__ % 100;
  vu_stream* stream = nullptr;
  if (vu_open_part(own, &where, "html@de", "1", VU_WRITE_OVER, &stream) != VU_DONE ||
      vu_stream_close(stream) != VU_DONE)
    return __LINE__ % 100;
  std::string file(4000, '\0');
  std::size_t size = 0;
  if (vu_file_path(own, &where, file.data(), file.size(), &size) != VU_DONE) return __LINE__ % 100;
  file.resize(size);
  const std::filesystem::path part = native(file + "_") / "html" / "de" / "1";
  std::filesystem::remove(part);
  std::filesystem::create_directory(part);
  if (vu_open_part(own, &where, "html@de", "1", VU_READ_SERVED, &stream) != VU_FAILED)
    return __LINE__ % 100;
  std::filesystem::remove(native(file));
  std::filesystem::create_directory(native(file));
  if (vu_open(own, &where, VU_READ_SERVED, &stream) != VU_FAILED) return __LINE__ % 100;
  // The reason is that of the system.
  if (last_error().system_code == 0) return __LINE__ % 100;
  return vu_close_store(own) == VU_DONE ? 0 : 99;
}
REGISTER_ROLE(has_a_long_root, has_a_long_root)
#endif

/// A process with a configuration folder. @return as above.
int master_profile_has_two_names(const std::vector<std::string>& args) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = args.at(0).c_str();
  vu_store* own = nullptr;
  if (vu_open_store(&settings, &own) != VU_DONE) return __LINE__ % 100;
  const auto value = [&] {
    char text[20] = "";
    const vu_status status =
        vu_profile_get(own, nullptr, nullptr, "lang", text, sizeof text, nullptr);
    return status == VU_DONE ? std::string(text) : name_of(status);
  };
  if (value() != "master") return __LINE__ % 100;
  if (vu_profile_set(own, nullptr, "profile.txt", "lang", "profile") != VU_DONE)
    return __LINE__ % 100;
  if (value() != "profile") return __LINE__ % 100;
  if (vu_profile_delete(own, nullptr, nullptr, "lang") != VU_DONE) return __LINE__ % 100;
  if (value() != "VU_NOTHING_MATCHED") return __LINE__ % 100;
  return vu_close_store(own) == VU_DONE ? 0 : 99;
}
REGISTER_ROLE(master_profile_has_two_names, master_profile_has_two_names)

/// Keeps a document open for writing until the parent sends a line.
int hold_a_document(const std::vector<std::string>& args) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = args.at(0).c_str();
  settings.flags = VU_NO_ADOPTION;
  vu_store* own = nullptr;
  if (vu_open_store(&settings, &own) != VU_DONE) return 1;
  const vu_document where = document("details-held", "a.kdf", 1);
  vu_stream* stream = nullptr;
  if (vu_open(own, &where, VU_WRITE_OVER, &stream) != VU_DONE) return 2;
  say("open");
  hear();
  return vu_stream_close(stream) == VU_DONE ? 0 : 3;
}
REGISTER_ROLE(hold_a_document, hold_a_document)

}  // namespace

TEST(CProcesses, OwnersMayShareFolders) {
  const scratch_folder root;
  child_process other("owners_share_folders", {native(root.path()).string()});
  EXPECT_EQ(other.wait(), 0) << "the line of the role that is wrong";
}

#if !defined(_WIN32)
TEST(CProcesses, AFailureIsTheSameBelowALongRoot) {
  const scratch_folder root;
  child_process other("has_a_long_root", {native(root.path()).string()});
  EXPECT_EQ(other.wait(), 0) << "the line of the role that is wrong";
}
#endif

TEST(CProcesses, TheMasterProfileHasTwoNames) {
  const scratch_folder root;
  make_folder(root.path("config"));
  write_file(root.path("config\\master.txt"), "lang=master\n");
  const std::string folder = native(root.path()).string();
  child_process other("master_profile_has_two_names", {folder},
                      {{"VU_STORAGE_BINARY_DIR", folder}});
  EXPECT_EQ(other.wait(), 0) << "the line of the role that is wrong";
}

TEST(CProcesses, ADocumentThatAnotherProcessWritesIsWaitedForInTime) {
  const vu_document where = document("details-held", "a.kdf", 1);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  child_process other("hold_a_document", {program_store().native_root});
  ASSERT_TRUE(other.hears("open"));
  vu_status status = VU_FAILED;
  vu_store* const hurried = program_store().open(0, VU_NO_WAIT, status);
  char bytes[10];
  std::size_t size = 0;
  EXPECT_EQ(name_of(vu_read(hurried, &where, bytes, sizeof bytes, &size)), "VU_LOCK_TIMEOUT");
  // A store replaces the name at once and does not wait for readers of the old file.
  const vu_status stored = vu_put(hurried, &where, "new", 3, VU_REPLACE, nullptr);
  EXPECT_TRUE(stored == VU_DONE || stored == VU_PARTLY_DONE || stored == VU_FAILED)
      << name_of(stored);
  other.tell("end");
  EXPECT_EQ(other.wait(), 0);
  EXPECT_EQ(put(where, "last", VU_REPLACE), VU_DONE);
  EXPECT_EQ(content(where), "last");
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST(CDetails, AHiddenVersionIsNotRemoved) {
  const vu_document where = document("hidden", "report.txt", 5, VU_AREA_USER);
  ASSERT_EQ(put(where, "the version"), VU_DONE);
  const std::filesystem::path file = native(path_of(where));
  const std::filesystem::path other = file.parent_path() / "report.txt";
  write_file(other.string(), "another file");
  EXPECT_EQ(content(where), "another file");
  EXPECT_EQ(vu_remove(store(), &where), VU_REFUSED);
  std::filesystem::remove(other);
  EXPECT_EQ(content(where), "the version");
  EXPECT_EQ(vu_remove(store(), &where), VU_DONE);
}

TEST(CDetails, AnAreaThatIsMissingIsCreatedAgain) {
  const vu_document mail = document("areas", "mail.kdb", 0, VU_AREA_MAIL);
  const std::filesystem::path area = native(program_store().root.path("storage\\mail"));
  const std::filesystem::path aside = native(program_store().root.path("aside"));
  std::filesystem::rename(area, aside);
  write_file(area.string(), "a file is in the way");
  vu_status status = VU_DONE;
  EXPECT_EQ(program_store().open(0, 0, status), nullptr);
  EXPECT_EQ(status, VU_FAILED);
  EXPECT_EQ(last_error().path, area.string());
  std::filesystem::remove(area);
  vu_store* const again = program_store().open(0, 0, status);
  EXPECT_EQ(status, VU_ALREADY);
  EXPECT_TRUE(std::filesystem::is_directory(area));
  EXPECT_EQ(vu_close_store(again), VU_DONE);
  std::filesystem::remove(area);
  std::filesystem::rename(aside, area);
  EXPECT_EQ(vu_exists(store(), &mail), VU_NOTHING_MATCHED);
}

/// An adopted file bears the name of both versions, so a lookup finds it for each.
TEST(CDetails, AnExistingVersionThatAFileHidesIsReportedWithItsOwnFile) {
  const vu_document from = document("hidden-target", "b.kdc", 0);
  const vu_document to = document("hidden-target", "b.kdc", 5);
  ASSERT_EQ(put(from, "adopted"), VU_DONE);
  ASSERT_EQ(put(to, "old"), VU_DONE);
  const std::filesystem::path adopted = native(path_of(from));
  const std::string existing = path_of(to);
  const std::string index = (adopted.parent_path() / "index.dat").string();
  const std::string file = adopted.filename().string();
  std::string lines = read_file(index);
  write_file(index, lines.replace(lines.find("/" + file) + 1, file.size(), "b.kdc"));
  std::filesystem::rename(adopted, adopted.parent_path() / "b.kdc");
  EXPECT_EQ(vu_rename(store(), &from, &to, 0), VU_ALREADY);
  EXPECT_EQ(last_error().path, existing);
}
