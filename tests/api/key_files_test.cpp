#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

// Key files as a client uses them, through the exported interface alone.

namespace {

using Texts = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;
using vu_host::trace_event;

Pairs pairs_of(const STG::NameValueSeq& seq) {
  Pairs pairs;
  for (std::size_t i = 0; i < seq.size(); ++i) pairs.emplace_back(seq[i].name, seq[i].value);
  return pairs;
}

class KeyFileClient : public testing::Test {
 protected:
  const std::string root = program_storage();
  const scratch_folder scratch;
};

TEST_F(KeyFileClient, ReadsBackTheLinesThatItWrote) {
  STG::NameValueSeq lines;
  lines.push_back({"language", "en"});
  lines.push_back({"formula", "a=b+c"});
  lines.push_back({"empty", ""});
  lines.push_back({"language", "de"});
  const std::string text = vu_storage::getStringFromNameValueSeq(lines);
  EXPECT_EQ(text, "language=en\nformula=a=b+c\nempty=\nlanguage=de\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", text, true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), text);

  STG::NameValueSeq read;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", read, false), 0L);
  EXPECT_EQ(pairs_of(read), pairs_of(lines));
}

TEST_F(KeyFileClient, AppendsLinesOrReplacesThem) {
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "a=1\n", false));
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "b=2\n", false));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "a=1\nb=2\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "c=3\n", true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "c=3\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "", true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "c=3\n");
}

TEST_F(KeyFileClient, ReadsLinesOfOtherProgramsWithTheSeparatorThatItAsksFor) {
  write_file(scratch.path("keys.txt"), "a=b=c\r\n\r\nx=1\ty=2\tno separator\n z = 3 ");
  STG::NameValueSeq seq;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", seq, false), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "b=c"}, {"x", "1"}, {"y", "2"}, {" z ", " 3 "}}));
  seq.clear();
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", seq, true), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a=b", "c"}, {"x", "1"}, {"y", "2"}, {" z ", " 3 "}}));
}

TEST_F(KeyFileClient, ReadsLinesFromAFileThatItOpened) {
  write_file(scratch.path("keys.txt"), "a=1\nb=2\n");
  vu_file file(scratch.path(), "keys.txt");
  file.open(vu_file_base::o_read);
  STG::NameValueSeq seq;
  EXPECT_TRUE(vu_storage::Read(file, seq, false));
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}, {"b", "2"}}));
  file.close();

  vu_file never_opened;
  EXPECT_FALSE(vu_storage::Read(never_opened, seq, false));
  EXPECT_EQ(seq.size(), 2U);
}

TEST_F(KeyFileClient, IsToldOfAFileThatIsNotThere) {
  const recording_sink sink;
  STG::NameValueSeq seq;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "gone.txt", seq, false), 1L);
  EXPECT_EQ(sink.events(trace_event::warning),
            Texts{"vu_storage::readKeysFile : " + scratch.path("gone.txt") + " not found"});
  EXPECT_TRUE(seq.empty());
}

TEST_F(KeyFileClient, IsToldWhenItCannotWrite) {
  const recording_sink sink;
  EXPECT_FALSE(vu_storage::writeKeysFile(scratch.path("gone"), "keys.txt", "a=1\n", true));
  EXPECT_EQ(sink.count(trace_event::error, "vu_storage::writeKeysFile : throw exception on open"),
            1U);
  EXPECT_TRUE(list_folder(scratch.path()).empty());
}

}  // namespace
