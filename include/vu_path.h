#pragma once

#include <string>

#include "vu_export.h"
#include "vu_i18n.h"

VU_STORAGE_TYPES_BEGIN

/// @file
/// Names of files as a pair of parent directory and last component. The separator is the backslash;
/// the classes do not look at the file system, and fail for want of memory only.

/// A parent directory and a relative (last) name, as narrow strings. A value type: both names are
/// given at the construction or by an assignment, and read as often as one likes. Nothing fails but
/// for want of memory.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; whoever changes or destroys one has it to himself}
class VU_STORAGE_API vu_path {
 public:
  /// Keeps both names as given; no separator is added or removed.
  /// @param parentPathName the directory, without a trailing separator.
  /// @param relativePathName the last component.
  vu_path(const std::string& parentPathName, const std::string& relativePathName);

  /// Splits a full path at its last backslash: the parent is everything before it, the relative
  /// name everything after it. A slash is no separator, and a backslash that is the second byte of
  /// a two-byte character of the ANSI code page is none either.
  ///
  /// Without any backslash the parent is empty and the relative name loses its first character
  /// ("abc" gives "bc"); callers rely on it. The empty path gives two empty names.
  /// @param fullPath directory, backslash, last component.
  vu_path(const std::string& fullPath);
  /// An independent copy.
  /// @param other what is copied.
  vu_path(const vu_path& other);
  /// Copies both names.
  /// @param other what is copied.
  /// @return this path.
  vu_path& operator=(const vu_path& other);
  /// Frees the names.
  virtual ~vu_path();

  /// @return the parent directory, a reference into this object.
  const std::string& getParentPathName() const;
  /// @return the last component, a reference into this object.
  const std::string& getRelativePathName() const;
  /// @return parent + `\` + relative name, with exactly one backslash put in even when the parent
  /// is empty or ends with a separator.
  std::string getAbsolutePathName() const;
  /// @return the parent name, split again as by the one-argument constructor.
  vu_path getParentPath() const;

 private:
  std::string parentPathName;
  std::string relativePathName;
};

/// The same as vu_path for UTF-8 names; the split looks at plain bytes.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; whoever changes or destroys one has it to himself}
class VU_STORAGE_API vu_pathutf8 {
 public:
  /// As vu_path::vu_path(const std::string&, const std::string&).
  /// @param parentPathName the directory, without a trailing separator.
  /// @param relativePathName the last component.
  vu_pathutf8(const vu_utf8string& parentPathName, const vu_utf8string& relativePathName);
  /// As vu_path::vu_path(const std::string&), every byte by itself.
  /// @param fullPath directory, backslash, last component.
  vu_pathutf8(const vu_utf8string& fullPath);
  /// An independent copy.
  /// @param other what is copied.
  vu_pathutf8(const vu_pathutf8& other);
  /// Copies both names.
  /// @param other what is copied.
  /// @return this path.
  vu_pathutf8& operator=(const vu_pathutf8& other);
  /// Frees the names.
  virtual ~vu_pathutf8();

  /// @return the parent directory, a reference into this object.
  const vu_utf8string& getParentPathName() const;
  /// @return the last component, a reference into this object.
  const vu_utf8string& getRelativePathName() const;
  /// @return as vu_path::getAbsolutePathName().
  vu_utf8string getAbsolutePathName() const;
  /// @return as vu_path::getParentPath().
  vu_pathutf8 getParentPath() const;

 private:
  vu_utf8string parentPathName;
  vu_utf8string relativePathName;
};

/// Asks the temporary-files helper (vu_host::temporary_files) for the framework's root temporary
/// directory.
/// @param out receives the directory in the ANSI code page (bytes of UTF-8 on Linux), without a
/// trailing backslash. What the helper throws passes; nothing else fails.
/// @blocking{as long as the helper takes} @threads{any; the helper is asked by several at once}
VU_STORAGE_API void getTempRootPath(std::string& out);

VU_STORAGE_TYPES_END
