#include <cerrno>
#include <optional>
#include <utility>

#include "file/file_internal.h"
#include "file/folder_entries.h"
#include "file/open_folder.h"
#include "file/path_text.h"
#include "platform/os/os.h"
#include "vu_file.h"

/// @file
/// The static operations of vu_file: the file system by narrow paths.

using path_text::Encoding;
using path_text::with_separator;

namespace {

/// Describes an entry of the open folder @p parent, and traces like vu_file::is_dir(). Removals
/// pass Links::kKeep: they remove a link, never its target. A missing entry is like a plain file.
os::FileStat describe(const trace::Scope& operation, const std::string& path, os::Links links,
                      os::Handle parent = os::kNoHandle) {
  os::FileStat found;
  const os::Status status = os::stat(os::Path(path).in(parent), found, links);
  if (status.ok()) return found;
  if (status.code() == ENOENT) {
    VU_WARNING_IN(operation, "vu_file::is_dir : '", path, "' not exists");
  } else {
    VU_ERROR_IN(operation, "vu_file::is_dir '", path, "': Problem getting information");
  }
  return {};
}

bool is_folder(const trace::Scope& operation, const std::string& path, os::Handle parent) {
  return describe(operation, path, os::Links::kKeep, parent).is_directory;
}

/// Like vu_file::remove(), for an entry of an open folder.
void remove_entry(const trace::Scope& operation, const std::string& path, os::Handle parent) {
  try {
    const os::FileStat found = describe(operation, path, os::Links::kKeep, parent);
    // Required: the result is ignored.
    if (found.is_directory) {
      static_cast<void>(os::remove_directory(os::Path(path).in(parent)));
    } else {
      static_cast<void>(os::remove_file(os::Path(path).in(parent), found));
    }
  } catch (...) {
    VU_ERROR_IN(operation, "vu_file::remove(", path, ")");
  }
}

/// Like vu_file::recurseRemoveDir(), for an entry of an open folder.
bool remove_tree(const trace::Scope& operation, const std::string& path, os::Handle parent) {
  try {
    if (!vu_file::exists(path)) return false;
    if (!is_folder(operation, path, parent)) return false;
    {
      const OpenFolder folder(operation, os::Path(path).in(parent), path);
      for (const os::Entry found : folder.entries(with_separator(path, Encoding::kNarrow))) {
        const std::string entry = path_text::join(path, found.name);
        if (!vu_file::exists(entry)) continue;
        if (is_folder(operation, entry, folder.get())) remove_tree(operation, entry, folder.get());
        // Required: called also for a folder that remove_tree() has removed, to trace a warning.
        remove_entry(operation, entry, folder.get());
        VU_TRACE_XS_IN(operation, "\tpath->", entry, " is removed");
      }
    }
    VU_TRACE_XS_IN(operation, "root path->", path);
    remove_entry(operation, path, parent);
    // Required: true even if something could not be removed.
    return true;
  } catch (...) {
    VU_ERROR_IN(operation, "vu_file::recurseRemoveDir(", path, ")");
    return false;
  }
}

/// The copy of vu_file::copyFile(), with its records.
bool copy_file(const trace::Scope& operation, const std::string& src, const std::string& dst,
               os::IfExists if_exists, os::Flushed flushed) {
  os::CopiedTime time = os::CopiedTime::kKept;
  const bool copied = os::copy(src, dst, if_exists, &time, flushed).ok();
  // copyFile() has asked this before.
  const bool is_asked = flushed == os::Flushed::kNo;
  if (!copied && !is_asked && !find_entry(src).ok()) return false;
  if (time == os::CopiedTime::kRefused)
    VU_WARNING_IN(operation, "vu_file::copyFile : cannot set the time of ", dst);
  // Required: the record is a success even if the copy failed.
  VU_SUCCESS_IN(operation, "\tfrom fileSrc=", src, " to FileDest=", dst);
  return copied;
}

/// Passes the path and the system's code of a failure to the listener of this thread.
void report_failure(const std::string& path, const os::Status& status) {
  if (trace::Listener* const listener = trace::listener())
    listener->hear_failure(path, status.code());
}

void report_raising_copy(const trace::Scope& operation, const std::string& src) {
  // sic: the source twice, two blanks
  VU_ERROR_IN(operation, "Can't copy ", src, " file  to ", src, " file");
}

}  // namespace

bool copy_and_flush(const std::string& src, const std::string& dst) {
  VU_FILE_SCOPE("Vu_file::copyFile");
  try {
    return copy_file(vu_trace_scope, src, dst, os::IfExists::kReplace, os::Flushed::kYes);
  } catch (...) {
    report_raising_copy(vu_trace_scope, src);
    return false;
  }
}

bool remove_plain_file(const std::string& path) {
  VU_FILE_SCOPE();
  try {
    os::FileStat found;
    if (!os::stat(path, found, os::Links::kKeep).ok() || !found.is_writable) return false;
    static_cast<void>(os::remove_file(path, found));
  } catch (...) {
    VU_ERROR("vu_file::remove(", path, ")");
  }
  return true;
}

// ---- queries -----------------------------------------------------------------------------------

bool vu_file::exists(const std::string& path) {
  VU_FILE_SCOPE();
  return find_entry(path).ok();
}

std::int64_t vu_file::access_time(const std::string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  const os::Status status = os::stat(path, found);
  if (status.ok()) return found.access_time;
  if (status.code() == ENOENT) {
    VU_WARNING("vu_file::access_time : '", path, "' not exists");
  } else {
    VU_ERROR("vu_file::access_time '", path, "': Problem getting information");
  }
  return 0;
}

std::int64_t vu_file::modify_time(const std::string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  const os::Status status = os::stat(path, found);
  if (status.ok()) return found.modify_time;
  if (status.code() == ENOENT) {
    VU_WARNING("vu_file::modify_time : '", path, "' not exists");
  } else {
    VU_ERROR("vu_file::modify_time '", path, "': Problem getting information");
  }
  return 0;
}

int vu_file::size(const std::string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  const os::Status status = os::stat(path, found);
  // Required: the low 32 bits. A file of 2 GB or more has a negative or much too small size.
  if (status.ok()) return static_cast<std::int32_t>(static_cast<std::uint32_t>(found.size));
  if (status.code() == ENOENT) {
    VU_WARNING("vu_file::size : '", path, "' not exists");
  } else {
    VU_ERROR("vu_file::size '", path, "': Problem getting information");
  }
  return 0;
}

bool vu_file::is_dir(const std::string& path) {
  VU_FILE_SCOPE();
  return describe(vu_trace_scope, path, os::Links::kFollow).is_directory;
}

std::vector<std::string> vu_file::filenames(const std::string& dir) {
  VU_FILE_SCOPE();
  std::vector<std::string> names;
  if (!is_dir(dir)) return names;
  os::Listing entries;
  static_cast<void>(folder_entries(dir, entries));
  names.reserve(entries.size());
  for (const os::Entry entry : entries) names.emplace_back(entry.name);
  return names;
}

// ---- changes -----------------------------------------------------------------------------------

bool vu_file::chmodW(const std::string& path) {
  VU_FILE_SCOPE();
  if (os::make_writable(path).ok()) return true;
  VU_ERROR("vu_file::chmodW : failed (", path, ")");
  return false;
}

bool vu_file::createDir(const std::string& path) {
  VU_FILE_SCOPE();
  const os::Status status = os::create_directory(path);
  if (status.ok()) return true;
  if (status.failure() == os::Failure::kAlreadyExists) {
    VU_TRACE_XS("vu_file::createDir directory already exists (", path, ") ");
    return true;
  }
  report_failure(path, status);
  VU_ERROR("vu_file::createDir (", path,
           ") : ", mSgError(static_cast<unsigned long>(status.code())));
  return false;
}

void vu_file::remove(const std::string& path) {
  VU_FILE_SCOPE();
  remove_entry(vu_trace_scope, path, os::kNoHandle);
}

bool vu_file::rename(const std::string& oldPath, const std::string& newPath) {
  VU_FILE_SCOPE();
  if (os::rename(oldPath, newPath).ok()) return true;
  VU_WARNING("vu_file::rename() \t old Name : ", oldPath, " new name ", newPath);
  return false;
}

bool vu_file::copyFile(const std::string& src, const std::string& dst, bool overwrite) {
  VU_FILE_SCOPE("Vu_file::copyFile");
  try {
    if (!exists(src)) return false;
    if (!overwrite && exists(dst)) return false;
    const os::IfExists if_exists = overwrite ? os::IfExists::kReplace : os::IfExists::kFail;
    return copy_file(vu_trace_scope, src, dst, if_exists, os::Flushed::kNo);
  } catch (...) {
    report_raising_copy(vu_trace_scope, src);
    return false;
  }
}

bool vu_file::recurseRemoveDir(const std::string& path) {
  VU_FILE_SCOPE();
  return remove_tree(vu_trace_scope, path, os::kNoHandle);
}

namespace {

/// A file that was just created and is open. The destructor closes it, and removes it unless it is
/// kept.
class CreatedFile {
 public:
  CreatedFile(const std::string& path, os::Handle handle) : m_path(path), m_handle(handle) {}
  ~CreatedFile() {
    try {
      static_cast<void>(os::close(m_handle));
    } catch (...) {
      // Nothing was written through it.
    }
    if (!m_is_kept) remove_new_file(m_path);
  }
  CreatedFile(const CreatedFile&) = delete;
  CreatedFile& operator=(const CreatedFile&) = delete;

  /// Waits until the file is on the device, and keeps it then.
  os::Status flush() {
    const os::Status flushed = os::flush(m_handle);
    m_is_kept = flushed.ok();
    return flushed;
  }

 private:
  const std::string& m_path;
  os::Handle m_handle;
  bool m_is_kept = false;
};

}  // namespace

bool create_new_file(const std::string& path) {
  VU_FILE_SCOPE();
  os::Handle handle = os::kNoHandle;
  os::Status made = os::open(path, os::Access::kCreateNew, handle);
  if (made.failure() == os::Failure::kAlreadyExists) return false;
  std::optional<CreatedFile> file;
  if (made.ok()) made = file.emplace(path, handle).flush();
  if (made.ok()) return true;
  report_failure(path, made);
  VU_ERROR("the new file cannot be created: ", path, ", error ", made.code());
  throw vu_file_except("throw exception on open", 0);
}

void remove_new_file(const std::string& path) noexcept {
  VU_FILE_SCOPE();
  try {
    if (!remove_plain_file(path)) {
      // A copy can be read-only, like its source.
      vu_file::chmodW(path);
      vu_file::remove(path);
    }
    if (find_entry(path).failure() == os::Failure::kNotFound) return;
  } catch (...) {
    // It may be there.
  }
  VU_ERROR("the new file cannot be removed, no entry names it: ", path);
}

// ---- names -------------------------------------------------------------------------------------

std::string vu_file::getShirtFileName(const std::string& fullName, std::string& dir) {
  VU_FILE_SCOPE("Vu_file::getShirtFileName");
  path_text::NameInFolder parts = path_text::name_in_folder(fullName, Encoding::kNarrow);
  VU_TRACE_XS("\tFull File Name->", fullName, " sDir->", parts.folder, "file Name->", parts.name);
  dir = std::move(parts.folder);
  return std::move(parts.name);
}

void vu_file::addFileSep(std::string& path) {
  VU_FILE_SCOPE();
  path = with_separator(std::move(path), Encoding::kNarrow);
}

void vu_file::removeLastFileSep(std::string& path) {
  VU_FILE_SCOPE();
  path = path_text::without_last_separator(std::move(path), Encoding::kNarrow);
}

void vu_file::split(std::string& name, std::string& extension) {
  VU_FILE_SCOPE();
  path_text::Cut cut;
  if (!path_text::cut_at_last_dot(name, cut)) return;
  extension = cut.after;
  name.resize(cut.before.size());
}

std::string vu_file::getExtension(const std::string& path) {
  VU_FILE_SCOPE();
  path_text::Cut cut;
  return path_text::cut_at_last_dot(path, cut) ? std::string(cut.after) : std::string();
}
