#include "client/admin/shared_probe.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <thread>

namespace admin {

namespace {

/// What a check found to be wrong, in words.
struct Wrong {
  std::string text;
};

void require(bool holds, const std::string& otherwise) {
  if (!holds) throw Wrong{otherwise};
}

void require(const os::Status& status, const std::string& failure) {
  if (!status.ok()) throw Wrong{failure + ": " + sys::text_of(status)};
}

std::unique_ptr<SharedHandle> opened(SharedView& view, const std::string& name) {
  os::Status status;
  auto handle = view.open(name, status);
  require(status, "cannot open a file");
  return handle;
}

void create(SharedView& view, const std::string& name, const std::string& bytes) {
  require(view.store(name, bytes), "cannot create a file");
}

os::FileStat described(SharedView& view, const std::string& name, const char* failure) {
  os::FileStat found;
  require(view.stat(name, found), failure);
  return found;
}

/// A path in a folder that is not in use, with a number between the two texts.
std::string free_path(const std::string& folder, const std::string& before,
                      const std::string& after) {
  std::string path;
  for (int i = 0; i < 1000; ++i) {
    path = sys::join(folder, before + std::to_string(os::now()) + "-" + std::to_string(i) + after);
    if (sys::describe(path).kind == sys::Kind::kMissing) break;
  }
  return path;
}

}  // namespace

// ---- whether locks exclude ---------------------------------------------------------------------

LockTrial try_locks(const std::string& folder) {
  LockTrial trial{LockProof::kFailed, folder, {}};
  SharedView view(folder);
  const std::string path = free_path(folder, "stgctl-lock-trial-", ".tmp");
  const std::string name = path.substr(path.rfind(sys::kSeparator) + 1);
  try {
    const auto first = opened(view, name);
    const auto second = opened(view, name);
    require(first->lock(true), "cannot lock a file");
    if (second->lock(false).ok()) {
      trial.proof = LockProof::kDoNotExclude;
      throw Wrong{"a shared lock was granted while another handle had an exclusive lock"};
    }
    require(first->unlock(), "cannot release a lock");
    require(second->lock(false).ok() && first->lock(false).ok(),
            "two shared locks exclude each other");
    trial.proof = LockProof::kExclude;
    trial.detail = "an exclusive lock excludes all others; shared locks are granted together";
  } catch (const Wrong& wrong) {
    trial.detail = wrong.text;
  }
  (void)view.remove(name);
  return trial;
}

// ---- what hosts need from a shared file system -------------------------------------------------

namespace {

/// Rounds of a check in each direction. It is repeated because a cache can falsify one round.
constexpr int kRounds = 5;
/// Long ago, so it differs from the present time of any clock.
constexpr std::int64_t kOldTime = 1'000'000'000;
/// Tolerated difference of clocks in seconds: file times are whole seconds.
constexpr std::int64_t kSlack = 2;

// The checks. Each gets the two hosts, which may be one, and the letter of the direction. It throws
// Wrong.

void same_folder(SharedView& host, SharedView& other, const std::string&) {
  create(host, "mark", "1");
  require(other.has("mark"), "a file that was created at one mount does not exist at the other");
}

/// Checks locks between two hosts, or between two handles of one host.
void exclusive_locks(SharedView& one, SharedView& two, const std::string& name) {
  auto holder = opened(one, name);
  const auto second = opened(two, name);
  require(holder->lock(true), "cannot lock a file");
  require(!second->lock(false).ok(),
          "a shared lock is granted while another handle has an exclusive lock");
  require(!second->lock(true).ok(), "two exclusive locks are granted at once");
  // Opens and closes another handle of the lock's owner.
  opened(one, name).reset();
  require(!second->lock(true).ok(), "a lock ends when another handle of its process is closed");
  holder.reset();
  // After a close without unlock, as in a crash, the other host may get the lock a moment later.
  sys::Locking moment;
  moment.time_out = std::chrono::seconds(5);
  os::Status locked;
  static_cast<void>(sys::wait_for_lock(name, moment, [&] { return locked = second->lock(true); }));
  require(locked, "a lock does not end with its handle");
}

void shared_locks(SharedView& one, SharedView& two) {
  const auto first = opened(one, "lock-shared");
  const auto second = opened(two, "lock-shared");
  require(first->lock(false), "cannot lock a file");
  require(second->lock(false).ok(), "two shared locks exclude each other");
}

/// Two handles of one host have a shared lock, or one has an exclusive lock and the other is
/// refused. One is closed: @p asking must still get no exclusive lock. Some clients use one server
/// lock for several handles.
void another_goes(SharedView& holding, SharedView& asking, const std::string& name,
                  bool exclusive) {
  create(holding, name, "text");
  const auto stays = opened(holding, name);
  auto goes = opened(holding, name);
  const auto other = opened(asking, name);
  const bool is_given = stays->lock(exclusive).ok();
  const bool is_given_twice = goes->lock(exclusive).ok();
  require(is_given, exclusive ? "an exclusive lock is refused" : "a shared lock is refused");
  require(!exclusive || !is_given_twice, "two handles of one host have an exclusive lock");
  require(exclusive || is_given_twice, "a shared lock is refused");
  goes.reset();
  require(!other->lock(true).ok(),
          exclusive ? "an exclusive lock ends when a handle of its host whose lock was refused is "
                      "closed"
                    : "a shared lock ends when a handle of its host that also has one is closed");
  std::string bytes;
  require(stays->read(bytes), "cannot read a file under its lock");
}

/// Uses a file that the first handle creates, and files that exist before.
void all_locks(SharedView& holding, SharedView& asking, const std::string& way) {
  const std::string name = "lock-" + way;
  exclusive_locks(holding, asking, name);
  another_goes(holding, asking, name + "-readers", false);
  another_goes(holding, asking, name + "-refused", true);
  shared_locks(holding, asking);
}

void locks_per_handle(SharedView& host, SharedView& other, const std::string&) {
  require(host.locks_belong_to_handles() && other.locks_belong_to_handles(),
          "with the SMB client of Linux, handles that were opened in the same way share one lock");
  all_locks(host, host, "here");
}

/// Both hosts do the same at once, several times. Exactly one must succeed each time.
void one_of_two(SharedView& host, SharedView& other, const std::string& what,
                const std::function<os::Status(SharedView&, const std::string&, int)>& act) {
  for (int round = 0; round < kRounds; ++round) {
    std::array<os::Status, 2> results;
    std::thread beside([&] { results[1] = act(other, "two", round); });
    results[0] = act(host, "one", round);
    beside.join();
    require(!results[0].ok() || !results[1].ok(), what + ": both of two attempts succeeded");
    if (!results[1].ok()) require(results[0], what);
  }
}

void exclusive_create(SharedView& host, SharedView& other, const std::string&) {
  create(host, "source", "bytes");
  create(other, "taken", "old");
  require(!host.copy_to_new("source", "taken").ok(), "an existing file was created again");
  std::string bytes;
  require(host.load("taken", bytes).ok() && bytes == "old", "an existing file was changed");
  one_of_two(host, other, "creating a file", [](SharedView& view, const std::string&, int round) {
    return view.copy_to_new("source", "new-" + std::to_string(round));
  });
}

void rename_without_replace(SharedView& host, SharedView& other, const std::string&) {
  create(host, "from", "from");
  create(other, "to", "to");
  std::string bytes;
  require(!host.rename("from", "to").ok(), "a file was replaced");
  require(other.load("to", bytes).ok() && bytes == "to",
          "a file was replaced by a rename that failed");
  require(host.rename("from", "free"), "a rename onto a free name failed");
  require(!host.has("from"), "the old name still exists after a rename");
  one_of_two(host, other, "renaming a file",
             [](SharedView& view, const std::string& who, int round) {
               const std::string from = who + std::to_string(round);
               const os::Status made = view.store(from, who);
               return made.ok() ? view.rename(from, "won-" + std::to_string(round)) : made;
             });
}

void check_time(SharedView& view, const std::string& name, std::int64_t expected,
                const std::string& where) {
  const os::FileStat found = described(view, name, "cannot read the time of a file");
  require(found.modify_time == expected, where + name + " has the time " +
                                             std::to_string(found.modify_time) + ", not " +
                                             std::to_string(expected));
}

void times_kept(SharedView& host, SharedView& other, const std::string&) {
  create(host, "old", "bytes");
  require(host.set_time("old", kOldTime), "cannot set the time of a file");
  require(host.copy_to_new("old", "old-copy"), "cannot copy a file");
  for (SharedView* const view : {&host, &other}) {
    check_time(*view, "old", kOldTime, "");
    check_time(*view, "old-copy", kOldTime, "");
  }
}

void read_after_close(SharedView& writer, SharedView& reader, const std::string& way) {
  const std::string name = "data-" + way;
  for (int round = 0; round < kRounds; ++round) {
    // Every second round changes the length, the others only the bytes.
    const std::string written(static_cast<std::size_t>(100 + round / 2),
                              static_cast<char>('a' + round));
    require(writer.store(name, written), "cannot write a file");
    const os::FileStat found =
        described(reader, name, "the other host cannot read the size and time of a file");
    std::string bytes;
    require(reader.load(name, bytes), "the other host cannot read a file");
    require(bytes == written, "the other host reads old bytes");
    require(found.size == written.size(), "the other host sees an old size");
  }
  require(writer.set_time(name, kOldTime + 1), "cannot set the time of a file");
  check_time(reader, name, kOldTime + 1, "at the other host ");
}

/// A handle is opened first and locked later, like a handle that waits. In between, another handle
/// of its host reads, and the other host writes.
void read_after_lock(SharedView& writer, SharedView& reader, const std::string& way) {
  const std::string name = "locked-" + way;
  // The reader creates the file and keeps it open.
  const auto keeper = opened(reader, name);
  for (int round = 0; round < kRounds; ++round) {
    const auto early = opened(reader, name);
    const auto waiting = opened(reader, name);
    std::string bytes;
    require(early->lock(false).ok() && early->read(bytes).ok() && early->unlock().ok(),
            "cannot read a file under a lock");
    const std::string written = std::to_string(100 + round);
    require(writer.store(name, written), "cannot write a file");
    require(waiting->lock(false).ok() && waiting->read(bytes).ok(),
            "cannot read a file under a lock");
    require(waiting->unlock().ok(), "cannot release a lock");
    require(bytes == written, "a handle reads old bytes under its lock");
  }
}

void check_shown(SharedView& view, const std::string& name, bool expected) {
  const std::string how = expected ? "a name is missing at the other host in a "
                                   : "a name still exists at the other host in a ";
  require(view.has(name) == expected, how + "lookup");
  require(view.lists(name) == expected, how + "listing");
}

void names_at_once(SharedView& writer, SharedView& reader, const std::string& way) {
  for (int round = 0; round < kRounds; ++round) {
    const std::string name = "name-" + way + std::to_string(round);
    const std::string renamed = name + "-renamed";
    check_shown(reader, name, false);
    create(writer, name, "x");
    check_shown(reader, name, true);
    require(writer.rename(name, renamed), "cannot rename a file");
    check_shown(reader, name, false);
    check_shown(reader, renamed, true);
    require(writer.remove(renamed), "cannot remove a file");
    check_shown(reader, renamed, false);
  }
}

void clocks(SharedView& host, SharedView& other, const std::string&) {
  const std::int64_t before = os::now();
  create(host, "clock", "x");
  const std::int64_t after = os::now();
  const os::FileStat found = described(other, "clock", "cannot read the time of a file");
  require(found.modify_time >= before - kSlack && found.modify_time <= after + kSlack,
          "the time of a new file is " + std::to_string(found.modify_time - after) +
              " seconds ahead of this host's clock");
}

/// How often and with which hosts a check runs.
enum class Runs : std::uint8_t {
  kOnce,        ///< with one host, if there is no other
  kBothWays,    ///< with two hosts; then they change their parts
  kWithMounts,  ///< with two mounts, which may be of different folders
};

struct Check {
  std::string_view code;
  void (*run)(SharedView&, SharedView&, const std::string& way);
  Runs runs;
  std::string_view good;
  // What to change on each file system.
  std::string_view gluster;
  std::string_view nfs;
  std::string_view smb;
  std::string_view any;
};

constexpr std::array<Check, 10> kChecks = {{
    {"same-folder", same_folder, Runs::kWithMounts,
     "a file that is created at one mount exists at the other",
     "mount the same volume (and sub-folder) at both places",
     "mount the same export at both places", "mount the same share at both places",
     "name the same folder through two mounts"},
    {"locks-per-handle", locks_per_handle, Runs::kOnce,
     "handles of one host exclude each other; a lock ends with its own handle",
     "mount with FUSE, on Linux 3.15 or later",
     "mount without 'nolock', and use NFS 4 instead of 3",
     "no option helps: use NFS 4.2, or a Windows program", "use another file system"},
    {"locks-between-hosts", all_locks, Runs::kBothWays,
     "an exclusive lock excludes the other host; shared locks are granted together",
     "mount with FUSE on every host; leave features.locks as it is",
     "mount without 'nolock' and 'local_lock', and use NFS 4 instead of 3",
     "no option helps: use NFS 4.2, or a Windows program",
     "use a file system whose locks are valid on all hosts"},
    {"exclusive-create", exclusive_create, Runs::kOnce,
     "an existing file is not created again; of two creators at once, one succeeds",
     "set cluster.quorum-type to auto", "use NFS 4 instead of 3", "mount with 'cache=none'",
     "use another file system"},
    {"rename-without-replace", rename_without_replace, Runs::kOnce,
     "an existing file is not replaced; of two renames at once, one succeeds",
     "mount with entry-timeout=0", "mount with 'lookupcache=none'",
     "no option helps if the server does not support hard links",
     "use a file system with hard links, or with renames that do not replace"},
    {"times-kept", times_kept, Runs::kOnce, "a time that was set is kept, also in a copy",
     "set features.ctime to on", "mount with 'noac'", "mount with 'cache=none,actimeo=0'",
     "use another file system"},
    {"read-after-close", read_after_close, Runs::kBothWays,
     "after one host closes a file, the other host reads its bytes, size and time",
     "switch off performance.quick-read, io-cache, stat-prefetch, write-behind, open-behind and "
     "read-ahead; mount with attribute-timeout=0 and auto-invalidation=on",
     "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
     "switch off the caches on the clients"},
    {"read-after-lock", read_after_lock, Runs::kBothWays,
     "a handle that waited for a lock reads what the other host wrote before",
     "mount with auto-invalidation=on (set it explicitly) and attribute-timeout=0",
     "mount without 'nolock': each lock then updates what the client knows of the file",
     "mount with 'cache=none'", "switch off the caches on the clients"},
    {"names-at-once", names_at_once, Runs::kBothWays,
     "after one host creates, renames or removes a name, the other host sees it at once",
     "switch off performance.readdir-ahead, stat-prefetch and nl-cache; mount with "
     "entry-timeout=0 and attribute-timeout=0",
     "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
     "switch off the caches for names on the clients"},
    {"clocks", clocks, Runs::kOnce, "the time of a new file agrees with this host's clock",
     "synchronise the clocks of all hosts (NTP): the clients set the times",
     "synchronise the clocks of the hosts and the server (NTP)",
     "synchronise the clocks of the hosts and the server (NTP)",
     "synchronise the clocks of all hosts (NTP)"},
}};

std::string_view Check::*mend_on(const std::string& file_system) {
  if (file_system.find("glusterfs") != std::string::npos) return &Check::gluster;
  if (file_system.starts_with("nfs")) return &Check::nfs;
  if (file_system == "cifs" || file_system.starts_with("smb")) return &Check::smb;
  return &Check::any;
}

void remove_trial(const std::string& folder) {
  os::Listing entries;
  if (os::list(sys::join(folder, ""), entries).ok()) {
    for (const os::Entry each : entries) (void)os::remove_file(sys::join(folder, each.name));
  }
  (void)os::remove_directory(folder);
}

}  // namespace

std::vector<SharedCheck> check_shared(SharedView& host, SharedView* peer,
                                      const std::string& file_system) {
  std::vector<SharedCheck> checks;
  for (const Check& check : kChecks) {
    if (check.runs == Runs::kWithMounts && peer == nullptr) continue;
    SharedCheck& result =
        checks.emplace_back(SharedCheck{check.code, Holds::kYes, std::string(check.good), {}});
    if (check.runs == Runs::kBothWays && peer == nullptr) {
      result.holds = Holds::kNotTried;
      result.detail = "there is only one mount; name another one with --peer";
      continue;
    }
    try {
      check.run(host, peer != nullptr ? *peer : host, "a");
      if (check.runs == Runs::kBothWays) check.run(*peer, host, "b");
    } catch (const Wrong& wrong) {
      result.holds = Holds::kNo;
      result.detail = wrong.text;
      result.mend = mend_of(check.code, file_system);
      if (check.runs == Runs::kWithMounts) peer = nullptr;
    }
  }
  return checks;
}

SharedTrial try_shared(const std::string& folder, const std::string& peer) {
  SharedTrial trial{folder, peer, sys::file_system_of(folder).type, {}};
  const std::string path = free_path(folder, "stgctl-shared-trial-", "");
  if (const os::Status made = os::create_directory(path); !made.ok()) {
    trial.checks.push_back({"folder", Holds::kNo,
                            "cannot create a folder there: " + sys::text_of(made),
                            "give the user the right to create folders there"});
    return trial;
  }
  SharedView host(path);
  SharedView other(sys::join(peer, path.substr(path.rfind(sys::kSeparator) + 1)));
  trial.checks = check_shared(host, peer.empty() ? nullptr : &other, trial.file_system);
  remove_trial(path);
  return trial;
}

std::string mend_of(std::string_view code, const std::string& file_system) {
  const auto check = std::ranges::find(kChecks, code, &Check::code);
  if (check == kChecks.end()) return {};
  return std::string((*check).*mend_on(file_system));
}

}  // namespace admin
