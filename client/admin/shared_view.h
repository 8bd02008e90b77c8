#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

namespace admin {

/// An open file with its lock; it closes with the object.
class SharedHandle {
 public:
  virtual ~SharedHandle() = default;
  /// Asks for a lock on the whole file, without waiting.
  virtual os::Status lock(bool exclusive) = 0;
  virtual os::Status unlock() = 0;
  /// The bytes of the whole file.
  virtual os::Status read(std::string& bytes) = 0;
};

/// A folder as one host sees it, through a mount of its own. All names are names in that folder.
/// What is written is flushed and closed when the call returns.
class SharedView {
 public:
  explicit SharedView(std::string folder) : m_folder(std::move(folder)) {}
  virtual ~SharedView() = default;
  SharedView(const SharedView&) = delete;
  SharedView& operator=(const SharedView&) = delete;

  const std::string& folder() const { return m_folder; }

  /// Makes or replaces a file.
  virtual os::Status store(const std::string& name, std::string_view bytes);
  virtual os::Status load(const std::string& name, std::string& bytes);
  virtual os::Status stat(const std::string& name, os::FileStat& result);
  virtual bool has(const std::string& name);
  /// Whether the name is in a listing of the folder.
  virtual bool lists(const std::string& name);
  virtual os::Status remove(const std::string& name);
  virtual os::Status rename(const std::string& from, const std::string& to);
  /// Copies a file, with its time, to a name that must be free.
  virtual os::Status copy_to_new(const std::string& from, const std::string& to);
  virtual os::Status set_time(const std::string& name, std::int64_t seconds);
  /// Opens a file for writing, and makes it when it is missing. Nothing on a failure.
  virtual std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status);
  /// What is known of the kind of file system, whatever a trial shows.
  virtual bool locks_belong_to_handles();

 protected:
  std::string path(const std::string& name) const;

 private:
  const std::string m_folder;
};

}  // namespace admin
