#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/c_interface/program_store.h"
#include "tests/support/real_kernel.h"
#include "vu_file.h"

// Streams: positions, sub-parts, served reads, and how long they wait.

namespace {

vu_stream* opened(const vu_document& what, std::int32_t mode) {
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(store(), &what, mode, &stream), VU_DONE) << last_error().text;
  return stream;
}

/// Windows may keep the name of a file while a reader has it open. The old version can then be kept
/// too.
bool is_replaced_or_kept(vu_status status) {
  return status == VU_DONE || (kOnWindows && (status == VU_PARTLY_DONE || status == VU_FAILED));
}

std::string rest_of(vu_stream* stream, std::size_t room = 100) {
  std::string bytes(room, '?');
  std::size_t size = 0;
  EXPECT_EQ(vu_stream_read(stream, bytes.data(), room, &size), VU_DONE);
  return bytes.substr(0, size);
}

}  // namespace

TEST(CStreams, WriteSeekAndRead) {
  const vu_document where = document("streams", "a.kdf", 1);
  vu_stream* stream = opened(where, VU_WRITE_NEW);
  EXPECT_EQ(vu_stream_write(stream, "0123456789", 10), VU_DONE);
  EXPECT_EQ(vu_stream_seek(stream, -3, VU_FROM_END), VU_DONE);
  EXPECT_EQ(vu_stream_write(stream, "xy", 2), VU_DONE);
  EXPECT_EQ(vu_stream_write(stream, nullptr, 0), VU_DONE);
  std::int64_t size = 0;
  EXPECT_EQ(vu_stream_size(stream, &size), VU_DONE);
  EXPECT_EQ(size, 10);
  std::size_t got = 0;
  char byte = 0;
  EXPECT_EQ(vu_stream_read(stream, &byte, 1, &got), VU_USAGE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  EXPECT_EQ(vu_stream_close(stream), VU_BAD_HANDLE);

  stream = opened(where, VU_READ_EXACT);
  EXPECT_EQ(rest_of(stream, 4), "0123");
  EXPECT_EQ(vu_stream_seek(stream, 2, VU_FROM_POSITION), VU_DONE);
  EXPECT_EQ(rest_of(stream), "6xy9");
  EXPECT_EQ(rest_of(stream), "");
  EXPECT_EQ(vu_stream_seek(stream, 0, VU_FROM_START), VU_DONE);
  EXPECT_EQ(rest_of(stream), "0123456xy9");
  EXPECT_EQ(vu_stream_write(stream, "x", 1), VU_USAGE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
}

TEST(CStreams, ANewVersionMustNotExistAndAnOldOneIsCut) {
  const vu_document where = document("modes", "a.kdf", 1);
  ASSERT_EQ(put(where, "old bytes"), VU_DONE);
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(store(), &where, VU_WRITE_NEW, &stream), VU_ALREADY);
  EXPECT_EQ(stream, nullptr);
  stream = opened(where, VU_WRITE_OVER);
  EXPECT_EQ(vu_stream_write(stream, "new", 3), VU_DONE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  EXPECT_EQ(content(where), "new");
}

TEST(CStreams, ServedIsWhatIsNewEnough) {
  const vu_document stored = document("served", "a.kdc", 0);
  ASSERT_EQ(put(stored, "page"), VU_DONE);
  vu_stream* stream = opened(document("served", "a.kdc", 1000), VU_READ_SERVED);
  EXPECT_EQ(rest_of(stream), "page");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  const vu_document later = document("served", "a.kdc", 2147483647);
  EXPECT_EQ(vu_open(store(), &later, VU_READ_SERVED, &stream), VU_OUTDATED);
  const vu_document missing = document("served", "b.kdc", 0);
  EXPECT_EQ(vu_open(store(), &missing, VU_READ_SERVED, &stream), VU_NOTHING_MATCHED);
  ASSERT_EQ(put(document("served", "c.kdf", 7), "exact"), VU_DONE);
  const vu_document other = document("served", "c.kdf", 8);
  EXPECT_EQ(vu_open(store(), &other, VU_READ_SERVED, &stream), VU_NOTHING_MATCHED);
  stream = opened(document("served", "c.kdf", 7), VU_READ_SERVED);
  EXPECT_EQ(rest_of(stream), "exact");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
}

TEST(CStreams, ADocumentWhoseTimeIs0IsNotServed) {
  for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS}) {
    const vu_document where = document("served-0", "a.txt", 0, area);
    ASSERT_EQ(put(where, "page"), VU_DONE);
    set_modify_time(path_of(where), 0);
    vu_stream* stream = nullptr;
    EXPECT_EQ(name_of(vu_open(store(), &where, VU_READ_SERVED, &stream)), "VU_OUTDATED");
    EXPECT_EQ(content(where), "page");
  }
}

#if defined(__linux__)
TEST(CStreams, ADocumentThatIsALinkWithoutATargetIsNotServed) {
  const vu_document where = document("served-link", "a.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(where, "page"), VU_DONE);
  const std::string path = path_of(where);
  std::filesystem::remove(path);
  std::filesystem::create_symlink("/missing/disk", path);
  vu_stream* stream = nullptr;
  EXPECT_EQ(name_of(vu_open(store(), &where, VU_READ_SERVED, &stream)), "VU_OUTDATED");
}
#endif

TEST(CStreams, PartsAreWrittenAndReadWhileUpToDate) {
  const vu_document where = document("part", "a.kdf", 1);
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_READ_SERVED, &stream),
            VU_NOTHING_MATCHED);
  ASSERT_EQ(put(where, "document"), VU_DONE);
  EXPECT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_READ_SERVED, &stream),
            VU_OUTDATED);
  EXPECT_EQ(stream, nullptr);
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_WRITE_OVER, &stream), VU_DONE);
  EXPECT_EQ(vu_stream_write(stream, "<p>", 3), VU_DONE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_READ_SERVED, &stream), VU_DONE);
  EXPECT_EQ(rest_of(stream), "<p>");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  EXPECT_EQ(vu_open_part(store(), &where, "html@../x", "page1", VU_WRITE_OVER, &stream),
            VU_REFUSED);
}

TEST(CStreams, ARenditionStaysInItsFolder) {
  const vu_document where = document("rendition", "a.kdc", 0);
  ASSERT_EQ(put(where, "document"), VU_DONE);
  const std::vector<std::string> before = list_folder(program_store().root.path("storage\\docs"));
  vu_stream* stream = nullptr;
  for (const char* const refused :
       {"..@.",   "..@..",        "html@..",     "html@.",  "pdf@..",   "html@",    "pdf@",
        "@",      "@de",          "de@",         "a@b",     "html@a@b", "html@a/b", "html@..\\a",
        "HTML@a", "html@preload", "pdf@preload", "preload", "html@a*",  "html@a\nb"}) {
    for (const std::int32_t mode : {VU_READ_SERVED, VU_WRITE_OVER}) {
      EXPECT_EQ(name_of(vu_open_part(store(), &where, refused, "1", mode, &stream)), "VU_REFUSED")
          << refused;
      EXPECT_EQ(stream, nullptr) << refused;
    }
    EXPECT_EQ(last_error().path, std::string(refused));
  }
  EXPECT_EQ(list_folder(program_store().root.path("storage\\docs")), before);
  EXPECT_FALSE(std::filesystem::exists(native(path_of(where) + "_")));
  for (const char* const allowed : {"html@de", "pdf@de", "de", "html", "html@preloaded"}) {
    ASSERT_EQ(vu_open_part(store(), &where, allowed, "1", VU_WRITE_OVER, &stream), VU_DONE)
        << allowed;
    EXPECT_EQ(vu_stream_write(stream, allowed, 2), VU_DONE);
    EXPECT_EQ(vu_stream_close(stream), VU_DONE);
    ASSERT_EQ(vu_open_part(store(), &where, allowed, "1", VU_READ_SERVED, &stream), VU_DONE)
        << allowed;
    EXPECT_EQ(rest_of(stream), std::string(allowed).substr(0, 2));
    EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  }
}

TEST(CStreams, WithoutTheGuardARenditionIsThatOfTheClass) {
  const vu_document where = document("rendition-bare", "a.kdf", 1);
  ASSERT_EQ(put(where, "document"), VU_DONE);
  vu_status status = VU_FAILED;
  vu_store* const bare = program_store().open(VU_NO_GUARD, 0, status);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open_part(bare, &where, "a@b", "1", VU_WRITE_OVER, &stream), VU_DONE);
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  EXPECT_TRUE(std::filesystem::exists(native(path_of(where) + "_") / "a" / "b" / "1"));
  EXPECT_EQ(vu_open_part(bare, &where, "a@b", "1", VU_READ_SERVED, &stream), VU_OUTDATED);
  EXPECT_EQ(vu_close_store(bare), VU_DONE);
}

TEST(CStreams, APartOfAnExactDocumentHasNoPreloadCopy) {
  vu_stream* stream = nullptr;
  for (const char* const name : {"a.kdf", "a.kdc"}) {
    const vu_document where = document("preload-exact", name, 1);
    ASSERT_EQ(put(where, "document"), VU_DONE);
    ASSERT_EQ(vu_open_part(store(), &where, "html@de", "2", VU_WRITE_OVER, &stream), VU_DONE);
    ASSERT_EQ(vu_stream_close(stream), VU_DONE);
    const std::filesystem::path html = native(path_of(where) + "_") / "html";
    make_folder((html / "preload").string());
    write_file((html / "preload" / "1").string(), "preloaded");
    const bool is_exact = std::string(name) == "a.kdf";
    const vu_status expected = is_exact ? VU_OUTDATED : VU_DONE;
    EXPECT_EQ(vu_open_part(store(), &where, "html@de", "1", VU_READ_SERVED, &stream), expected);
    if (stream != nullptr) vu_stream_close(stream);
    EXPECT_EQ(file_exists((html / "de" / "1").string()), !is_exact);
  }
}

TEST(CStreams, APreloadCopyThatCannotReplaceThePartIsReported) {
  const vu_document where = document("preload", "a.kdc", 0);
  ASSERT_EQ(put(where, "document"), VU_DONE);
  const std::filesystem::path root = native(path_of(where) + "_");
  const std::string part = (root / "html" / "de" / "1").string();
  const std::string preload = (root / "html" / "preload" / "1").string();
  vu_stream* writer = nullptr;
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "1", VU_WRITE_OVER, &writer), VU_DONE);
  ASSERT_EQ(vu_stream_write(writer, "old", 3), VU_DONE);
  ASSERT_EQ(vu_stream_close(writer), VU_DONE);
  vu_stream* reader = nullptr;
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "1", VU_READ_SERVED, &reader), VU_DONE);
  make_folder((root / "html" / "preload").string());
  write_file(preload, "preloaded");
  set_modify_time(preload, get_modify_time(part) + 10);
  const auto read = [&] {
    vu_stream* stream = nullptr;
    const vu_status status = vu_open_part(store(), &where, "html@de", "1", VU_READ_SERVED, &stream);
    if (status != VU_DONE) return name_of(status);
    const std::string bytes = rest_of(stream);
    EXPECT_EQ(vu_stream_close(stream), VU_DONE);
    return bytes;
  };
  if (!is_emulated()) {
    // The copy cannot wait for the lock of the reader.
    EXPECT_EQ(read(), "VU_FAILED");
    EXPECT_NE(last_error().system_code, 0);
    EXPECT_EQ(last_error().path, part);
  }
  EXPECT_EQ(vu_stream_close(reader), VU_DONE);
  EXPECT_EQ(read(), "preloaded");
  // A preload copy that cannot be read: a folder, which is newer than the part.
  std::filesystem::remove(native(preload));
  make_folder(preload);
  set_modify_time(part, 1'500'000'000);
  EXPECT_EQ(read(), "VU_FAILED");
  EXPECT_NE(last_error().system_code, 0);
}

TEST(CStreams, ALockThatIsHeldEndsTheCallInTime) {
  const vu_document where = document("limits", "a.kdf", 1);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  vu_stream* const writer = opened(where, VU_WRITE_OVER);
  for (const std::int64_t wait_ms : {VU_NO_WAIT, std::int64_t{60}}) {
    vu_status status = VU_FAILED;
    vu_store* const hurried = program_store().open(0, wait_ms, status);
    ASSERT_EQ(status, VU_ALREADY);
    vu_stream* stream = nullptr;
    EXPECT_EQ(vu_open(hurried, &where, VU_READ_EXACT, &stream), VU_LOCK_TIMEOUT);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(vu_open(hurried, &where, VU_READ_SERVED, &stream), VU_LOCK_TIMEOUT);
    EXPECT_EQ(vu_open(hurried, &where, VU_WRITE_OVER, &stream), VU_LOCK_TIMEOUT);
    EXPECT_STRNE(last_error().path, "");
    std::size_t size = 0;
    EXPECT_EQ(vu_read(hurried, &where, nullptr, 0, &size), VU_LOCK_TIMEOUT);
    EXPECT_EQ(vu_exists(hurried, &where), VU_DONE);
    EXPECT_EQ(vu_close_store(hurried), VU_DONE);
  }
  EXPECT_EQ(vu_stream_close(writer), VU_DONE);
}

TEST(CStreams, ALockedIndexEndsEveryCallInTimeAndLeavesNothing) {
  const vu_document where = document("limits-index", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  const std::string folder = program_store().root.path("storage\\user\\limits-index");
  const std::vector<std::string> before = list_folder(folder);
  vu_status status = VU_FAILED;
  vu_store* const hurried = program_store().open(0, 40, status);
  const vu_document other = document("limits-index", "b.txt", 1, VU_AREA_USER);
  // A shared lock lets the first check of the index pass and blocks the save. An exclusive lock
  // blocks both.
  for (const vu_file::type_access mode : {vu_file::o_read, vu_file::o_append}) {
    vu_file index(folder, "index.dat");
    index.open(mode);
    EXPECT_EQ(vu_put(hurried, &other, "y", 1, 0, nullptr), VU_LOCK_TIMEOUT);
    EXPECT_EQ(vu_put(hurried, &where, "y", 1, VU_REPLACE, nullptr), VU_LOCK_TIMEOUT);
    vu_stream* stream = nullptr;
    EXPECT_EQ(vu_open(hurried, &other, VU_WRITE_NEW, &stream), VU_LOCK_TIMEOUT);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(vu_key_set(hurried, &other, "a", "b"), VU_LOCK_TIMEOUT);
    EXPECT_EQ(vu_remove(hurried, &where), VU_LOCK_TIMEOUT);
    EXPECT_EQ(vu_rename(hurried, &where, &other, 0), VU_LOCK_TIMEOUT);
    index.close();
  }
  EXPECT_EQ(content(where), "x");
  EXPECT_EQ(list_folder(folder), before);
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

TEST(CStreams, ALockedCounterGivesNoName) {
  const vu_document where = document("limits-counter", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  const std::string folder = program_store().root.path("storage\\user\\limits-counter");
  const std::vector<std::string> before = list_folder(folder);
  vu_status status = VU_FAILED;
  vu_store* const hurried = program_store().open(0, 40, status);
  vu_file counter(folder, "index");
  counter.open(vu_file::o_append);
  const vu_document other = document("limits-counter", "b.txt", 1, VU_AREA_USER);
  EXPECT_EQ(vu_put(hurried, &other, "y", 1, 0, nullptr), VU_LOCK_TIMEOUT);
  counter.close();
  EXPECT_EQ(list_folder(folder), before);
  EXPECT_EQ(documents_of("limits-counter", VU_AREA_USER), std::vector<std::string>{"a.txt@1"});
  EXPECT_EQ(vu_close_store(hurried), VU_DONE);
}

namespace {

struct Meeting {
  vu_stream* stream;
  std::atomic<bool> is_over = false;
  vu_status met = VU_DONE;
  vu_status closed = VU_DONE;
};

/// While one thread is inside a call of the stream, another thread makes the same call.
void meet(void* context, const vu_trace*) {
  auto* const meeting = static_cast<Meeting*>(context);
  if (meeting->is_over.exchange(true)) return;
  std::thread([&] {
    char byte = 0;
    std::size_t size = 0;
    meeting->met = vu_stream_read(meeting->stream, &byte, 1, &size);
    meeting->closed = vu_stream_close(meeting->stream);
  }).join();
}

}  // namespace

TEST(CStreams, ASecondThreadLearnsThatTheStreamIsBusy) {
  const vu_document where = document("busy", "a.kdf", 1);
  ASSERT_EQ(put(where, "x"), VU_DONE);
  Meeting meeting = {opened(where, VU_READ_EXACT)};
  ASSERT_EQ(vu_set_trace(meet, &meeting, 4), VU_DONE);
  EXPECT_EQ(rest_of(meeting.stream), "x");
  ASSERT_EQ(vu_set_trace(nullptr, nullptr, 0), VU_DONE);
  EXPECT_TRUE(meeting.is_over);
  EXPECT_EQ(meeting.met, VU_BUSY);
  EXPECT_EQ(meeting.closed, VU_BUSY);
  EXPECT_EQ(vu_stream_close(meeting.stream), VU_DONE);
}

TEST(CStreams, AStreamKeepsItsFileWhenTheVersionIsReplaced) {
  const vu_document where = document("replaced", "a.kdf", 1);
  ASSERT_EQ(put(where, "old bytes"), VU_DONE);
  vu_stream* const stream = opened(where, VU_READ_EXACT);
  const vu_status stored = put(where, "new", VU_REPLACE);
  EXPECT_TRUE(is_replaced_or_kept(stored)) << last_error().text;
  std::int64_t size = 0;
  EXPECT_EQ(vu_stream_size(stream, &size), VU_DONE) << last_error().text;
  EXPECT_EQ(size, 9);
  EXPECT_EQ(rest_of(stream), "old bytes");
  EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  const std::string found_now = content(where);
  EXPECT_TRUE(found_now == "new" || (stored != VU_DONE && found_now == "old bytes")) << found_now;
  EXPECT_EQ(documents_of("replaced"), std::vector<std::string>{"a.kdf@1"});
}

TEST(CStreams, ReadersSeeTheOldVersionOrTheNewOne) {
  const vu_document where = document("meeting", "a.kdc", 0);
  const std::string bytes[2] = {std::string(3000, 'a'), std::string(5000, 'b')};
  ASSERT_EQ(put(where, bytes[0]), VU_DONE);
  std::atomic<bool> is_over = false;
  std::thread writer([&] {
    for (int i = 1; i <= 150; ++i)
      EXPECT_TRUE(is_replaced_or_kept(put(where, bytes[i % 2], VU_REPLACE)));
    is_over = true;
  });
  int read = 0;
  const auto is_whole = [&](const std::string& found) {
    return found == bytes[0] || found == bytes[1];
  };
  while (!is_over || read < 100) {
    const std::string whole = content(where);
    EXPECT_TRUE(is_whole(whole)) << whole.substr(0, 40) << last_error().text;
    for (const std::int32_t mode : {VU_READ_EXACT, VU_READ_SERVED}) {
      vu_stream* const stream = opened(where, mode);
      EXPECT_TRUE(is_whole(rest_of(stream, 9000)));
      EXPECT_EQ(vu_stream_close(stream), VU_DONE);
    }
    std::string buffer(9000, '?');
    std::size_t size = 0;
    EXPECT_EQ(vu_read(store(), &where, buffer.data(), buffer.size(), &size), VU_DONE);
    EXPECT_TRUE(is_whole(buffer.substr(0, size)));
    vu_info info = VU_INFO_INIT;
    EXPECT_EQ(vu_describe(store(), &where, &info), VU_DONE) << last_error().text;
    EXPECT_EQ(vu_exists(store(), &where), VU_DONE);
    ++read;
  }
  writer.join();
}

TEST(CStreams, AnUnreadableFileIsNotReportedAsTooOld) {
  const vu_document where = document("served-refused", "a.kdc", 0);
  ASSERT_EQ(put(where, "page"), VU_DONE);
  const std::string path = make_unopenable(where);
  vu_stream* stream = nullptr;
  EXPECT_EQ(vu_open(store(), &where, VU_READ_SERVED, &stream), VU_FAILED);
  EXPECT_EQ(last_error().path, path);
}

TEST(CStreams, APartThatCannotBeOpenedIsNotToBeMadeAgain) {
  const vu_document where = document("part-refused", "a.kdf", 1);
  ASSERT_EQ(put(where, "document"), VU_DONE);
  vu_stream* stream = nullptr;
  ASSERT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_WRITE_OVER, &stream), VU_DONE);
  ASSERT_EQ(vu_stream_close(stream), VU_DONE);
  const std::string path = path_of(where);
  const std::filesystem::path part = native(path + "_") / "html" / "de" / "page1";
  ASSERT_TRUE(std::filesystem::remove(part)) << part;
  std::filesystem::create_directory(part);
  EXPECT_EQ(vu_open_part(store(), &where, "html@de", "page1", VU_READ_SERVED, &stream), VU_FAILED);
  EXPECT_NE(last_error().system_code, 0);
  EXPECT_EQ(stream, nullptr);
}

TEST(CStreams, ALongLimitIsALimit) {
  const vu_document where = document("limits-long", "a.kdf", 1);
  for (const std::int64_t wait_ms : {INT64_MAX, INT64_MAX / 1'000'000, std::int64_t{1} << 40}) {
    vu_status status = VU_FAILED;
    vu_store* const patient = program_store().open(0, wait_ms, status);
    ASSERT_EQ(status, VU_ALREADY);
    EXPECT_EQ(vu_put(patient, &where, "x", 1, VU_REPLACE, nullptr), VU_DONE);
    EXPECT_EQ(vu_close_store(patient), VU_DONE);
  }
  vu_status status = VU_FAILED;
  EXPECT_EQ(program_store().open(0, -2, status), nullptr);
  EXPECT_EQ(status, VU_USAGE);
}
