#pragma once

#include <cstdint>

#include "vu_export.h"

class HandleCore;

/// The common part of the two file handles: access modes, lock record and open state.
///
/// Blocking and threads: vu_file explains the words. A copy of an open handle refers to the same
/// open file: it copies every field, the system handle included. The first of the two that is
/// closed or destroyed closes the file for both.
///
/// @all_blocking{no}
/// @all_threads{any, each with its own handle; one at a time on one handle}
class VU_STORAGE_API vu_file_base {
 public:
  /// The modes of opening a file. Each holds a lock on the whole file, whatever its size, from open
  /// to close: shared for o_read, exclusive for the others. The lock alone excludes others: every
  /// mode lets other programs open and remove the file.
  enum type_access : std::uint32_t {
    o_read = 0x80000000U,    ///< read an existing file
    o_write = 0x40000000U,   ///< write at the position; a missing file is created, none is emptied
    o_append = 0xC0000000U,  ///< read, and write at the end; a missing file is created
    o_truncate = 5U  ///< write; a missing file is created, an existing one emptied after locking
  };

  /// The arguments of one lock request.
  struct lock_desc_t {
    std::uint32_t flags;       ///< 0 shared, 2 exclusive; plus 1 to fail at once instead of waiting
    std::uint32_t reserved;    ///< always 0
    std::uint32_t lengthLow;   ///< 0xFFFFFFFF: with lengthHigh, 2^64 - 1 bytes
    std::uint32_t lengthHigh;  ///< 0xFFFFFFFF
    alignas(
        8) unsigned char region[32];  ///< the system's overlapped record, all zero: from offset 0
  };

  /// @return whether a file is open.
  bool is_open() const noexcept { return handle != -1; }
  /// @return whether the last lock request was granted and the lock is still held.
  bool is_locked() const noexcept { return locked; }

 protected:
  /// A closed handle.
  vu_file_base() noexcept;
  /// Copies every field, the system handle included.
  /// @param other may be open.
  vu_file_base(const vu_file_base& other) noexcept;
  /// Copies every field. An open handle of this object is lost, not closed.
  /// @param other may be open.
  /// @return this object.
  vu_file_base& operator=(const vu_file_base& other) noexcept;
  /// Does nothing: the derived classes close.
  ~vu_file_base();

  /// Requests the lock that @p request describes; is_locked() then returns the outcome. The last
  /// two arguments are not used.
  /// @param request what to lock, and how.
  /// @return whether the lock was granted.
  /// @blocking{for locks that conflict, unless the request fails at once}
  bool lock_internal(const lock_desc_t& request, char, const unsigned char*);
  /// Releases the whole-file lock; is_locked() then returns the negation of the result. The
  /// arguments are not used.
  /// @return whether the system released it.
  bool unlock_internal(const unsigned char*, char);
  /// Flushes the file to the device.
  /// @return whether the system flushed it.
  /// @blocking{while the system writes the file to the device}
  bool flush();
  /// @return whether the system is of the NT family.
  static bool running_under_winnt();

  type_access access;   ///< mode of the last open, also of a failed one; -1 before any
  std::int32_t handle;  ///< the system's handle (on Linux a number of the library); -1: closed
  bool locked;          ///< see is_locked()

 private:
  friend class HandleCore;
};
