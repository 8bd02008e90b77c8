#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/look.h"

/// @file
/// How files are read that others may be writing: under a lock that is never waited for without
/// limit. Nothing here changes a byte, a name or a modification time.
namespace admin::sys {

using namespace os::look;  // NOLINT(google-build-using-namespace): this is where it is called so

/// How a file that others may be writing is read.
struct Locking {
  enum class Mode : std::uint8_t {
    kShared,  ///< as the library's readers do
    kNone,    ///< never waits, and may see a half-written file
  };
  Mode mode = Mode::kShared;
  /// How long a lock is asked for again and again before the file is given up.
  std::chrono::milliseconds time_out{10'000};
  /// Called once per file when its lock has been waited for this long.
  std::chrono::milliseconds patience{2'000};
  std::function<void(const std::string& path)> on_wait;
  /// Ends the waiting, as if time were out, once it is set.
  const std::atomic<bool>* stop = nullptr;
};

/// Asks for a lock again and again, as long as a Locking says. @param ask whether it was obtained:
/// Failure::kLocked while somebody else has it. Any other failure passes for success: a file system
/// without locks has none that we could disturb.
os::Status wait_for_lock(const std::string& path, const Locking& locking,
                         const std::function<os::Status()>& ask);

/// Reads a plain file as a whole. Failure::kLocked when its lock could not be had in time.
os::Status read_file(const std::string& path, const Locking& locking, std::string& bytes);
/// Hands a plain file on in pieces, until @p take returns false.
os::Status read_pieces(const std::string& path, const Locking& locking,
                       const std::function<bool(std::string_view piece)>& take);

/// Whether the calling user may open the file for reading, asked by opening it.
os::Status probe_readable(const std::string& path);

/// The text of a failed status, without a line end.
std::string text_of(const os::Status& status);

}  // namespace admin::sys

namespace admin {

// ---- whether a user may write ------------------------------------------------------------------
//
// Whether the calling user could store something in a document folder, asked without changing
// anything. What a writer meets is met in this order: the folder, its index, its counter.

/// Something that keeps a writer out.
struct Obstacle {
  enum class Kind { kFolder, kIndex, kCounter };
  Kind kind = Kind::kFolder;
  std::string path;
  std::string why;  ///< "it is read-only", or the system's words
};

/// What keeps a new document out of a folder, which need not be there yet; empty when nothing does.
std::vector<Obstacle> obstacles_to_writing(const std::string& folder);
/// The same in one sentence for the first obstacle; empty without one.
std::string why_not_storable(const std::string& folder);

/// Why a file cannot be used, in words: what stands in its place, or what the system says.
std::string why_not_usable(const std::string& path, const os::Status& status);

}  // namespace admin
