#include <cstddef>

#include "file/file_internal.h"
#include "file/path_text.h"
#include "platform/host/host.h"
#include "platform/os/os.h"
#include "vu_path.h"

namespace {

/// The position of the last backslash that is not the second byte of a narrow character; 0 if there
/// is none.
std::size_t last_backslash(const std::string& path) {
  std::size_t last = 0;
  for (std::size_t at = 0; at < path.size(); ++at) {
    if (path[at] == '\\') {
      last = at;
    } else if (os::is_lead_byte(static_cast<unsigned char>(path[at]))) {
      ++at;
    }
  }
  return last;
}

/// The same in UTF-8, where no other character contains the byte of a backslash.
std::size_t last_backslash_utf8(const std::string& path) {
  const std::size_t at = path.rfind('\\');
  return at == std::string::npos ? 0 : at;
}

// Required: a path without a backslash is cut at its first character, which is lost. Example: the
// name of "abc" is "bc".
std::string before(const std::string& path, std::size_t at) { return path.substr(0, at); }
std::string after(const std::string& path, std::size_t at) {
  return path.empty() ? std::string() : path.substr(at + 1);
}

}  // namespace

vu_path::vu_path(const std::string& parent, const std::string& relative)
    : parentPathName(parent), relativePathName(relative) {}
vu_path::vu_path(const std::string& fullPath) {
  const std::size_t at = last_backslash(fullPath);
  parentPathName = before(fullPath, at);
  relativePathName = after(fullPath, at);
}
vu_path::vu_path(const vu_path&) = default;
vu_path& vu_path::operator=(const vu_path&) = default;
vu_path::~vu_path() = default;

const std::string& vu_path::getParentPathName() const { return parentPathName; }
const std::string& vu_path::getRelativePathName() const { return relativePathName; }
std::string vu_path::getAbsolutePathName() const {
  return path_text::join(parentPathName, relativePathName);
}
vu_path vu_path::getParentPath() const { return vu_path(parentPathName); }

vu_pathutf8::vu_pathutf8(const vu_utf8string& parent, const vu_utf8string& relative)
    : parentPathName(parent), relativePathName(relative) {}
vu_pathutf8::vu_pathutf8(const vu_utf8string& fullPath) {
  const std::size_t at = last_backslash_utf8(fullPath.str());
  parentPathName = vu_utf8string(before(fullPath.str(), at));
  relativePathName = vu_utf8string(after(fullPath.str(), at));
}
vu_pathutf8::vu_pathutf8(const vu_pathutf8&) = default;
vu_pathutf8& vu_pathutf8::operator=(const vu_pathutf8&) = default;
vu_pathutf8::~vu_pathutf8() = default;

const vu_utf8string& vu_pathutf8::getParentPathName() const { return parentPathName; }
const vu_utf8string& vu_pathutf8::getRelativePathName() const { return relativePathName; }
vu_utf8string vu_pathutf8::getAbsolutePathName() const {
  return vu_utf8string(path_text::join(parentPathName.str(), relativePathName.str()));
}
vu_pathutf8 vu_pathutf8::getParentPath() const { return vu_pathutf8(parentPathName); }

void getTempRootPath(std::string& out) {
  VU_FILE_SCOPE();
  const ucs2string folder = host::temp().framework_root_folder();
  const std::size_t size = folder.size();
  const bool ends_in_backslash = size > 0 && folder.at(size - 1) == u'\\';
  out = os::to_narrow(ends_in_backslash ? folder.substr(0, size - 1) : folder);
}
