#include <chrono>
#include <filesystem>
#include <system_error>

#include "client/admin/locked_file.h"
#include "client/admin/shared_probe.h"

namespace admin {

namespace {

/// A trial file contains less.
constexpr std::size_t kMostBytes = 4096;

struct File final : SharedHandle {
  os::Status lock(bool exclusive) override {
    return file.try_lock(exclusive ? OpenFile::Lock::kExclusive : OpenFile::Lock::kShared);
  }
  os::Status unlock() override { return file.unlock(); }
  os::Status read(std::string& bytes) override { return file.read_at(0, kMostBytes, bytes); }

  OpenFile file;
};

}  // namespace

std::string SharedView::path(const std::string& name) const { return sys::join(m_folder, name); }

os::Status SharedView::store(const std::string& name, std::string_view bytes) {
  OpenFile file;
  os::Status status = file.open(path(name), os::Access::kReadWriteCreate);
  if (status.ok()) status = file.try_lock(OpenFile::Lock::kExclusive);
  if (status.ok()) status = file.cut_at(0);
  if (status.ok()) status = file.write_at(0, bytes);
  if (status.ok()) status = file.flush();
  // Like the library: after a close alone, the lock may be released later.
  if (status.ok()) status = file.unlock();
  return status.ok() ? file.try_close() : status;
}

os::Status SharedView::load(const std::string& name, std::string& bytes) {
  OpenFile file;
  os::Status status = file.open(path(name), os::Access::kReadExisting);
  if (status.ok()) status = file.try_lock(OpenFile::Lock::kShared);
  if (status.ok()) status = file.read_at(0, kMostBytes, bytes);
  return status.ok() ? file.unlock() : status;
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
  auto handle = std::make_unique<File>();
  status = handle->file.open(path(name), os::Access::kReadWriteCreate);
  if (!status.ok()) return nullptr;
  return handle;
}

std::string temporary_folder() {
  std::error_code failed;
  const std::u8string path = std::filesystem::temp_directory_path(failed).u8string();
  return failed ? std::string() : std::string(path.begin(), path.end());
}

}  // namespace admin
