#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// File lists from a folder's index.

namespace {

using vu_host::trace_event;
namespace faults = os::faults;

class FileLists : public StorageTest {
 protected:
  FileLists() { make_folder(folder); }

  /// An index of these lines, with a file for each of these names.
  void lay_out(const std::string& lines, const Texts& files) {
    write_file(folder + "\\index.dat", lines);
    for (const std::string& name : files) write_file(folder + "\\" + name, "");
  }
  Texts all() { return vu_storage::getAllFileListFromIndexFile(folder, physical); }
  Texts documents(const Texts* wanted = nullptr) {
    return vu_storage::getFileListFromIndexFile(folder, physical, wanted);
  }

  std::string folder = scratch.path("folder");
  Texts physical;
};

// ---- order and contents ------------------------------------------------------------------------

TEST_F(FileLists, FollowTheOrderOfThePhysicalNames) {
  lay_out("a.kdc_0000000000/00001\nb.kda_0000000000/00002\n", {"00001.kdc", "00002.kda"});
  EXPECT_EQ(all(), (Texts{"a.kdc", "b.kda"}));
  EXPECT_EQ(physical, (Texts{"00001.kdc", "00002.kda"}));

  physical.clear();
  lay_out("a.kdc_0000000000/00009\nb.kda_0000000000/00002\n", {"00009.kdc"});
  EXPECT_EQ(all(), (Texts{"b.kda", "a.kdc"}));
  EXPECT_EQ(physical, (Texts{"00002.kda", "00009.kdc"}));
  physical.clear();
  EXPECT_EQ(documents(), (Texts{"b.kda", "a.kdc"}));
  EXPECT_EQ(physical, (Texts{"00002.kda", "00009.kdc"}));
}

TEST_F(FileLists, NameEveryVersion) {
  lay_out("a.kdc_0000000001/00001\na.kdc_0000000002/00002\n", {"00001.kdc", "00002.kdc"});
  EXPECT_EQ(all(), (Texts{"a.kdc", "a.kdc"}));
  EXPECT_EQ(physical, (Texts{"00001.kdc", "00002.kdc"}));
}

TEST_F(FileLists, OfDocumentsLeaveOtherFilesOut) {
  lay_out(
      "a.kdc_0000000000/00001\nb.txt_0000000000/00002\nkdc_0000000000/00003\n"
      "d.KDC_0000000000/00004\ne.kdc.bak_0000000000/00005\nf.kdg_0000000000/00006\n",
      {"00001.kdc", "00002.txt", "00003", "00004.KDC", "00005.bak", "00006.kdg"});
  EXPECT_EQ(all(), (Texts{"a.kdc", "b.txt", "kdc", "d.KDC", "e.kdc.bak", "f.kdg"}));
  physical.clear();
  EXPECT_EQ(documents(), (Texts{"a.kdc", "f.kdg"}));
  EXPECT_EQ(physical, (Texts{"00001.kdc", "00006.kdg"}));
}

TEST_F(FileLists, OfDocumentsKeepTheWantedNames) {
  lay_out("a.kdc_0000000000/00001\nb.kda_0000000000/00002\nc.txt_0000000000/00003\n",
          {"00001.kdc", "00002.kda", "00003.txt"});
  const Texts wanted = {"c.txt", "B.kda", "b.kda ", "b.kda", "none.kdc"};
  EXPECT_EQ(documents(&wanted), Texts{"b.kda"});
  EXPECT_EQ(physical, Texts{"00002.kda"});
}

TEST_F(FileLists, OfDocumentsAreEmptyWhenNothingIsWanted) {
  lay_out("a.kdc_0000000000/00001\n", {"00001.kdc"});
  const Texts nothing;
  EXPECT_TRUE(documents(&nothing).empty());
  EXPECT_TRUE(physical.empty());
  EXPECT_EQ(documents(nullptr), Texts{"a.kdc"});
}

TEST_F(FileLists, AreAppendedToThePhysicalNames) {
  lay_out("a.kdc_0000000000/00001\n", {"00001.kdc"});
  physical = {"before"};
  EXPECT_EQ(all(), Texts{"a.kdc"});
  EXPECT_EQ(documents(), Texts{"a.kdc"});
  EXPECT_EQ(physical, (Texts{"before", "00001.kdc", "00001.kdc"}));
}

TEST_F(FileLists, OfAnEmptyFolderAreEmpty) {
  EXPECT_TRUE(all().empty());
  EXPECT_TRUE(documents().empty());
  EXPECT_TRUE(list_folder(folder).empty());
}

// ---- no folder ---------------------------------------------------------------------------------

TEST_F(FileLists, OfNoFolderAreEmptyAndSayNothing) {
  write_file(scratch.path("file"), "x");
  folder = scratch.path("file");
  EXPECT_TRUE(all().empty());
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  folder = scratch.path("missing");
  EXPECT_TRUE(all().empty());
  // One word comes from the question whether it is a folder.
  EXPECT_EQ(sink.count(traced::kind_t::event), 1U);
  EXPECT_TRUE(facade(trace_event::warning).empty());
  EXPECT_TRUE(physical.empty());
}

TEST_F(FileLists, OfDocumentsRefuseWhatIsNoFolderWithoutATrace) {
  write_file(scratch.path("file"), "x");
  folder = scratch.path("file");
  EXPECT_THROW(documents(), vu_file_except);
  folder = scratch.path("missing");
  EXPECT_THROW(documents(), vu_file_except);
  EXPECT_TRUE(physical.empty());
  EXPECT_TRUE(facade(trace_event::error).empty());
}

// ---- exceptions --------------------------------------------------------------------------------

TEST_F(FileLists, EndWhereTheIndexRaises) {
  lay_out("a.kdc_0000000000/00001\n", {"00001.kdc"});
  physical = {"before"};
  const auto attempt = [&](const std::string& text, auto list) {
    {
      sink.clear();
      const auto refused = faults::fail(faults::Call::open, kRefused);
      EXPECT_TRUE(list().empty());
      EXPECT_EQ(refused.hits(), 1U);
      EXPECT_EQ(facade(trace_event::error), Texts{text});
    }
    {
      sink.clear();
      const auto raised = faults::throw_from(faults::Call::open, std::runtime_error("odd"));
      EXPECT_TRUE(list().empty());
      EXPECT_EQ(raised.hits(), 1U);
      EXPECT_EQ(facade(trace_event::error), Texts{text});
    }
  };
  attempt("vu_storage::getAllFileListFromIndexFile : " + folder + " isn't a directory",
          [&] { return all(); });
  attempt("vu_storage::getFileListFromIndexFile : " + folder + " isn't a directory",
          [&] { return documents(); });
  EXPECT_EQ(physical, Texts{"before"});
}

}  // namespace
