#include "vu_fileutf8.h"

#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "file/file_internal.h"
#include "file/handle_core.h"
#include "file/path_text.h"
#include "platform/os/os.h"

/// @file
/// The UTF-8 handle, the twin of vu_file.cpp; HandleCore implements the protocol of both. The
/// static operations are in vu_fileutf8_system.cpp.

namespace {

class Utf8Spelling final : public HandleSpelling {
 public:
  os::Status open(const std::string& path, os::Access access, os::Handle& handle) const override {
    const ucs2string long_path = vu_file_internal::getLongPath(ucs2string(vu_utf8string(path)));
    return os::open(long_path, access, handle);
  }
  std::int64_t size(const std::string& path) const override {
    os::FileStat found;
    if (!vu_file_internal::getFileStat(vu_utf8string(path), found, false)) return 0;
    return static_cast<std::int64_t>(found.size);
  }
  std::string error_text(std::int32_t code) const override {
    return vu_utf8string(os::error_text_wide(code)).str();
  }
  const char* wrong_read_mode() const override {
    return "vu_fileutf8::read : read op in write or truncate access file";
  }
  const char* wrong_write_mode() const override {
    return "vu_fileutf8::write : write operation in read access file";
  }
};

constinit const Utf8Spelling kUtf8Spelling{};

}  // namespace

HandleCore::HandleCore(vu_fileutf8& handle, const trace::Scope& operation)
    : m_state(handle),
      m_directory(handle.directory.str()),
      m_file_name(handle.fileName.str()),
      m_spelling(kUtf8Spelling),
      m_operation(operation) {}

vu_fileutf8::vu_fileutf8() { init(); }

vu_fileutf8::vu_fileutf8(const vu_utf8string& fullPath) {
  init();
  setPath(fullPath);
}

vu_fileutf8::vu_fileutf8(const vu_utf8string& folder, const vu_utf8string& name) {
  init();
  directory = folder;
  fileName = name;
}

// Required: copies are shallow and share an open handle.
vu_fileutf8::vu_fileutf8(const vu_fileutf8&) = default;
vu_fileutf8& vu_fileutf8::operator=(const vu_fileutf8&) = default;

vu_fileutf8::~vu_fileutf8() noexcept {
  if (is_open()) close();
}

void vu_fileutf8::init() {
  directory = vu_utf8string();
  fileName = vu_utf8string();
}

void vu_fileutf8::setPath(const vu_utf8string& fullPath) noexcept {
  VU_FILE_SCOPE();
  if (is_open()) {
    VU_ERROR("cannot change file name when it is opened");
    return;
  }
  try {
    path_text::Cut cut;
    if (path_text::cut_at_last_backslash(fullPath.str(), path_text::Encoding::kUtf8, cut)) {
      vu_utf8string folder{std::string(cut.before)};
      fileName = vu_utf8string(std::string(cut.after));
      directory = std::move(folder);
      return;
    }
  } catch (...) {
    // There is no memory for the names: they stay as they are, and the path is refused.
  }
  VU_ERROR("vu_fileutf8::setPath (invalid fullpath) : ", fullPath);
}

vu_utf8string vu_fileutf8::getFilePath() const {
  VU_FILE_SCOPE();
  return vu_utf8string(path_text::join(directory.str(), fileName.str()));
}

vu_pathutf8 vu_fileutf8::getPath() const {
  VU_FILE_SCOPE();
  return {directory, fileName};
}

bool vu_fileutf8::try_open(type_access mode, bool& lockFailed, bool noWait) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).try_open(mode, lockFailed, noWait);
}

void vu_fileutf8::open(type_access mode) {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).open(mode);
}

void vu_fileutf8::open(const vu_utf8string& folder, const vu_utf8string& name, type_access mode) {
  VU_FILE_SCOPE();
  // Required: no trace and no exception. A later read finds a handle that was never opened.
  if (folder.empty() || name.empty()) return;
  directory = folder;
  fileName = name;
  open(mode);
}

int vu_fileutf8::read(std::string& out, int count) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).read(out, count);
}

int vu_fileutf8::read(char* buffer, int count) {
  VU_FILE_SCOPE();
  std::string bytes;
  const int done = read(bytes, count);
  bytes.copy(buffer, bytes.size());
  return done;
}

void vu_fileutf8::read(unsigned char*& buffer, unsigned int& length) {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).read(buffer, length);
}

int vu_fileutf8::write(const std::string& data) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).write(data);
}

int vu_fileutf8::write(const char* data, int count) {
  VU_FILE_SCOPE();
  if (count < 0) throw std::length_error("vu_fileutf8::write");
  return write(std::string(data, static_cast<std::size_t>(count)));
}

void vu_fileutf8::seek(int offset, short origin) {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).seek(offset, origin);
}

void vu_fileutf8::rewind() {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).seek(0, 0);
}

void vu_fileutf8::close() noexcept {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).close();
}

void vu_fileutf8::clear() noexcept {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).clear();
}

void vu_fileutf8::linesNotEmpty(const vu_utf8string& dir, const vu_utf8string& name,
                                std::vector<vu_utf8string>& lines) {
  VU_FILE_SCOPE();
  vu_fileutf8 file;
  std::string content;
  file.open(dir, name, o_read);
  file.read(content, 0);
  file.close();
  std::string_view line;
  for (std::string_view rest = content; next_line(rest, line);)
    lines.emplace_back(std::string(line));
}

vu_utf8string vu_fileutf8::mSgError(unsigned long errorCode) {
  return vu_utf8string(os::error_text_wide(static_cast<std::int32_t>(errorCode)));
}
