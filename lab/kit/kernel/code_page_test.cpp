// Narrow names in the code page of the program's manifest. Three programs are built from this file.
// Windows 11 allows any code page, Windows 10 (1903) only UTF-8.

#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

#if VU_KIT_CODE_PAGE == 932
constexpr int kNumber = 15;
// The second byte is that of a backslash.
constexpr char kNarrow[] = "\x95\x5C";
constexpr char kUtf8[] = "\xE8\xA1\xA8";
#elif VU_KIT_CODE_PAGE == 1252
constexpr int kNumber = 16;
constexpr char kNarrow[] =
    "Gr\xF6\xDF"
    "e";
constexpr char kUtf8[] =
    "Gr\xC3\xB6\xC3\x9F"
    "e";
#else
constexpr int kNumber = 17;
constexpr char kNarrow[] = "\xE8\xA1\xA8";
constexpr char kUtf8[] = "\xE8\xA1\xA8";
#endif

}  // namespace

TEST_F(Kernel, NamesOfTheCodePageAreNamesOfFiles) {
  settles(kNumber, "narrow names beyond ASCII in code page " VU_KIT_CODE_PAGE_TEXT);
  if (::GetACP() != VU_KIT_CODE_PAGE) {
    GTEST_SKIP() << "this Windows sets code page " << ::GetACP()
                 << ", whatever the manifest requests; Windows 11 sets the requested one";
  }
  const std::string name = kNarrow;
  const std::string utf8 = kUtf8;
  EXPECT_TRUE(vu_file::createDir(path(name)));
  EXPECT_TRUE(vu_file::createDir(path(name + "\\" + name)));
  ASSERT_TRUE(folder_exists(path(utf8 + "\\" + utf8)));
  const std::string narrow_file = path(name + "\\" + name + "\\" + name + ".txt");
  const std::string file = path(utf8 + "\\" + utf8 + "\\" + utf8 + ".txt");
  vu_file writer(narrow_file);
  writer.open(vu_file::o_truncate);
  writer.write("0123456789");
  writer.close();
  ASSERT_TRUE(file_exists(file));
  EXPECT_EQ(vu_file::size(narrow_file), 10);
  EXPECT_EQ(vu_fileutf8::size(vu_utf8string(file)), 10U);
  EXPECT_EQ(vu_file::filenames(path(name + "\\" + name)), std::vector<std::string>{name + ".txt"});
  // The C interface converts UTF-8 to the code page.
  const std::string document = utf8 + ".kdc";
  Store store(program_root());
  EXPECT_EQ(store.put(document, "old"), VU_DONE);
  EXPECT_EQ(store.put(document, "new"), VU_DONE);
  EXPECT_EQ(store.content(document), "new");
  EXPECT_EQ(store.names(), std::vector<std::string>{document});
  EXPECT_EQ(store.rename(document, utf8 + " 2.kdc"), VU_DONE);
  EXPECT_EQ(store.content(utf8 + " 2.kdc"), "new");
  EXPECT_EQ(store.remove(utf8 + " 2.kdc"), VU_DONE);
  EXPECT_TRUE(vu_file::recurseRemoveDir(path(name)));
  EXPECT_FALSE(folder_exists(path(utf8)));
  found("files, folders and documents can have such names");
}
