#pragma once

#include <string>

#include "vu_export.h"
#include "vu_i18n.h"

VU_STORAGE_TYPES_BEGIN

/// @file
/// Names of files as a pair of parent directory and last component. The separator is the backslash;
/// the classes do not look at the file system, and fail for want of memory only.

/// A parent directory and a relative (last) name, as narrow strings. A value type.
class VU_STORAGE_API vu_path {
 public:
  /// Keeps both names as given; no separator is added or removed.
  /// @param parentPathName the directory, without a trailing separator.
  /// @param relativePathName the last component.
  /// @blocking{no} @threads{any}
  vu_path(const std::string& parentPathName, const std::string& relativePathName);

  /// Splits a full path at its last backslash: the parent is everything before it, the relative
  /// name everything after it. A slash is no separator, and a backslash that is the second byte of
  /// a two-byte character of the ANSI code page is none either.
  ///
  /// Without any backslash the parent is empty and the relative name loses its first character
  /// ("abc" gives "bc"); callers rely on it. The empty path gives two empty names.
  /// @param fullPath directory, backslash, last component.
  /// @blocking{no} @threads{any}
  vu_path(const std::string& fullPath);
  /// An independent copy.
  /// @param other what is copied.
  /// @blocking{no} @threads{any, while none changes @p other}
  vu_path(const vu_path& other);
  /// Copies both names.
  /// @param other what is copied.
  /// @return this path.
  /// @blocking{no} @threads{one at a time on one path}
  vu_path& operator=(const vu_path& other);
  /// Frees the names.
  /// @blocking{no} @threads{the last one that uses the path}
  virtual ~vu_path();

  /// @return the parent directory, a reference into this object.
  /// @blocking{no} @threads{any, while none changes the path}
  const std::string& getParentPathName() const;
  /// @return the last component, a reference into this object.
  /// @blocking{no} @threads{any, while none changes the path}
  const std::string& getRelativePathName() const;
  /// @return parent + `\` + relative name, with exactly one backslash put in even when the parent
  /// is empty or ends with a separator.
  /// @blocking{no} @threads{any, while none changes the path}
  std::string getAbsolutePathName() const;
  /// @return the parent name, split again as by the one-argument constructor.
  /// @blocking{no} @threads{any, while none changes the path}
  vu_path getParentPath() const;

 private:
  std::string parentPathName;
  std::string relativePathName;
};

/// The same as vu_path for UTF-8 names; the split looks at plain bytes.
class VU_STORAGE_API vu_pathutf8 {
 public:
  /// As vu_path::vu_path(const std::string&, const std::string&).
  /// @param parentPathName the directory, without a trailing separator.
  /// @param relativePathName the last component.
  /// @blocking{no} @threads{any}
  vu_pathutf8(const vu_utf8string& parentPathName, const vu_utf8string& relativePathName);
  /// As vu_path::vu_path(const std::string&), every byte by itself.
  /// @param fullPath directory, backslash, last component.
  /// @blocking{no} @threads{any}
  vu_pathutf8(const vu_utf8string& fullPath);
  /// An independent copy.
  /// @param other what is copied.
  /// @blocking{no} @threads{any, while none changes @p other}
  vu_pathutf8(const vu_pathutf8& other);
  /// Copies both names.
  /// @param other what is copied.
  /// @return this path.
  /// @blocking{no} @threads{one at a time on one path}
  vu_pathutf8& operator=(const vu_pathutf8& other);
  /// Frees the names.
  /// @blocking{no} @threads{the last one that uses the path}
  virtual ~vu_pathutf8();

  /// @return the parent directory, a reference into this object.
  /// @blocking{no} @threads{any, while none changes the path}
  const vu_utf8string& getParentPathName() const;
  /// @return the last component, a reference into this object.
  /// @blocking{no} @threads{any, while none changes the path}
  const vu_utf8string& getRelativePathName() const;
  /// @return as vu_path::getAbsolutePathName().
  /// @blocking{no} @threads{any, while none changes the path}
  vu_utf8string getAbsolutePathName() const;
  /// @return as vu_path::getParentPath().
  /// @blocking{no} @threads{any, while none changes the path}
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
