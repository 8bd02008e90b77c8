#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/c_interface/program_store.h"

// Names: what the guard refuses on which system, and what has no place in a code page.

#if defined(_WIN32)
// Without the system's own header, which only the seam may see.
extern "C" __declspec(dllimport) unsigned int __stdcall GetACP();
#endif

namespace {

bool is_windows() {
#if defined(_WIN32)
  return true;
#else
  return false;
#endif
}

unsigned int code_page() {
#if defined(_WIN32)
  return GetACP();
#else
  return 65001;
#endif
}

const char* name_of(vu_status status) { return vu_status_name(status); }

/// No code page but UTF-8 has it.
constexpr const char* kFace = "\xF0\x9F\x98\x80";

}  // namespace

TEST(CNames, ThoseOfVersionsOnTheirWayAreTheLibrarysOwn) {
  const vu_document staged = document("names-own", ".vu-storing-1.kdf", 1);
  EXPECT_STREQ(name_of(put(staged, "x")), "VU_REFUSED");
  EXPECT_STREQ(last_error().text,
               "the name is refused: the library uses this prefix for temporary names");
  EXPECT_EQ(put(document("names-own", ".vu-storin", 1), "x"), VU_DONE);
}

TEST(CNames, WindowsReadsMoreIntoThem) {
  const vu_status expected = is_windows() ? VU_REFUSED : VU_NOTHING_MATCHED;
  for (const char* const name :
       {"INDEX.DAT", "Index", "index.dat.", "index.dat ", "index.dat::$DATA", "a:b.kdf", "nul",
        "NUL.kdf", "Com1.txt", "lpt9 .x", "con", "conin$", "ends.", "ends "}) {
    const vu_document where = document("names-windows", name, 1, VU_AREA_USER);
    EXPECT_STREQ(name_of(vu_exists(store(), &where)), name_of(expected)) << name;
    const vu_document owned = document(name, "a", 1, VU_AREA_USER);
    EXPECT_STREQ(name_of(vu_exists(store(), &owned)), name_of(expected)) << name;
  }
  for (const char* const name :
       {"com", "comx", "com12", "nulx", "null.kdf", "indexes", "console"}) {
    const vu_document where = document("names-windows", name, 1, VU_AREA_USER);
    EXPECT_STREQ(name_of(vu_exists(store(), &where)), "VU_NOTHING_MATCHED") << name;
  }
}

TEST(CNames, AnothersFileHasNoSecondSpelling) {
  const vu_document where = document("names-case", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  std::string path(1000, '\0');
  std::size_t size = 0;
  ASSERT_EQ(vu_file_path(store(), &where, path.data(), path.size(), &size), VU_DONE);
  path.resize(size);
  std::string upper = path.substr(path.find_last_of("/\\") + 1);
  upper.replace(upper.size() - 3, 3, "TXT");
  const vu_document same = document("names-case", upper.c_str(), 1, VU_AREA_USER);
  EXPECT_STREQ(name_of(put(same, "x", VU_REPLACE)), is_windows() ? "VU_REFUSED" : "VU_DONE");
  EXPECT_EQ(content(where), "bytes");
}

TEST(CNames, WhatHasNoPlaceInTheCodePageIsTold) {
  const char* const asked = std::getenv("VU_TEST_CODE_PAGE");
  if (asked != nullptr) {
    ASSERT_EQ(std::to_string(code_page()), asked);
  }
  const bool has_place = code_page() == 65001;
  const std::string expected = has_place ? "VU_NOTHING_MATCHED" : "VU_NO_NAME";
  const std::string face = kFace;
  const std::string extension = "a." + face;
  const vu_document owned = document(kFace, "a.kdf", 1);
  EXPECT_EQ(vu_status_name(vu_exists(store(), &owned)), expected);
  if (!has_place) {
    EXPECT_EQ(last_error().path, face);
    EXPECT_STREQ(last_error().text,
                 "the owner cannot be converted to the code page of the process");
  }
  const vu_document extended = document("names-page", extension.c_str(), 1);
  EXPECT_EQ(vu_status_name(vu_exists(store(), &extended)), expected);
  EXPECT_EQ(vu_status_name(vu_key_get(store(), &extended, "a", nullptr, 0, nullptr)), expected);
  char text[10];
  EXPECT_EQ(
      vu_status_name(vu_profile_get(store(), "names-page", kFace, "a", text, sizeof text, nullptr)),
      expected);
  const std::string path = program_store().native_root + "/" + face;
  const vu_document plain = document("names-page", "a.kdf", 1);
  EXPECT_EQ(vu_status_name(vu_copy_in(store(), &plain, path.c_str(), 0, nullptr)), expected);
  EXPECT_EQ(vu_status_name(vu_rename_owner(store(), kFace, "names-else")), expected);
  EXPECT_EQ(vu_status_name(vu_remove_owner(store(), kFace)), expected);
  EXPECT_EQ(vu_status_name(vu_migrate_inbox(store(), kFace)), expected);
  // What stands in the index alone has a place everywhere.
  const std::string named = face + ".kdf";
  const vu_document where = document("names-page", named.c_str(), 1);
  ASSERT_EQ(put(where, "bytes"), VU_DONE) << last_error().text;
  EXPECT_EQ(content(where), "bytes");
  EXPECT_EQ(documents_of("names-page"), std::vector<std::string>{named + "@1"});
}

TEST(CNames, WithoutTheGuardAnOwnerIsNeverEmpty) {
  vu_status status = VU_FAILED;
  vu_store* const bare = program_store().open(VU_NO_GUARD, 0, status);
  for (const char* const owner : {static_cast<const char*>(nullptr), ""}) {
    const vu_document where = document(owner, "a.kdf", 1);
    EXPECT_STREQ(name_of(vu_exists(bare, &where)), "VU_USAGE");
    EXPECT_STREQ(name_of(vu_put(bare, &where, "x", 1, 0, nullptr)), "VU_USAGE");
    EXPECT_STREQ(name_of(vu_migrate_inbox(bare, owner)), "VU_USAGE");
    EXPECT_STREQ(name_of(vu_remove_owner(bare, owner)), "VU_USAGE");
  }
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

TEST(CNames, BytesThatAreNoUtf8AreNamesOnLinuxAlone) {
  const std::string expected = is_windows() ? "VU_NO_NAME" : "VU_NOTHING_MATCHED";
  for (const char* const bytes : {"\xFF\xFE", "\xC3", "\xED\xA0\x80", "\xC0\xAF"}) {
    const vu_document where = document(bytes, "a.kdf", 1);
    EXPECT_EQ(vu_status_name(vu_exists(store(), &where)), expected);
    // Between its start and its extension a name is bytes of the index.
    const vu_document named = document("names-bytes", bytes, 1, VU_AREA_USER);
    EXPECT_EQ(put(named, "x"), VU_DONE) << last_error().text;
    EXPECT_EQ(content(named), "x");
  }
}

TEST(CNames, ALongNameIsAnAnswerAndNotACrash) {
  const std::string name = std::string(5000, 'n') + ".kdf";
  const vu_document where = document("names-long", name.c_str(), 1);
  EXPECT_EQ(put(where, "x"), VU_DONE) << last_error().text;
  EXPECT_EQ(content(where), "x");
  const std::string owner(5000, 'o');
  const vu_document owned = document(owner.c_str(), "a.kdf", 1);
  EXPECT_EQ(put(owned, "x"), VU_FAILED);
  EXPECT_LT(std::string(last_error().path).size(), 1024U);
  const std::string extension = "a." + std::string(5000, 'e');
  const vu_document extended = document("names-long", extension.c_str(), 1);
  EXPECT_NE(put(extended, "x"), VU_DONE);
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = owner.c_str();
  vu_store* other = nullptr;
  EXPECT_NE(vu_open_store(&settings, &other), VU_DONE);
  EXPECT_EQ(other, nullptr);
}
