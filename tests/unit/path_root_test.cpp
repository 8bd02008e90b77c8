#include "platform/os/path_root.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

// The roots of Windows paths, as text: the same on every system.

namespace {

struct Row {
  std::u16string_view path;
  std::size_t root;
  std::size_t kept;  ///< of the path without the separators at its end
};

TEST(PathRoot, IsWhatNoPathMayLose) {
  const Row rows[] = {
      {u"", 0, 0},
      {u"a", 0, 1},
      {u"a\\", 0, 1},
      {u"a\\b//", 0, 3},
      {u"\\", 1, 1},
      {u"/", 1, 1},
      {u"\\a\\", 1, 2},
      {u"\\\\", 1, 1},
      {u"C:", 0, 2},
      {u"C:a\\", 0, 3},
      {u"C:\\", 3, 3},
      {u"C:/", 3, 3},
      {u"C:\\\\\\", 3, 3},
      {u"C:\\a\\", 3, 4},
      {u"\\\\server\\share", 14, 14},
      {u"\\\\server\\share\\", 15, 15},
      {u"\\\\server\\share\\\\", 15, 15},
      {u"\\\\server\\share\\a\\", 15, 16},
      {u"\\\\server", 8, 8},
      {u"\\\\?\\C:\\", 7, 7},
      {u"\\\\?\\C:\\a\\", 7, 8},
      {u"\\\\?\\C:", 4, 6},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.path.begin(), row.path.end()));
    EXPECT_EQ(os::root_length(row.path), row.root);
    EXPECT_EQ(os::length_without_separators(row.path), row.kept);
  }
}

}  // namespace
