// Features of the UTF-8 handle alone: reads into a new buffer, names beyond ASCII, long paths.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_i18n.h"

namespace {

using base = vu_file_base;
using vu_host::trace_event;
using list = std::vector<std::string>;

class VuFileUtf8ReadBuffer : public testing::Test {
 protected:
  vu_fileutf8 opened(const std::string& content, base::type_access mode = base::o_read) const {
    write_file(m_dir.path("f"), content);
    vu_fileutf8 file(vu_utf8string(m_dir.path()), vu_utf8string("f"));
    file.open(mode);
    return file;
  }

  scratch_folder m_dir;
};

}  // namespace

TEST_F(VuFileUtf8ReadBuffer, OfNoLengthReadsTheWholeFileAndEndsItWithAZero) {
  vu_fileutf8 file = opened("01234");
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(length, 5U);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::memcmp(buffer, "01234\0", 6), 0);
}

TEST_F(VuFileUtf8ReadBuffer, OfNoLengthInAnEmptyFileLeavesBothArguments) {
  vu_fileutf8 file = opened("");
  unsigned char mark = 0;
  unsigned char* buffer = &mark;
  unsigned int length = 0;
  file.read(buffer, length);
  EXPECT_EQ(buffer, &mark);
  EXPECT_EQ(length, 0U);
}

TEST_F(VuFileUtf8ReadBuffer, OfALengthGoesOnFromThePosition) {
  vu_fileutf8 file = opened("0123456789");
  file.seek(2, 0);
  unsigned char* buffer = nullptr;
  unsigned int length = 3;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(length, 3U);
  EXPECT_EQ(std::memcmp(buffer, "234\0", 4), 0);
}

TEST_F(VuFileUtf8ReadBuffer, ThatGetsLessPutsTheZeroAtTheRequestedPlace) {
  vu_fileutf8 file = opened("0123");
  constexpr unsigned int kAsked = 100;
  // The allocator can now return dirty memory of this size.
  unsigned char* dirty = new unsigned char[kAsked + 1];
  std::memset(dirty, 'x', kAsked + 1);
  delete[] dirty;
  unsigned char* buffer = nullptr;
  unsigned int length = kAsked;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(length, 4U);
  EXPECT_EQ(std::memcmp(buffer, "0123", 4), 0);
  EXPECT_EQ(buffer[kAsked], 0);
}

TEST_F(VuFileUtf8ReadBuffer, AtTheEndOfTheFileGetsAnEmptyBuffer) {
  vu_fileutf8 file = opened("0123");
  file.seek(0, 2);
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(buffer[4], 0);
}

TEST_F(VuFileUtf8ReadBuffer, InTheWrongModeThrowsBeforeAnything) {
  for (const auto mode : {base::o_write, base::o_truncate}) {
    vu_fileutf8 file = opened("0123", mode);
    unsigned char* buffer = nullptr;
    unsigned int length = 2;
    EXPECT_EQ(thrown_text([&] { file.read(buffer, length); }), utf8_spelling::kWrongRead);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 2U);
  }
  vu_fileutf8 never;
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  EXPECT_EQ(thrown_text([&] { never.read(buffer, length); }), utf8_spelling::kWrongRead);
}

TEST_F(VuFileUtf8ReadBuffer, ForAppendingIsAllowed) {
  vu_fileutf8 file = opened("0123", base::o_append);
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(length, 4U);
}

TEST_F(VuFileUtf8ReadBuffer, WithoutRoomForTheZeroFailsBeforeAnythingIsAllocated) {
  vu_fileutf8 file = opened("0123");
  recording_sink sink;
  unsigned char* buffer = nullptr;
  unsigned int length = 0xFFFFFFFFU;
  EXPECT_EQ(thrown_text([&] { file.read(buffer, length); }), "throw exception on read");
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(length, 0U);
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_EQ(errors[0], "read file : " + m_dir.path("f"));
}

TEST_F(VuFileUtf8ReadBuffer, OfAFileThatHasGoneReadsNothing) {
  vu_fileutf8 file = opened("0123");
  // The size is read by name, and this name does not exist.
  vu_fileutf8 renamed = file;
  renamed.close();
  renamed.setPath(vu_utf8string(m_dir.path("gone")));
  EXPECT_EQ(thrown_text([&] { renamed.open(base::o_read); }), "throw exception on open");
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  recording_sink sink;
  renamed.read(buffer, length);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(sink.events(trace_event::warning), list{m_dir.path("gone") + ": doesn't exists"});
}

TEST(VuFileUtf8Names, BeyondAsciiReachTheFile) {
  const scratch_folder dir;
  // Characters of two, three and four bytes; the last one takes two UTF-16 units.
  const std::string name = "\xC3\xA9_\xE6\x97\xA5_\xF0\x9F\x93\x84.kdb";
  vu_fileutf8 file{vu_utf8string(dir.path()), vu_utf8string(name)};
  file.open(base::o_truncate);
  file.write("text");
  file.close();
  EXPECT_TRUE(file_exists(dir.path(name)));
  EXPECT_EQ(read_file(dir.path(name)), "text");
  EXPECT_EQ(vu_fileutf8::size(vu_utf8string(dir.path(name))), 4U);
  EXPECT_EQ(to_bytes<utf8_spelling>(vu_fileutf8::filenames(vu_utf8string(dir.path()))), list{name});
}

TEST(VuFileUtf8Names, ThatAreNoUtf8RaiseTheStringsOwnException) {
  const scratch_folder dir;
  vu_fileutf8 file{vu_utf8string(dir.path()), vu_utf8string("bad\xff")};
  EXPECT_THROW(file.open(base::o_write), vu_i18n_except);
  EXPECT_FALSE(file.is_open());
  bool lock_failed = false;
  EXPECT_THROW(file.try_open(base::o_read, lock_failed, true), vu_i18n_except);
  EXPECT_FALSE(lock_failed);
}

TEST(VuFileUtf8LongPath, OpensAFileInAFolderOf300Characters) {
  const scratch_folder dir;
  std::string folder = dir.path();
  while (folder.size() < 300) folder += "\\folder_of_thirty_characters_xx";
  make_folder(folder);
  vu_fileutf8 file{vu_utf8string(folder), vu_utf8string("report.txt")};
  file.open(base::o_truncate);
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(file.write("text"), 4);
  file.close();
  EXPECT_EQ(read_file(folder + "\\report.txt"), "text");

  file.open(base::o_read);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 4);
  EXPECT_EQ(text, "text");
}
