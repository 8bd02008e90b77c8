#include "client/admin/doctor.h"

#include <cstring>

#include "client/admin/folder_view.h"

namespace admin {

namespace {

/// An open file and its lock, directly through the OS seam.
class Trial {
 public:
  explicit Trial(const std::string& path) {
    m_opened = os::open(path, os::Access::kReadWriteCreate, m_handle);
  }
  ~Trial() {
    if (m_opened.ok()) (void)os::close(m_handle);
  }
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  const os::Status& opened() const { return m_opened; }

  os::Status lock(std::uint32_t flags) {
    std::memset(m_region, 0, sizeof m_region);
    os::LockRequest request;
    request.flags = flags | os::kLockFailAtOnce;
    request.length_low = request.length_high = 0xFFFFFFFF;
    request.region = m_region;
    return os::lock(m_handle, request);
  }
  os::Status unlock() { return os::unlock(m_handle); }

 private:
  os::Handle m_handle = os::kNoHandle;
  os::Status m_opened;
  alignas(os::kLockRegionAlign) unsigned char m_region[os::kLockRegionSize] = {};
};

LockProof try_on(const std::string& path, std::string& detail) {
  Trial first(path);
  Trial second(path);
  if (!first.opened().ok() || !second.opened().ok()) {
    detail = sys::text_of(first.opened().ok() ? second.opened() : first.opened());
    return LockProof::kFailed;
  }
  if (const os::Status locked = first.lock(os::kLockExclusive); !locked.ok()) {
    detail = "cannot lock a file: " + sys::text_of(locked);
    return LockProof::kFailed;
  }
  if (second.lock(0).ok()) {
    detail = "a shared lock was granted while another handle had an exclusive lock";
    return LockProof::kDoNotExclude;
  }
  if (const os::Status freed = first.unlock(); !freed.ok()) {
    detail = sys::text_of(freed);
    return LockProof::kFailed;
  }
  if (!second.lock(0).ok() || !first.lock(0).ok()) {
    detail = "two shared locks exclude each other";
    return LockProof::kFailed;
  }
  detail = "an exclusive lock excludes all others; shared locks are granted together";
  return LockProof::kExclude;
}

class StatusVisitor final : public Visitor {
 public:
  explicit StatusVisitor(TreeStatus& status) : m_status(status) {}

  bool folder(const DocumentFolder& folder) override {
    AreaStatus& area = m_status.areas[static_cast<std::size_t>(folder.area)];
    ++area.folders;
    if (!folder.owner.empty() && (folder.owner != m_owner || folder.area != m_area)) {
      ++area.owners;
      m_owner = folder.owner;
      m_area = folder.area;
    }
    const std::string index = sys::join(folder.path, index_format::kIndexFile);
    if (sys::describe(index).kind == sys::Kind::kFile) ++area.with_index;
    return true;
  }
  void stray(Area area, const std::string&, sys::Kind) override {
    ++m_status.areas[static_cast<std::size_t>(area)].strays;
  }
  void failed(const std::string&, const os::Status&) override { ++m_status.failures; }

 private:
  TreeStatus& m_status;
  std::string m_owner;
  Area m_area = Area::kDocs;
};

}  // namespace

std::string_view name_of(LockProof proof) {
  constexpr std::array<std::string_view, 4> kNames = {"not-tried", "exclude", "do-not-exclude",
                                                      "failed"};
  return kNames[static_cast<std::size_t>(proof)];
}

LockTrial try_locks(const std::string& folder) {
  LockTrial trial;
  trial.folder = folder;
  std::string path;
  // Finds a free name.
  for (int i = 0; i < 1000; ++i) {
    path = sys::join(folder, "stgctl-lock-trial-" + std::to_string(os::now()) + "-" +
                                 std::to_string(i) + ".tmp");
    if (sys::describe(path).kind == sys::Kind::kMissing) break;
  }
  trial.proof = try_on(path, trial.detail);
  (void)os::remove_file(path);
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

TreeStatus status_of(const Tree& tree) {
  TreeStatus status;
  for (const Area area : kAreas) {
    const std::string path = tree.folder_of(area);
    status.areas[static_cast<std::size_t>(area)].exists =
        sys::describe(path).kind == sys::Kind::kFolder;
  }
  StatusVisitor visitor(status);
  walk(tree, Scope(), visitor);
  return status;
}

}  // namespace admin
