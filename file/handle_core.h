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

/// What differs between the narrow and the UTF-8 handle.
struct HandleSpelling {
  const char* wrong_read_mode;   ///< text of the exception for reading in a mode without it
  const char* wrong_write_mode;  ///< text of the exception for writing in a mode without it
  /// Opens @p path, after whatever the spelling does to a path first.
  os::Status (*open)(const std::string& path, os::Access access, os::Handle& handle);
  /// The size of the whole file as a read count; may be negative or too large for one.
  std::int64_t (*size)(const std::string& path);
  /// The system's text for an error.
  std::string (*error_text)(std::int32_t code);
};

/// The access field of a handle that was never opened.
inline constexpr auto kNeverOpened = static_cast<vu_file_base::type_access>(0xFFFFFFFFU);

/// The spelling of vu_file.
extern const HandleSpelling kNarrowSpelling;

/// What a file held.
struct FileText {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;

  std::string_view view() const { return {bytes.get(), size}; }
};

/// The protocol of the two file handles: open, lock, read, write, flush, unlock, close. It works on
/// the state of one handle for the span of one call; the members of vu_file and vu_fileutf8 forward
/// to it, each with its own trace scope, so that records name the operation that was called.
class HandleCore {
 public:
  /// The names are the handle's own, as bytes; the full path is put together only where it is
  /// needed.
  HandleCore(vu_file_base& state, const std::string& directory, const std::string& file_name,
             const HandleSpelling& spelling)
      : m_state(state), m_directory(directory), m_file_name(file_name), m_spelling(spelling) {}

  bool try_open(const trace::Scope& operation, vu_file_base::type_access mode, bool& lock_failed,
                bool no_wait);
  void open(const trace::Scope& operation, vu_file_base::type_access mode);
  int read(const trace::Scope& operation, std::string& out, int count);
  void read(const trace::Scope& operation, unsigned char*& buffer, unsigned int& length);
  /// See read_to_end().
  FileText read_to_end(const trace::Scope& operation);
  int write(const trace::Scope& operation, std::string_view data);
  void seek(int offset, short origin);
  void close(const trace::Scope& operation) noexcept;
  void clear(const trace::Scope& operation) noexcept;

  /// See replace_text() and close_replaced().
  replacement::Outcome replace_text(const trace::Scope& operation, std::string_view old_bytes,
                                    std::string_view new_text);
  void close_replaced(const trace::Scope& operation, const replacement::Outcome& outcome) noexcept;

  /// The lock of a handle, with what its owner knows about it kept in step.
  static os::Status take_lock(vu_file_base& state, const vu_file_base::lock_desc_t& request);
  static os::Status give_lock_back(vu_file_base& state);

 private:
  std::string path() const;
  /// As the public one; @p error is the system's error when the file could not be opened.
  bool try_open(const trace::Scope& operation, vu_file_base::type_access mode, bool& lock_failed,
                bool no_wait, std::int32_t& error);
  /// @throws vu_file_except unless the handle's mode allows it.
  void check_reading_mode() const;
  void check_writing_mode() const;
  /// Two records: what failed on which file, and the system's text for it.
  void trace_failure(const trace::Scope& operation, int line, vu_host::trace_event event,
                     const char* what, std::int32_t error) const noexcept;
  /// The bytes to ask for, 0 standing for the whole file. @throws vu_file_except when none can be.
  std::size_t count_to_read(const trace::Scope& operation, int count) const;
  [[noreturn]] void fail_read(const trace::Scope& operation, std::int32_t error) const;
  void flush_guarded(const trace::Scope& operation) noexcept;
  void unlock_and_close(const trace::Scope& operation) noexcept;
  void unlock_guarded(const trace::Scope& operation) noexcept;
  void close_guarded(const trace::Scope& operation) noexcept;

  vu_file_base& m_state;
  const std::string& m_directory;
  const std::string& m_file_name;
  const HandleSpelling& m_spelling;
};

/// Reads an open file from its position to its end through the handle, however long it has become,
/// into memory that nobody clears first. A read that ends early is followed by another one: only a
/// read of no bytes is the end.
/// @throws vu_file_except as vu_file::read() does, with the same traces.
FileText read_to_end(vu_file& file);

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
