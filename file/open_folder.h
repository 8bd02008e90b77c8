#pragma once

#include <string>

#include "platform/host/trace.h"
#include "platform/os/os.h"

/// A folder that is open while it is emptied. If somebody replaces it by a link, the removal still
/// reaches only the entries of this folder. On Windows it is not open, see os::open_folder().
///
/// Errors: a folder that cannot be opened has no entries. A close that fails is traced.
/// Threads: one at a time.
class OpenFolder {
 public:
  /// @param name the path for traces; it and @p operation must outlive this object.
  OpenFolder(const trace::Scope& operation, os::Path path, const std::string& name)
      : m_operation(operation), m_name(name), m_opened(os::open_folder(path, m_handle).ok()) {}
  ~OpenFolder() {
    if (m_handle == os::kNoHandle) return;
    try {
      if (!os::close(m_handle).ok()) VU_ERROR_IN(m_operation, "close file : ", m_name);
    } catch (...) {
      VU_ERROR_IN(m_operation, "catch exception closing file : ", m_name);
    }
  }
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;

  /// For os::Path::in().
  os::Handle get() const { return m_handle; }

  /// The entries of the folder; none if it cannot be opened or listed. @p path is its path, with a
  /// separator at the end.
  os::Listing entries(os::Path path) const {
    os::Listing found;
    if (m_opened) static_cast<void>(os::list(path.in(m_handle), found));
    return found;
  }

 private:
  const trace::Scope& m_operation;
  const std::string& m_name;
  os::Handle m_handle = os::kNoHandle;
  bool m_opened;
};
