#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "file/replace_in_file.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "vu_file.h"

class vu_fileutf8;

/// What differs between the narrow and the UTF-8 handle. vu_file.cpp and vu_fileutf8.cpp hold one
/// implementation each.
class HandleSpelling {
 public:
  /// Opens @p path, after whatever the spelling does to a path first.
  virtual os::Status open(const std::string& path, os::Access access, os::Handle& handle) const = 0;
  /// The size of the whole file as a read count; may be negative or too large for one.
  virtual std::int64_t size(const std::string& path) const = 0;
  /// The system's text for an error.
  virtual std::string error_text(std::int32_t code) const = 0;
  /// The texts of the exceptions for reading and writing in a mode that does not allow it.
  virtual const char* wrong_read_mode() const = 0;
  virtual const char* wrong_write_mode() const = 0;

 protected:
  ~HandleSpelling() = default;
};

/// The access field of a handle that was never opened.
inline constexpr auto kNeverOpened = static_cast<vu_file_base::type_access>(0xFFFFFFFFU);

/// What a file held, to its end. Nothing ends the bytes, and a NUL is a byte like any other. An
/// empty file may come without memory.
struct FileText {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;

  std::string_view view() const { return {bytes.get(), size}; }
};

/// The protocol of the two file handles. It works on the fields of one handle for the span of one
/// call, and is never kept: each member of vu_file and vu_fileutf8 opens its trace scope, makes a
/// HandleCore and calls the member that does the work. What is traced names that operation.
///
/// Order of calls: open() or try_open(); then read(), write(), seek() and clear() as the mode
/// allows; then close(). A file is locked from its opening to its closing. replace_text() stands
/// for write() where an interruption must not harm what the file held, and is followed by
/// close_replaced().
///
/// Errors: open(), the reads and the checks of the mode throw vu_file_except. Everything else is
/// traced at Error level, as two records: what failed on which file, and the system's text.
///
/// Threads: one at a time on one handle, as with the handle itself.
class HandleCore {
 public:
  /// @param operation the scope of the operation; it and the handle outlive the object.
  HandleCore(vu_file& handle, const trace::Scope& operation);
  HandleCore(vu_fileutf8& handle, const trace::Scope& operation);

  bool try_open(vu_file_base::type_access mode, bool& lock_failed, bool no_wait);
  void open(vu_file_base::type_access mode);
  int read(std::string& out, int count);
  void read(unsigned char*& buffer, unsigned int& length);
  /// See read_into().
  std::size_t read_into(void* buffer, std::size_t room);
  /// See read_to_end().
  FileText read_to_end();
  /// See size_of().
  std::int64_t size() const;
  int write(std::string_view data);
  void seek(int offset, short origin);
  void close() noexcept;
  void clear() noexcept;

  /// See replace_text() and close_replaced().
  replacement::Outcome replace_text(std::string_view old_bytes, std::string_view new_text);
  void close_replaced(const replacement::Outcome& outcome) noexcept;

  /// The lock of a handle, with what its owner knows about it kept in step.
  static os::Status take_lock(vu_file_base& state, const vu_file_base::lock_desc_t& request);
  static os::Status give_lock_back(vu_file_base& state);

 private:
  std::string path() const;
  /// As the public one; @p error is the system's error when the file could not be opened.
  bool try_open(vu_file_base::type_access mode, bool& lock_failed, bool no_wait,
                std::int32_t& error);
  /// @throws vu_file_except unless the handle's mode allows it.
  void check_reading_mode() const;
  void check_writing_mode() const;
  /// Two records: what failed on which file, and the system's text for it. They tell the line of
  /// the call (std::source_location is not in every compiler that builds this).
  void trace_failure(const char* what, std::int32_t error,
                     vu_host::trace_event event = vu_host::trace_event::error,
                     int line = __builtin_LINE()) const noexcept;
  /// The bytes to ask for, 0 standing for the whole file. @throws vu_file_except when none can be.
  std::size_t count_to_read(int count) const;
  [[noreturn]] void fail_read(std::int32_t error) const;
  void flush_guarded() noexcept;
  void unlock_and_close() noexcept;
  void unlock_guarded() noexcept;
  void close_guarded() noexcept;

  vu_file_base& m_state;
  /// The handle's own names, as bytes; the full path is put together only where it is needed.
  const std::string& m_directory;
  const std::string& m_file_name;
  const HandleSpelling& m_spelling;
  const trace::Scope& m_operation;
};

/// Reads an open file from its position to its end through the handle, however long it has become,
/// into memory that nobody clears first. A read that ends early is followed by another one: only a
/// read of no bytes is the end.
/// @throws vu_file_except as vu_file::read() does, with the same traces.
FileText read_to_end(vu_file& file);

/// The size of an open file itself, whatever its name stands for by now. A failure is traced.
/// @throws vu_file_except
std::int64_t size_of(vu_file& file);

/// Reads from the position on, straight into the caller's memory; fewer bytes than @p room at the
/// end of the file only. @throws vu_file_except as vu_file::read() does.
std::size_t read_into(vu_file& file, void* buffer, std::size_t room);
/// Writes straight from the caller's memory. @return whether all bytes were written; a failure is
/// traced. @throws vu_file_except as vu_file::write() does.
bool write_from(vu_file& file, std::string_view bytes);

/// Replaces the whole content of an open file so that an interruption at any moment leaves the old
/// text or the new one (see replacement.h), and flushes it. @p old_bytes is what the file holds,
/// read to the end. The file stays open, and locked, until close_replaced().
///
/// A failed write is traced like one of vu_file::write(), a failed flush like one of
/// vu_file::close(), a failed cut like one of vu_file::clear(). Required: for "index.dat" and its
/// counter alone; all other files are cut first, as their modes say.
/// @return how far it came, and what the file holds now.
/// @throws vu_file_except in a mode without writing.
replacement::Outcome replace_text(vu_file& file, std::string_view old_bytes,
                                  std::string_view new_text);
/// Closes such a file; what replace_text() left unflushed is flushed.
void close_replaced(vu_file& file, const replacement::Outcome& outcome) noexcept;
/// Both. @return what the file holds afterwards.
replacement::Holds replace_and_close(vu_file& file, std::string_view old_bytes,
                                     std::string_view new_text);
