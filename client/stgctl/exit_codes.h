#pragma once

#include <stdexcept>
#include <string>

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
  Exit code() const noexcept { return m_code; }

 private:
  Exit m_code;
};

}  // namespace stgctl
