#pragma once

#include <string>

#include "platform/host/trace.h"
#include "platform/os/os.h"

/// A folder that is held open while it is emptied: nobody can put a link to elsewhere in its place
/// between the question what it is and the removal of what is in it.
class OpenFolder {
 public:
  /// @param name the path as traces tell it; it and @p operation outlive the object.
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

  /// What is in it; none when it cannot be opened or listed. @p path is its path, a separator at
  /// its end.
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
