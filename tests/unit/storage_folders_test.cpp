// Folders of owners, hash buckets and functions on names.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/index_peer.h"
#include "tests/support/os_faults.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

class OwnerFolder : public StorageTest {
 protected:
  std::string area(const std::string& name) const { return scratch.path("storage") + "\\" + name; }

  static bool resolve(const std::string& owner, const std::string& entry, int type,
                      std::string& folder, bool create) {
    return vu_storage::createUserOrDomainNameDirectory(
        owner, entry, static_cast<STG::RepositoryType>(type), folder, create);
  }

  std::string folder;
};

TEST_F(OwnerFolder, LiesInTheAreaOfItsType) {
  const std::vector<std::pair<int, std::string>> areas = {
      {3, "mail"},
      {4, "mail"},
      {0, "user"},
      {1, "user"},
      {5, "user"},
      {6, "user"},
      {-1, "user"},
      {-2, "user"},
      {std::numeric_limits<std::int32_t>::max(), "user"},
      {std::numeric_limits<std::int32_t>::min(), "user"}};
  for (const auto& [type, name] : areas) {
    EXPECT_TRUE(resolve("jdoe", "x.kdc", type, folder, true)) << type;
    EXPECT_EQ(folder, area(name) + "\\jdoe") << type;
    EXPECT_TRUE(folder_exists(folder)) << type;
    EXPECT_TRUE(list_folder(folder).empty()) << type;
  }
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 2, folder, true));
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
  EXPECT_TRUE(folder_exists(folder));
}

TEST_F(OwnerFolder, IsAnUnderscoreForTheEmptyName) {
  EXPECT_TRUE(resolve("", "x.kdc", 2, folder, true));
  EXPECT_EQ(folder, area("docs") + "\\_\\00000062");
  EXPECT_TRUE(folder_exists(folder));
  EXPECT_TRUE(resolve("", "x.kdc", 3, folder, true));
  EXPECT_EQ(folder, area("mail") + "\\_");
}

TEST_F(OwnerFolder, IsTheAreaItselfWhenOwnersShareIt) {
  Peer::set_use_domain(false);
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 4, folder, true));
  EXPECT_EQ(folder, area("mail"));
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 2, folder, true));
  EXPECT_EQ(folder, area("docs") + "\\00000062");
  EXPECT_TRUE(resolve("", "x.kdc", 0, folder, false));
  EXPECT_EQ(folder, area("user"));
  EXPECT_EQ(list_folder(area("docs")), Texts{"00000062"});
}

TEST_F(OwnerFolder, HasABucketPerHashOfTheEntry) {
  const std::vector<std::pair<std::string, std::string>> buckets = {
      {"a", "00000097"},
      {"ab", "00000075"},
      {"sales.kdc", "00000055"},
      {"report.kdf", "00000015"},
      {"", "00000000"},
      // Negative hashes appear as unsigned numbers of ten digits.
      {"\xFB", "4294967291"},
      {"\x80", "4294967168"},
      {"\xFF\xFF\xFF", "4294967212"},
      {"\xE9t\xE9.kdc", "00000065"}};
  for (const auto& [entry, bucket] : buckets) {
    EXPECT_TRUE(resolve("jdoe", entry, 2, folder, true)) << entry;
    EXPECT_EQ(folder, area("docs") + "\\jdoe\\" + bucket) << entry;
    EXPECT_TRUE(folder_exists(folder)) << entry;
  }
}

TEST_F(OwnerFolder, MayReceiveItsPathInOneOfTheNames) {
  std::string owner = "jdoe";
  EXPECT_TRUE(resolve(owner, "x.kdc", 2, owner, true));
  EXPECT_EQ(owner, area("docs") + "\\jdoe\\00000062");
  std::string entry = "x.kdc";
  EXPECT_TRUE(resolve("jdoe", entry, 2, entry, true));
  EXPECT_EQ(entry, area("docs") + "\\jdoe\\00000062");
}

TEST_F(OwnerFolder, IsCreatedOnlyOnRequestButItsAreaAlways) {
  vu_file::remove(area("user"));
  ASSERT_FALSE(folder_exists(area("user")));
  EXPECT_FALSE(resolve("jdoe", "x.kdc", 0, folder, false));
  EXPECT_EQ(folder, area("user") + "\\jdoe");
  EXPECT_TRUE(folder_exists(area("user")));
  EXPECT_FALSE(folder_exists(folder));
}

TEST_F(OwnerFolder, IsFoundWithoutBeingMade) {
  make_folder(area("user") + "\\jdoe");
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 0, folder, false));
  EXPECT_EQ(folder, area("user") + "\\jdoe");
  make_folder(area("docs") + "\\jdoe\\00000062");
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 2, folder, false));
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
}

TEST_F(OwnerFolder, HasNoBucketUnlessRequested) {
  make_folder(area("docs") + "\\jdoe");
  EXPECT_FALSE(resolve("jdoe", "x.kdc", 2, folder, false));
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
  EXPECT_TRUE(list_folder(area("docs") + "\\jdoe").empty());
}

TEST_F(OwnerFolder, CountsAsThereEvenWhenItCouldNotBeMade) {
  const auto full =
      faults::fail(faults::Call::create_directory, kRefused, 1, faults::Times::kLasting);
  EXPECT_TRUE(resolve("jdoe", "x.kdc", 2, folder, true));
  EXPECT_EQ(full.hits(), 2U);
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
  EXPECT_FALSE(folder_exists(area("docs") + "\\jdoe"));
  EXPECT_TRUE(facade(trace_event::error).empty());
}

// The storage checks three folders: the area, the owner's folder, the bucket.
constexpr std::uint64_t kArea = 1;
constexpr std::uint64_t kOwner = 2;
constexpr std::uint64_t kBucket = 3;

TEST_F(OwnerFolder, IsRefusedWithTheTextOfAFileError) {
  for (const std::uint64_t nth : {kOwner, kBucket}) {
    sink.clear();
    const auto raised =
        faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"), nth);
    EXPECT_FALSE(resolve("jdoe", "x.kdc", 2, folder, true));
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::createUserOrDomainNameDirectory : no answer"});
  }
}

TEST_F(OwnerFolder, IsRefusedWithItsPathAfterAnyOtherException) {
  const std::vector<std::pair<std::uint64_t, std::string>> steps = {{kOwner, "\\jdoe"},
                                                                    {kBucket, "\\jdoe\\00000062"}};
  for (const auto& [nth, reached] : steps) {
    sink.clear();
    const auto raised =
        faults::throw_from(faults::Call::probe_search, std::runtime_error("odd"), nth);
    EXPECT_FALSE(resolve("jdoe", "x.kdc", 2, folder, true));
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::createUserOrDomainNameDirectory : Problem, can't create " +
                    area("docs") + reached});
    EXPECT_EQ(folder, area("docs") + reached);
  }
}

TEST_F(OwnerFolder, IsRefusedWhenMakingItRaises) {
  for (const std::uint64_t nth : {1U, 2U}) {
    const std::string owner = "jdoe" + std::to_string(nth);
    sink.clear();
    const auto raised =
        faults::throw_from(faults::Call::create_directory, vu_file_except("full"), nth);
    EXPECT_FALSE(resolve(owner, "x.kdc", 2, folder, true));
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::createUserOrDomainNameDirectory : full"});
  }
}

TEST_F(OwnerFolder, LetsTheExceptionsOfItsAreaPass) {
  {
    const auto raised =
        faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"), kArea);
    EXPECT_THROW(resolve("jdoe", "x.kdc", 2, folder, true), vu_file_except);
  }
  {
    const auto raised =
        faults::throw_from(faults::Call::probe_search, std::runtime_error("odd"), kArea);
    EXPECT_THROW(resolve("jdoe", "x.kdc", 2, folder, true), std::runtime_error);
  }
  vu_file::remove(area("mail"));
  {
    const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"));
    EXPECT_THROW(resolve("jdoe", "x.kdc", 3, folder, true), vu_file_except);
  }
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST(DocumentHash, IsTheFirstByteUnreducedThenRemainders) {
  EXPECT_EQ(Peer::HashCode_asJava("", 101), 0);
  EXPECT_EQ(Peer::HashCode_asJava("a", 101), 97);
  EXPECT_EQ(Peer::HashCode_asJava("a", 7), 97);
  EXPECT_EQ(Peer::HashCode_asJava("ab", 101), (98 + 31 * 97) % 101);
  EXPECT_EQ(Peer::HashCode_asJava("ab", 7), 4);
  EXPECT_EQ(Peer::HashCode_asJava("ab", 1), 0);
  EXPECT_EQ(Peer::HashCode_asJava("sales.kdc", 101), 55);
}

TEST(DocumentHash, TakesBytesAsSigned) {
  EXPECT_EQ(Peer::HashCode_asJava("\x7F", 101), 127);
  EXPECT_EQ(Peer::HashCode_asJava("\x80", 101), -128);
  EXPECT_EQ(Peer::HashCode_asJava("\xFF", 101), -1);
  EXPECT_EQ(Peer::HashCode_asJava("\x80\x80", 101), -56);
  EXPECT_EQ(Peer::HashCode_asJava("\xFF\xFF\xFF", 101), -84);
}

TEST(DocumentHash, CountsAZeroByteAsAByte) {
  EXPECT_EQ(Peer::HashCode_asJava(std::string("\0", 1), 101), 0);
  EXPECT_EQ(Peer::HashCode_asJava(std::string("\1\0", 2), 101), 31);
}

TEST(DocumentHash, UsesItsOwnModulusInPlaceOfNone) {
  for (const std::int32_t modulus : {0, -1, -101, std::numeric_limits<std::int32_t>::min()})
    EXPECT_EQ(Peer::HashCode_asJava("ab", modulus), 75) << modulus;
}

TEST(DocumentHash, WrapsAt32Bits) {
  constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(Peer::HashCode_asJava("zzzzzzzzzz", kLargest), -1580979136);
  EXPECT_EQ(Peer::HashCode_asJava("\x80zzzzzzzz", kLargest), 1810881664);
  EXPECT_EQ(Peer::HashCode_asJava("zzzzzzzz", 2000000000), -1910022912);
}

TEST(LogicalName, EndsInTenDigitsOfTheTimestamp) {
  EXPECT_EQ(Peer::getLogicalName("sales.kdc", 1199145600), "sales.kdc_1199145600");
  EXPECT_EQ(Peer::getLogicalName("sales.kdc", 42), "sales.kdc_0000000042");
  EXPECT_EQ(Peer::getLogicalName("a", 0), "a_0000000000");
  EXPECT_EQ(Peer::getLogicalName("", 0), "_0000000000");
  EXPECT_EQ(Peer::getLogicalName("a", -1), "a_4294967295");
  EXPECT_EQ(Peer::getLogicalName("a", 2147483647), "a_2147483647");
}

TEST(LogicalName, ClampsATimestampThatIsWiderThan32Bits) {
  // Where `long` has 32 bits, these are its limits.
  EXPECT_EQ(Peer::getLogicalName("a", std::numeric_limits<long>::max()), "a_2147483647");
  EXPECT_EQ(Peer::getLogicalName("a", std::numeric_limits<long>::min()), "a_2147483648");
}

class DocumentExtension : public OwnerFolder {};

TEST_F(DocumentExtension, IsOneOfSeven) {
  for (const char* const extension : {"kda", "kdb", "kdc", "kdd", "kde", "kdf", "kdg"})
    EXPECT_TRUE(vu_storage::isVuDocExt(extension)) << extension;
}

TEST_F(DocumentExtension, HasNoDotAndNoCapitals) {
  for (const char* const extension :
       {"", "k", "kd", "kdh", "kd`", "kdaa", ".kda", "kda ", "KDA", "Kda", "kdA", "txt", "ctg"})
    EXPECT_FALSE(vu_storage::isVuDocExt(extension)) << extension;
  EXPECT_FALSE(vu_storage::isVuDocExt(std::string("kda\0", 4)));
}

TEST(OwnerFolderOfAll, IsNotFoundWhenTheAreaCannotBeMade) {
  const scratch_folder scratch;
  const initialised_storage storage(scratch.path(), false);
  std::filesystem::remove(native(scratch.path("storage\\user")));
  const auto refused =
      faults::fail(faults::Call::create_directory, kRefused, 1, faults::Times::kLasting);
  std::string folder;
  EXPECT_FALSE(
      vu_storage::createUserOrDomainNameDirectory("jdoe", "x", STG::UserRepository, folder, false));
  EXPECT_EQ(folder, scratch.path("storage\\user"));
  EXPECT_TRUE(
      vu_storage::createUserOrDomainNameDirectory("jdoe", "x", STG::UserRepository, folder, true));
}

// File lists from the index of a folder.

using vu_host::trace_event;
namespace faults = os::faults;

class FileLists : public StorageTest {
 protected:
  FileLists() { make_folder(folder); }

  /// Writes an index with these lines, and these files.
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

TEST_F(FileLists, OfNoFolderAreEmptyAndSayNothing) {
  write_file(scratch.path("file"), "x");
  folder = scratch.path("file");
  EXPECT_TRUE(all().empty());
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  folder = scratch.path("missing");
  EXPECT_TRUE(all().empty());
  // The one event comes from the check whether it is a folder.
  EXPECT_EQ(sink.count(traced::kind_t::event), 1U);
  EXPECT_TRUE(facade(trace_event::warning).empty());
  EXPECT_TRUE(physical.empty());
}

TEST_F(FileLists, OfDocumentsRefuseAPathThatIsNotAFolderWithoutATrace) {
  write_file(scratch.path("file"), "x");
  folder = scratch.path("file");
  EXPECT_THROW(documents(), vu_file_except);
  folder = scratch.path("missing");
  EXPECT_THROW(documents(), vu_file_except);
  EXPECT_TRUE(physical.empty());
  EXPECT_TRUE(facade(trace_event::error).empty());
}

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

TEST_F(FileLists, AreEmptyWhereTheSaveAfterAnAdoptionRaises) {
  const synchronisation on(true);
  physical = {"before"};
  for (const auto& list : {std::function<Texts()>([&] { return all(); }),
                           std::function<Texts()>([&] { return documents(); })}) {
    lay_out("a.kdc_0000000000/00001\n", {"00001.kdc", "b.kdb"});
    // The first read is that of the load, the second one that of the save.
    const auto raised = faults::throw_from(faults::Call::read, std::runtime_error("odd"), 2);
    EXPECT_TRUE(list().empty());
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_EQ(physical, Texts{"before"});
  }
}

}  // namespace
