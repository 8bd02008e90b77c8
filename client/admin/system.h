#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/look.h"

/// @file
/// Reads files that other processes may be writing: under a lock, with a limited wait. Nothing here
/// changes bytes, names or modification times.
namespace admin::sys {

using namespace os::look;  // NOLINT(google-build-using-namespace): sys repeats its names

struct Locking {
  enum class Mode : std::uint8_t {
    kShared,  ///< with a shared lock, like the library's readers
    kNone,    ///< without a lock; may read a half-written file
  };
  Mode mode = Mode::kShared;
  /// How long to retry a lock before the read fails.
  std::chrono::milliseconds time_out{10'000};
  /// on_wait is called once per file after this time.
  std::chrono::milliseconds patience{2'000};
  std::function<void(const std::string& path)> on_wait;
  /// If set to true, the wait ends as after the time-out.
  const std::atomic<bool>* stop = nullptr;

  /// Without a lock.
  static Locking none() {
    Locking locking;
    locking.mode = Mode::kNone;
    return locking;
  }
  /// The same, but a lock that another process has is not waited for.
  Locking at_once() const {
    Locking locking = *this;
    locking.time_out = std::chrono::milliseconds(0);
    return locking;
  }
};

/// Retries a lock until it succeeds or @p locking ends the wait.
/// @param ask requests the lock once: Failure::kLocked if another handle has it. Any other failure
/// counts as success: on a file system without locks there are none to respect.
os::Status wait_for_lock(const std::string& path, const Locking& locking,
                         const std::function<os::Status()>& ask);

/// Reads a whole plain file. Fails with Failure::kLocked after the time-out.
os::Status read_file(const std::string& path, const Locking& locking, std::string& bytes);
/// Reads a plain file in pieces, until @p take returns false.
os::Status read_pieces(const std::string& path, const Locking& locking,
                       const std::function<bool(std::string_view piece)>& take);

struct Child {
  std::string name;
  Kind kind = Kind::kMissing;
};
/// The names in a folder, sorted byte by byte: the order of a listing depends on the file system.
/// After a failure @p children has the names that were read before.
os::Status list_sorted(const std::string& folder, std::vector<Child>& children);

/// Tries to open the file for reading.
os::Status probe_readable(const std::string& path);

/// The system's text for a failure, without a line end.
std::string text_of(const os::Status& status);
/// What to do about a lock that was not obtained. Windows does not report holders.
inline constexpr const char* kLockAdvice =
    kSeparator == '\\' ? "--lock-timeout sets how long to wait"
                       : "'stgctl locks' names the holder, --lock-timeout sets how long to wait";
/// The same, but of a lock: that another process has it, and kLockAdvice.
std::string reason_of(const os::Status& status);

}  // namespace admin::sys

namespace admin {

/// The word for a value of an enumeration whose values count from 0.
template <class Enum>
constexpr std::string_view word_of(Enum value, std::initializer_list<std::string_view> words) {
  return words.begin()[static_cast<std::size_t>(value)];
}

// ---- whether a user may write ------------------------------------------------------------------
// Whether the calling user can store something in a document folder. Nothing is changed. The checks
// follow a writer's order: the folder, its index, its counter.

/// An obstacle to writing.
struct Obstacle {
  enum class Kind { kFolder, kIndex, kCounter };
  Kind kind = Kind::kFolder;
  std::string path;
  std::string why;  ///< "it is read-only", or the system's text
};

/// The obstacles to a new document in a folder, which need not exist; empty if there are none.
std::vector<Obstacle> obstacles_to_writing(const std::string& folder);
/// The first obstacle in one sentence; empty if there is none.
std::string why_not_storable(const std::string& folder);

/// Whether the system allows the file name that the library would give to a new document: a number
/// with the extension of the logical name.
bool can_be_stored_as(const std::string& folder, std::string_view logical);

/// Why a file cannot be read: what is in its place, or the system's text.
std::string why_not_readable(const std::string& path, const os::Status& status);
/// The same for a file that cannot be written.
std::string why_not_writable(const std::string& path, const os::Status& status);

}  // namespace admin
