#pragma once

#include <string>

/// A rule for the new entries of the calling thread: each gets a file that did not exist before.
///
/// Without the rule an entry can get a file that another entry has. While the counter of a folder
/// cannot be used, all callers get the same physical name. And the counter does not know files that
/// were copied into the folder. Example: the counter is at 6, and 00000007.txt was copied there and
/// adopted. Then the next new .txt document gets this file.
///
/// With the rule such names are skipped, and STGIndex::create() throws if the counter gives no name
/// at all. The rule applies while the object exists; of nested objects only the innermost applies.
class OwnFiles {
 public:
  enum class Rule : bool { kOff, kOn };

  explicit OwnFiles(Rule rule = Rule::kOn) noexcept;
  ~OwnFiles();
  OwnFiles(const OwnFiles&) = delete;
  OwnFiles& operator=(const OwnFiles&) = delete;

  /// Whether the rule applies to this thread.
  static bool are_required() noexcept;
  /// Whether the last new entry of this thread under the rule got the file at @p path. If not, an
  /// entry with that file existed already.
  static bool has_made(const std::string& path) noexcept;
  /// Notes the file of a new entry, if the rule applies.
  static void note(std::string path) noexcept;

 private:
  Rule m_rule;
  std::string m_last;
  OwnFiles* m_before;
};
