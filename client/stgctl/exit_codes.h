#pragma once

#include <stdexcept>
#include <string>

#include "client/admin/formatted.h"

namespace stgctl {

/// The program's exit codes. The numbers are an interface: scripts depend on them.
enum class Exit : int {
  kDone = 0,            ///< done
  kFailed = 1,          ///< failed; no part of the request was done
  kUsage = 2,           ///< the command line is not valid
  kNothingMatched = 3,  ///< the request is valid, but nothing in the tree matches it
  kProblemsFound = 4,   ///< a check found problems
  kPartlyDone = 5,      ///< some of the work is done, some failed
  kNoTree = 10,         ///< there is no storage tree
  kLockTimeout = 11,    ///< a lock was not obtained in time
  kRefused = 12,        ///< the request is refused: unsafe, or not confirmed
  kInterrupted = 130    ///< ended by Ctrl-C
};

/// Ends a command. The text goes to standard error, the code to the caller.
class Failure : public std::runtime_error {
 public:
  Failure(Exit code, const std::string& text) : std::runtime_error(text), m_code(code) {}
  /// With a formatted text.
  template <class First, class... Rest>
  Failure(Exit code, admin::FormatPattern<1 + sizeof...(Rest)> pattern, const First& first,
          const Rest&... rest)
      : Failure(code, admin::formatted(pattern, first, rest...)) {}

  Exit code() const noexcept { return m_code; }
  /// Whether it ends the whole work, because the next item would meet it too.
  bool ends_work() const noexcept {
    return m_code == Exit::kInterrupted || m_code == Exit::kLockTimeout;
  }

 private:
  Exit m_code;
};

/// @throws Failure kFailed with a formatted text.
template <class... Args>
[[noreturn]] void fail(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  throw Failure(Exit::kFailed, admin::formatted(pattern, args...));
}
/// @throws Failure kRefused with a formatted text.
template <class... Args>
[[noreturn]] void refuse(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  throw Failure(Exit::kRefused, admin::formatted(pattern, args...));
}
/// @throws Failure kUsage with a formatted text.
template <class... Args>
[[noreturn]] void misused(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  throw Failure(Exit::kUsage, admin::formatted(pattern, args...));
}
/// @throws Failure kNothingMatched with a formatted text.
template <class... Args>
[[noreturn]] void not_found(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  throw Failure(Exit::kNothingMatched, admin::formatted(pattern, args...));
}
/// @throws Failure kLockTimeout with a formatted text.
template <class... Args>
[[noreturn]] void locked_out(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  throw Failure(Exit::kLockTimeout, admin::formatted(pattern, args...));
}

}  // namespace stgctl
