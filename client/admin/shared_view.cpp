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

// ---- whether locks exclude ---------------------------------------------------------------------

namespace {

LockProof try_on(SharedView& view, const std::string& name, std::string& detail) {
  os::Status status;
  const auto first = view.open(name, status);
  const auto second = first ? view.open(name, status) : nullptr;
  if (!second) {
    detail = sys::text_of(status);
    return LockProof::kFailed;
  }
  if (const os::Status locked = first->lock(true); !locked.ok()) {
    detail = "cannot lock a file: " + sys::text_of(locked);
    return LockProof::kFailed;
  }
  if (second->lock(false).ok()) {
    detail = "a shared lock was granted while another handle had an exclusive lock";
    return LockProof::kDoNotExclude;
  }
  if (const os::Status freed = first->unlock(); !freed.ok()) {
    detail = sys::text_of(freed);
    return LockProof::kFailed;
  }
  if (!second->lock(false).ok() || !first->lock(false).ok()) {
    detail = "two shared locks exclude each other";
    return LockProof::kFailed;
  }
  detail = "an exclusive lock excludes all others; shared locks are granted together";
  return LockProof::kExclude;
}

}  // namespace

std::string_view name_of(LockProof proof) {
  constexpr std::array<std::string_view, 4> kNames = {"not-tried", "exclude", "do-not-exclude",
                                                      "failed"};
  return kNames[static_cast<std::size_t>(proof)];
}

LockTrial try_locks(const std::string& folder) {
  LockTrial trial;
  trial.folder = folder;
  SharedView view(folder);
  std::string name;
  // Finds a free name.
  for (int i = 0; i < 1000; ++i) {
    name = "stgctl-lock-trial-" + std::to_string(os::now()) + "-" + std::to_string(i) + ".tmp";
    if (sys::describe(sys::join(folder, name)).kind == sys::Kind::kMissing) break;
  }
  trial.proof = try_on(view, name, trial.detail);
  (void)view.remove(name);
  return trial;
}

std::string temporary_folder() {
  ucs2string folder;
  if (!os::temporary_folder(folder).ok()) return ".";
  std::string path = os::to_narrow(folder);
  if (sys::kSeparator == '/') {
    for (char& c : path) c = c == '\\' ? '/' : c;
  }
  return path;
}

}  // namespace admin
