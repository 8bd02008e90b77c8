#pragma once

#include <cstdint>
#include <string>

#include "vu_file.h"

/// @file
/// What several operations of vu_storage share: creating a folder, opening the caller's handle.

enum class Folder : std::uint8_t { kWasThere, kWasMissing };

/// Creates one folder unless it exists; traces a failure. @return whether the folder existed.
inline Folder make_folder_if_missing(const std::string& path) {
  if (vu_file::exists(path)) return Folder::kWasThere;
  vu_file::createDir(path);
  return Folder::kWasMissing;
}

/// The caller's handle in an operation that opens it. If the operation does not open the handle,
/// the destructor closes it, even if it was open on another file before.
class OpenOrClosed {
 public:
  explicit OpenOrClosed(vu_file& file) : m_file(file) {}
  ~OpenOrClosed() {
    if (!m_opened) m_file.close();
  }
  OpenOrClosed(const OpenOrClosed&) = delete;
  OpenOrClosed& operator=(const OpenOrClosed&) = delete;

  /// Like vu_file::open(). That function does nothing if a name is empty. It can throw after it has
  /// opened the file, if the lock fails; then the handle is closed as well.
  void open(const std::string& folder, const std::string& name, vu_file_base::type_access mode) {
    m_file.open(folder, name, mode);
    m_opened = !folder.empty() && !name.empty();
  }

 private:
  vu_file& m_file;
  bool m_opened = false;
};
