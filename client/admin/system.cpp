#include "client/admin/system.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "client/admin/text.h"
#include "index/index_format.h"

namespace admin::sys {

namespace {

constexpr std::size_t kPieceBytes = 256 * 1024;
constexpr std::chrono::milliseconds kBetweenTries{10};

os::Status open_to_read(const std::string& path, const Locking& locking, QuietFile& file) {
  const os::Status opened = file.open(path);
  if (!opened.ok() || locking.mode != Locking::Mode::kShared) return opened;
  return wait_for_lock(path, locking, [&] { return file.try_lock(); });
}

}  // namespace

os::Status wait_for_lock(const std::string& path, const Locking& locking,
                         const std::function<os::Status()>& ask) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  bool told = false;
  for (;;) {
    const os::Status locked = ask();
    if (locked.failure() != os::Failure::kLocked) return {};
    const auto waited = Clock::now() - start;
    if (waited >= locking.time_out || (locking.stop != nullptr && locking.stop->load()))
      return locked;
    if (!told && waited >= locking.patience) {
      told = true;
      if (locking.on_wait) locking.on_wait(path);
    }
    std::this_thread::sleep_for(kBetweenTries);
  }
}

os::Status read_file(const std::string& path, const Locking& locking, std::string& bytes) {
  bytes.clear();
  const os::Status read = read_pieces(path, locking, [&](std::string_view piece) {
    bytes.append(piece);
    return true;
  });
  if (!read.ok()) bytes.clear();
  return read;
}

os::Status read_pieces(const std::string& path, const Locking& locking,
                       const std::function<bool(std::string_view piece)>& take) {
  QuietFile file;
  const os::Status opened = open_to_read(path, locking, file);
  if (!opened.ok()) return opened;
  const auto buffer = std::make_unique_for_overwrite<char[]>(kPieceBytes);
  for (;;) {
    std::size_t got = 0;
    const os::Status read = file.read(buffer.get(), kPieceBytes, got);
    if (!read.ok() || got == 0 || !take({buffer.get(), got})) return read;
  }
}

os::Status list_sorted(const std::string& folder, std::vector<Child>& children) {
  children.clear();
  Folder listing;
  os::Status status = listing.open(folder);
  if (!status.ok()) return status;
  Entry entry;
  while (listing.next(entry)) children.push_back({std::string(entry.name), entry.kind});
  std::ranges::sort(children, {}, &Child::name);
  return listing.status();
}

os::Status probe_readable(const std::string& path) { return QuietFile().open(path); }

std::string text_of(const os::Status& status) {
  std::string text = os::error_text(status.code());
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text.empty() ? "error " + std::to_string(status.code()) : text;
}

std::string reason_of(const os::Status& status) {
  if (status.failure() != os::Failure::kLocked) return text_of(status);
  return std::string("another process has locked it; ") + kLockAdvice;
}

}  // namespace admin::sys

namespace admin {

// ---- whether a user may write ------------------------------------------------------------------

namespace {

constexpr os::Status kNoPlainFile{0, os::Failure::kOther};

/// Checks the folder, or its nearest existing parent, in which the missing folders would be
/// created.
Obstacle obstacle_of_folder(std::string path) {
  for (;;) {
    const sys::Kind kind = sys::describe(path).kind;
    const std::size_t at = path.rfind(sys::kSeparator);
    if (kind == sys::Kind::kMissing && at != std::string::npos && at != 0) {
      path.resize(at);
      continue;
    }
    Obstacle found{Obstacle::Kind::kFolder, path, ""};
    if (kind == sys::Kind::kFile || kind == sys::Kind::kOther) {
      found.why = "a file is in the place of a folder";
    } else if (const os::Status status = sys::probe_writable(path); !status.ok()) {
      found.why = sys::text_of(status);
    }
    return found;
  }
}

Obstacle obstacle_of_file(Obstacle::Kind what, const std::string& path) {
  const sys::Kind kind = sys::describe(path).kind;
  Obstacle found{what, path, ""};
  if (kind == sys::Kind::kMissing) return found;
  const bool may_be_file = kind == sys::Kind::kFile || kind == sys::Kind::kUnknown;
  const os::Status status = may_be_file ? sys::probe_writable(path) : kNoPlainFile;
  if (!status.ok()) found.why = why_not_writable(path, status);
  return found;
}

}  // namespace

bool can_be_stored_as(const std::string& folder, std::string_view logical) {
  constexpr std::size_t kShort = 64;
  const std::string_view extension = index_format::extension_of(logical);
  // Such an extension is possible on every system.
  if (extension.size() <= kShort && index_format::is_escaped_form(extension)) return true;
  if (extension.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos) return false;
  // Both are necessary: the search takes "*" and "?" for patterns, and the name of a stream, with a
  // colon, has attributes.
  const std::string path =
      sys::join(folder, std::string(index_format::kTroubleName) + std::string(extension));
  return os::probe_attributes(path).failure() != os::Failure::kNoName &&
         os::probe_search(path).failure() != os::Failure::kNoName;
}

std::string why_not_readable(const std::string& path, const os::Status& status) {
  if (status.failure() == os::Failure::kLocked) return sys::reason_of(status);
  switch (sys::describe(path).kind) {
    case sys::Kind::kFolder: return "a folder is in its place";
    case sys::Kind::kLink: return "a link is in its place";
    case sys::Kind::kOther: return "it is not a plain file";
    default: return sys::text_of(status);
  }
}

std::string why_not_writable(const std::string& path, const os::Status& status) {
  const sys::Info info = sys::describe(path);
  const bool is_marked = info.kind == sys::Kind::kFile && info.is_read_only;
  return is_marked && status.failure() != os::Failure::kLocked ? "it is read-only"
                                                               : why_not_readable(path, status);
}

std::vector<Obstacle> obstacles_to_writing(const std::string& folder) {
  using Kind = Obstacle::Kind;
  std::vector<Obstacle> found = {obstacle_of_folder(folder)};
  // If the folder itself is not writable, its files need not be checked.
  if (!found.front().why.empty()) return found;
  found = {obstacle_of_file(Kind::kIndex, sys::join(folder, index_format::kIndexFile)),
           obstacle_of_file(Kind::kCounter, sys::join(folder, index_format::kCounterFile))};
  std::erase_if(found, [](const Obstacle& each) { return each.why.empty(); });
  return found;
}

std::string why_not_storable(const std::string& folder) {
  const std::vector<Obstacle> found = obstacles_to_writing(folder);
  if (found.empty()) return {};
  const Obstacle& first = found.front();
  const char* const what = first.kind == Obstacle::Kind::kIndex     ? "the index "
                           : first.kind == Obstacle::Kind::kCounter ? "the counter "
                                                                    : "the folder ";
  return what + printable(first.path) + " cannot be written: " + first.why;
}

}  // namespace admin
