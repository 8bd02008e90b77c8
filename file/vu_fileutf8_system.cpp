#include <algorithm>
#include <cstddef>
#include <utility>

#include "file/file_internal.h"
#include "file/folder_entries.h"
#include "file/open_folder.h"
#include "file/path_text.h"
#include "platform/os/os.h"
#include "vu_fileutf8.h"

/// @file
/// The static operations of vu_fileutf8: the file system by UTF-8 paths.

using vu_file_internal::getFileStat;
using vu_file_internal::getLongPath;
using vu_file_internal::long_form;

using path_text::Encoding;
using path_text::with_separator;

namespace {

/// Like vu_fileutf8::_exists(), without its trace scope.
bool entry_exists(const vu_utf8string& long_path) {
  const ucs2string path(long_path);
  if (path_text::is_network(path.str())) return os::probe_attributes(path).ok();
  // A folder is found by its own entry, ".".
  if (path_text::ends_in_separator(path.str()))
    return os::probe_search(path + ucs2string(u".")).ok();
  return os::probe_search(path).ok();
}

/// Describes an entry that will be removed: a link itself, not its target. A missing entry is like
/// a plain file.
os::FileStat describe(const vu_utf8string& long_path, os::Handle parent) {
  os::FileStat found;
  getFileStat(long_path, found, true, os::Links::kKeep, parent);
  return found;
}

bool is_folder_to_remove(const vu_utf8string& long_path, os::Handle parent) {
  return describe(long_path, parent).is_directory;
}

vu_utf8string join(const vu_utf8string& folder, const vu_utf8string& name) {
  return vu_utf8string(path_text::join(folder.str(), name.str()));
}

/// The form of a folder's path that os::list() takes.
ucs2string to_list(const vu_utf8string& long_path) {
  return ucs2string(vu_utf8string(with_separator(long_path.str(), Encoding::kUtf8)));
}

/// The entries of a folder; none if it cannot be listed.
os::Listing entries_of(const vu_utf8string& long_path) {
  os::Listing entries;
  static_cast<void>(os::list(to_list(long_path), entries));
  return entries;
}

/// The long form of an entry. @p folder is in its long form, but without the prefix the entry may
/// exceed the classic limit. A path that has the prefix is not converted again: a rooted path would
/// lose its first backslash.
vu_utf8string entry_in_long_form(const vu_utf8string& folder, const vu_utf8string& name) {
  const vu_utf8string entry = join(folder, name);
  return folder.str().starts_with("\\\\?\\") ? entry : long_form(entry);
}

/// Whether the path of a folder leads to it through a link. It traces nothing.
bool is_link_to_folder(const vu_utf8string& path) {
  os::FileStat found;
  return os::stat(getLongPath(ucs2string(path)), found, os::Links::kKeep).ok() &&
         !found.is_directory;
}

/// A path that the system returned, in UTF-8. @return false if it has no such form: on Linux the
/// name of a folder may be a surrogate without a partner.
bool to_utf8(const ucs2string& path, vu_utf8string& result) {
  try {
    result = vu_utf8string(path);
    return true;
  } catch (const vu_i18n_except&) {
    return false;
  }
}

/// Like vu_fileutf8::_remove(), for an entry of an open folder.
void remove_entry(const trace::Scope& operation, const vu_utf8string& long_path, bool quiet,
                  os::Handle parent) {
  try {
    const ucs2string text(long_path);
    const os::Path path = os::Path(text).in(parent);
    const os::FileStat found = describe(long_path, parent);
    const os::Status status =
        found.is_directory ? os::remove_directory(path) : os::remove_file(path, found);
    if (status.ok()) {
      VU_TRACE_XS_IN(operation, "removed: ", long_path);
    } else if (quiet) {
      VU_TRACE_XS_IN(operation, "removing: ", long_path, ": ",
                     vu_file_internal::system_error_text(status.code()));
    } else {
      VU_ERROR_IN(operation, "removing: ", long_path, ": ",
                  vu_file_internal::system_error_text(status.code()));
    }
  } catch (...) {
    VU_ERROR_IN(operation, "uncaught exception while removing ", long_path);
  }
}

void remove_tree(const trace::Scope& operation, const vu_utf8string& long_path, bool quiet,
                 os::Handle parent);

/// Removes a name of the listing of @p folder. An exception ends only this removal. Example: on
/// Linux a name may have no UTF-8 form; the other names of its folder are removed all the same.
void remove_listed(const trace::Scope& operation, const vu_utf8string& long_path,
                   const os::Entry& found, bool quiet, os::Handle folder) {
  try {
    const vu_utf8string name(std::string(found.name));
    const vu_utf8string entry = entry_in_long_form(long_path, name);
    if (is_folder_to_remove(entry, folder)) {
      remove_tree(operation, entry, quiet, folder);
    } else {
      remove_entry(operation, entry, quiet, folder);
    }
  } catch (...) {
    VU_ERROR_IN(operation, "uncaught exception while removing ", long_path, "\\", found.name);
  }
}

/// Like vu_fileutf8::_recurseRemoveDir(), for an entry of an open folder.
void remove_tree(const trace::Scope& operation, const vu_utf8string& long_path, bool quiet,
                 os::Handle parent) {
  try {
    if (entry_exists(long_path) && is_folder_to_remove(long_path, parent)) {
      const ucs2string text(long_path);
      const OpenFolder folder(operation, os::Path(text).in(parent), long_path.str());
      const ucs2string listed = to_list(long_path);
      for (const os::Entry found : folder.entries(listed))
        remove_listed(operation, long_path, found, quiet, folder.get());
    }
    remove_entry(operation, long_path, quiet, parent);
  } catch (...) {
    VU_ERROR_IN(operation, "uncaught exception while removing ", long_path);
  }
}

}  // namespace

// ---- queries -----------------------------------------------------------------------------------

bool vu_fileutf8::exists(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  return _exists(long_form(path));
}

bool vu_fileutf8::_exists(const vu_utf8string& longPath) {
  VU_FILE_SCOPE();
  return entry_exists(longPath);
}

std::uint64_t vu_fileutf8::access_time(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  return getFileStat(path, found, false) ? static_cast<std::uint64_t>(found.access_time) : 0;
}

std::uint64_t vu_fileutf8::modify_time(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  return getFileStat(path, found, false) ? static_cast<std::uint64_t>(found.modify_time) : 0;
}

std::uint64_t vu_fileutf8::size(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  os::FileStat found;
  return getFileStat(path, found, false) ? found.size : 0;
}

bool vu_fileutf8::is_dir(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  return _is_dir(long_form(path));
}

bool vu_fileutf8::_is_dir(const vu_utf8string& longPath) {
  VU_FILE_SCOPE();
  os::FileStat found;
  return getFileStat(longPath, found, true) && found.is_directory;
}

std::vector<vu_utf8string> vu_fileutf8::filenames(const vu_utf8string& dir) {
  VU_FILE_SCOPE();
  return _filenames(long_form(dir));
}

std::vector<vu_utf8string> vu_fileutf8::_filenames(const vu_utf8string& longPath) {
  VU_FILE_SCOPE();
  std::vector<vu_utf8string> names;
  if (!_is_dir(longPath)) return names;
  const os::Listing entries = entries_of(longPath);
  names.reserve(entries.size());
  for (const os::Entry entry : entries) names.emplace_back(std::string(entry.name));
  return names;
}

// Not in folder_entries.cpp: the client links that file without the rest of this folder.
os::Listing utf8_entries(const vu_utf8string& folder) {
  const vu_utf8string long_path = long_form(folder);
  os::FileStat found;
  const bool is_there = getFileStat(long_path, found, true) && found.is_directory;
  return is_there ? entries_of(long_path) : os::Listing();
}

std::uint64_t vu_fileutf8::getFolderSizeInKb(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  constexpr std::uint64_t kBytesPerKb = 1024;
  std::uint64_t total = 0;
  for (const vu_utf8string& name : filenames(path)) {
    const vu_utf8string entry = join(path, name);
    if (is_dir(entry)) {
      // Required: a link to a folder has no size, as a removal does not empty its target. Two links
      // to their own folder would double the number of paths at each level.
      if (is_link_to_folder(entry)) continue;
      // The folder itself has no size; os::FileStat says 0 on every system.
      total += getFolderSizeInKb(entry);
    } else {
      // Required: the size of each file is rounded down separately.
      total += size(entry) / kBytesPerKb;
    }
  }
  return total;
}

// ---- changes -----------------------------------------------------------------------------------

bool vu_fileutf8::chmodW(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  // Required: the path is not converted to its long form.
  if (os::make_writable(ucs2string(path)).ok()) return true;
  VU_ERROR("vu_fileutf8::chmodW : failed (", path, ")");
  return false;
}

bool vu_fileutf8::createDir(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  const os::Status status = os::create_directory(getLongPath(ucs2string(path)));
  if (status.ok()) return true;
  if (status.failure() == os::Failure::kAlreadyExists) {
    VU_TRACE_XS("vu_fileutf8::createDir directory already exists (", path, ") ");
    return true;
  }
  VU_ERROR("vu_fileutf8::createDir (", path,
           ") : ", mSgError(static_cast<unsigned long>(status.code())));
  return false;
}

bool vu_fileutf8::createDirR(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  try {
    if (exists(path)) return true;
    // Required: a network path becomes relative, because empty components are dropped.
    vu_utf8string folder;
    ucs2string rest(path);
    if (std::u16string absolute = vu_file_internal::absolute_form(rest); !absolute.empty()) {
      if (absolute.front() == u'\\') folder = vu_utf8string("\\");
      rest = ucs2string(std::move(absolute));
    }
    for (const vu_utf8string& component : directories(rest)) {
      folder += component;
      folder += vu_utf8string("\\");
      if (!exists(folder) && !createDir(folder)) return false;
    }
    VU_TRACE_XS("Recursivly created directory ", path);  // sic
    return true;
  } catch (...) {
    VU_ERROR("vu_fileutf8::createDirR(", path, ")");
    return false;
  }
}

void vu_fileutf8::remove(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  remove(path, true);
}

void vu_fileutf8::remove(const vu_utf8string& path, bool quiet) {
  VU_FILE_SCOPE();
  _remove(long_form(path), quiet);
}

void vu_fileutf8::_remove(const vu_utf8string& longPath, bool quiet) {
  VU_FILE_SCOPE();
  remove_entry(vu_trace_scope, longPath, quiet, os::kNoHandle);
}

bool vu_fileutf8::rename(const vu_utf8string& oldPath, const vu_utf8string& newPath) {
  VU_FILE_SCOPE();
  if (os::rename(getLongPath(ucs2string(oldPath)), getLongPath(ucs2string(newPath))).ok())
    return true;
  VU_WARNING("vu_fileutf8::rename() \t old Name : ", oldPath, " new name ", newPath);
  return false;
}

bool vu_fileutf8::copyFile(const vu_utf8string& src, const vu_utf8string& dst, bool overwrite) {
  VU_FILE_SCOPE("vu_fileutf8::copyFile");
  try {
    const vu_utf8string from = long_form(src);
    const vu_utf8string to = long_form(dst);
    if (!_exists(from)) return false;
    if (!overwrite && _exists(to)) return false;
    os::CopiedTime time = os::CopiedTime::kKept;
    const bool copied = os::copy(ucs2string(from), ucs2string(to),
                                 overwrite ? os::IfExists::kReplace : os::IfExists::kFail, &time)
                            .ok();
    if (time == os::CopiedTime::kRefused)
      VU_WARNING("vu_fileutf8::copyFile : cannot set the time of ", dst);
    // Required: the record is a success even if the copy failed.
    VU_SUCCESS("\tfrom fileSrc=", src, " to FileDest=", dst);
    return copied;
  } catch (...) {
    VU_ERROR("Can't copy ", src, " file  to ", src, " file");  // sic: the source twice, two blanks
    return false;
  }
}

bool vu_fileutf8::recurseRemoveDir(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  return recurseRemoveDir(path, true);
}

bool vu_fileutf8::recurseRemoveDir(const vu_utf8string& path, bool) {
  VU_FILE_SCOPE();
  const vu_utf8string folder = long_form(path);
  if (!_exists(folder) || !is_folder_to_remove(folder, os::kNoHandle)) return false;
  // Required: quiet, whatever the argument says.
  _recurseRemoveDir(folder, true);
  return true;
}

void vu_fileutf8::_recurseRemoveDir(const vu_utf8string& longPath, bool quiet) {
  VU_FILE_SCOPE();
  remove_tree(vu_trace_scope, longPath, quiet, os::kNoHandle);
}

// ---- names -------------------------------------------------------------------------------------

vu_utf8string vu_fileutf8::getShirtFileName(const vu_utf8string& fullName, vu_utf8string& dir) {
  VU_FILE_SCOPE("vu_fileutf8::getShirtFileName");
  path_text::NameInFolder parts = path_text::name_in_folder(fullName.str(), Encoding::kUtf8);
  VU_TRACE_XS("\tFull File Name->", fullName, " sDir->", parts.folder, "file Name->", parts.name);
  dir = vu_utf8string(std::move(parts.folder));
  return vu_utf8string(std::move(parts.name));
}

void vu_fileutf8::addFileSep(vu_utf8string& path) {
  VU_FILE_SCOPE();
  path = vu_utf8string(with_separator(path.str(), Encoding::kUtf8));
}

void vu_fileutf8::removeLastFileSep(vu_utf8string& path) {
  VU_FILE_SCOPE();
  path = vu_utf8string(path_text::without_last_separator(path.str(), Encoding::kUtf8));
}

void vu_fileutf8::split(vu_utf8string& name, vu_utf8string& extension) {
  VU_FILE_SCOPE();
  path_text::Cut cut;
  if (!path_text::cut_at_last_dot(name.str(), cut)) return;
  vu_utf8string before{std::string(cut.before)};
  extension = vu_utf8string(std::string(cut.after));
  name = std::move(before);
}

vu_utf8string vu_fileutf8::getExtension(const vu_utf8string& path) {
  VU_FILE_SCOPE();
  path_text::Cut cut;
  if (!path_text::cut_at_last_dot(path.str(), cut)) return vu_utf8string();
  return vu_utf8string(std::string(cut.after));
}

std::vector<vu_utf8string> vu_fileutf8::directories(const ucs2string& path) {
  VU_FILE_SCOPE();
  std::vector<vu_utf8string> components;
  const std::u16string& text = path.str();
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = std::min(text.find(u'\\', from), text.size());
    if (end > from) components.emplace_back(path.substr(from, end - from));
    from = end + 1;
  }
  return components;
}

bool vu_fileutf8::getCurrentDirectory(vu_utf8string& out) {
  VU_FILE_SCOPE();
  ucs2string folder;
  return os::current_directory(folder).ok() && to_utf8(folder, out);
}

bool vu_fileutf8::rel2abs(vu_utf8string& path) {
  VU_FILE_SCOPE();
  // The system would cut the path.
  if (path.str().find('\0') != std::string::npos) return false;
  ucs2string absolute;
  return os::full_path(ucs2string(path), absolute).ok() && to_utf8(absolute, path);
}
