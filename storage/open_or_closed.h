#pragma once

#include <string>

#include "vu_file.h"

/// The caller's handle in an operation that opens it: what the operation does not open is closed at
/// its end, also when the handle came open on another file.
class OpenOrClosed {
 public:
  explicit OpenOrClosed(vu_file& file) : m_file(file) {}
  ~OpenOrClosed() {
    if (!m_opened) m_file.close();
  }
  OpenOrClosed(const OpenOrClosed&) = delete;
  OpenOrClosed& operator=(const OpenOrClosed&) = delete;

  /// vu_file::open(), which does nothing when a name is empty and may throw when the file is open
  /// already: the lock may be what fails.
  void open(const std::string& folder, const std::string& name, vu_file_base::type_access mode) {
    m_file.open(folder, name, mode);
    m_opened = !folder.empty() && !name.empty();
  }

 private:
  vu_file& m_file;
  bool m_opened = false;
};
