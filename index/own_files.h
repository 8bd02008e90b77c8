#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What becomes of a new entry if another program has entered its key after this operation looked.
enum class IfEntered : std::uint8_t {
  kYield,   ///< The other entry stays. The new one is withdrawn; its caller removes its file.
  kReplace  ///< The new entry replaces the other one, and the save removes the other file.
};

/// A rule for the new entries of the calling thread: each gets a file that did not exist before.
///
/// Without the rule an entry can get a file that another entry has. While the counter of a folder
/// cannot be used, all callers get the same physical name. And the counter does not know files that
/// were copied into the folder. Example: the counter is at 6, and 00000007.txt was copied there and
/// adopted. Then the next new .txt document gets this file.
///
/// With the rule the file is created exclusively, and names of existing files are skipped. If the
/// counter cannot be used, the creation throws. An entry that exists gets no other file. The rule
/// applies while the object exists. Nested objects are allowed; the innermost one notes the files.
///
/// Without the rule two operations can also make a file each for one key. The later save wins, and
/// the other file becomes an orphan, with all that was written to it. With the rule the later save
/// does what IfEntered says.
///
/// Errors: constructor and destructor do not throw. Threads: the object stays in its block, on the
/// thread that constructed it.
class OwnFiles {
 public:
  explicit OwnFiles(IfEntered if_entered) noexcept;
  ~OwnFiles();
  OwnFiles(const OwnFiles&) = delete;
  OwnFiles& operator=(const OwnFiles&) = delete;

  /// The path of the last file that was created for a new entry under this rule; empty if there is
  /// none, because the entry existed.
  const std::string& last() const { return m_last; }
  /// Whether a new entry gave way to that of another program.
  bool has_yielded() const { return m_has_yielded; }

  /// Whether the rule applies to this thread.
  static bool are_required() noexcept { return if_entered().has_value(); }
  /// The rule for keys that another program has entered; nothing if the rule does not apply.
  static std::optional<IfEntered> if_entered() noexcept;
  /// Notes that a new entry gave way, if the rule applies.
  static void note_yield() noexcept;
  /// Notes the file of a new entry, if the rule applies.
  static void note(std::string path) noexcept;
  /// Forgets a file that was removed again. Another program may get its name now.
  static void forget(std::string_view path) noexcept;

 private:
  const IfEntered m_if_entered;
  std::string m_last;
  bool m_has_yielded = false;
  OwnFiles* m_before;
};
