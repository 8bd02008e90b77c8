// Checks a shared file system, and recommends for each failed check what to change.

#include "client/admin/shared_probe.h"

#include <array>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "client/admin/system.h"

namespace admin {

namespace {

/// Rounds of a check in each direction. It is repeated because a cache can falsify one round.
constexpr int kRounds = 5;
/// Long ago, so it differs from the present time of any clock.
constexpr std::int64_t kOldTime = 1'000'000'000;
/// Tolerated difference of clocks in seconds: file times are whole seconds.
constexpr std::int64_t kSlack = 2;

/// The error, or nothing.
using Wrong = std::optional<std::string>;

std::string failed(const char* what, const os::Status& status) {
  return std::string(what) + ": " + sys::text_of(status);
}

class Probe {
 public:
  Probe(SharedView& host, SharedView* peer, const std::string& file_system)
      : m_host(host), m_peer(peer), m_file_system(file_system) {}

  std::vector<SharedCheck> run() {
    if (m_peer != nullptr) {
      add("same-folder", "a file that is created at one mount exists at the other",
          &Probe::same_folder);
      if (m_checks.back().holds == Holds::kNo) m_peer = nullptr;
    }
    add("locks-per-handle",
        "handles of one host exclude each other; a lock ends with its own handle",
        &Probe::locks_per_handle);
    between("locks-between-hosts",
            "an exclusive lock excludes the other host; shared locks are granted together",
            &Probe::locks_between_hosts);
    add("exclusive-create",
        "an existing file is not created again; of two creators at once, one succeeds",
        &Probe::exclusive_create);
    add("rename-without-replace",
        "an existing file is not replaced; of two renames at once, one succeeds",
        &Probe::rename_without_replace);
    add("times-kept", "a time that was set is kept, also in a copy", &Probe::times_kept);
    between("read-after-close",
            "after one host closes a file, the other host reads its bytes, size and time",
            &Probe::read_after_close);
    between("read-after-lock",
            "a handle that waited for a lock reads what the other host wrote before",
            &Probe::read_after_lock);
    between("names-at-once",
            "after one host creates, renames or removes a name, the other host sees it at once",
            &Probe::names_at_once);
    add("clocks", "the time of a new file agrees with this host's clock", &Probe::clocks);
    return std::move(m_checks);
  }

 private:
  using Check = Wrong (Probe::*)();

  void add(std::string_view code, const char* good, Check check) {
    SharedCheck result{code, Holds::kYes, good, {}};
    if (const Wrong wrong = (this->*check)()) {
      result.holds = Holds::kNo;
      result.detail = *wrong;
      result.mend = mend_of(code, m_file_system);
    }
    m_checks.push_back(std::move(result));
  }

  void between(std::string_view code, const char* good, Check check) {
    if (m_peer != nullptr) return add(code, good, check);
    m_checks.push_back(
        {code, Holds::kNotTried, "there is only one mount; name another one with --peer", {}});
  }

  /// The other host; without one, this host.
  SharedView& other() { return m_peer != nullptr ? *m_peer : m_host; }

  Wrong same_folder() {
    if (const os::Status made = m_host.store("mark", "1"); !made.ok())
      return failed("cannot create a file", made);
    if (!m_peer->has("mark"))
      return "a file that was created at one mount does not exist at the other";
    return {};
  }

  /// Waits up to 5 seconds for the lock. After a close without unlock, as in a crash, the other
  /// host may get it a moment later.
  static Wrong given_in_a_moment(SharedHandle& waiting) {
    os::Status locked = waiting.lock(true);
    for (int i = 0; i < 100 && !locked.ok(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      locked = waiting.lock(true);
    }
    return locked.ok() ? Wrong() : failed("a lock does not end with its handle", locked);
  }

  /// Checks locks between two hosts, or between two handles of one host.
  Wrong locks(SharedView& one, SharedView& two, const char* name) {
    os::Status status;
    auto holder = one.open(name, status);
    if (!holder) return failed("cannot open a file", status);
    const auto second = two.open(name, status);
    if (!second) return failed("cannot open a file", status);
    if (const os::Status locked = holder->lock(true); !locked.ok())
      return failed("cannot lock a file", locked);
    if (second->lock(false).ok())
      return "a shared lock is granted while another handle has an exclusive lock";
    if (second->lock(true).ok()) return "two exclusive locks are granted at once";
    // Opens and closes another handle of the lock's owner.
    { const auto third = one.open(name, status); }
    if (second->lock(true).ok()) return "a lock ends when another handle of its process is closed";
    holder.reset();
    return given_in_a_moment(*second);
  }

  Wrong shared_locks(SharedView& one, SharedView& two) {
    os::Status status;
    const auto first = one.open("lock-shared", status);
    const auto second = two.open("lock-shared", status);
    if (!first || !second) return failed("cannot open a file", status);
    const os::Status locked = first->lock(false);
    if (!locked.ok()) return failed("cannot lock a file", locked);
    if (!second->lock(false).ok()) return "two shared locks exclude each other";
    return {};
  }

  /// Two handles of one host have a shared lock, or one has an exclusive lock and the other is
  /// refused. One is closed: @p asking must still get no exclusive lock. Some clients use one
  /// server lock for several handles.
  Wrong another_goes(SharedView& holding, SharedView& asking, const std::string& name,
                     bool exclusive) {
    if (const os::Status made = holding.store(name, "text"); !made.ok())
      return failed("cannot create a file", made);
    os::Status status;
    const auto stays = holding.open(name, status);
    auto goes = holding.open(name, status);
    const auto other = asking.open(name, status);
    if (!stays || !goes || !other) return failed("cannot open a file", status);
    const bool is_given = stays->lock(exclusive).ok();
    const bool is_given_twice = goes->lock(exclusive).ok();
    if (exclusive && !is_given) return "an exclusive lock is refused";
    if (exclusive && is_given_twice) return "two handles of one host have an exclusive lock";
    if (!exclusive && (!is_given || !is_given_twice)) return "a shared lock is refused";
    goes.reset();
    if (other->lock(true).ok())
      return exclusive ? "an exclusive lock ends when a handle of its host whose lock was refused "
                         "is closed"
                       : "a shared lock ends when a handle of its host that also has one is closed";
    std::string bytes;
    if (const os::Status read = stays->read(bytes); !read.ok())
      return failed("cannot read a file under its lock", read);
    return {};
  }

  /// Uses a file that the first handle creates, and files that exist before.
  Wrong all_locks(SharedView& holding, SharedView& asking, const std::string& name) {
    if (Wrong wrong = locks(holding, asking, name.c_str())) return wrong;
    if (Wrong wrong = another_goes(holding, asking, name + "-readers", false)) return wrong;
    return another_goes(holding, asking, name + "-refused", true);
  }

  Wrong locks_per_handle() {
    if (!m_host.locks_belong_to_handles() || !other().locks_belong_to_handles())
      return "with the SMB client of Linux, handles that were opened in the same way share one "
             "lock";
    if (Wrong wrong = all_locks(m_host, m_host, "lock-here")) return wrong;
    return shared_locks(m_host, m_host);
  }

  Wrong locks_between_hosts() {
    if (Wrong wrong = all_locks(m_host, *m_peer, "lock-a")) return wrong;
    if (Wrong wrong = all_locks(*m_peer, m_host, "lock-b")) return wrong;
    return shared_locks(m_host, *m_peer);
  }

  /// Both hosts do the same at once, several times. Exactly one must succeed each time.
  Wrong one_of_two(const char* what,
                   const std::function<os::Status(SharedView&, const std::string&, int)>& act) {
    for (int round = 0; round < kRounds; ++round) {
      std::array<os::Status, 2> results;
      std::thread beside([&] { results[1] = act(other(), "two", round); });
      results[0] = act(m_host, "one", round);
      beside.join();
      if (results[0].ok() && results[1].ok())
        return std::string(what) + ": both of two attempts succeeded";
      if (!results[0].ok() && !results[1].ok()) return failed(what, results[0]);
    }
    return {};
  }

  Wrong exclusive_create() {
    if (const os::Status made = m_host.store("source", "bytes"); !made.ok())
      return failed("cannot create a file", made);
    if (const os::Status made = other().store("taken", "old"); !made.ok())
      return failed("cannot create a file", made);
    const os::Status copied = m_host.copy_to_new("source", "taken");
    if (copied.ok()) return "an existing file was created again";
    std::string bytes;
    if (!m_host.load("taken", bytes).ok() || bytes != "old") return "an existing file was changed";
    return one_of_two("creating a file", [](SharedView& view, const std::string&, int round) {
      return view.copy_to_new("source", "new-" + std::to_string(round));
    });
  }

  Wrong rename_without_replace() {
    if (const os::Status made = m_host.store("from", "from"); !made.ok())
      return failed("cannot create a file", made);
    if (const os::Status made = other().store("to", "to"); !made.ok())
      return failed("cannot create a file", made);
    std::string bytes;
    if (m_host.rename("from", "to").ok()) return "a file was replaced";
    if (!other().load("to", bytes).ok() || bytes != "to")
      return "a file was replaced by a rename that failed";
    if (const os::Status renamed = m_host.rename("from", "free"); !renamed.ok())
      return failed("a rename onto a free name failed", renamed);
    if (m_host.has("from")) return "the old name still exists after a rename";
    return one_of_two("renaming a file", [](SharedView& view, const std::string& who, int round) {
      const std::string from = who + std::to_string(round);
      const os::Status made = view.store(from, who);
      return made.ok() ? view.rename(from, "won-" + std::to_string(round)) : made;
    });
  }

  Wrong time_is(SharedView& view, const std::string& name, std::int64_t expected) {
    os::FileStat found;
    if (const os::Status status = view.stat(name, found); !status.ok())
      return failed("cannot read the time of a file", status);
    if (found.modify_time == expected) return {};
    return name + " has the time " + std::to_string(found.modify_time) + ", not " +
           std::to_string(expected);
  }

  Wrong times_kept() {
    if (const os::Status made = m_host.store("old", "bytes"); !made.ok())
      return failed("cannot create a file", made);
    if (const os::Status set = m_host.set_time("old", kOldTime); !set.ok())
      return failed("cannot set the time of a file", set);
    if (const os::Status copied = m_host.copy_to_new("old", "old-copy"); !copied.ok())
      return failed("cannot copy a file", copied);
    for (SharedView* const view : {&m_host, &other()}) {
      for (const char* const name : {"old", "old-copy"}) {
        if (Wrong wrong = time_is(*view, name, kOldTime)) return wrong;
      }
    }
    return {};
  }

  Wrong reads(SharedView& view, const std::string& name, const std::string& expected) {
    std::string bytes;
    os::FileStat found;
    if (const os::Status status = view.stat(name, found); !status.ok())
      return failed("the other host cannot read the size and time of a file", status);
    if (const os::Status status = view.load(name, bytes); !status.ok())
      return failed("the other host cannot read a file", status);
    if (bytes != expected) return "the other host reads old bytes";
    if (found.size != expected.size()) return "the other host sees an old size";
    return {};
  }

  Wrong read_after_close_from(SharedView& writer, SharedView& reader, const std::string& name) {
    for (int round = 0; round < kRounds; ++round) {
      // Every second round changes the length, the others only the bytes.
      const std::string bytes(static_cast<std::size_t>(100 + round / 2),
                              static_cast<char>('a' + round));
      if (const os::Status stored = writer.store(name, bytes); !stored.ok())
        return failed("cannot write a file", stored);
      if (Wrong wrong = reads(reader, name, bytes)) return wrong;
    }
    const std::int64_t time = kOldTime + 1;
    if (const os::Status set = writer.set_time(name, time); !set.ok())
      return failed("cannot set the time of a file", set);
    if (Wrong wrong = time_is(reader, name, time)) return "at the other host " + *wrong;
    return {};
  }

  Wrong read_after_close() {
    if (Wrong wrong = read_after_close_from(m_host, *m_peer, "data-a")) return wrong;
    return read_after_close_from(*m_peer, m_host, "data-b");
  }

  /// A handle is opened first and locked later, like a handle that waits. In between, another
  /// handle of its host reads, and the other host writes.
  Wrong read_after_lock_from(SharedView& writer, SharedView& reader, const std::string& name) {
    os::Status status;
    // The reader creates the file and keeps it open.
    const auto keeper = reader.open(name, status);
    if (!keeper) return failed("cannot open a file", status);
    for (int round = 0; round < kRounds; ++round) {
      const auto early = reader.open(name, status);
      const auto waiting = reader.open(name, status);
      if (!early || !waiting) return failed("cannot open a file", status);
      std::string bytes;
      if (!early->lock(false).ok() || !early->read(bytes).ok() || !early->unlock().ok())
        return "cannot read a file under a lock";
      const std::string written = std::to_string(100 + round);
      if (const os::Status stored = writer.store(name, written); !stored.ok())
        return failed("cannot write a file", stored);
      if (!waiting->lock(false).ok() || !waiting->read(bytes).ok())
        return "cannot read a file under a lock";
      if (!waiting->unlock().ok()) return "cannot release a lock";
      if (bytes != written) return "a handle reads old bytes under its lock";
    }
    return {};
  }

  Wrong read_after_lock() {
    if (Wrong wrong = read_after_lock_from(m_host, *m_peer, "locked-a")) return wrong;
    return read_after_lock_from(*m_peer, m_host, "locked-b");
  }

  static Wrong shows(SharedView& view, const std::string& name, bool expected) {
    const char* const how =
        expected ? "is missing at the other host" : "still exists at the other host";
    if (view.has(name) != expected) return "a name " + std::string(how) + " in a lookup";
    if (view.lists(name) != expected) return "a name " + std::string(how) + " in a listing";
    return {};
  }

  Wrong names_at_once_from(SharedView& writer, SharedView& reader, const std::string& prefix) {
    for (int round = 0; round < kRounds; ++round) {
      const std::string name = prefix + std::to_string(round);
      const std::string renamed = name + "-renamed";
      if (Wrong wrong = shows(reader, name, false)) return wrong;
      if (const os::Status stored = writer.store(name, "x"); !stored.ok())
        return failed("cannot create a file", stored);
      if (Wrong wrong = shows(reader, name, true)) return wrong;
      if (const os::Status done = writer.rename(name, renamed); !done.ok())
        return failed("cannot rename a file", done);
      if (Wrong wrong = shows(reader, name, false)) return wrong;
      if (Wrong wrong = shows(reader, renamed, true)) return wrong;
      if (const os::Status done = writer.remove(renamed); !done.ok())
        return failed("cannot remove a file", done);
      if (Wrong wrong = shows(reader, renamed, false)) return wrong;
    }
    return {};
  }

  Wrong names_at_once() {
    if (Wrong wrong = names_at_once_from(m_host, *m_peer, "name-a")) return wrong;
    return names_at_once_from(*m_peer, m_host, "name-b");
  }

  Wrong clocks() {
    const std::int64_t before = os::now();
    if (const os::Status made = m_host.store("clock", "x"); !made.ok())
      return failed("cannot create a file", made);
    const std::int64_t after = os::now();
    os::FileStat found;
    if (const os::Status status = other().stat("clock", found); !status.ok())
      return failed("cannot read the time of a file", status);
    if (found.modify_time >= before - kSlack && found.modify_time <= after + kSlack) return {};
    return "the time of a new file is " + std::to_string(found.modify_time - after) +
           " seconds ahead of this host's clock";
  }

  SharedView& m_host;
  SharedView* m_peer;
  const std::string& m_file_system;
  std::vector<SharedCheck> m_checks;
};

void remove_trial(const std::string& folder) {
  os::Listing entries;
  if (os::list(sys::join(folder, ""), entries).ok()) {
    for (const os::Entry each : entries) (void)os::remove_file(sys::join(folder, each.name));
  }
  (void)os::remove_directory(folder);
}

}  // namespace

std::string_view name_of(Holds holds) {
  constexpr std::array<std::string_view, 3> kNames = {"yes", "no", "not-tried"};
  return kNames[static_cast<std::size_t>(holds)];
}

std::vector<SharedCheck> check_shared(SharedView& host, SharedView* peer,
                                      const std::string& file_system) {
  return Probe(host, peer, file_system).run();
}

SharedTrial try_shared(const std::string& folder, const std::string& peer) {
  SharedTrial trial{folder, peer, sys::file_system_of(folder).type, {}};
  std::string name;
  os::Status made(0, os::Failure::kAlreadyExists);
  // Finds a free name.
  for (int i = 0; i < 1000 && made.failure() == os::Failure::kAlreadyExists; ++i) {
    name = "stgctl-shared-trial-" + std::to_string(os::now()) + "-" + std::to_string(i);
    made = os::create_directory(sys::join(folder, name));
  }
  if (!made.ok()) {
    trial.checks.push_back({"folder", Holds::kNo, failed("cannot create a folder there", made),
                            "give the user the right to create folders there"});
    return trial;
  }
  SharedView host(sys::join(folder, name));
  if (peer.empty()) {
    trial.checks = check_shared(host, nullptr, trial.file_system);
  } else {
    SharedView other(sys::join(peer, name));
    trial.checks = check_shared(host, &other, trial.file_system);
  }
  remove_trial(host.folder());
  return trial;
}

// ---- what to change if a check fails ------------------------------------------------------------

namespace {

enum class Engine : std::uint8_t { kGluster, kNfs, kSmb, kOther };

Engine engine_of(const std::string& file_system) {
  if (file_system.find("glusterfs") != std::string::npos) return Engine::kGluster;
  if (file_system.starts_with("nfs")) return Engine::kNfs;
  if (file_system == "cifs" || file_system.starts_with("smb")) return Engine::kSmb;
  return Engine::kOther;
}

struct Mend {
  std::string_view code;
  std::array<std::string_view, 4> texts;  ///< in the order of Engine
};

constexpr std::array<Mend, 10> kMends = {{
    {"same-folder",
     {"mount the same volume (and sub-folder) at both places",
      "mount the same export at both places", "mount the same share at both places",
      "name the same folder through two mounts"}},
    {"locks-per-handle",
     {"mount with FUSE, on Linux 3.15 or later",
      "mount without 'nolock', and use NFS 4 instead of 3",
      "no option helps: use NFS 4.2, or a Windows program", "use another file system"}},
    {"locks-between-hosts",
     {"mount with FUSE on every host; leave features.locks as it is",
      "mount without 'nolock' and 'local_lock', and use NFS 4 instead of 3",
      "no option helps: use NFS 4.2, or a Windows program",
      "use a file system whose locks are valid on all hosts"}},
    {"exclusive-create",
     {"set cluster.quorum-type to auto", "use NFS 4 instead of 3", "mount with 'cache=none'",
      "use another file system"}},
    {"rename-without-replace",
     {"mount with entry-timeout=0", "mount with 'lookupcache=none'",
      "no option helps if the server does not support hard links",
      "use a file system with hard links, or with renames that do not replace"}},
    {"times-kept",
     {"set features.ctime to on", "mount with 'noac'", "mount with 'cache=none,actimeo=0'",
      "use another file system"}},
    {"read-after-close",
     {"switch off performance.quick-read, io-cache, stat-prefetch, write-behind, open-behind and "
      "read-ahead; mount with attribute-timeout=0 and auto-invalidation=on",
      "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
      "switch off the caches on the clients"}},
    {"read-after-lock",
     {"mount with auto-invalidation=on (set it explicitly) and attribute-timeout=0",
      "mount without 'nolock': each lock then updates what the client knows of the file",
      "mount with 'cache=none'", "switch off the caches on the clients"}},
    {"names-at-once",
     {"switch off performance.readdir-ahead, stat-prefetch and nl-cache; mount with "
      "entry-timeout=0 and attribute-timeout=0",
      "mount with 'noac,lookupcache=none'", "mount with 'cache=none,actimeo=0'",
      "switch off the caches for names on the clients"}},
    {"clocks",
     {"synchronise the clocks of all hosts (NTP): the clients set the times",
      "synchronise the clocks of the hosts and the server (NTP)",
      "synchronise the clocks of the hosts and the server (NTP)",
      "synchronise the clocks of all hosts (NTP)"}},
}};

}  // namespace

std::string mend_of(std::string_view code, const std::string& file_system) {
  for (const Mend& each : kMends) {
    if (each.code == code)
      return std::string(each.texts[static_cast<std::size_t>(engine_of(file_system))]);
  }
  return {};
}

}  // namespace admin
