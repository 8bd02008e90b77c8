#include "lab/reliability/loop_disk_posix.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace reliability {
namespace {

/// The same request on ext4 and xfs, and its argument for "without flushing the journal".
constexpr unsigned long kShutdown = 0x8004587d;
constexpr std::uint32_t kWithoutJournal = 2;

/// What one of them takes at most.
constexpr std::uintmax_t kRoom = 200U << 20U;

std::string failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

LoopDisk::LoopDisk(DiskKind kind)
    : m_kind(std::move(kind)), m_path(native(m_scratch.path("mounted")).string()) {
  m_refusal = attach();
  if (m_refusal.empty()) m_refusal = mount();
}

LoopDisk::~LoopDisk() {
  ::umount2(m_path.c_str(), MNT_DETACH);
  if (m_device >= 0) ::close(m_device);
}

std::string LoopDisk::attach() {
  std::filesystem::create_directories(m_path);
  if (std::filesystem::space(m_path).available < kRoom) return "too little room for a disk";
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return failure("a mount of our own");
  }
  const std::string image = native(m_scratch.path("image")).string();
  const int file = ::open(image.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, static_cast<::off_t>(m_kind.size)) != 0) {
    return failure("a file in memory");
  }
  if (std::string failed = make(image); !failed.empty()) {
    ::close(file);
    return failed;
  }
  const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  if (control < 0) {
    ::close(file);
    return failure("/dev/loop-control");
  }
  ::loop_config config = {};
  config.fd = static_cast<std::uint32_t>(file);
  // The device goes with the last mount and handle.
  config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  // Somebody else may take the free one first.
  for (int attempt = 0; attempt < 50 && m_device < 0; ++attempt) {
    const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
    m_device_path = "/dev/loop" + std::to_string(number);
    const int device = number < 0 ? -1 : ::open(m_device_path.c_str(), O_RDWR | O_CLOEXEC);
    if (device < 0) break;
    if (::ioctl(device, LOOP_CONFIGURE, &config) == 0) {
      m_device = device;
    } else {
      ::close(device);
    }
  }
  const std::string refusal = m_device < 0 ? failure("a loop device") : std::string();
  ::close(control);
  ::close(file);
  // Nobody needs its name any more.
  ::unlink(image.c_str());
  return refusal;
}

std::string LoopDisk::make(const std::string& path) const {
  const std::string command =
      "PATH=\"$PATH:/usr/sbin:/sbin\" " + m_kind.maker + " '" + path + "' >/dev/null 2>&1";
  if (std::system(command.c_str()) == 0) return {};
  return "'" + m_kind.maker + "' does not work (it is in the package " + m_kind.packaged + ")";
}

std::string LoopDisk::make_anew() const {
  std::string failed = make(m_device_path);
  return failed.empty() ? mount() : failed;
}

std::string LoopDisk::mount() const {
  const bool is_mounted = ::mount(m_device_path.c_str(), m_path.c_str(), m_kind.type.c_str(),
                                  MS_NOATIME, m_kind.options.c_str()) == 0;
  return is_mounted ? std::string() : failure(("mounting " + m_kind.name).c_str());
}

void LoopDisk::settle() const {
  const int folder = ::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ::syncfs(folder);
  ::close(folder);
}

std::string LoopDisk::start_again() {
  for (int attempt = 0; ::umount2(m_path.c_str(), 0) != 0; ++attempt) {
    if (errno != EBUSY || attempt == 200) return failure("unmounting");
    ::usleep(5'000);
  }
  return mount();
}

bool cut_power(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return false;
  std::uint32_t how = kWithoutJournal;
  const bool is_cut = ::ioctl(folder, kShutdown, &how) == 0;
  ::close(folder);
  return is_cut;
}

}  // namespace reliability
