#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vu_export.h"
#include "vu_file_base.h"
#include "vu_file_except.h"
#include "vu_path.h"

VU_STORAGE_TYPES_BEGIN

/// A file handle for narrow names, and the file-system operations on narrow paths.
///
/// Order of calls: name the file (with the constructor, setPath(), or the open() that takes both
/// names), open() it in one of four modes (vu_file_base::type_access), read(), write() and seek()
/// as the mode allows, close(). From open() to close() the handle holds a lock on the whole file.
/// The destructor closes what is open, and one handle may open one file after the other. The static
/// operations need no handle, and but for linesNotEmpty() they take no lock.
///
///     vu_file file("/srv/data", "notes.txt");
///     file.open(vu_file::o_append);  // waits for whoever has it open
///     file.write("one more line\n");
///     file.close();                  // on the device, and free for the next one
///
/// Errors: open(), read() and write() throw vu_file_except where they say so. Every other failure
/// is a result, and is traced under the source name "vu_file".
///
/// Narrow strings are in the process's ANSI code page on Windows and plain bytes on Linux. The
/// separator written is the backslash; on Linux both `\` and `/` separate. In a two-byte code page
/// the second byte of a character is never taken for a separator.
///
/// A path with a NUL in it is the path of nothing: it does not exist, cannot be opened, and no file
/// or folder is made, copied, renamed or removed by it.
///
/// Blocking: whose locks a member waits for, without limit, be they in this process or in another.
/// Readers of a file are the handles that have it open with o_read, writers those of every other
/// mode. "No" means that it waits for no lock; what the system needs comes on top (a slow disk, a
/// network, a pipe without its other end). Without a lock of its own a handle fails at once on what
/// others hold.
///
/// Threads: "any" means several at once, on arguments that none of them changes meanwhile. Copies
/// of an open handle count as one handle. Two handles on one file exclude each other by their
/// locks, in two threads as in two processes.
///
/// @all_blocking{no}
/// @all_threads{any, each with a handle of its own; one at a time on one handle}
class VU_STORAGE_API vu_file : public vu_file_base {
 public:
  // ---- the handle ----------------------------------------------------------------------------

  /// Closed, with empty names.
  vu_file();
  /// Closed; the names as by setPath().
  /// @param fullPath directory, backslash, file name.
  vu_file(const std::string& fullPath);
  /// Closed; the names as given.
  /// @param directory without a trailing separator.
  /// @param fileName the name in that directory.
  vu_file(const std::string& directory, const std::string& fileName);
  /// Shallow: see vu_file_base.
  /// @param other may be open.
  vu_file(const vu_file& other);
  /// Shallow: see vu_file_base. An open handle of this object is dropped without being closed.
  /// @param other may be open.
  /// @return this object.
  vu_file& operator=(const vu_file& other);
  /// Closes an open handle.
  /// @blocking{as close()}
  ~vu_file() noexcept;

  /// Splits @p fullPath at its last `\` into directory and file name. A path without `\`, or an
  /// open handle, leaves the names unchanged and is traced as an error. Never throws.
  /// @param fullPath directory, backslash, file name.
  void setPath(const std::string& fullPath) noexcept;
  /// @return directory + `\` + file name.
  std::string getFilePath() const;
  /// @return the directory and the file name as a path object.
  vu_path getPath() const;

  /// Opens the file and asks for its lock. An open handle is closed first, which is traced as an
  /// error.
  /// @param mode one of the four modes; any other value is traced as an error.
  /// @param lockFailed set to whether the lock was refused when the file could be opened; else
  /// left.
  /// @param noWait true: a lock held elsewhere is refused at once; false: waits without limit.
  /// @return whether the file is open now. A refused lock leaves it open and unlocked; then reads
  /// and writes fail on what another handle holds locked, and the caller has to close it.
  /// @blocking{no with @p noWait, else as open()}
  bool try_open(type_access mode, bool& lockFailed, bool noWait);

  /// Opens the file and waits without limit until its lock is granted. A lock that the system
  /// refuses for another reason leaves the file open and unlocked, without an exception.
  /// @param mode one of the four modes; any other value is traced as an error.
  /// @throws vu_file_except "throw exception on open" when the file cannot be opened, which is
  /// traced as a warning for o_read and as an error for the other modes. No other exception type
  /// but those of the standard library for want of memory, and of vu_fileutf8 vu_i18n_except for a
  /// name that is not valid UTF-8.
  /// @blocking{for writers of the file, and unless @p mode is o_read for its readers, too}
  void open(type_access mode);
  /// Takes the names and opens as open(type_access); does nothing at all when either name is empty.
  /// @param directory without a trailing separator.
  /// @param fileName the name in it.
  /// @param mode one of the four modes.
  /// @throws vu_file_except as open(type_access).
  /// @blocking{as open(type_access)}
  void open(const std::string& directory, const std::string& fileName, type_access mode);

  /// Reads from the current position.
  /// @param out receives the bytes read; emptied first.
  /// @param count bytes to read, or 0 for the size of the whole file (of which, after a seek, what
  /// remains is got).
  /// @return the number of bytes read; 0 at the end of the file.
  /// @throws vu_file_except "vu_file::read : read op in write or truncate access file" in those
  /// modes and before any open; "throw exception on read" when the system's read fails, and for a
  /// count below 0 (also that of a whole file between 2 and 4 GB, whose 32-bit size is negative).
  int read(std::string& out, int count);
  /// As the string form.
  /// @param buffer the caller's: room for @p count bytes, or for the whole file when it is 0.
  /// @param count bytes to read, or 0 for the size of the whole file.
  /// @return the number of bytes read.
  int read(char* buffer, int count);

  /// Writes all bytes: in o_append at the end of the file, else at the current position.
  /// @param data the bytes; any may occur.
  /// @return the number of bytes written; fewer than given, after an error trace, when the system's
  /// write failed. 0 for empty data, without touching the file.
  /// @throws vu_file_except "vu_file::write : write operation in read access file" in o_read and
  /// before any open.
  int write(const std::string& data);
  /// As the string form.
  /// @param data the caller's, @p count bytes.
  /// @param count their number.
  /// @return the number of bytes written.
  /// @throws std::length_error when @p count is below 0.
  int write(const char* data, int count);

  /// Moves the file position; neither checked nor reported.
  /// @param offset bytes, signed. @param origin 0 from the start, 1 from the position, 2 from the
  /// end.
  void seek(int offset, short origin);
  /// Moves the file position to the start.
  void rewind();
  /// Closes the file: flushes it to the device (not in o_read), gives the lock back, closes the
  /// handle. A step that fails is traced as an error and the next one follows. Nothing when closed;
  /// never throws.
  /// @blocking{while the system writes the file to the device; for no lock}
  void close() noexcept;
  /// Empties the file and moves to its start; nothing in o_read. A failure is traced. Never throws.
  void clear() noexcept;

  /// Reads the non-empty lines of a file: pieces between line feeds, less one trailing carriage
  /// return each; what follows the last line feed is taken as it stands. Blanks count.
  /// @param dir the folder, without a trailing separator.
  /// @param name the file's name in it.
  /// @param lines the lines are appended.
  /// @throws vu_file_except when the file cannot be opened or read.
  /// @blocking{for writers of the file}
  static void linesNotEmpty(const std::string& dir, const std::string& name,
                            std::vector<std::string>& lines);

  // ---- questions -----------------------------------------------------------------------------

  /// @param path the path asked about.
  /// @return whether a file or folder of that name exists. The answer comes from a directory
  /// search: "*" and "?" in the last component match as patterns, a separator behind the name of a
  /// file or folder does not count (is_dir() asks for a folder), roots exist, and the empty path
  /// does not. For a path that begins with two backslashes the attributes decide.
  static bool exists(const std::string& path);
  /// @param path the path asked about.
  /// @return the last access, in seconds since 1970-01-01 UTC; 0 for a missing path (traced as a
  /// warning) and on other failures (traced as an error).
  static std::int64_t access_time(const std::string& path);
  /// @param path the path asked about.
  /// @return the last modification, in seconds since 1970-01-01 UTC; failures as access_time().
  static std::int64_t modify_time(const std::string& path);
  /// @param path the path asked about.
  /// @return the size in bytes, low 32 bits as a signed number, of a folder 0; failures as
  /// access_time().
  static int size(const std::string& path);
  /// @param path the path asked about.
  /// @return whether the path is a folder; failures as access_time(), with false.
  static bool is_dir(const std::string& path);
  /// @param dir the folder, with or without a trailing separator.
  /// @return the names (no paths) of every entry of a folder but "." and "..", files and folders
  /// alike, in the system's order; empty when @p dir is no folder or cannot be listed. On Linux
  /// names with a backslash or a line feed are left out.
  static std::vector<std::string> filenames(const std::string& dir);

  // ---- changes -------------------------------------------------------------------------------

  /// Makes a file readable and writable for its owner (clears the read-only attribute). A file that
  /// is so already is a success, also for another account.
  /// @param path the file.
  /// @return false after an error trace when that fails.
  static bool chmodW(const std::string& path);
  /// Makes one folder.
  /// @param path the folder; its parent must exist.
  /// @return true also when the name exists already; false after an error trace.
  static bool createDir(const std::string& path);
  /// Removes a file or an empty folder. A failure is neither reported nor traced; a path that is
  /// missing or cannot be asked for is traced as by is_dir().
  /// @param path the file or folder.
  static void remove(const std::string& path);
  /// Renames a file or folder.
  /// @param oldPath what is renamed.
  /// @param newPath its new path, in the same file system.
  /// @return false after a warning when that fails, as it does when the new name is taken.
  static bool rename(const std::string& oldPath, const std::string& newPath);
  /// Copies a file with its modification time.
  /// @param src the file that is read.
  /// @param dst the file that is made.
  /// @param overwrite false: a copy onto an existing file is refused without a trace.
  /// @return whether the copy succeeded; the event Success, which is traced whenever the system was
  /// asked to copy, does not tell. A copy that fails half-way leaves no target, also where there
  /// was one before. On Linux a target of another account keeps the time of the copy, with a
  /// warning.
  /// @blocking{no: it fails at once when a lock is in its way}
  static bool copyFile(const std::string& src, const std::string& dst, bool overwrite);
  /// Removes a folder with everything in it; of a link in it the link, not what it leads to, on
  /// Linux also when somebody puts it there meanwhile.
  /// @param path the folder.
  /// @return false when @p path is no folder; true otherwise, also when something could not be
  /// removed.
  static bool recurseRemoveDir(const std::string& path);

  // ---- names ---------------------------------------------------------------------------------

  /// Splits a path into file name and directory at the last `\` or `/`. It computes no 8.3 name.
  /// @param fullName the path.
  /// @param dir receives everything up to and including that separator; `.\` when there is none.
  /// @return everything after it.
  static std::string getShirtFileName(const std::string& fullName, std::string& dir);
  /// Appends `\` unless @p path ends in `\` or `/`; the empty path becomes `.\`.
  /// @param path changed in place.
  static void addFileSep(std::string& path);
  /// Removes one trailing `\` or `/`; the empty path becomes ".".
  /// @param path changed in place.
  static void removeLastFileSep(std::string& path);
  /// Cuts @p name before its last "." (anywhere, also in a directory) and stores what follows the
  /// dot in @p extension; without a dot both stay as they are.
  /// @param name changed in place.
  /// @param extension receives what follows the dot.
  static void split(std::string& name, std::string& extension);
  /// @param path a path or a name.
  /// @return what follows the last "." of @p path (anywhere, also in a directory), without the dot;
  /// empty when there is none.
  static std::string getExtension(const std::string& path);

 private:
  friend class HandleCore;

  void init();
  static std::string mSgError(unsigned long errorCode);

  std::string fileName;
  std::string directory;
};

VU_STORAGE_TYPES_END
