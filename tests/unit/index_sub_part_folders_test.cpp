#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_cleaning_fixture.h"

// The folders of sub-parts that go with an entry, or by themselves.

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;

// ---- what goes with an entry -------------------------------------------------------------------

TEST_F(IndexCleaning, RemovesTheSubPartFoldersOfWhatGoes) {
  write_aged("00000001.kdc", kDay);
  write_aged("00000002.kdc", 10);
  for (const char* const name :
       {"00000001.kdc_", "00000001.kdc_2024\\html\\deep", "00000002.kdc_", "00000002.kdc_2024"}) {
    make_folder(folder.path(name));
  }
  folder.write("00000001.kdc_2024\\html\\deep\\part.htm");
  folder.write("00000002.kdc_2024\\part.htm");
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(folder.names(),
            (Texts{"00000002.kdc", "00000002.kdc_", "00000002.kdc_2024", "index.dat"}));
  EXPECT_TRUE(folder.has("00000002.kdc_2024\\part.htm"));
}

TEST_F(IndexCleaning, RemovesSubPartFoldersUnderTheLimitZeroToo) {
  write_aged("notes.txt", 10);
  make_folder(folder.path("notes.txt_1"));
  make_folder(folder.path("notes.txtx"));
  folder.write("notes.txt_file");
  folder.set_index("notes.txt_0000000000/notes.txt\n");
  STGIndex::cleanAllOutput(folder.path());
  EXPECT_EQ(folder.names(), (Texts{"index.dat", "notes.txt_file", "notes.txtx"}));
}

TEST_F(IndexCleaning, LooksAtTheFolderAsItWasBeforeTheFirstRemoval) {
  write_aged("00000001.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\n");
  const auto hook = os::faults::before(Call::remove_file, [&] {
    make_folder(folder.path("00000001.kdc_late"));
    folder.write("late.tmp");
  });
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(hook.hits(), 1U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc_late", "index.dat", "late.tmp"}));
}

// ---- sub-part folders of one document ----------------------------------------------------------

class IndexSubPartFolders : public IndexCleaning {};

TEST_F(IndexSubPartFolders, GoByTheirPrefix) {
  for (const char* const name : {"00001.kdc_", "00001.kdc_2024", "00001.kdcx", "00001.kd_",
                                 "00001.kdc", "x00001.kdc_", "00002.kdc_"}) {
    make_folder(folder.path(name));
  }
  folder.write("00001.kdc_x", "a plain file");
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"00001.kd_", "00001.kdc", "00001.kdc_x", "00001.kdcx",
                                   "00002.kdc_", "x00001.kdc_"}));
}

TEST_F(IndexSubPartFolders, AreMeasuredInKilobytesBeforeTheyGo) {
  make_folder(folder.path("00001.kdc_\\html\\deep"));
  make_folder(folder.path("00001.kdc_2024"));
  make_folder(folder.path("00001.kdcx"));
  folder.write("00001.kdc_\\a", std::string(1024, 'x'));
  folder.write("00001.kdc_\\html\\b", std::string(3 * 1024 + 1023, 'x'));
  folder.write("00001.kdc_\\html\\deep\\c", std::string(1023, 'x'));
  folder.write("00001.kdc_2024\\d", std::string(10 * 1024, 'x'));
  folder.write("00001.kdcx\\e", std::string(99 * 1024, 'x'));
  folder.write("00001.kdc_file", std::string(99 * 1024, 'x'));
  unsigned long counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  EXPECT_EQ(counter, 14U);
  EXPECT_EQ(folder.names(), (Texts{"00001.kdc_file", "00001.kdcx"}));
}

TEST_F(IndexSubPartFolders, SetTheCounterToZeroWhereThereAreNone) {
  unsigned long counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  EXPECT_EQ(counter, 0U);
  counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path("missing"), "00001.kdc", &counter);
  EXPECT_EQ(counter, 0U);
}

TEST_F(IndexSubPartFolders, NeedNoIndexAndMakeNone) {
  make_folder(folder.path("00001.kdc_"));
  os::faults::reset();
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", nullptr);
  EXPECT_EQ(os::faults::calls(Call::open), 0U);
  EXPECT_EQ(folder.names(), Texts{});
}

TEST_F(IndexSubPartFolders, OfTheEmptyNameBeginWithAnUnderscore) {
  make_folder(folder.path("_"));
  make_folder(folder.path("_x"));
  make_folder(folder.path("x_"));
  STGIndex::cleanOutputDirectories(folder.path(), "", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"x_"}));
}

TEST_F(IndexSubPartFolders, AreSaidToStayWhenTheyDo) {
  make_folder(folder.path("00001.kdc_"));
  make_folder(folder.path("00001.kdc_2024"));
  recording_sink sink;
  const auto fault = os::faults::fail(Call::remove_directory, kRefused);
  unsigned long counter = 0;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  ASSERT_EQ(folder.names().size(), 1U);
  EXPECT_EQ(index_traces(sink), (Texts{"Error: STGIndex: removal of output directory failed: " +
                                       folder.path(folder.names().front())}));
}

TEST_F(IndexSubPartFolders, AreTakenFromAGivenListing) {
  make_folder(folder.path("a_1"));
  make_folder(folder.path("a_2"));
  folder.write("a_3");
  const std::vector<vu_utf8string> names = {vu_utf8string("a_1"), vu_utf8string("a_3"),
                                            vu_utf8string("a_gone"), vu_utf8string("b_1")};
  Peer::cleanOutputDirectories(vu_utf8string(folder.path() + "\\"), names, "a", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"a_2", "a_3"}));
}

}  // namespace
