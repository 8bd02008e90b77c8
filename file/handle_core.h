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

/// What differs between the narrow and the UTF-8 handle. vu_file.cpp and vu_fileutf8.cpp contain
/// one implementation each, a constant without state. So any number of threads may use it. Errors:
/// a member may throw what its conversions throw; open() reports a failure of the system as status.
class HandleSpelling {
 public:
  /// Opens @p path, which the spelling may convert first.
  virtual os::Status open(const std::string& path, os::Access access, os::Handle& handle) const = 0;
  /// The size of the whole file as a read count. It may be negative, or too large for a count.
  virtual std::int64_t size(const std::string& path) const = 0;
  virtual std::string error_text(std::int32_t code) const = 0;
  /// The texts of the exceptions for reading and writing in a mode that does not allow it.
  virtual const char* wrong_read_mode() const = 0;
  virtual const char* wrong_write_mode() const = 0;

 protected:
  ~HandleSpelling() = default;
};

/// The access mode of a handle that was never opened.
inline constexpr auto kNeverOpened = static_cast<vu_file_base::type_access>(0xFFFFFFFFU);

/// All bytes of a file. There is no terminator, and a NUL is a byte like any other. For an empty
/// file `bytes` may be null.
struct FileText {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;

  std::string_view view() const { return {bytes.get(), size}; }
};

/// Whether opening a file for writing creates a missing one. The modes of the handles always do.
enum class Missing : std::uint8_t { kIsCreated, kIsAFailure };

/// The protocol of the two file handles. Each member of vu_file and vu_fileutf8 opens its trace
/// scope, constructs a HandleCore for this one call, and calls the member that does the work. The
/// traces name the operation of that scope.
///
/// Order of calls: open() or try_open(); then read(), write(), seek() and clear() as the mode
/// allows; then close(). The file is locked from open to close. For an atomic replacement,
/// replace_text() takes the place of write(), and close_replaced() that of close().
///
/// Errors: open(), the reads, size() and the checks of the mode throw vu_file_except. try_open()
/// returns false if the file cannot be opened; seek() ignores a failure. Every other failure is
/// traced as two errors: what failed on which file, and the system's text.
///
/// Threads: one at a time on one handle.
class HandleCore {
 public:
  /// @param operation the scope of the operation; it and the handle must outlive this object.
  HandleCore(vu_file& handle, const trace::Scope& operation);
  HandleCore(vu_fileutf8& handle, const trace::Scope& operation);

  bool try_open(vu_file_base::type_access mode, bool& lock_failed, bool no_wait);
  /// @param waited null, or receives true if another handle had a conflicting lock first.
  void open(vu_file_base::type_access mode, Missing missing = Missing::kIsCreated,
            bool* waited = nullptr);
  int read(std::string& out, int count);
  void read(unsigned char*& buffer, unsigned int& length);
  /// See the functions of the same names below.
  std::size_t read_into(void* buffer, std::size_t room);
  FileText read_to_end();
  std::int64_t size() const;
  os::Status take_time(os::Handle from, os::CopiedTime& time) const;
  int write(std::string_view data);
  void seek(int offset, short origin);
  void close() noexcept;
  /// @return whether the file is empty now.
  bool clear() noexcept;

  replacement::Outcome replace_text(std::string_view old_bytes, std::string_view new_text);
  void close_replaced(const replacement::Outcome& outcome) noexcept;

  /// Takes and releases the lock of a handle, and updates the handle's record of it.
  static os::Status take_lock(vu_file_base& state, const vu_file_base::lock_desc_t& request,
                              bool* waited = nullptr);
  static os::Status give_lock_back(vu_file_base& state);

 private:
  std::string path() const;
  /// Like the public one. If the file cannot be opened, @p error receives the system's error.
  bool try_open(vu_file_base::type_access mode, Missing missing, bool& lock_failed, bool no_wait,
                std::int32_t& error, bool* waited = nullptr);
  /// @throws vu_file_except unless the handle's mode allows it.
  void check_reading_mode() const;
  void check_writing_mode() const;
  /// Traces two records: what failed on which file, and the system's text for the error. Both name
  /// the line of the call. (std::source_location is not in every compiler that builds this.)
  void trace_failure(const char* what, std::int32_t error,
                     vu_host::trace_event event = vu_host::trace_event::error,
                     int line = __builtin_LINE()) const noexcept;
  /// The number of bytes to read; a @p count of 0 means the whole file. @throws vu_file_except if
  /// that number is negative or too large.
  std::size_t count_to_read(int count) const;
  /// How many bytes to read after @p read bytes, at least one. The size is only a hint: another
  /// program may write.
  std::size_t count_after(std::size_t read) const;
  [[noreturn]] void fail_read(std::int32_t error) const;
  void flush_guarded() noexcept;
  void unlock_and_close() noexcept;
  void unlock_guarded() noexcept;
  void close_guarded() noexcept;

  vu_file_base& m_state;
  /// The handle's own names, as bytes.
  const std::string& m_directory;
  const std::string& m_file_name;
  const HandleSpelling& m_spelling;
  const trace::Scope& m_operation;
};

/// Like vu_file::open(), but a missing file is not created: that is a failure. If the handle is
/// open, closes it first.
/// @return whether another handle had a conflicting lock first. Then the file can have been removed
/// or replaced meanwhile, and so have no name any more.
/// @throws vu_file_except
bool open_existing(vu_file& file, const std::string& folder, const std::string& name,
                   vu_file_base::type_access mode);

/// Reads an open file from its position to its end, however large it has become, into memory that
/// is not cleared first. The end is where os::read() returns fewer bytes than wanted.
/// @throws vu_file_except like vu_file::read(), with the same traces.
FileText read_to_end(vu_file& file);

/// The size of the open file itself, even if another file has its name now. A failure is traced.
/// @throws vu_file_except
std::int64_t size_of(vu_file& file);

/// Reads from the position on into the caller's memory. Returns fewer bytes than @p room only at
/// the end of the file. @throws vu_file_except like vu_file::read().
std::size_t read_into(vu_file& file, void* buffer, std::size_t room);
/// Gives a file that is open for writing the modification time of another open one.
os::Status take_time(vu_file& file, os::Handle from, os::CopiedTime& time);
/// Writes from the caller's memory. @return whether all bytes were written; a failure is traced.
/// @throws vu_file_except like vu_file::write().
bool write_from(vu_file& file, std::string_view bytes);

/// What rewrite() has done to a file.
enum class Rewritten : std::uint8_t {
  kWhole,
  kNotAtAll,  ///< it could not be cut, and has its old text
  kInPart,    ///< it is cut, and has the beginning of the new text
};
/// Cuts an open file and writes its new text. Required: after a refused cut nothing is written. In
/// o_append mode the file would then have the old text and the new one. Failures are traced.
/// @throws vu_file_except like vu_file::write().
Rewritten rewrite(vu_file& file, std::string_view text);

/// The atomic replacement of the whole content of an open file (replacement.h), with its flushes.
/// The file stays open and locked until close_replaced(). @p old_bytes are all its bytes.
///
/// A failed write is traced like one of vu_file::write(), a failed flush like one of
/// vu_file::close(), a failed cut like one of vu_file::clear(). Required: used for "index.dat" and
/// its counter only; all other files are cut first, as their modes say.
/// @return the failures, and the text that the file contains now.
/// @throws vu_file_except if the mode does not allow writing.
replacement::Outcome replace_text(vu_file& file, std::string_view old_bytes,
                                  std::string_view new_text);
/// Closes such a file, and flushes it first unless the replacement succeeded.
void close_replaced(vu_file& file, const replacement::Outcome& outcome) noexcept;
/// Calls replace_text(), then close_replaced(). @return the text that the file contains now.
replacement::Holds replace_and_close(vu_file& file, std::string_view old_bytes,
                                     std::string_view new_text);
