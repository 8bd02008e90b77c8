// Paths near the classic limit. Two programs are built from this file: one has a manifest that
// requests long paths, one has not.

#include <cstdint>
#include <string>

#include "lab/kit/kernel/kernel.h"
#include "vu_file.h"
#include "vu_file_except.h"
#include "vu_fileutf8.h"

namespace {

/// Whether the system allows long paths for programs whose manifest requests them.
bool is_switched_on() {
  DWORD value = 0;
  DWORD size = sizeof value;
  return ::RegGetValueA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\FileSystem",
                        "LongPathsEnabled", RRF_RT_REG_DWORD, nullptr, &value,
                        &size) == ERROR_SUCCESS &&
         value != 0;
}

/// A path with this length: folders with short names, and a last name of the remaining length.
std::string path_of(std::size_t length, const std::string& base) {
  std::string path = base;
  while (length - path.size() > 200) path += "\\" + std::string(60, 'f');
  return path + "\\" + std::string(length - path.size() - 1, 'n');
}

/// The lengths from 240 to 300 that succeed, for example "240-251 260".
class Lengths {
 public:
  void add(std::size_t length, bool is_good) {
    if (is_good && m_first == 0) m_first = length;
    if (is_good) m_last = length;
    if (!is_good) end();
  }
  std::string told() {
    end();
    return m_told.empty() ? "none" : m_told;
  }

 private:
  void end() {
    if (m_first != 0) {
      m_told += (m_told.empty() ? "" : " ") + std::to_string(m_first) +
                (m_last > m_first ? "-" + std::to_string(m_last) : "");
    }
    m_first = 0;
  }
  std::size_t m_first = 0;
  std::size_t m_last = 0;
  std::string m_told;
};

/// @return whether the folder was created. Checks that it exists if and only if it was.
bool makes_folder(const std::string& path) {
  const bool is_made = vu_fileutf8::createDirR(vu_utf8string(path));
  EXPECT_EQ(folder_exists(path), is_made) << path.size();
  EXPECT_EQ(vu_fileutf8::exists(vu_utf8string(path)), is_made) << path.size();
  if (is_made) vu_fileutf8::recurseRemoveDir(vu_utf8string(path));
  EXPECT_FALSE(folder_exists(path)) << path.size();
  return is_made;
}

/// @return whether the file was written. If it was, checks its bytes.
template <class File, class Path>
bool makes_file(const std::string& path) {
  File file{Path(path)};
  try {
    file.open(vu_file_base::o_truncate);
  } catch (const vu_file_except&) {
  }
  const bool is_made = file.is_open();
  if (is_made) file.write("0123456789");
  file.close();
  EXPECT_EQ(file_exists(path), is_made) << path.size();
  if (!is_made) return false;
  EXPECT_EQ(read_file(path), "0123456789") << path.size();
  EXPECT_EQ(static_cast<std::int64_t>(File::size(Path(path))), 10) << path.size();
  File::remove(Path(path));
  EXPECT_FALSE(file_exists(path)) << path.size();
  return true;
}

}  // namespace

#if defined(VU_KIT_LONG_PATHS)
TEST_F(Kernel, LongPathsWithTheManifest) {
  settles(14, "the same for a program whose manifest requests long paths");
  constexpr bool kIsAskedFor = true;
#else
TEST_F(Kernel, LongPathsWithoutTheManifest) {
  settles(13,
          "which paths of 240 to 300 characters succeed; the others must fail and leave nothing");
  constexpr bool kIsAskedFor = false;
#endif
  const std::string base = path("f");
  if (base.size() > 180) GTEST_SKIP() << "this folder's own path is too long";
  Lengths folders;
  Lengths narrow;
  Lengths wide;
  std::size_t good = 0;
  std::size_t all = 0;
  for (std::size_t length = 240; length <= 300; ++length) {
    if (length > 264 && length < 295) continue;
    const std::string each = path_of(length, base);
    const std::string parent = each.substr(0, each.find_last_of('\\'));
    ASSERT_TRUE(vu_fileutf8::createDirR(vu_utf8string(parent))) << parent.size();
    const bool is_folder = makes_folder(each);
    const bool is_wide = makes_file<vu_fileutf8, vu_utf8string>(each);
    const bool is_narrow = makes_file<vu_file, std::string>(each);
    folders.add(length, is_folder);
    wide.add(length, is_wide);
    narrow.add(length, is_narrow);
    EXPECT_TRUE(is_wide) << length;
    good += (is_folder ? 1U : 0U) + (is_narrow ? 1U : 0U);
    all += 2;
  }
  found("folders: " + folders.told() + "; files, wide: " + wide.told() + ", narrow: " +
        narrow.told() + (is_switched_on() ? "; long paths are on" : "; long paths are off"));
  if (kIsAskedFor && is_switched_on() && !is_emulated()) {
    EXPECT_EQ(good, all);
  }
}
