#pragma once

#include <string>

/// A rule for the new entries of the calling thread: each gets a file that did not exist before.
///
/// Without the rule an entry can get a file that another entry has. While the counter of a folder
/// cannot be used, all callers get the same physical name. And the counter does not know files that
/// were copied into the folder. Example: the counter is at 6, and 00000007.txt was copied there and
/// adopted. Then the next new .txt document gets this file.
///
/// With the rule such names are skipped, and the creation of an entry throws vu_file_except if the
/// counter gives no other name. The rule applies while the object exists.
/// Nested objects are allowed; the innermost one notes the files.
class OwnFiles {
 public:
  OwnFiles() noexcept;
  ~OwnFiles();
  OwnFiles(const OwnFiles&) = delete;
  OwnFiles& operator=(const OwnFiles&) = delete;

  /// Whether the last new entry under this rule got the file at @p path. If not, an entry with that
  /// file existed already.
  bool has(const std::string& path) const { return m_last == path; }

  /// Whether the rule applies to this thread.
  static bool are_required() noexcept;
  /// Notes the file of a new entry, if the rule applies.
  static void note(std::string path) noexcept;

 private:
  std::string m_last;
  OwnFiles* m_before;
};
