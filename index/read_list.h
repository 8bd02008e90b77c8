#pragma once

#include <map>
#include <string>
#include <string_view>

#include "vu_file.h"

/// A rule for the read lists of the calling thread: each is locked exclusively from load() to
/// save(), also without a LockLimit. So a line that another program appends during the migration
/// comes after the save, and stays. The rule applies while the object exists.
///
/// Errors: none. Threads: the object stays in its block, on the thread that constructed it.
class KeepsListLock {
 public:
  KeepsListLock() noexcept;
  ~KeepsListLock();
  KeepsListLock(const KeepsListLock&) = delete;
  KeepsListLock& operator=(const KeepsListLock&) = delete;

  /// Whether the rule applies to this thread.
  static bool is_set() noexcept;

 private:
  bool m_before;
};

/// The read list of a mail folder, during a migration (docs/formats.md). Each line is found by the
/// document name that its fields form.
///
/// Order of calls: load(), unescape_line_of() any number of times, save(). A list that could not be
/// loaded must not be saved.
///
/// Errors: load() and save() throw the exceptions of the file.
///
/// Threads: one. The file is locked while it is read and while it is written, not in between. With
/// KeepsListLock, and within a LockLimit, it is locked exclusively from load() on, so save() waits
/// for no lock.
class ReadList {
 public:
  ReadList(const std::string& folder, const std::string& file_name);
  /// Loads the list. A missing file is an empty list.
  /// @throws vu_file_except if the file cannot be opened or read.
  void load();
  ReadList(const ReadList&) = delete;
  ReadList& operator=(const ReadList&) = delete;

  /// Decodes the second field of the line of @p name. The line keeps @p name as its name here. Does
  /// nothing if there is no such line.
  void unescape_line_of(const std::string& name);

  /// Writes the lines, sorted by document name. Lines with fewer than six fields and further lines
  /// of the same name are lost.
  void save();

  /// The document name of a line; empty if the line has fewer than six fields.
  static std::string name_of(std::string_view line);

 private:
  std::string m_folder;
  std::string m_file_name;
  vu_file m_file;
  std::map<std::string, std::string> m_lines;
};
