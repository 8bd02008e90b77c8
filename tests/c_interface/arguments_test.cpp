// Arguments that the library refuses. The first cases test names: names that the guard refuses on a
// system, and names without a form in the code page.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/c_interface/program_store.h"

#if defined(_WIN32)
// Declared here, because only the seam may include the system's header.
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

/// Only the code page UTF-8 has this character.
constexpr const char* kFace = "\xF0\x9F\x98\x80";

}  // namespace

TEST(CNames, ThoseOfVersionsOnTheirWayAreTheLibrarysOwn) {
  const vu_document staged = document("names-own", ".vu-storing-1.kdf", 1);
  EXPECT_EQ(name_of(put(staged, "x")), "VU_REFUSED");
  EXPECT_STREQ(last_error().text,
               "the name is refused: the library uses this prefix for temporary names");
  EXPECT_EQ(put(document("names-own", ".vu-storin", 1), "x"), VU_DONE);
}

TEST(CNames, WindowsReadsMoreIntoThem) {
  const vu_status expected = is_windows() ? VU_REFUSED : VU_NOTHING_MATCHED;
  for (const char* const name :
       {"INDEX.DAT",       "Index",       "index.dat.", "index.dat ", "index.dat::$DATA",
        "a:b.kdf",         "nul",         "NUL.kdf",    "Com1.txt",   "lpt9 .x",
        "COM\xC2\xB9.txt", "lpt\xC2\xB3", "con",        "conin$",     "ends.",
        "ends ",           "a<.kdf",      ">",          "a\"b",       ".VU-STORING-1",
        ".Vu-storing-1"}) {
    const vu_document where = document("names-windows", name, 1, VU_AREA_USER);
    EXPECT_EQ(name_of(vu_exists(store(), &where)), name_of(expected)) << name;
    const vu_document owned = document(name, "a", 1, VU_AREA_USER);
    EXPECT_EQ(name_of(vu_exists(store(), &owned)), name_of(expected)) << name;
  }
  for (const char* const name :
       {"com", "comx", "com12", "com\xC2\xB4", "nulx", "null.kdf", "indexes", "console"}) {
    const vu_document where = document("names-windows", name, 1, VU_AREA_USER);
    EXPECT_EQ(name_of(vu_exists(store(), &where)), "VU_NOTHING_MATCHED") << name;
  }
}

TEST(CNames, AnothersFileHasNoSecondSpelling) {
  const vu_document where = document("names-case", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "bytes"), VU_DONE);
  const std::string path = path_of(where);
  std::string upper = path.substr(path.find_last_of("/\\") + 1);
  upper.replace(upper.size() - 3, 3, "TXT");
  const vu_document same = document("names-case", upper.c_str(), 1, VU_AREA_USER);
  EXPECT_EQ(name_of(put(same, "x", VU_REPLACE)), is_windows() ? "VU_REFUSED" : "VU_DONE");
  EXPECT_EQ(content(where), "bytes");
}

TEST(CNames, AnAdoptedFileHasNoSecondSpelling) {
  // Adoption keeps the name of a file, which then is a document and its file.
  const vu_document other = document("names-adopted", "a.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(other, "x"), VU_DONE);
  const std::string folder = program_store().root.path("storage\\user\\names-adopted");
  write_file(folder + "\\report.txt", "adopted");
  write_file(folder + "\\index.dat",
             read_file(folder + "\\index.dat") + "report.txt_0000000000/report\n");
  const vu_document adopted = document("names-adopted", "report.txt", 0, VU_AREA_USER);
  ASSERT_EQ(content(adopted), "adopted");
  const vu_document same = document("names-adopted", "Report.txt", 0, VU_AREA_USER);
  EXPECT_EQ(name_of(put(same, "new", VU_REPLACE)), is_windows() ? "VU_REFUSED" : "VU_DONE");
  EXPECT_EQ(name_of(vu_remove(store(), &same)), is_windows() ? "VU_REFUSED" : "VU_DONE");
  EXPECT_EQ(content(adopted), "adopted");
  EXPECT_EQ(put(adopted, "own", VU_REPLACE), VU_DONE);
}

TEST(CNames, CharactersOutsideTheCodePageAreReported) {
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
  // A name that is only in the index is valid in every code page.
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
    EXPECT_EQ(name_of(vu_exists(bare, &where)), "VU_USAGE");
    EXPECT_EQ(name_of(vu_put(bare, &where, "x", 1, 0, nullptr)), "VU_USAGE");
    EXPECT_EQ(name_of(vu_migrate_inbox(bare, owner)), "VU_USAGE");
    EXPECT_EQ(name_of(vu_remove_owner(bare, owner)), "VU_USAGE");
  }
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

TEST(CNames, BytesThatAreNoUtf8AreNamesOnLinuxAlone) {
  const std::string expected = is_windows() ? "VU_NO_NAME" : "VU_NOTHING_MATCHED";
  for (const char* const bytes : {"\xFF\xFE", "\xC3", "\xED\xA0\x80", "\xC0\xAF"}) {
    const vu_document where = document(bytes, "a.kdf", 1);
    EXPECT_EQ(vu_status_name(vu_exists(store(), &where)), expected);
    // The index stores the middle of a name, without its start and its extension, as bytes.
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

// Invalid arguments: each call returns a status and does nothing else.

namespace {

struct Row {
  const char* what;
  vu_status expected;
  std::function<vu_status()> call;
  std::function<bool()> is_null = [] { return true; };  ///< what must be null after a failure
};

char g_somewhere;

/// Everything that the rows pass to receive results. Before each row it is as declared here.
struct Outputs {
  char text[200] = "untouched";
  std::size_t size = 77;
  std::int64_t number = 78;
  std::int32_t how = 79;
  // A caller that frees or closes them after a failure must find null.
  void* bytes = &g_somewhere;
  vu_stream* stream = reinterpret_cast<vu_stream*>(&g_somewhere);
  vu_store* store = reinterpret_cast<vu_store*>(&g_somewhere);
  vu_info info = VU_INFO_INIT;
  std::vector<std::string> names;

  /// Whether nothing is written. The pointers may be null.
  bool is_untouched() const {
    return std::strcmp(text, "untouched") == 0 && size == 77 && number == 78 && how == 79 &&
           info.version == 0 && info.size == -1 && names.empty();
  }
};
Outputs g_out;

/// Every call that takes a store, with valid other arguments.
std::vector<Row> calls_with(vu_store* handle, vu_status expected) {
  static const vu_document good = document("arguments", "a.kdf", 1);
  const auto line = [](void*, const char*, const char*) -> std::int32_t { return 0; };
  return {
      {"folder", expected,
       [=] { return vu_folder(handle, 0, g_out.text, sizeof g_out.text, &g_out.size); }},
      {"exists", expected, [=] { return vu_exists(handle, &good); }},
      {"describe", expected, [=] { return vu_describe(handle, &good, &g_out.info); }},
      {"file_path", expected,
       [=] { return vu_file_path(handle, &good, g_out.text, sizeof g_out.text, &g_out.size); }},
      {"read", expected,
       [=] { return vu_read(handle, &good, g_out.text, sizeof g_out.text, &g_out.size); }},
      {"read_whole", expected,
       [=] { return vu_read_whole(handle, &good, &g_out.bytes, &g_out.size); },
       [] { return g_out.bytes == nullptr; }},
      {"put", expected, [=] { return vu_put(handle, &good, "x", 1, 0, &g_out.how); }},
      {"copy_in", expected, [=] { return vu_copy_in(handle, &good, "x", 0, &g_out.how); }},
      {"copy_out", expected, [=] { return vu_copy_out(handle, &good, "x", 0); }},
      {"remove", expected, [=] { return vu_remove(handle, &good); }},
      {"rename", expected, [=] { return vu_rename(handle, &good, &good, 0); }},
      {"latest", expected, [=] { return vu_latest(handle, &good, &g_out.number); }},
      {"open", expected, [=] { return vu_open(handle, &good, VU_READ_EXACT, &g_out.stream); },
       [] { return g_out.stream == nullptr; }},
      {"open_part", expected,
       [=] { return vu_open_part(handle, &good, "html@a", "p", VU_READ_SERVED, &g_out.stream); },
       [] { return g_out.stream == nullptr; }},
      {"each_document", expected,
       [=] { return vu_each_document(handle, VU_AREA_DOCS, "a", 0, collect_entry, &g_out.names); }},
      {"each_version", expected,
       [=] { return vu_each_version(handle, &good, 0, collect_entry, &g_out.names); }},
      {"each_owner", expected,
       [=] { return vu_each_owner(handle, VU_AREA_DOCS, collect_name, &g_out.names); }},
      {"key_get", expected,
       [=] { return vu_key_get(handle, &good, "a", g_out.text, sizeof g_out.text, &g_out.size); }},
      {"key_set", expected, [=] { return vu_key_set(handle, &good, "a", "b"); }},
      {"key_delete", expected, [=] { return vu_key_delete(handle, &good, "a"); }},
      {"key_each", expected, [=] { return vu_key_each(handle, &good, line, nullptr); }},
      {"profile_get", expected,
       [=] {
         return vu_profile_get(handle, "a", "p", "l", g_out.text, sizeof g_out.text, &g_out.size);
       }},
      {"profile_set", expected, [=] { return vu_profile_set(handle, "a", "p", "l", "v"); }},
      {"profile_delete", expected, [=] { return vu_profile_delete(handle, "a", "p", "l"); }},
      {"profile_each", expected, [=] { return vu_profile_each(handle, "a", "p", line, nullptr); }},
      {"rename_owner", expected, [=] { return vu_rename_owner(handle, "a", "b"); }},
      {"remove_owner", expected, [=] { return vu_remove_owner(handle, "a"); }},
      {"clean", expected,
       [=] {
         return vu_clean(handle, VU_AREA_DOCS, "a", 9, VU_DRY_RUN, nullptr, nullptr, &g_out.number);
       }},
      {"migrate_inbox", expected, [=] { return vu_migrate_inbox(handle, "a"); }},
      {"close_store", expected, [=] { return vu_close_store(handle); }},
  };
}

std::vector<Row> calls_with_stream(vu_stream* handle, vu_status expected) {
  return {
      {"stream_read", expected,
       [=] { return vu_stream_read(handle, g_out.text, 10, &g_out.size); }},
      {"stream_write", expected, [=] { return vu_stream_write(handle, "x", 1); }},
      {"stream_seek", expected, [=] { return vu_stream_seek(handle, 0, VU_FROM_START); }},
      {"stream_size", expected, [=] { return vu_stream_size(handle, &g_out.number); }},
      {"stream_close", expected, [=] { return vu_stream_close(handle); }},
  };
}

void expect_rows(const std::vector<Row>& rows, const char* handle) {
  for (const Row& row : rows) {
    g_out = {};
    EXPECT_EQ(std::string(vu_status_name(row.call())), vu_status_name(row.expected))
        << row.what << " with " << handle;
    EXPECT_TRUE(g_out.is_untouched()) << row.what << " with " << handle;
    EXPECT_TRUE(row.is_null()) << row.what << " with " << handle;
    EXPECT_EQ(last_error().status, row.expected) << row.what;
    EXPECT_STRNE(last_error().text, "") << row.what;
  }
}

/// A valid document with one change.
vu_document with(const std::function<void(vu_document&)>& change) {
  vu_document result = document("arguments", "a.kdf", 1);
  change(result);
  return result;
}

vu_status exists(const std::function<void(vu_document&)>& change) {
  const vu_document changed = with(change);
  return vu_exists(store(), &changed);
}

}  // namespace

TEST(CArguments, EveryCallRefusesAnInvalidStoreHandle) {
  vu_status status = VU_FAILED;
  vu_store* const closed = program_store().open(0, 0, status);
  ASSERT_EQ(vu_close_store(closed), VU_DONE);
  const vu_document where = document("arguments", "stream.kdf", 1);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open(store(), &where, VU_WRITE_OVER, &stream), VU_DONE);
  int anything = 0;
  expect_rows(calls_with(nullptr, VU_BAD_HANDLE), "null");
  expect_rows(calls_with(closed, VU_BAD_HANDLE), "a closed handle");
  expect_rows(calls_with(reinterpret_cast<vu_store*>(stream), VU_BAD_HANDLE), "a stream");
  expect_rows(calls_with(reinterpret_cast<vu_store*>(&anything), VU_BAD_HANDLE), "an address");
  expect_rows(calls_with(reinterpret_cast<vu_store*>(~std::uintptr_t{0}), VU_BAD_HANDLE), "-1");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
}

TEST(CArguments, EveryCallRefusesAnInvalidStreamHandle) {
  const vu_document where = document("arguments", "closed.kdf", 1);
  vu_stream* closed = nullptr;
  ASSERT_EQ(vu_open(store(), &where, VU_WRITE_OVER, &closed), VU_DONE);
  ASSERT_EQ(vu_stream_close(closed), VU_DONE);
  // The next stream reuses the slot of a closed one, but has another handle.
  vu_stream* next = nullptr;
  ASSERT_EQ(vu_open(store(), &where, VU_WRITE_OVER, &next), VU_DONE);
  EXPECT_NE(closed, next);
  int anything = 0;
  expect_rows(calls_with_stream(nullptr, VU_BAD_HANDLE), "null");
  expect_rows(calls_with_stream(closed, VU_BAD_HANDLE), "a closed handle");
  expect_rows(calls_with_stream(reinterpret_cast<vu_stream*>(store()), VU_BAD_HANDLE), "a store");
  expect_rows(calls_with_stream(reinterpret_cast<vu_stream*>(&anything), VU_BAD_HANDLE),
              "an address");
  EXPECT_EQ(vu_stream_close(next), VU_DONE);
}

TEST(CArguments, DocumentsThatMakeNoSense) {
  struct Case {
    const char* what;
    vu_status expected;
    std::function<void(vu_document&)> change;
  };
  const std::vector<Case> cases = {
      {"no size", VU_USAGE, [](vu_document& d) { d.struct_size = 0; }},
      {"a short size", VU_USAGE, [](vu_document& d) { d.struct_size -= 1; }},
      {"a huge size", VU_USAGE, [](vu_document& d) { d.struct_size = ~std::size_t{0}; }},
      {"a reserved field", VU_USAGE, [](vu_document& d) { d.reserved = 1; }},
      {"area 0", VU_USAGE, [](vu_document& d) { d.area = 0; }},
      {"area 4", VU_USAGE, [](vu_document& d) { d.area = 4; }},
      {"version -2", VU_USAGE, [](vu_document& d) { d.version = -2; }},
      {"version 2^31", VU_USAGE, [](vu_document& d) { d.version = 2147483648; }},
      {"no owner", VU_REFUSED, [](vu_document& d) { d.owner = nullptr; }},
      {"an empty owner", VU_REFUSED, [](vu_document& d) { d.owner = ""; }},
      {"a parent as owner", VU_REFUSED, [](vu_document& d) { d.owner = ".."; }},
      {"a folder as owner", VU_REFUSED, [](vu_document& d) { d.owner = "a/b"; }},
      {"a pattern as owner", VU_REFUSED, [](vu_document& d) { d.owner = "a*"; }},
      {"no name", VU_USAGE, [](vu_document& d) { d.name = nullptr; }},
      {"an empty name", VU_REFUSED, [](vu_document& d) { d.name = ""; }},
      {"a parent as name", VU_REFUSED, [](vu_document& d) { d.name = ".."; }},
      {"the folder as name", VU_REFUSED, [](vu_document& d) { d.name = "."; }},
      {"a path as name", VU_REFUSED, [](vu_document& d) { d.name = "..\\a"; }},
      {"a slash in the name", VU_REFUSED, [](vu_document& d) { d.name = "a/b"; }},
      {"a pattern as name", VU_REFUSED, [](vu_document& d) { d.name = "a?.kdf"; }},
      {"a line feed in the name", VU_REFUSED, [](vu_document& d) { d.name = "a\nb"; }},
      {"a carriage return", VU_REFUSED, [](vu_document& d) { d.name = "a\rb"; }},
      {"the index as name", VU_REFUSED, [](vu_document& d) { d.name = "index.dat"; }},
      {"the counter as name", VU_REFUSED, [](vu_document& d) { d.name = "index"; }},
  };
  for (const Case& one : cases)
    EXPECT_EQ(std::string(vu_status_name(exists(one.change))), vu_status_name(one.expected))
        << one.what;
  EXPECT_EQ(vu_exists(store(), nullptr), VU_USAGE);
}

TEST(CArguments, WithoutTheGuardNamesGoToTheLibrary) {
  vu_status status = VU_FAILED;
  vu_store* const bare = program_store().open(VU_NO_GUARD, 0, status);
  const vu_document pattern = document("arguments", "zz*.kdf", 1);
  EXPECT_EQ(vu_exists(store(), &pattern), VU_REFUSED);
  EXPECT_EQ(vu_exists(bare, &pattern), VU_NOTHING_MATCHED);
  const vu_document empty = document("arguments", "", 1);
  EXPECT_EQ(vu_exists(bare, &empty), VU_USAGE);
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

TEST(CArguments, AStructureOfALaterVersionIsAcceptedWhenItRequestsNothingNew) {
  struct Later {
    vu_document known;
    std::int64_t news[2];
  };
  ASSERT_EQ(put(document("arguments", "later.kdf", 1), "x"), VU_DONE);
  Later later = {document("arguments", "later.kdf", 1), {0, 0}};
  later.known.struct_size = sizeof later;
  EXPECT_EQ(vu_exists(store(), &later.known), VU_DONE);
  later.news[1] = 1;
  EXPECT_EQ(vu_exists(store(), &later.known), VU_USAGE);
}

TEST(CArguments, PointersThatHaveToLeadSomewhere) {
  const vu_document good = document("arguments", "pointers.kdf", 1);
  const vu_document latest = document("arguments", "pointers.kdf", VU_LATEST);
  ASSERT_EQ(put(good, "12345"), VU_DONE);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open(store(), &good, VU_READ_EXACT, &stream), VU_DONE);
  vu_info info = VU_INFO_INIT;
  info.struct_size = 3;
  vu_error error = VU_ERROR_INIT;
  error.struct_size = 3;
  vu_settings settings = VU_SETTINGS_INIT;
  settings.struct_size = 3;
  const std::vector<Row> rows = {
      {"no settings", VU_USAGE, [&] { return vu_open_store(nullptr, &g_out.store); },
       [] { return g_out.store == nullptr; }},
      {"short settings", VU_USAGE, [&] { return vu_open_store(&settings, &g_out.store); },
       [] { return g_out.store == nullptr; }},
      {"nowhere to put the store", VU_USAGE, [&] { return vu_open_store(&settings, nullptr); }},
      {"nowhere to put the size", VU_USAGE,
       [&] { return vu_read(store(), &good, nullptr, 0, nullptr); }},
      {"no buffer", VU_USAGE, [&] { return vu_read(store(), &good, nullptr, 9, &g_out.size); }},
      {"nowhere to put bytes", VU_USAGE,
       [&] { return vu_read_whole(store(), &good, nullptr, &g_out.size); }},
      {"nowhere to put their size", VU_USAGE,
       [&] { return vu_read_whole(store(), &good, &g_out.bytes, nullptr); },
       [] { return g_out.bytes == nullptr; }},
      {"room without a buffer", VU_USAGE,
       [&] { return vu_folder(store(), 0, nullptr, 5, &g_out.size); }},
      {"room without a buffer for a path", VU_USAGE,
       [&] { return vu_file_path(store(), &good, nullptr, 5, &g_out.size); }},
      {"nowhere to put the size of a path", VU_USAGE,
       [&] { return vu_folder(store(), 0, nullptr, 0, nullptr); }},
      {"no mode for a part", VU_USAGE,
       [&] { return vu_open_part(store(), &good, "a", "p", VU_WRITE_NEW, &g_out.stream); },
       [] { return g_out.stream == nullptr; }},
      {"no bytes", VU_USAGE,
       [&] { return vu_put(store(), &good, nullptr, 1, VU_REPLACE, nullptr); }},
      {"unknown flags", VU_USAGE, [&] { return vu_put(store(), &good, "x", 1, 64, nullptr); }},
      {"the latest version as target", VU_USAGE,
       [&] { return vu_put(store(), &latest, "x", 1, VU_REPLACE, nullptr); }},
      {"no path", VU_USAGE,
       [&] { return vu_copy_in(store(), &good, nullptr, VU_REPLACE, nullptr); }},
      {"an empty path", VU_USAGE, [&] { return vu_copy_out(store(), &good, "", 0); }},
      {"unknown flags for a copy", VU_USAGE, [&] { return vu_copy_out(store(), &good, "x", 2); }},
      {"no info", VU_USAGE, [&] { return vu_describe(store(), &good, nullptr); }},
      {"a short info", VU_USAGE, [&] { return vu_describe(store(), &good, &info); }},
      {"nowhere to put the version", VU_USAGE, [&] { return vu_latest(store(), &good, nullptr); }},
      {"no target", VU_USAGE, [&] { return vu_rename(store(), &good, nullptr, 0); }},
      {"nowhere to put the stream", VU_USAGE,
       [&] { return vu_open(store(), &good, VU_READ_EXACT, nullptr); }},
      {"mode 0", VU_USAGE, [&] { return vu_open(store(), &good, 0, &g_out.stream); },
       [] { return g_out.stream == nullptr; }},
      {"mode 5", VU_USAGE, [&] { return vu_open(store(), &good, 5, &g_out.stream); },
       [] { return g_out.stream == nullptr; }},
      {"no callback", VU_USAGE,
       [&] { return vu_each_document(store(), VU_AREA_DOCS, "a", 0, nullptr, nullptr); }},
      {"no callback for versions", VU_USAGE,
       [&] { return vu_each_version(store(), &good, 0, nullptr, nullptr); }},
      {"no callback for owners", VU_USAGE,
       [&] { return vu_each_owner(store(), VU_AREA_DOCS, nullptr, nullptr); }},
      {"no callback for lines", VU_USAGE,
       [&] { return vu_key_each(store(), &good, nullptr, nullptr); }},
      {"no line", VU_USAGE, [&] { return vu_key_set(store(), &good, nullptr, "x"); }},
      {"no value", VU_USAGE, [&] { return vu_key_set(store(), &good, "x", nullptr); }},
      {"no owner to rename", VU_USAGE, [&] { return vu_rename_owner(store(), nullptr, "x"); }},
      {"an empty owner to remove", VU_REFUSED, [&] { return vu_remove_owner(store(), ""); }},
      {"an age below 0", VU_USAGE,
       [&] { return vu_clean(store(), VU_AREA_DOCS, "a", -1, 0, nullptr, nullptr, nullptr); }},
      {"an age of 33 bits", VU_USAGE,
       [&] {
         return vu_clean(store(), VU_AREA_DOCS, "a", 1LL << 32, 0, nullptr, nullptr, nullptr);
       }},
      {"no owner to migrate", VU_REFUSED, [&] { return vu_migrate_inbox(store(), nullptr); }},
  };
  expect_rows(rows, "a good handle");
  EXPECT_EQ(vu_last_error(nullptr), VU_USAGE);
  EXPECT_EQ(vu_last_error(&error), VU_USAGE);
  const std::vector<Row> on_stream = {
      {"nowhere to put the size", VU_USAGE,
       [&] { return vu_stream_read(stream, nullptr, 0, nullptr); }},
      {"no buffer", VU_USAGE, [&] { return vu_stream_read(stream, nullptr, 1, &g_out.size); }},
      {"an unknown origin", VU_USAGE, [&] { return vu_stream_seek(stream, 0, 3); }},
      {"a far distance", VU_USAGE, [&] { return vu_stream_seek(stream, 1LL << 31, 0); }},
      {"nowhere to put the length", VU_USAGE, [&] { return vu_stream_size(stream, nullptr); }},
  };
  expect_rows(on_stream, "a good stream");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  EXPECT_EQ(content(good), "12345");
}
