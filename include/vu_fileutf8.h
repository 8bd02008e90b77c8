#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vu_export.h"
#include "vu_file_base.h"
#include "vu_file_except.h"
#include "vu_i18n.h"
#include "vu_path.h"

VU_STORAGE_TYPES_BEGIN

/// The twin of vu_file for UTF-8 names: a file handle, and file-system operations on UTF-8 paths.
///
/// Names are converted to UTF-16 for the wide system calls. If a path has 249 characters or more
/// after its root, the system gets its long form. It has the prefix `\\?\`, or the short names of
/// the volume. So a path can be longer than 260 characters. The conversion of a name that is not
/// valid UTF-8 throws vu_i18n_except; createDirR() and copyFile() return false instead. Contents
/// are bytes, as with vu_file.
///
/// Order of calls, errors, blocking and threads are those of vu_file. A member without a
/// description of its own behaves, throws and traces as the member of vu_file with the same name.
///
/// @all_blocking{no}
/// @all_threads{any, each with its own handle; one at a time on one handle}
class VU_STORAGE_API vu_fileutf8 : public vu_file_base {
 public:
  // ---- the handle ----------------------------------------------------------------------------

  /// Closed, with empty names.
  vu_fileutf8();
  /// @copydoc vu_file::vu_file(const std::string&)
  vu_fileutf8(const vu_utf8string& fullPath);
  /// @copydoc vu_file::vu_file(const std::string&, const std::string&)
  vu_fileutf8(const vu_utf8string& directory, const vu_utf8string& fileName);
  /// @copydoc vu_file::vu_file(const vu_file&)
  vu_fileutf8(const vu_fileutf8& other);
  /// @copydoc vu_file::operator=(const vu_file&)
  vu_fileutf8& operator=(const vu_fileutf8& other);
  /// Closes an open handle.
  /// @blocking{as close()}
  ~vu_fileutf8() noexcept;

  /// @copydoc vu_file::setPath
  void setPath(const vu_utf8string& fullPath) noexcept;
  /// @copydoc vu_file::getFilePath
  vu_utf8string getFilePath() const;
  /// @copydoc vu_file::getPath
  vu_pathutf8 getPath() const;

  /// As vu_file::try_open(), on the long form of the path.
  /// @copydoc vu_file::try_open
  bool try_open(type_access mode, bool& lockFailed, bool noWait);
  /// @copydoc vu_file::open(type_access)
  void open(type_access mode);
  /// @copydoc vu_file::open(const std::string&, const std::string&, type_access)
  void open(const vu_utf8string& directory, const vu_utf8string& fileName, type_access mode);

  /// As vu_file::read(std::string&, int), with a whole file of up to 2 GB - 1.
  /// @param out receives the bytes; emptied first.
  /// @param count number of bytes to read; 0 for the whole file.
  /// @return the number of bytes read; 0 at the end of the file.
  /// @throws vu_file_except "vu_fileutf8::read : read op in write or truncate access file" in the
  /// wrong mode. "throw exception on read" as vu_file, and if the whole file is larger.
  int read(std::string& out, int count);
  /// @copydoc vu_file::read(char*, int)
  int read(char* buffer, int count);
  /// Reads into a buffer that it allocates, and ends the buffer with a 0 byte. If there is nothing
  /// to read, both arguments stay unchanged.
  /// @param buffer receives an array of count + 1 bytes, which the caller frees with delete[]. The
  /// 0 byte is at the requested count; after a shorter read the bytes before it are not set.
  /// @param length in: number of bytes to read, 0 for the whole file; out: number of bytes read.
  /// @throws vu_file_except as the string form. After "throw exception on read" @p length is 0, and
  /// @p buffer is freed if it was allocated: do not use it.
  void read(unsigned char*& buffer, unsigned int& length);

  /// As vu_file::write(const std::string&).
  /// @param data the bytes; any values.
  /// @return as there.
  /// @throws vu_file_except "vu_fileutf8::write : write operation in read access file" in the wrong
  /// mode.
  int write(const std::string& data);
  /// @copydoc vu_file::write(const char*, int)
  int write(const char* data, int count);

  /// @copydoc vu_file::seek
  void seek(int offset, short origin);
  /// @copydoc vu_file::rewind
  void rewind();
  /// @copydoc vu_file::close
  void close() noexcept;
  /// @copydoc vu_file::clear
  void clear() noexcept;

  /// As vu_file::linesNotEmpty().
  /// @param dir the folder, without a trailing separator.
  /// @param fileName the name of the file in it.
  /// @param lines the lines are appended.
  /// @throws vu_file_except if the file cannot be opened or read.
  /// @blocking{for writers of the file}
  static void linesNotEmpty(const vu_utf8string& dir, const vu_utf8string& fileName,
                            std::vector<vu_utf8string>& lines);

  // ---- questions -----------------------------------------------------------------------------

  /// @copydoc vu_file::exists
  static bool exists(const vu_utf8string& path);
  /// @param path the path to check.
  /// @return the last access, in seconds since 1970-01-01 UTC; 0 on failure.
  static std::uint64_t access_time(const vu_utf8string& path);
  /// @param path the path to check.
  /// @return the last modification, in seconds since 1970-01-01 UTC; 0 on failure.
  static std::uint64_t modify_time(const vu_utf8string& path);
  /// @param path the path to check.
  /// @return the size in bytes; 0 for a folder and on failure.
  static std::uint64_t size(const vu_utf8string& path);
  /// @param path the path to check.
  /// @return whether the path is a folder.
  static bool is_dir(const vu_utf8string& path);
  /// @copydoc vu_file::filenames
  static std::vector<vu_utf8string> filenames(const vu_utf8string& dir);
  /// @param path the folder.
  /// @return the sum of the sizes in KB of all files in the folder and below, each rounded down;
  /// folders have no size, nor has a link to a folder. 0 if @p path is not a folder.
  static std::uint64_t getFolderSizeInKb(const vu_utf8string& path);

  // ---- changes -------------------------------------------------------------------------------

  /// Uses the path as it is, not its long form.
  /// @copydoc vu_file::chmodW
  static bool chmodW(const vu_utf8string& path);
  /// @copydoc vu_file::createDir
  static bool createDir(const vu_utf8string& path);
  /// Creates a folder and its missing parents. The path is split at its backslashes, and empty
  /// components are dropped. An absolute path (a drive and a separator, or one leading separator)
  /// may have either separator. A network path is not supported: its two leading backslashes are
  /// lost, and the result is relative to the current directory.
  /// @param path the folder, with backslashes between components.
  /// @return true if the folder exists afterwards, or a file with that name existed before; false
  /// after an error trace.
  static bool createDirR(const vu_utf8string& path);
  /// Removes a file or an empty folder: the same as remove(path, true).
  /// @param path the file or folder.
  static void remove(const vu_utf8string& path);
  /// Removes a file or an empty folder.
  /// @param path the file or folder.
  /// @param quiet a failure is traced at level XS, not as an error. A missing path is traced as a
  /// warning in any case.
  static void remove(const vu_utf8string& path, bool quiet);
  /// @copydoc vu_file::rename
  static bool rename(const vu_utf8string& oldPath, const vu_utf8string& newPath);
  /// @copydoc vu_file::copyFile
  static bool copyFile(const vu_utf8string& src, const vu_utf8string& dst, bool overwrite);
  /// As vu_file::recurseRemoveDir(), quietly.
  /// @param path the folder.
  /// @return as there.
  static bool recurseRemoveDir(const vu_utf8string& path);
  /// The same; the flag is ignored, and the removal is always quiet.
  /// @param path the folder.
  /// @param quiet ignored.
  /// @return as there.
  static bool recurseRemoveDir(const vu_utf8string& path, bool quiet);

  // ---- names ---------------------------------------------------------------------------------

  /// @copydoc vu_file::getShirtFileName
  static vu_utf8string getShirtFileName(const vu_utf8string& fullName, vu_utf8string& dir);
  /// @copydoc vu_file::addFileSep
  static void addFileSep(vu_utf8string& path);
  /// @copydoc vu_file::removeLastFileSep
  static void removeLastFileSep(vu_utf8string& path);
  /// @copydoc vu_file::split
  static void split(vu_utf8string& name, vu_utf8string& extension);
  /// @copydoc vu_file::getExtension
  static vu_utf8string getExtension(const vu_utf8string& path);
  /// @param path the path, UTF-16.
  /// @return the non-empty components between the backslashes of @p path, in order. No file is
  /// touched.
  static std::vector<vu_utf8string> directories(const ucs2string& path);
  /// @param out receives the current directory; unchanged on failure.
  /// @return whether the system returned it.
  /// @threads{any, while none changes the current directory}
  static bool getCurrentDirectory(vu_utf8string& out);
  /// @param path replaced by its absolute form; unchanged on failure.
  /// @return whether the system returned one.
  /// @threads{any, while none changes the current directory}
  static bool rel2abs(vu_utf8string& path);

 protected:
  /// exists() for a path in its long form.
  /// @param longPath the path.
  /// @return as exists().
  static bool _exists(const vu_utf8string& longPath);
  /// is_dir() for a path in its long form.
  /// @param longPath the path.
  /// @return as is_dir().
  static bool _is_dir(const vu_utf8string& longPath);
  /// remove() for a path in its long form.
  /// @param longPath the path.
  /// @param quiet as with remove().
  static void _remove(const vu_utf8string& longPath, bool quiet);
  /// recurseRemoveDir() for a path in its long form.
  /// @param longPath the path.
  /// @param quiet as with remove().
  static void _recurseRemoveDir(const vu_utf8string& longPath, bool quiet);
  /// filenames() for a path in its long form.
  /// @param longPath the path.
  /// @return as filenames().
  static std::vector<vu_utf8string> _filenames(const vu_utf8string& longPath);

 private:
  friend class HandleCore;

  void init();
  static vu_utf8string mSgError(unsigned long errorCode);

  vu_utf8string fileName;
  vu_utf8string directory;
};

VU_STORAGE_TYPES_END
