#pragma once

#include <vector>

#include "platform/os/os.h"

/// A folder that is held open while it is emptied: nobody can put a link to elsewhere in its place between
/// the question what it is and the removal of what is in it.
class OpenFolder {
 public:
  explicit OpenFolder(os::Path path) : m_opened(os::open_folder(path, m_handle).ok()) {}
  ~OpenFolder() {
    if (m_handle != os::kNoHandle) static_cast<void>(os::close(m_handle));
  }
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;

  /// For os::Path::in().
  os::Handle get() const { return m_handle; }

  /// What is in it; none when it cannot be opened or listed. @p path is its path, a separator at its end.
  std::vector<os::Entry> entries(os::Path path) const {
    std::vector<os::Entry> found;
    if (m_opened) static_cast<void>(os::list(path.in(m_handle), found));
    return found;
  }

 private:
  os::Handle m_handle = os::kNoHandle;
  bool m_opened;
};
