#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_path.h"

/// @file
/// The two spellings of the file layer, for tests that run with both:
///
///     template <class Spelling>
///     class VuFileOpen : public testing::Test {};
///     TYPED_TEST_SUITE(VuFileOpen, file_spellings, spelling_names);

/// vu_file, with std::string as text.
struct narrow_spelling {
  using file = vu_file;
  using path = vu_path;
  using text = std::string;
  static constexpr const char* kClass = "vu_file";
  static constexpr const char* kWrongRead =
      "vu_file::read : read op in write or truncate access file";
  static constexpr const char* kWrongWrite = "vu_file::write : write operation in read access file";
  static constexpr const char* kInvalidPath = "vu_file setPath (invalid fullpath) : ";

  static const std::string& to_text(const std::string& bytes) { return bytes; }
  static const std::string& to_bytes(const std::string& text) { return text; }
};

/// vu_fileutf8, with vu_utf8string as text.
struct utf8_spelling {
  using file = vu_fileutf8;
  using path = vu_pathutf8;
  using text = vu_utf8string;
  static constexpr const char* kClass = "vu_fileutf8";
  static constexpr const char* kWrongRead =
      "vu_fileutf8::read : read op in write or truncate access file";
  static constexpr const char* kWrongWrite =
      "vu_fileutf8::write : write operation in read access file";
  static constexpr const char* kInvalidPath = "vu_fileutf8::setPath (invalid fullpath) : ";

  static vu_utf8string to_text(const std::string& bytes) { return vu_utf8string(bytes); }
  static const std::string& to_bytes(const vu_utf8string& text) { return text.str(); }
};

using file_spellings = testing::Types<narrow_spelling, utf8_spelling>;

struct spelling_names {
  template <class Spelling>
  static std::string GetName(int) {
    return Spelling::kClass;
  }
};

template <class Spelling>
std::vector<std::string> to_bytes(const std::vector<typename Spelling::text>& texts) {
  std::vector<std::string> bytes;
  for (const auto& text : texts) bytes.push_back(Spelling::to_bytes(text));
  return bytes;
}

/// The text of the vu_file_except that @p action throws, or "(nothing thrown)". Other exceptions
/// propagate.
template <class Action>
std::string thrown_text(Action action) {
  try {
    action();
  } catch (const vu_file_except& exception) {
    return exception.what();
  }
  return "(nothing thrown)";
}

/// A path as the UTF-8 operations trace it if it is short enough: with backslashes only.
inline std::string with_backslashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

inline constexpr vu_file_base::type_access kAllModes[] = {
    vu_file_base::o_read, vu_file_base::o_write, vu_file_base::o_append, vu_file_base::o_truncate};
inline constexpr vu_file_base::type_access kWritingModes[] = {
    vu_file_base::o_write, vu_file_base::o_append, vu_file_base::o_truncate};

/// Handles on files in a fresh folder.
template <class Spelling>
class file_handle_test : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  file_type named(const std::string& name) const {
    return file_type(Spelling::to_text(m_dir.path()), Spelling::to_text(name));
  }
  static std::string path_of(const file_type& f) { return Spelling::to_bytes(f.getFilePath()); }

  scratch_folder m_dir;
};

/// Declares a suite of file_handle_test for both spellings.
#define FILE_HANDLE_TESTS(suite)                      \
  template <class Spelling>                           \
  class suite : public file_handle_test<Spelling> {}; \
  TYPED_TEST_SUITE(suite, file_spellings, spelling_names)
