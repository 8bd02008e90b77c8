#include "client/admin/shared_view.h"

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "client/admin/system.h"

namespace admin {

namespace {

/// A file, directly through the OS seam.
class File final : public SharedHandle {
 public:
  File(const std::string& path, os::Access access) { m_opened = os::open(path, access, m_handle); }
  ~File() override { (void)close(); }

  const os::Status& opened() const { return m_opened; }

  os::Status lock(bool exclusive) override {
    std::memset(m_region, 0, sizeof m_region);
    os::LockRequest request;
    request.flags = (exclusive ? os::kLockExclusive : 0) | os::kLockFailAtOnce;
    request.length_low = request.length_high = 0xFFFFFFFF;
    request.region = m_region;
    return os::lock(m_handle, request);
  }

  os::Status unlock() override { return os::unlock(m_handle); }

  os::Status write(std::string_view bytes) {
    std::size_t done = 0;
    if (const os::Status status = os::set_end(m_handle); !status.ok()) return status;
    if (const os::Status status = os::write(m_handle, bytes.data(), bytes.size(), done);
        !status.ok())
      return status;
    return os::flush(m_handle);
  }

  os::Status read(std::string& bytes) override {
    std::array<char, 4096> buffer;
    bytes.clear();
    if (const os::Status status = os::seek(m_handle, 0, 0); !status.ok()) return status;
    for (;;) {
      std::size_t done = 0;
      const os::Status status = os::read(m_handle, buffer.data(), buffer.size(), done);
      if (!status.ok()) return status;
      bytes.append(buffer.data(), done);
      if (done < buffer.size()) return {};
    }
  }

  os::Status close() {
    if (!m_opened.ok() || m_handle == os::kNoHandle) return {};
    const os::Status status = os::close(m_handle);
    m_handle = os::kNoHandle;
    return status;
  }

 private:
  os::Handle m_handle = os::kNoHandle;
  os::Status m_opened;
  alignas(os::kLockRegionAlign) unsigned char m_region[os::kLockRegionSize] = {};
};

}  // namespace

std::string SharedView::path(const std::string& name) const { return sys::join(m_folder, name); }

os::Status SharedView::store(const std::string& name, std::string_view bytes) {
  File file(path(name), os::Access::kReadWriteCreate);
  if (!file.opened().ok()) return file.opened();
  if (const os::Status status = file.lock(true); !status.ok()) return status;
  if (const os::Status status = file.write(bytes); !status.ok()) return status;
  // Like the library: after a close alone, the lock may be released later.
  if (const os::Status status = file.unlock(); !status.ok()) return status;
  return file.close();
}

os::Status SharedView::load(const std::string& name, std::string& bytes) {
  File file(path(name), os::Access::kReadExisting);
  if (!file.opened().ok()) return file.opened();
  if (const os::Status status = file.lock(false); !status.ok()) return status;
  if (const os::Status status = file.read(bytes); !status.ok()) return status;
  return file.unlock();
}

os::Status SharedView::stat(const std::string& name, os::FileStat& result) {
  return os::stat(path(name), result);
}

bool SharedView::has(const std::string& name) { return os::probe_search(path(name)).ok(); }

bool SharedView::lists(const std::string& name) {
  os::Listing entries;
  if (!os::list(path(""), entries).ok()) return false;
  for (const os::Entry each : entries) {
    if (each.name == name) return true;
  }
  return false;
}

os::Status SharedView::remove(const std::string& name) { return os::remove_file(path(name)); }

os::Status SharedView::rename(const std::string& from, const std::string& to) {
  return os::rename(path(from), path(to));
}

os::Status SharedView::copy_to_new(const std::string& from, const std::string& to) {
  return os::copy(path(from), path(to), os::IfExists::kFail);
}

os::Status SharedView::set_time(const std::string& name, std::int64_t seconds) {
  namespace fs = std::filesystem;
  // The clock of file times has another epoch.
  static const auto epoch = fs::file_time_type::clock::from_sys(std::chrono::sys_seconds{});
  std::error_code failed;
  fs::last_write_time(path(name), epoch + std::chrono::seconds(seconds), failed);
  return failed ? os::Status(failed.value(), os::Failure::kOther) : os::Status();
}

bool SharedView::locks_belong_to_handles() { return os::locks_belong_to_handles(m_folder); }

std::unique_ptr<SharedHandle> SharedView::open(const std::string& name, os::Status& status) {
  auto file = std::make_unique<File>(path(name), os::Access::kReadWriteCreate);
  status = file->opened();
  if (!status.ok()) return nullptr;
  return file;
}

}  // namespace admin
