#include "client/admin/locked_file.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <utility>
#include <vector>

#include "file/replace_in_file.h"

namespace admin {

namespace {

constexpr std::int16_t kFromStart = 0;
constexpr std::int16_t kFromHere = 1;

constexpr os::Status kNotFound{0, os::Failure::kNotFound};
constexpr os::Status kNoPlainFile{0, os::Failure::kOther};

std::size_t common_front(std::string_view one, std::string_view other) {
  const auto differ = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  return static_cast<std::size_t>(differ.first - one.begin());
}

}  // namespace

os::Status OpenFile::open(const std::string& path, os::Access access) {
  close();
  const os::Status opened = os::open(path, access, m_handle);
  if (!opened.ok()) m_handle = os::kNoHandle;
  return opened;
}

os::Status OpenFile::try_close() {
  return is_open() ? os::close(std::exchange(m_handle, os::kNoHandle)) : os::Status();
}

os::Status OpenFile::try_lock(Lock kind) {
  alignas(os::kLockRegionAlign) std::array<char, os::kLockRegionSize> region{};
  os::LockRequest request;
  request.flags = os::kLockFailAtOnce | (kind == Lock::kExclusive ? os::kLockExclusive : 0);
  request.length_low = std::numeric_limits<std::uint32_t>::max();
  request.length_high = std::numeric_limits<std::uint32_t>::max();
  request.region = region.data();
  return os::lock(m_handle, request);
}

os::Status OpenFile::move_to(std::uint64_t offset) {
  // A seek moves by a 32-bit distance.
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  os::Status status = os::seek(m_handle, 0, kFromStart);
  while (status.ok() && offset > 0) {
    const std::uint64_t step = std::min(offset, kMost);
    status = os::seek(m_handle, static_cast<std::int32_t>(step), kFromHere);
    offset -= step;
  }
  return status;
}

os::Status OpenFile::read_at(std::uint64_t offset, std::size_t count, std::string& bytes) {
  bytes.resize(count);
  std::size_t done = 0;
  os::Status status = move_to(offset);
  if (status.ok()) status = os::read(m_handle, bytes.data(), count, done);
  bytes.resize(status.ok() ? done : 0);
  return status;
}

os::Status OpenFile::write_at(std::uint64_t offset, std::string_view bytes) {
  std::size_t done = 0;
  os::Status status = move_to(offset);
  if (status.ok()) status = os::write(m_handle, bytes.data(), bytes.size(), done);
  if (status.ok() && done < bytes.size()) return {os::last_error(), os::Failure::kOther};
  return status;
}

os::Status OpenFile::cut_at(std::uint64_t size) {
  const os::Status status = move_to(size);
  return status.ok() ? os::set_end(m_handle) : status;
}

// ---- locked files ------------------------------------------------------------------------------

os::Status LockedFile::open(const std::string& path, For purpose, const sys::Locking& locking) {
  close();
  m_path = path;
  m_purpose = purpose;
  const sys::Kind kind = sys::describe(path).kind;
  if (kind == sys::Kind::kMissing && purpose != For::kCreating) return kNotFound;
  // If the system cannot tell, the open below fails with the reason.
  const bool may_be_file =
      kind == sys::Kind::kMissing || kind == sys::Kind::kFile || kind == sys::Kind::kUnknown;
  if (!may_be_file) return kNoPlainFile;
  const bool reads = purpose == For::kReading;
  const os::Access access = reads                       ? os::Access::kReadExisting
                            : purpose == For::kCreating ? os::Access::kReadWriteCreate
                                                        : os::Access::kReadWriteExisting;
  const os::Status opened = OpenFile::open(path, access);
  if (!opened.ok() || (reads && locking.mode == sys::Locking::Mode::kNone)) return opened;
  const os::Status locked = sys::wait_for_lock(
      path, locking, [&] { return try_lock(reads ? Lock::kShared : Lock::kExclusive); });
  if (!locked.ok()) close();
  return locked;
}

os::Status LockedFile::read_all(std::string& bytes) {
  return read_at(0, static_cast<std::size_t>(size()), bytes);
}

os::Status LockedFile::read_text(std::string& text) {
  std::string bytes;
  const os::Status status = read_all(bytes);
  std::string saved;
  text = replacement::text_of(bytes, saved);
  if (!status.ok() || m_purpose == For::kReading || text == bytes) return status;
  return replace_lines(bytes, text);
}

bool LockedFile::is_equal_to(const std::string& other) {
  std::uint64_t done = 0;
  bool is_equal = true;
  std::string own;
  const os::Status read =
      sys::read_pieces(other, sys::Locking::none(), [&](std::string_view piece) {
        is_equal = read_at(done, piece.size(), own).ok() && own == piece;
        done += piece.size();
        return is_equal;
      });
  return read.ok() && is_equal && done == size();
}

os::Status LockedFile::replace_lines(std::string_view old_text, std::string_view new_text) {
  std::vector<NewLines> one = {{this, old_text, new_text, {}}};
  replace_lines(one);
  return one.front().status;
}

void LockedFile::replace_lines(std::vector<NewLines>& all) {
  std::deque<replacement::StagedReplacement> staged;
  for (const NewLines& each : all)
    staged.emplace_back(each.file->m_handle, each.old_text, each.new_text);
  for (;;) {
    std::vector<std::size_t> written;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (staged[i].write()) written.push_back(i);
    }
    if (written.empty()) break;
    std::vector<std::string> paths;
    for (const std::size_t i : written) paths.push_back(all[i].file->m_path);
    const std::vector<bool> is_flushed = sys::flush_file_systems(paths);
    for (std::size_t n = 0; n < written.size(); ++n) {
      const std::size_t i = written[n];
      staged[i].flushed(is_flushed[n] ? os::Status() : all[i].file->flush());
    }
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    const replacement::Outcome& outcome = staged[i].outcome();
    all[i].status = !outcome.written.ok()   ? outcome.written
                    : !outcome.flushed.ok() ? outcome.flushed
                                            : outcome.cut;
  }
}

os::Status LockedFile::replace_bytes(std::string_view old_bytes, std::string_view new_bytes) {
  const std::size_t front = common_front(old_bytes, new_bytes);
  os::Status status;
  if (new_bytes.size() > old_bytes.size()) status = os::reserve(m_handle, new_bytes.size());
  if (status.ok() && front < new_bytes.size()) status = write_at(front, new_bytes.substr(front));
  if (status.ok() && new_bytes.size() < old_bytes.size()) status = cut_at(new_bytes.size());
  return status.ok() ? flush() : status;
}

bool is_between(std::string_view old_bytes, std::string_view new_bytes, std::string_view found) {
  const std::size_t front = common_front(found, new_bytes);
  // After the end of the old bytes there can only be new ones.
  if (front == found.size() && front >= old_bytes.size()) return true;
  return found.size() == old_bytes.size() && front <= found.size() &&
         found.substr(front) == old_bytes.substr(front);
}

// ---- unfinished files and folders ---------------------------------------------------------------

namespace {

constexpr int kMostFolders = 1000;

std::string lock_in(const std::string& path) { return sys::join(path, StagingFolder::kLockName); }

void remove_copies(const std::string& path) {
  std::vector<sys::Child> copies;
  static_cast<void>(sys::list_sorted(path, copies));
  for (const sys::Child& copy : copies) {
    if (copy.name == StagingFolder::kLockName) continue;
    const std::string file = sys::join(path, copy.name);
    static_cast<void>(os::make_writable(file));
    static_cast<void>(os::remove_file(file));
  }
}

}  // namespace

bool is_unfinished(std::string_view name) { return name.starts_with(".stgctl-part"); }

bool is_leftover(const std::string& path) {
  if (!is_unfinished(path.substr(path.rfind(sys::kSeparator) + 1))) return false;
  const sys::Kind kind = sys::describe(path).kind;
  if (kind != sys::Kind::kFolder) return kind == sys::Kind::kFile;
  LockedFile lock;
  const os::Status status =
      lock.open(lock_in(path), LockedFile::For::kReading, sys::Locking().at_once());
  return status.failure() != os::Failure::kLocked;
}

os::Status StagingFolder::make(const std::string& folder) {
  remove_leftovers(folder);
  os::Status made;
  for (int number = 1; number <= kMostFolders; ++number) {
    const std::string path = sys::join(folder, std::string(kName) + std::to_string(number));
    made = os::create_directory(path);
    if (made.failure() == os::Failure::kAlreadyExists) continue;
    if (!made.ok()) return made;
    made = take(path, LockedFile::For::kCreating);
    if (made.ok()) return made;
    // Another process has taken the folder, or removed it and perhaps made it again.
    if (made.failure() == os::Failure::kLocked || made.failure() == os::Failure::kNotFound)
      continue;
    static_cast<void>(os::remove_directory(path));
    return made;
  }
  return made;
}

os::Status StagingFolder::take(const std::string& path, LockedFile::For purpose) {
  const os::Status locked = m_lock.open(lock_in(path), purpose, sys::Locking().at_once());
  if (!locked.ok()) return locked;
  // The process that had the lock before may have removed the lock file, and another one may have
  // created it again. The mark shows whether the locked file is the one at the path. Where nobody
  // can remove an open file, the file at the path is the locked one.
  bool is_ours = sys::describe(lock_in(path)).kind != sys::Kind::kMissing;
  if (is_ours && sys::kReplacesOpenFiles) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::string mark =
        std::to_string(now) + " " + std::to_string(reinterpret_cast<std::uintptr_t>(this));
    // Without space for the mark there is no space for copies either. A mark that cannot be read,
    // because the file system applies the lock to other handles too, decides nothing.
    std::string found;
    if (m_lock.cut_at(0).ok() && m_lock.write_at(0, mark).ok()) {
      const os::Status read = sys::read_file(lock_in(path), sys::Locking::none(), found);
      is_ours = read.ok() ? found == mark : read.failure() != os::Failure::kNotFound;
    }
  }
  if (!is_ours) {
    m_lock.close();
    return {0, os::Failure::kLocked};
  }
  m_path = path;
  return locked;
}

void StagingFolder::remove() {
  if (m_path.empty()) return;
  remove_copies(m_path);
  // Try to remove the lock file while it is locked, so that no other process locks it first.
  const bool is_removed = os::remove_file(lock_in(m_path)).ok();
  m_lock.close();
  if (!is_removed) static_cast<void>(os::remove_file(lock_in(m_path)));
  static_cast<void>(os::remove_directory(m_path));
  m_path.clear();
}

void StagingFolder::remove_leftovers(const std::string& folder) {
  sys::Folder listing;
  std::vector<std::string> left;
  if (!listing.open(folder).ok()) return;
  sys::Entry entry;
  while (listing.next(entry)) {
    if (entry.kind == sys::Kind::kFolder && entry.name.starts_with(kName))
      left.push_back(sys::join(folder, entry.name));
  }
  for (const std::string& path : left) {
    StagingFolder dead;
    const os::Status taken = dead.take(path, LockedFile::For::kChanging);
    // This removes only an empty folder.
    if (taken.failure() == os::Failure::kNotFound) static_cast<void>(os::remove_directory(path));
  }
}

}  // namespace admin
