#pragma once

#include <cstdint>

#include "vu_export.h"

class HandleCore;

/// What the two file handles share: the access modes, the lock record and the open state.
///
/// Blocking and threads are told as with vu_file. Copying copies every field, the system handle
/// included: a copy of an open handle refers to the same open file, and whichever is
/// closed or destroyed first closes it for both.
///
/// @all_blocking{no}
/// @all_threads{any, each with a handle of its own; one at a time on one handle}
class VU_STORAGE_API vu_file_base {
 public:
  /// How a file is opened. Each mode holds a lock on the whole file, at any size, from open to
  /// close: shared for reading, exclusive for every other mode. All of them share the file with
  /// readers, writers and removers.
  enum type_access : std::uint32_t {
    o_read = 0x80000000U,    ///< read an existing file
    o_write = 0x40000000U,   ///< write at the current position; made when missing, never cut
    o_append = 0xC0000000U,  ///< read, and write at the end; made when missing
    o_truncate = 5U          ///< write; made when missing, emptied once it is locked
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
  /// @return whether the last lock request was granted and has not been given back.
  bool is_locked() const noexcept { return locked; }

 protected:
  /// Closed, before any open.
  vu_file_base() noexcept;
  /// Copies every field, the system handle included.
  /// @param other may be open.
  vu_file_base(const vu_file_base& other) noexcept;
  /// Copies every field; an open handle of this object is dropped without being closed.
  /// @param other may be open.
  /// @return this object.
  vu_file_base& operator=(const vu_file_base& other) noexcept;
  /// Does nothing: the derived classes close.
  ~vu_file_base();

  /// Takes the lock that @p request describes and keeps the outcome as is_locked(). The last two
  /// arguments are not used.
  /// @param request what to lock, and how.
  /// @return whether the lock was granted.
  /// @blocking{for locks that conflict, unless the request fails at once}
  bool lock_internal(const lock_desc_t& request, char, const unsigned char*);
  /// Gives the whole-file lock back; is_locked() becomes the negation of the result. The arguments
  /// are not used.
  /// @return whether the system gave it back.
  bool unlock_internal(const unsigned char*, char);
  /// Asks the system to write the file's buffers to the device.
  /// @return whether it did.
  /// @blocking{while the system writes the file to the device}
  bool flush();
  /// @return whether the system is of the NT family.
  static bool running_under_winnt();

  type_access access;   ///< mode of the last open, also of one that failed; -1 before any
  std::int32_t handle;  ///< the system's handle (on Linux a number of the library's own); -1 closed
  bool locked;          ///< see is_locked()

 private:
  friend class HandleCore;
};
