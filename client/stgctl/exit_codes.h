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

/// A function that throws a Failure with its exit code and a formatted text.
template <Exit kCode>
struct FailureOf {
  template <class... Args>
  [[noreturn]] void operator()(admin::FormatPattern<sizeof...(Args)> pattern,
                               const Args&... args) const {
    throw Failure(kCode, admin::formatted(pattern, args...));
  }
};
inline constexpr FailureOf<Exit::kFailed> fail;
inline constexpr FailureOf<Exit::kRefused> refuse;
inline constexpr FailureOf<Exit::kUsage> misused;
inline constexpr FailureOf<Exit::kNothingMatched> not_found;
inline constexpr FailureOf<Exit::kLockTimeout> locked_out;

}  // namespace stgctl
