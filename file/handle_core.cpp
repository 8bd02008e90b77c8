#include "file/handle_core.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <utility>

#include "file/file_internal.h"
#include "file/lock_limit.h"
#include "file/path_text.h"
#include "vu_file_except.h"

namespace {

using vu_host::trace_event;

bool is_known_mode(vu_file_base::type_access mode) {
  switch (mode) {
    case vu_file_base::o_read:
    case vu_file_base::o_write:
    case vu_file_base::o_append:
    case vu_file_base::o_truncate: return true;
  }
  return false;
}

/// A lock on the whole file, of any size.
vu_file_base::lock_desc_t whole_file_lock(vu_file_base::type_access mode, bool no_wait) {
  vu_file_base::lock_desc_t request{};
  if (mode != vu_file_base::o_read) request.flags |= os::kLockExclusive;
  if (no_wait) request.flags |= os::kLockFailAtOnce;
  request.lengthLow = 0xFFFFFFFFU;
  request.lengthHigh = 0xFFFFFFFFU;
  return request;
}

constexpr std::int16_t kFromStart = 0;
constexpr std::int16_t kFromEnd = 2;

/// Most files are read by one call of this size.
constexpr std::size_t kFirstRead = 4096;

}  // namespace

std::string HandleCore::path() const { return path_text::join(m_directory, m_file_name); }

void HandleCore::trace_failure(const char* what, std::int32_t error, trace_event event,
                               int line) const noexcept {
  if (!trace::wanted(event)) return;
  if (trace::Listener* const listener = trace::listener()) {
    try {
      listener->hear_failure(path(), error);
    } catch (...) {
      // Without memory for the path, the listener gets the texts only.
    }
  }
  // Not VU_ERROR_IN: both records name the line of the caller.
  const vu_host::trace_site site = m_operation.at(line);
  trace::emit(site, event, what, " : ", m_directory, "\\", m_file_name);
  std::string text;
  try {
    text = m_spelling.error_text(error);
  } catch (...) {
    // The record is traced without the text.
  }
  trace::emit(site, event, "Error message :", text);
}

// ---- opening -----------------------------------------------------------------------------------

bool HandleCore::try_open(vu_file_base::type_access mode, bool& lock_failed, bool no_wait) {
  std::int32_t error = 0;
  return try_open(mode, Missing::kIsCreated, lock_failed, no_wait, error);
}

bool HandleCore::try_open(vu_file_base::type_access mode, Missing missing, bool& lock_failed,
                          bool no_wait, std::int32_t& error, bool* waited) {
  if (m_state.is_open()) {
    VU_ERROR_IN(m_operation, "file is already opened, it will be closed and reopened !!!");
    VU_ERROR_IN(m_operation, " path = ", m_directory, "\\", m_file_name);
    close();
  }
  const std::string full_path = path();
  // Required: the mode is stored even if it is invalid, or the open fails.
  m_state.access = mode;
  if (!is_known_mode(mode)) {
    error = os::last_error();
    VU_ERROR_IN(m_operation, " unknown open mode while opening file : ", full_path);
    return false;
  }
  const auto to_write = missing == Missing::kIsCreated ? os::Access::kReadWriteCreate
                                                       : os::Access::kReadWriteExisting;
  const auto access = mode == vu_file_base::o_read ? os::Access::kReadExisting : to_write;
  const os::Status opened = m_spelling.open(full_path, access, m_state.handle);
  if (!opened.ok()) {
    error = opened.code();
    return false;
  }
  const bool locked = take_lock(m_state, whole_file_lock(mode, no_wait), waited).ok();
  lock_failed = !locked;
  // Required: without the lock the file is not cut, and stays open.
  if (locked && mode == vu_file_base::o_truncate) clear();
  return true;
}

void HandleCore::open(vu_file_base::type_access mode, Missing missing, bool* waited) {
  bool lock_failed = false;
  std::int32_t error = 0;
  if (try_open(mode, missing, lock_failed, false, error, waited)) {
    if (!lock_failed || !LockLimit::passed()) return;
    trace_failure("lock file", os::last_error());
    unlock_and_close();
    throw vu_file_except("the lock was not obtained in time", 0);
  }
  if (lock_failed) {
    // Required, although never reached: try_open() returns true whenever it requests a lock.
    trace_failure("lock file", os::last_error());
    return;
  }
  // Required: the text says "o_read" for every mode.
  trace_failure("open o_read", error,
                mode == vu_file_base::o_read ? trace_event::warning : trace_event::error);
  throw vu_file_except("throw exception on open", 0);
}

// ---- reading and writing -----------------------------------------------------------------------

void HandleCore::check_reading_mode() const {
  const vu_file_base::type_access mode = m_state.access;
  if (mode == vu_file_base::o_write || mode == vu_file_base::o_truncate || mode == kNeverOpened)
    throw vu_file_except(m_spelling.wrong_read_mode(), 0);
}

void HandleCore::check_writing_mode() const {
  const vu_file_base::type_access mode = m_state.access;
  if (mode == vu_file_base::o_read || mode == kNeverOpened)
    throw vu_file_except(m_spelling.wrong_write_mode(), 0);
}

void HandleCore::fail_read(std::int32_t error) const {
  trace_failure("read file", error);
  throw vu_file_except("throw exception on read", 0);
}

std::size_t HandleCore::count_to_read(int count) const {
  check_reading_mode();
  const std::int64_t wanted = count != 0 ? count : m_spelling.size(path());
  if (wanted < 0 || wanted > std::numeric_limits<int>::max()) fail_read(os::last_error());
  return static_cast<std::size_t>(wanted);
}

int HandleCore::read(std::string& out, int count) {
  // `out` is empty if anything fails. The old bytes are overwritten, not cleared first: clearing
  // 4 MB costs a third of reading them.
  std::string bytes = std::exchange(out, {});
  bytes.resize(count_to_read(count));
  if (bytes.empty()) return 0;
  std::size_t done = 0;
  const os::Status status = os::read(m_state.handle, bytes.data(), bytes.size(), done);
  if (!status.ok()) fail_read(status.code());
  bytes.resize(done);
  out = std::move(bytes);
  return static_cast<int>(done);
}

std::size_t HandleCore::read_into(void* buffer, std::size_t room) {
  check_reading_mode();
  std::size_t done = 0;
  const os::Status status = os::read(m_state.handle, buffer, room, done);
  if (!status.ok()) fail_read(status.code());
  return done;
}

std::int64_t HandleCore::size() const {
  std::uint64_t bytes = 0;
  const os::Status status = os::size(m_state.handle, bytes);
  if (status.ok()) return static_cast<std::int64_t>(bytes);
  trace_failure("size of file", status.code());
  throw vu_file_except("the system does not tell the size", 0);
}

os::Status HandleCore::take_time(os::Handle from, os::CopiedTime& time) const {
  return os::take_time(from, m_state.handle, time);
}

std::size_t HandleCore::count_after(std::size_t read) const {
  std::uint64_t told = 0;
  const bool has_hint =
      os::size(m_state.handle, told).ok() && told >= read && std::in_range<std::int32_t>(told);
  // One byte more, so that the next read finds the end.
  return has_hint ? static_cast<std::size_t>(told) - read + 1 : read;
}

FileText HandleCore::read_to_end() {
  // A counter and a small index end here.
  std::array<char, kFirstRead> page;
  FileText text;
  text.size = read_into(page.data(), page.size());
  std::size_t wanted = text.size < page.size() ? 0 : count_after(text.size);
  text.bytes.reset(new char[text.size + wanted]);
  std::copy_n(page.data(), text.size, text.bytes.get());
  while (wanted != 0) {
    const std::size_t done = read_into(text.bytes.get() + text.size, wanted);
    text.size += done;
    if (done < wanted) break;
    wanted = count_after(text.size);
    std::unique_ptr<char[]> larger(new char[text.size + wanted]);
    std::copy_n(text.bytes.get(), text.size, larger.get());
    text.bytes = std::move(larger);
  }
  return text;
}

void HandleCore::read(unsigned char*& buffer, unsigned int& length) {
  check_reading_mode();
  const std::int64_t wanted = length != 0 ? length : m_spelling.size(path());
  if (wanted == 0) return;
  // The terminator needs a byte, too.
  if (wanted < 0 || wanted >= std::numeric_limits<unsigned int>::max()) {
    length = 0;
    fail_read(os::last_error());
  }
  const auto count = static_cast<std::size_t>(wanted);
  buffer = new unsigned char[count + 1];
  std::size_t done = 0;
  const os::Status status = os::read(m_state.handle, buffer, count, done);
  if (!status.ok()) {
    // Required: the caller keeps the pointer, which is invalid now.
    delete[] buffer;
    length = 0;
    fail_read(status.code());
  }
  length = static_cast<unsigned int>(done);
  // Required: the terminator is at the requested count. A shorter read leaves a gap before it.
  buffer[count] = 0;
}

int HandleCore::write(std::string_view data) {
  check_writing_mode();
  if (data.empty()) return 0;
  if (m_state.access == vu_file_base::o_append) seek(0, kFromEnd);
  std::size_t done = 0;
  const os::Status status = os::write(m_state.handle, data.data(), data.size(), done);
  if (!status.ok()) trace_failure("write file", status.code());
  return static_cast<int>(done);
}

void HandleCore::seek(int offset, short origin) {
  // Required: the result is ignored.
  static_cast<void>(os::seek(m_state.handle, offset, origin));
}

bool HandleCore::clear() noexcept {
  if (m_state.access == vu_file_base::o_read) return false;
  std::int32_t error = 0;
  try {
    os::Status status = os::seek(m_state.handle, 0, kFromStart);
    if (status.ok()) status = os::set_end(m_state.handle);
    if (status.ok()) return true;
    error = status.code();
  } catch (...) {
    error = os::last_error();
  }
  // sic: with the blank at the end, two blanks precede the colon.
  trace_failure("Can't truncate file ", error);
  return false;
}

replacement::Outcome HandleCore::replace_text(std::string_view old_bytes,
                                              std::string_view new_text) {
  check_writing_mode();
  replacement::Outcome outcome = replacement::carry_out(m_state.handle, old_bytes, new_text);
  if (!outcome.written.ok()) trace_failure("write file", outcome.written.code());
  if (!outcome.flushed.ok()) trace_failure("Can't flush buffers", outcome.flushed.code());
  if (!outcome.cut.ok()) trace_failure("Can't truncate file ", outcome.cut.code());
  return outcome;
}

void HandleCore::close_replaced(const replacement::Outcome& outcome) noexcept {
  // After a complete replacement only the cut is not flushed. It needs no flush.
  if (outcome.ok()) {
    unlock_and_close();
  } else {
    close();
  }
}

// ---- closing -----------------------------------------------------------------------------------

void HandleCore::flush_guarded() noexcept {
  try {
    const os::Status status = os::flush(m_state.handle);
    if (!status.ok()) trace_failure("Can't flush buffers", status.code());
  } catch (...) {
    const std::int32_t error = os::last_error();
    trace_failure("Catch exception while flusing buffer", error);  // sic
  }
}

void HandleCore::unlock_guarded() noexcept {
  try {
    const os::Status status = give_lock_back(m_state);
    if (!status.ok()) trace_failure("Can't unlock file", status.code());
  } catch (...) {
    const std::int32_t error = os::last_error();
    trace_failure("catch exception while unlocking file", error);
  }
}

void HandleCore::close_guarded() noexcept {
  try {
    const os::Status status = os::close(m_state.handle);
    if (!status.ok()) trace_failure("close file", status.code());
  } catch (...) {
    const std::int32_t error = os::last_error();
    trace_failure("catch exception closing file", error);
  }
}

void HandleCore::close() noexcept {
  if (!m_state.is_open()) return;
  // The flush comes first: what was written is on the device before another handle gets the lock.
  if (m_state.access != vu_file_base::o_read) flush_guarded();
  unlock_and_close();
}

void HandleCore::unlock_and_close() noexcept {
  if (m_state.locked) unlock_guarded();
  close_guarded();
  m_state.handle = os::kNoHandle;
}

// ---- the lock ----------------------------------------------------------------------------------

os::Status HandleCore::take_lock(vu_file_base& state, const vu_file_base::lock_desc_t& request,
                                 bool* waited) {
  // The system writes into its part of the record, so it gets a copy.
  vu_file_base::lock_desc_t record = request;
  const os::Status status = LockLimit::lock(state.handle,
                                            {record.flags, record.reserved, record.lengthLow,
                                             record.lengthHigh, static_cast<void*>(record.region)},
                                            waited);
  state.locked = status.ok();
  return status;
}

os::Status HandleCore::give_lock_back(vu_file_base& state) {
  const os::Status status = os::unlock(state.handle);
  state.locked = !status.ok();
  return status;
}

// ------------------------------------------------------------------------------------------------

bool open_existing(vu_file& file, const std::string& folder, const std::string& name,
                   vu_file_base::type_access mode) {
  VU_FILE_SCOPE();
  if (file.is_open()) file.close();
  file = vu_file(folder, name);
  bool waited = false;
  HandleCore(file, vu_trace_scope).open(mode, Missing::kIsAFailure, &waited);
  return waited;
}

FileText read_to_end(vu_file& file) {
  VU_FILE_SCOPE();
  return HandleCore(file, vu_trace_scope).read_to_end();
}

std::int64_t size_of(vu_file& file) {
  VU_FILE_SCOPE();
  return HandleCore(file, vu_trace_scope).size();
}

std::size_t read_into(vu_file& file, void* buffer, std::size_t room) {
  VU_FILE_SCOPE();
  return HandleCore(file, vu_trace_scope).read_into(buffer, room);
}

os::Status take_time(vu_file& file, os::Handle from, os::CopiedTime& time) {
  VU_FILE_SCOPE();
  return HandleCore(file, vu_trace_scope).take_time(from, time);
}

namespace {

bool write_all(HandleCore& core, std::string_view bytes) {
  // HandleCore::write() counts in 32 bits.
  constexpr std::size_t kMost = std::size_t{1} << 30;
  while (!bytes.empty()) {
    const std::string_view piece = bytes.substr(0, kMost);
    if (core.write(piece) != static_cast<int>(piece.size())) return false;
    bytes.remove_prefix(piece.size());
  }
  return true;
}

}  // namespace

bool write_from(vu_file& file, std::string_view bytes) {
  VU_FILE_SCOPE();
  HandleCore core(file, vu_trace_scope);
  return write_all(core, bytes);
}

Rewritten rewrite(vu_file& file, std::string_view text) {
  VU_FILE_SCOPE();
  HandleCore core(file, vu_trace_scope);
  if (!core.clear()) return Rewritten::kNotAtAll;
  return write_all(core, text) ? Rewritten::kWhole : Rewritten::kInPart;
}

replacement::Outcome replace_text(vu_file& file, std::string_view old_bytes,
                                  std::string_view new_text) {
  VU_FILE_SCOPE();
  return HandleCore(file, vu_trace_scope).replace_text(old_bytes, new_text);
}

void close_replaced(vu_file& file, const replacement::Outcome& outcome) noexcept {
  VU_FILE_SCOPE();
  HandleCore(file, vu_trace_scope).close_replaced(outcome);
}

replacement::Holds replace_and_close(vu_file& file, std::string_view old_bytes,
                                     std::string_view new_text) {
  const replacement::Outcome outcome = replace_text(file, old_bytes, new_text);
  close_replaced(file, outcome);
  return outcome.holds;
}
