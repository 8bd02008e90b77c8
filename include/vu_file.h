#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vu_export.h"
#include "vu_file_base.h"
#include "vu_file_except.h"
#include "vu_path.h"

VU_STORAGE_TYPES_BEGIN

/// A file handle for narrow names, and file-system operations on narrow paths.
///
/// Order of calls: name the file (constructor, setPath(), or the open() with both names). Then
/// open() it in one of four modes (vu_file_base::type_access), read(), write() and seek() as the
/// mode allows, and close() it. From open() to close() the handle holds a lock on the whole file.
/// The destructor closes an open file. A handle can open one file after another. The static
/// operations need no handle, and only linesNotEmpty() takes a lock.
///
///     vu_file file("/srv/data", "notes.txt");
///     file.open(vu_file::o_append);  // waits for everybody who has it open
///     file.write("one more line\n");
///     file.close();                  // now on the device, and unlocked
///
/// Errors: open(), read() and write() throw vu_file_except where they say so. Other failures are
/// results, and are traced under the source name "vu_file", unless the member says otherwise.
///
/// Narrow strings are in the process's ANSI code page on Windows and plain bytes on Linux. The
/// library writes backslashes as separators; on Linux it accepts `\` and `/`. In a two-byte code
/// page the second byte of a character is never taken for a separator.
///
/// A path with a NUL names nothing: it does not exist, it cannot be opened, and no operation
/// creates, copies, renames or removes it.
///
/// Blocking: each member says for whose locks it waits, without limit, in this process and in
/// others. Readers of a file are the handles that have it open with o_read; writers are those of
/// the other modes. "No" means: for no lock. The system can still need time (a slow disk, a
/// network). A pipe or a device is not a file: an open refuses it and does not wait. A handle
/// without a lock of its own does not wait: it fails at once on what other handles have locked.
///
/// Threads: "any" means several at once, if none of them changes an argument meanwhile. An open
/// handle and its copies count as one handle. Two handles on one file exclude each other by their
/// locks, in two threads as in two processes.
///
/// @all_blocking{no}
/// @all_threads{any, each with its own handle; one at a time on one handle}
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
  /// A shallow copy: see vu_file_base.
  /// @param other may be open.
  vu_file(const vu_file& other);
  /// A shallow copy: see vu_file_base. If this object has a file open, that handle is lost, not
  /// closed.
  /// @param other may be open.
  /// @return this object.
  vu_file& operator=(const vu_file& other);
  /// Closes an open handle.
  /// @blocking{as close()}
  ~vu_file() noexcept;

  /// Splits @p fullPath at its last `\` into directory and file name. If there is no `\`, or the
  /// handle is open, the names stay unchanged and an error is traced. Never throws.
  /// @param fullPath directory, backslash, file name.
  void setPath(const std::string& fullPath) noexcept;
  /// @return directory + `\` + file name.
  std::string getFilePath() const;
  /// @return the directory and the file name as a path object.
  vu_path getPath() const;

  /// Opens the file and requests its lock. If the handle is open, it is closed first, and an error
  /// is traced.
  /// @param mode one of the four modes; any other value is traced as an error.
  /// @param lockFailed if the file could be opened, receives whether the lock was refused;
  /// otherwise unchanged.
  /// @param noWait true: a lock that another handle holds is refused at once; false: waits without
  /// limit.
  /// @return whether the file is open now. With a refused lock it is open without a lock: reads and
  /// writes fail on what another handle has locked. The caller has to close it.
  /// @blocking{no with @p noWait, otherwise as open()}
  bool try_open(type_access mode, bool& lockFailed, bool noWait);

  /// Opens the file and waits without limit for its lock. If the system refuses the lock for
  /// another reason, the file is open without a lock, and nothing is thrown.
  /// @param mode one of the four modes; any other value is traced as an error.
  /// @throws vu_file_except "throw exception on open" if the file cannot be opened; traced as a
  /// warning for o_read, otherwise as an error. Also exceptions of the standard library when out of
  /// memory. vu_fileutf8 also throws vu_i18n_except for a name that is not valid UTF-8.
  /// @blocking{for writers of the file; unless @p mode is o_read also for its readers}
  void open(type_access mode);
  /// Sets the names and opens, as open(type_access). Does nothing if a name is empty.
  /// @param directory without a trailing separator.
  /// @param fileName the name in it.
  /// @param mode one of the four modes.
  /// @throws vu_file_except as open(type_access).
  /// @blocking{as open(type_access)}
  void open(const std::string& directory, const std::string& fileName, type_access mode);

  /// Reads from the current position.
  /// @param out receives the bytes; emptied first.
  /// @param count number of bytes to read; 0 for the size of the whole file (after a seek the rest
  /// of it is read).
  /// @return the number of bytes read; 0 at the end of the file.
  /// @throws vu_file_except "vu_file::read : read op in write or truncate access file" in those
  /// modes and before any open. "throw exception on read" if the system's read fails, and for a
  /// count below 0. A whole file between 2 and 4 GB has such a count: its 32-bit size is negative.
  int read(std::string& out, int count);
  /// As the string form.
  /// @param buffer the caller's: room for @p count bytes, or for the whole file if that is 0.
  /// @param count number of bytes to read; 0 for the size of the whole file.
  /// @return the number of bytes read.
  int read(char* buffer, int count);

  /// Writes all bytes: in o_append at the end of the file, otherwise at the current position.
  /// @param data the bytes; any values.
  /// @return the number of bytes written. It is below the size of @p data if the system's write
  /// fails, which is traced as an error. 0 for empty data; the file is not touched.
  /// @throws vu_file_except "vu_file::write : write operation in read access file" in o_read and
  /// before any open.
  int write(const std::string& data);
  /// As the string form.
  /// @param data the caller's, @p count bytes.
  /// @param count their number.
  /// @return the number of bytes written.
  /// @throws std::length_error when @p count is below 0.
  int write(const char* data, int count);

  /// Moves the file position. It is not checked, and failures are not reported.
  /// @param offset bytes, signed. @param origin 0 from the start, 1 from the position, 2 from the
  /// end.
  void seek(int offset, short origin);
  /// Moves the file position to the start.
  void rewind();
  /// Closes the file: flushes it to the device (not in o_read), releases the lock, closes the
  /// handle. A step that fails is traced as an error, and the next step follows. Does nothing if
  /// the handle is closed. Never throws.
  /// @blocking{while the system writes the file to the device; for no lock}
  void close() noexcept;
  /// Empties the file and moves to its start; does nothing in o_read. A failure is traced. Never
  /// throws.
  void clear() noexcept;

  /// Reads the non-empty lines of a file, without line feed and one carriage return before it. Text
  /// after the last line feed is a line too, taken as it is. A line of blanks is not empty.
  /// @param dir the folder, without a trailing separator.
  /// @param name the name of the file in it.
  /// @param lines the lines are appended.
  /// @throws vu_file_except if the file cannot be opened or read.
  /// @blocking{for writers of the file}
  static void linesNotEmpty(const std::string& dir, const std::string& name,
                            std::vector<std::string>& lines);

  // ---- questions -----------------------------------------------------------------------------

  /// @param path the path to check.
  /// @return whether a file or folder with this name exists. A directory search decides:
  /// - "*" and "?" in the last component match as patterns.
  /// - A separator at the end is ignored, even after the name of a file (is_dir() checks for a
  ///   folder).
  /// - Roots exist; the empty path does not.
  /// - For a path that begins with two backslashes the attributes decide instead.
  static bool exists(const std::string& path);
  /// @param path the path to check.
  /// @return the last access, in seconds since 1970-01-01 UTC. 0 for a missing path (traced as a
  /// warning) and on other failures (traced as an error).
  static std::int64_t access_time(const std::string& path);
  /// @param path the path to check.
  /// @return the last modification, in seconds since 1970-01-01 UTC; failures as access_time().
  static std::int64_t modify_time(const std::string& path);
  /// @param path the path to check.
  /// @return the size in bytes: the low 32 bits as a signed number; 0 for a folder; failures as
  /// access_time().
  static int size(const std::string& path);
  /// @param path the path to check.
  /// @return whether the path is a folder; failures as access_time(), with false.
  static bool is_dir(const std::string& path);
  /// @param dir the folder, with or without a trailing separator.
  /// @return the names (not paths) of all files and folders in it except "." and "..", in the order
  /// of the system. Empty if @p dir is not a folder or cannot be listed. On Linux names with a
  /// backslash or a line feed are left out.
  static std::vector<std::string> filenames(const std::string& dir);

  // ---- changes -------------------------------------------------------------------------------

  /// Makes a file readable and writable for its owner (clears the read-only attribute). The call
  /// succeeds, also for a file of another account, if the owner can do both already.
  /// @param path the file.
  /// @return false, after an error trace, on failure.
  static bool chmodW(const std::string& path);
  /// Creates one folder.
  /// @param path the folder; its parent must exist.
  /// @return false, after an error trace, on failure. A name that exists already is a success.
  static bool createDir(const std::string& path);
  /// Removes a file or an empty folder. A refused removal is neither reported nor traced. A path
  /// that is missing or cannot be checked is traced as by is_dir().
  /// @param path the file or folder.
  static void remove(const std::string& path);
  /// Renames a file or folder.
  /// @param oldPath its path.
  /// @param newPath its new path, in the same file system.
  /// @return false, after a warning, on failure, for example if the new name exists.
  static bool rename(const std::string& oldPath, const std::string& newPath);
  /// Copies a file with its modification time. An existing target is emptied first. A copy that
  /// then fails leaves no target: the old file is lost too. A refusal before that, for example by a
  /// lock or a read-only target, leaves the old file. The copy is not flushed to the device.
  /// @param src the source.
  /// @param dst the target.
  /// @param overwrite false: a copy onto an existing file is refused without a trace.
  /// @return whether the copy succeeded. The system's refusal is not traced. Do not rely on the
  /// success event: a failed copy traces it, too. On Linux a target of another account keeps the
  /// time of the copy, with a warning.
  /// @blocking{no: it fails at once if a lock is in its way. On Linux it waits for a lease}
  static bool copyFile(const std::string& src, const std::string& dst, bool overwrite);
  /// Removes a folder with everything in it. A link in it is removed without its target; on Linux
  /// this includes a link that appears during the removal.
  /// @param path the folder.
  /// @return false, without a trace, if @p path is not a folder, and when out of memory. True
  /// otherwise, also if something could not be removed.
  static bool recurseRemoveDir(const std::string& path);

  // ---- names ---------------------------------------------------------------------------------

  /// Splits a path into file name and directory at the last `\` or `/`. Despite its name it
  /// computes no 8.3 name.
  /// @param fullName the path.
  /// @param dir receives everything up to and including that separator; `.\` without one.
  /// @return everything after it.
  static std::string getShirtFileName(const std::string& fullName, std::string& dir);
  /// Appends `\` unless @p path ends in `\` or `/`; the empty path becomes `.\`.
  /// @param path changed in place.
  static void addFileSep(std::string& path);
  /// Removes one trailing `\` or `/`; the empty path becomes ".".
  /// @param path changed in place.
  static void removeLastFileSep(std::string& path);
  /// Cuts @p name before its last ".", even one in a directory's name, and stores the rest after
  /// the dot in @p extension. Without a dot both stay unchanged.
  /// @param name changed in place.
  /// @param extension receives the text after the dot.
  static void split(std::string& name, std::string& extension);
  /// @param path a path or a name.
  /// @return the text after the last "." of @p path, even one in a directory's name; empty without
  /// a dot.
  static std::string getExtension(const std::string& path);

 private:
  friend class HandleCore;

  void init();
  static std::string mSgError(unsigned long errorCode);

  std::string fileName;
  std::string directory;
};

VU_STORAGE_TYPES_END
