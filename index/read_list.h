#pragma once

#include <map>
#include <string>
#include <string_view>

/// A user's list of read mails, "read.txt", for the span of a migration: lines of at least six
/// fields, each ended by a tab, entered under the document name that the fields make up.
///
/// Order of calls: load(), unescape_line_of() as often as needed, destruction. The destructor saves
/// a list that was loaded to its end. Errors: load() and the destructor raise what the file does;
/// while another exception unwinds the destructor traces instead. Threads: one at a time. The file
/// is locked while it is read and while it is written, not in between.
class ReadList {
 public:
  /// A list that is not loaded yet.
  ReadList(const std::string& folder, const std::string& file_name);
  /// Loads the list; a missing file makes an empty one.
  /// @throws vu_file_except when the file cannot be opened or read.
  void load();
  /// Saves the list, if it was loaded. What that raises leaves it, unless an exception that
  /// began after the construction is under way; then it is traced as an error and swallowed.
  ~ReadList() noexcept(false);
  ReadList(const ReadList&) = delete;
  ReadList& operator=(const ReadList&) = delete;

  /// Decodes the second field of the line entered under @p name, which keeps its name; nothing when
  /// there is none.
  void unescape_line_of(const std::string& name);

  /// The document name that a line makes up; empty for a line with fewer than six fields.
  static std::string name_of(std::string_view line);

 private:
  void save() const;

  std::string m_folder;
  std::string m_file_name;
  std::map<std::string, std::string> m_lines;
  int m_exceptions_at_construction;
  bool m_is_loaded = false;
};
