#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/c_interface/program_store.h"

// Opening, versions, the last error, traces.

TEST(CStore, TellsItsVersion) {
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
  EXPECT_EQ(vu_close_store(joined), VU_DONE);
}

TEST(CStore, ARootIsMadeWhereItsPathLeadsAndNotBelowTheCurrentFolder) {
  // Two separators at the beginning are those of a share, or of the prefix for long paths.
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
  // The storage of this program lies elsewhere.
  ASSERT_NE(store(), nullptr);
  EXPECT_EQ(vu_open_store(&settings, &handle), VU_REFUSED);
  EXPECT_TRUE(folder_exists(where.path("new\\root")));
  const std::filesystem::path stray =
      std::filesystem::current_path() / std::filesystem::path(below).relative_path() / "new";
  EXPECT_EQ(std::filesystem::exists(stray), stray == std::filesystem::path(below) / "new");
}

TEST(CStore, AnotherRootOrLayoutIsRefusedAndTheOneInForceTold) {
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

TEST(CStore, ARootThatIsMissingIsNoTree) {
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

TEST(CStore, TheLastErrorTellsPathAndReasonOfTheSystem) {
  const vu_document where = document("anna-locked-out", "a.kdf", 1);
  ASSERT_EQ(put(where, "old"), VU_DONE);
  std::string path(1000, '\0');
  std::size_t size = 0;
  ASSERT_EQ(vu_file_path(store(), &where, path.data(), path.size(), &size), VU_DONE);
  path.resize(size);
  // A folder in the place of the file cannot be opened as one.
  std::filesystem::remove(native(path));
  make_folder(path);
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
