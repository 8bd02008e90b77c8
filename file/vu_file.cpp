#include "vu_file.h"

#include <stdexcept>
#include <string_view>

#include "file/file_internal.h"
#include "file/handle_core.h"
#include "file/path_text.h"
#include "platform/os/os.h"

/// @file
/// The narrow handle, the twin of vu_fileutf8.cpp; HandleCore implements the protocol of both. The
/// static operations are in vu_file_system.cpp.

namespace {

class NarrowSpelling final : public HandleSpelling {
 public:
  os::Status open(const std::string& path, os::Access access, os::Handle& handle) const override {
    return os::open(path, access, handle);
  }
  std::int64_t size(const std::string& path) const override { return vu_file::size(path); }
  std::string error_text(std::int32_t code) const override { return os::error_text(code); }
  const char* wrong_read_mode() const override {
    return "vu_file::read : read op in write or truncate access file";
  }
  const char* wrong_write_mode() const override {
    return "vu_file::write : write operation in read access file";
  }
};

constinit const NarrowSpelling kNarrowSpelling{};

}  // namespace

HandleCore::HandleCore(vu_file& handle, const trace::Scope& operation)
    : m_state(handle),
      m_directory(handle.directory),
      m_file_name(handle.fileName),
      m_spelling(kNarrowSpelling),
      m_operation(operation) {}

vu_file::vu_file() { init(); }

vu_file::vu_file(const std::string& fullPath) {
  init();
  setPath(fullPath);
}

vu_file::vu_file(const std::string& folder, const std::string& name) {
  init();
  directory = folder;
  fileName = name;
}

// Required: copies are shallow and share an open handle.
vu_file::vu_file(const vu_file&) = default;
vu_file& vu_file::operator=(const vu_file&) = default;

vu_file::~vu_file() noexcept {
  if (is_open()) close();
}

void vu_file::init() {
  directory.clear();
  fileName.clear();
}

void vu_file::setPath(const std::string& fullPath) noexcept {
  VU_FILE_SCOPE();
  if (is_open()) {
    VU_ERROR("cannot change file name when it is opened");
    return;
  }
  try {
    path_text::Cut cut;
    if (path_text::cut_at_last_backslash(fullPath, path_text::Encoding::kNarrow, cut)) {
      std::string folder(cut.before);
      fileName = cut.after;
      directory = std::move(folder);
      return;
    }
  } catch (...) {
    // There is no memory for the names: they stay as they are, and the path is refused.
  }
  VU_ERROR("vu_file setPath (invalid fullpath) : ", fullPath);
}

std::string vu_file::getFilePath() const {
  VU_FILE_SCOPE();
  return path_text::join(directory, fileName);
}

vu_path vu_file::getPath() const {
  VU_FILE_SCOPE();
  return {directory, fileName};
}

bool vu_file::try_open(type_access mode, bool& lockFailed, bool noWait) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).try_open(mode, lockFailed, noWait);
}

void vu_file::open(type_access mode) {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).open(mode);
}

void vu_file::open(const std::string& folder, const std::string& name, type_access mode) {
  VU_FILE_SCOPE();
  // Required: no trace and no exception. A later read finds a handle that was never opened.
  if (folder.empty() || name.empty()) return;
  directory = folder;
  fileName = name;
  open(mode);
}

int vu_file::read(std::string& out, int count) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).read(out, count);
}

int vu_file::read(char* buffer, int count) {
  VU_FILE_SCOPE();
  std::string bytes;
  const int done = read(bytes, count);
  bytes.copy(buffer, bytes.size());
  return done;
}

int vu_file::write(const std::string& data) {
  VU_FILE_SCOPE();
  return HandleCore(*this, vu_trace_scope).write(data);
}

int vu_file::write(const char* data, int count) {
  VU_FILE_SCOPE();
  if (count < 0) throw std::length_error("vu_file::write");
  return write(std::string(data, static_cast<std::size_t>(count)));
}

void vu_file::seek(int offset, short origin) {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).seek(offset, origin);
}

void vu_file::rewind() {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).seek(0, 0);
}

void vu_file::close() noexcept {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).close();
}

void vu_file::clear() noexcept {
  VU_FILE_SCOPE();
  HandleCore(*this, vu_trace_scope).clear();
}

void vu_file::linesNotEmpty(const std::string& dir, const std::string& name,
                            std::vector<std::string>& lines) {
  VU_FILE_SCOPE();
  vu_file file;
  std::string content;
  file.open(dir, name, o_read);
  file.read(content, 0);
  file.close();
  std::string_view line;
  for (std::string_view rest = content; next_line(rest, line);) lines.emplace_back(line);
}

std::string vu_file::mSgError(unsigned long errorCode) {
  return os::error_text(static_cast<std::int32_t>(errorCode));
}
