#pragma once

#include <string>

#include "vu_export.h"
#include "vu_i18n.h"

VU_STORAGE_TYPES_BEGIN

/// @file
/// File names as a pair of parent directory and last component.

/// A file name as a pair of narrow strings: parent directory and last component. The separator is
/// the backslash. No member accesses the file system; the only failure is std::bad_alloc.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API vu_path {
 public:
  /// Stores both names unchanged; no separator is added or removed.
  /// @param parentPathName the directory, without a trailing separator.
  /// @param relativePathName the last component.
  vu_path(const std::string& parentPathName, const std::string& relativePathName);

  /// Splits a full path at its last backslash: the parent is everything before it, the relative
  /// name everything after it. A slash does not separate. A backslash does not separate either if
  /// it is the second byte of a two-byte character of the ANSI code page.
  ///
  /// Without a backslash the parent is empty, and the relative name loses its first character
  /// ("abc" becomes "bc"); callers rely on this. The empty path has two empty names.
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

  /// @return the parent directory, valid as long as this object.
  const std::string& getParentPathName() const;
  /// @return the last component, valid as long as this object.
  const std::string& getRelativePathName() const;
  /// @return parent + `\` + relative name. The backslash is always added, even if the parent is
  /// empty or ends with a separator.
  std::string getAbsolutePathName() const;
  /// @return the parent name, split as by the constructor with one argument.
  vu_path getParentPath() const;

 private:
  std::string parentPathName;
  std::string relativePathName;
};

/// The same as vu_path for UTF-8 names. Every backslash is a separator.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API vu_pathutf8 {
 public:
  /// @copydoc vu_path::vu_path(const std::string&, const std::string&)
  vu_pathutf8(const vu_utf8string& parentPathName, const vu_utf8string& relativePathName);
  /// As vu_path::vu_path(const std::string&), but splits at the last backslash byte in any case.
  /// @param fullPath directory, backslash, last component.
  vu_pathutf8(const vu_utf8string& fullPath);
  /// @copydoc vu_path::vu_path(const vu_path&)
  vu_pathutf8(const vu_pathutf8& other);
  /// @copydoc vu_path::operator=
  vu_pathutf8& operator=(const vu_pathutf8& other);
  /// Frees the names.
  virtual ~vu_pathutf8();

  /// @copydoc vu_path::getParentPathName
  const vu_utf8string& getParentPathName() const;
  /// @copydoc vu_path::getRelativePathName
  const vu_utf8string& getRelativePathName() const;
  /// @copydoc vu_path::getAbsolutePathName
  vu_utf8string getAbsolutePathName() const;
  /// @copydoc vu_path::getParentPath
  vu_pathutf8 getParentPath() const;

 private:
  vu_utf8string parentPathName;
  vu_utf8string relativePathName;
};

/// Returns the framework's root temporary directory, from vu_host::temporary_files.
/// @param out receives the directory in the ANSI code page (UTF-8 on Linux), without a trailing
/// backslash. Exceptions of vu_host::temporary_files pass; nothing else fails.
/// @blocking{as long as vu_host::temporary_files takes} @threads{any, also several at once}
VU_STORAGE_API void getTempRootPath(std::string& out);

VU_STORAGE_TYPES_END
