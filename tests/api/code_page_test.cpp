#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_path.h"
#include "vu_storage.h"

// Narrow names beyond ASCII, in the code page of the program. On Linux it is UTF-8. On Windows it
// is any; CTest also runs these cases under 932 and 1252. The results are checked with the wide
// calls of std::filesystem and with vu_fileutf8.

#if defined(_WIN32)
// Declared here, because only the seam may include the system's header.
extern "C" __declspec(dllimport) unsigned int __stdcall GetACP();
#endif

namespace {

using list = std::vector<std::string>;

unsigned int code_page() {
#if defined(_WIN32)
  return GetACP();
#else
  return 65001;
#endif
}

/// One name as narrow text and as UTF-8.
struct Name {
  std::string narrow;
  std::string utf8;
};

/// A name in the code page; in 932 its second byte is that of a backslash.
Name name_here() {
  static const std::map<unsigned int, Name> names = {
      {932, {"\x95\x5C", "\xE8\xA1\xA8"}},
      {1252,
       {"Gr\xF6\xDF"
        "e",
        "Gr\xC3\xB6\xC3\x9F"
        "e"}},
      {65001, {"\xE8\xA1\xA8", "\xE8\xA1\xA8"}},
  };
  const auto found = names.find(code_page());
  return found != names.end() ? found->second : Name{"plain", "plain"};
}

class CodePage : public testing::Test {
 protected:
  /// The same path for the library and for the tests.
  std::string narrow(const std::string& behind = "") const {
    return m_dir.path(m_name.narrow + behind);
  }
  std::string utf8(const std::string& behind = "") const {
    return m_dir.path(m_name.utf8 + behind);
  }

  const Name m_name = name_here();
  scratch_folder m_dir;
};

TEST_F(CodePage, IsTheRequestedOne) {
  const char* const asked = std::getenv("VU_TEST_CODE_PAGE");
  if (asked == nullptr) return;
  EXPECT_EQ(std::to_string(code_page()), asked);
  EXPECT_NE(m_name.narrow, "plain");
}

TEST_F(CodePage, HasNamesOfFiles) {
  vu_file file(m_dir.path(), m_name.narrow);
  file.open(vu_file_base::o_truncate);
  file.write("01234");
  file.close();
  ASSERT_TRUE(file_exists(utf8()));
  EXPECT_EQ(list_folder(m_dir.path()), list{m_name.utf8});
  set_modify_time(utf8(), 1'500'000'000);
  EXPECT_TRUE(vu_file::exists(narrow()));
  EXPECT_EQ(vu_file::size(narrow()), 5);
  EXPECT_EQ(vu_file::modify_time(narrow()), 1'500'000'000);
  EXPECT_EQ(vu_file::access_time(narrow()), 1'500'000'000);
  EXPECT_FALSE(vu_file::is_dir(narrow()));
  EXPECT_EQ(vu_file::filenames(m_dir.path()), list{m_name.narrow});

  vu_file again(narrow());
  again.open(vu_file_base::o_read);
  std::string bytes;
  EXPECT_EQ(again.read(bytes, 0), 5);
  EXPECT_EQ(bytes, "01234");
  again.close();
  EXPECT_TRUE(vu_file::copyFile(narrow(), narrow("2"), true));
  EXPECT_TRUE(vu_file::rename(narrow("2"), narrow("3")));
  EXPECT_TRUE(file_exists(utf8("3")));
  EXPECT_TRUE(vu_file::chmodW(narrow("3")));
  vu_file::remove(narrow());
  EXPECT_FALSE(file_exists(utf8()));
}

TEST_F(CodePage, HasNamesOfFolders) {
  EXPECT_TRUE(vu_file::createDir(narrow()));
  ASSERT_TRUE(folder_exists(utf8()));
  EXPECT_TRUE(vu_file::is_dir(narrow()));
  EXPECT_TRUE(vu_file::is_dir(narrow("\\")));
  EXPECT_TRUE(vu_file::exists(narrow("\\")));
  EXPECT_EQ(vu_file::size(narrow()), 0);
  write_file(utf8("\\" + m_name.utf8), "01234");
  write_file(m_dir.path("beside"), "");
  EXPECT_EQ(vu_file::filenames(narrow()), list{m_name.narrow});
  EXPECT_EQ(vu_file::size(narrow("\\" + m_name.narrow)), 5);
  EXPECT_TRUE(vu_file::recurseRemoveDir(narrow()));
  EXPECT_EQ(list_folder(m_dir.path()), list{"beside"});
}

TEST_F(CodePage, HasPathsThatAreCutAtTheirSeparators) {
  const vu_path names(narrow());
  EXPECT_EQ(names.getParentPathName(), m_dir.path());
  EXPECT_EQ(names.getRelativePathName(), m_name.narrow);
  std::string path = narrow();
  vu_file::addFileSep(path);
  EXPECT_EQ(path, narrow("\\"));
  vu_file::removeLastFileSep(path);
  EXPECT_EQ(path, narrow());
  std::string folder;
  EXPECT_EQ(vu_file::getShirtFileName(narrow(), folder), m_name.narrow);
  const vu_file file(narrow());
  EXPECT_EQ(file.getPath().getRelativePathName(), m_name.narrow);
}

TEST_F(CodePage, DoesNotAffectTheUtf8Form) {
  vu_fileutf8 file{vu_utf8string(m_dir.path()), vu_utf8string("\xE8\xA1\xA8 Gr\xC3\xB6\xC3\x9F"
                                                              "e")};
  file.open(vu_file_base::o_truncate);
  file.write("01234");
  file.close();
  EXPECT_EQ(list_folder(m_dir.path()), list{"\xE8\xA1\xA8 Gr\xC3\xB6\xC3\x9F"
                                            "e"});
  EXPECT_EQ(vu_fileutf8::size(file.getFilePath()), 5U);
}

TEST_F(CodePage, HasOwnersAndDocuments) {
  program_storage();
  vu_storage client;
  const std::string entry = m_name.narrow + ".kdc";
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, m_name.narrow, entry, STG::CorporateRepository, true, 0));
  ASSERT_TRUE(file.is_open());
  client.Write(file, "01234");
  client.Close(file);
  std::string folder;
  std::string physical;
  EXPECT_TRUE(
      client.IsFileExist(m_name.narrow, entry, STG::CorporateRepository, 0, &folder, &physical));
  client.OpenRead(file, m_name.narrow, entry, STG::CorporateRepository, 0);
  std::string bytes;
  client.Read(file, bytes, 0);
  EXPECT_EQ(bytes, "01234");
  client.Close(file);
  list physicals;
  EXPECT_EQ(vu_storage::getAllFileListFromIndexFile(folder, physicals), list{entry});
  EXPECT_TRUE(vu_storage::RemoveFile(m_name.narrow, entry, STG::CorporateRepository, 0));
  EXPECT_FALSE(
      client.IsFileExist(m_name.narrow, entry, STG::CorporateRepository, 0, nullptr, nullptr));
  const list owners = list_folder(vu_storage::getCorpPath());
  EXPECT_NE(std::find(owners.begin(), owners.end(), m_name.utf8), owners.end());
}

}  // namespace
