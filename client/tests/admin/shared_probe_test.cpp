// Checks of a shared file system, on local folders and on views that lack one property each.

#include "client/admin/shared_probe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/tests/admin/tree_fixture.h"

using admin::Holds;
using admin::SharedCheck;
using admin::SharedHandle;
using admin::SharedView;

namespace {

using Lines = std::vector<std::string>;

Lines codes(const std::vector<SharedCheck>& checks, Holds holds) {
  Lines found;
  for (const SharedCheck& each : checks) {
    if (each.holds == holds) found.emplace_back(each.code);
  }
  return found;
}

/// The codes of the failed checks with a Peer as the other host. Each must name a remedy.
template <class Peer>
Lines missing_with() {
  const scratch_folder scratch;
  SharedView host(system_form(scratch.path()));
  Peer peer(system_form(scratch.path()));
  const std::vector<SharedCheck> checks = admin::check_shared(host, &peer, "fuse.glusterfs");
  for (const SharedCheck& each : checks) {
    EXPECT_EQ(each.holds == Holds::kNo, !each.mend.empty()) << each.code;
    EXPECT_FALSE(each.detail.empty()) << each.code;
  }
  EXPECT_EQ(checks.size(), 10U);
  return codes(checks, Holds::kNo);
}

// ---- views that lack one property each ----------------------------------------------------------

/// Its locks are not visible to another host.
class LocksOfItsOwn final : public SharedView {
 public:
  using SharedView::SharedView;
  std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status) override {
    auto handle = SharedView::open(name, status);
    return handle ? std::make_unique<Free>(std::move(handle)) : nullptr;
  }

 private:
  struct Free final : SharedHandle {
    explicit Free(std::unique_ptr<SharedHandle> file) : m_file(std::move(file)) {}
    os::Status lock(bool) override { return {}; }
    os::Status unlock() override { return {}; }
    os::Status read(std::string& bytes) override { return m_file->read(bytes); }
    std::unique_ptr<SharedHandle> m_file;
  };
};

/// A lock ends some time after its handle was closed.
class LocksThatEndLate final : public SharedView {
 public:
  using SharedView::SharedView;
  std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status) override {
    auto handle = SharedView::open(name, status);
    return handle ? std::make_unique<Late>(std::move(handle), m_ending) : nullptr;
  }

 private:
  using Threads = std::vector<std::jthread>;
  struct Late final : SharedHandle {
    Late(std::unique_ptr<SharedHandle> file, Threads& ending)
        : m_file(std::move(file)), m_ending(ending) {}
    ~Late() override {
      if (!m_is_locked) return;
      m_ending.emplace_back([file = std::move(m_file)] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      });
    }
    Late(const Late&) = delete;
    Late& operator=(const Late&) = delete;
    os::Status lock(bool exclusive) override {
      const os::Status status = m_file->lock(exclusive);
      m_is_locked = m_is_locked || status.ok();
      return status;
    }
    os::Status unlock() override {
      m_is_locked = false;
      return m_file->unlock();
    }
    os::Status read(std::string& bytes) override { return m_file->read(bytes); }

    std::unique_ptr<SharedHandle> m_file;
    Threads& m_ending;
    bool m_is_locked = false;
  };
  Threads m_ending;
};

/// Like Linux's SMB client: handles that were opened in the same way share one server handle and
/// its lock. The lock ends with the first of them. A handle that creates the file does not share.
class SharesServerHandles final : public SharedView {
 public:
  /// Which handle ends the lock of the others when it closes.
  enum class LostWith : std::uint8_t { kOneThatHadALock, kOneThatWasRefused };
  SharesServerHandles(std::string folder, LostWith lost)
      : SharedView(std::move(folder)), m_lost(lost) {}

  std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status) override {
    const bool is_new = !has(name);
    std::shared_ptr<Server> server = is_new ? nullptr : m_servers[name].lock();
    if (!server) {
      server = std::make_shared<Server>();
      server->file = SharedView::open(name, status);
      if (!server->file) return nullptr;
      if (!is_new) m_servers[name] = server;
    }
    return std::make_unique<Alike>(std::move(server), m_lost);
  }

 private:
  /// The server handle. It has at most one lock, for all handles of the host.
  struct Server {
    os::Status lock(bool exclusive) {
      if (has_lock) return {};
      const os::Status status = file->lock(exclusive);
      has_lock = status.ok();
      return status;
    }
    void unlock() {
      if (std::exchange(has_lock, false)) (void)file->unlock();
    }

    std::unique_ptr<SharedHandle> file;
    bool has_lock = false;
    std::set<const void*> readers;
    const void* writer = nullptr;
  };

  class Alike final : public SharedHandle {
   public:
    Alike(std::shared_ptr<Server> server, LostWith lost)
        : m_server(std::move(server)), m_lost(lost) {}
    ~Alike() override {
      const bool had_one = m_server->readers.count(this) != 0 || m_server->writer == this;
      if (had_one == (m_lost == LostWith::kOneThatHadALock)) m_server->unlock();
      unlock_here();
    }
    /// Locks of handles of one host exclude each other.
    os::Status lock(bool exclusive) override {
      const bool others_read =
          m_server->readers.size() > m_server->readers.count(this) && exclusive;
      if (others_read || (m_server->writer != nullptr && m_server->writer != this))
        return {11, os::Failure::kOther};
      const os::Status status = m_server->lock(exclusive);
      if (!status.ok()) return status;
      unlock_here();
      if (exclusive) {
        m_server->writer = this;
      } else {
        m_server->readers.insert(this);
      }
      return status;
    }
    os::Status unlock() override {
      unlock_here();
      if (m_server->writer == nullptr && m_server->readers.empty()) m_server->unlock();
      return {};
    }
    os::Status read(std::string& bytes) override { return m_server->file->read(bytes); }

   private:
    void unlock_here() {
      if (m_server->writer == this) m_server->writer = nullptr;
      m_server->readers.erase(this);
    }
    const std::shared_ptr<Server> m_server;
    const LostWith m_lost;
  };

  const LostWith m_lost;
  std::map<std::string, std::weak_ptr<Server>> m_servers;
};

/// A mount that is known to share locks between handles, although no check on one host shows it.
class KnownToShareLocks final : public SharedView {
 public:
  using SharedView::SharedView;
  bool locks_belong_to_handles() override { return false; }
};

/// Creating and renaming replace an existing file.
class Overwrites final : public SharedView {
 public:
  using SharedView::SharedView;
  os::Status copy_to_new(const std::string& from, const std::string& to) override {
    (void)remove(to);
    return SharedView::copy_to_new(from, to);
  }
  os::Status rename(const std::string& from, const std::string& to) override {
    (void)remove(to);
    return SharedView::rename(from, to);
  }
};

/// First checks that a name is free, then creates or renames. So two hosts at once both succeed.
class AsksFirst final : public SharedView {
 public:
  using SharedView::SharedView;
  os::Status copy_to_new(const std::string& from, const std::string& to) override {
    if (!is_free(to)) return {17, os::Failure::kAlreadyExists};
    (void)remove(to);
    return SharedView::copy_to_new(from, to);
  }
  os::Status rename(const std::string& from, const std::string& to) override {
    if (!is_free(to)) return {17, os::Failure::kAlreadyExists};
    (void)remove(to);
    return SharedView::rename(from, to);
  }

 private:
  /// Waits until the other host has checked too; then lets both act in turn.
  bool is_free(const std::string& name) {
    const bool is_taken = has(name);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (is_taken) return false;
    const std::lock_guard lock(m_turn);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return true;
  }
  std::mutex m_turn;
};

/// Caches the first bytes that it reads.
class OldBytes final : public SharedView {
 public:
  using SharedView::SharedView;
  os::Status load(const std::string& name, std::string& bytes) override {
    const auto kept = m_kept.find(name);
    if (kept != m_kept.end()) {
      bytes = kept->second;
      return {};
    }
    const os::Status status = SharedView::load(name, bytes);
    m_kept[name] = bytes;
    return status;
  }

 private:
  std::map<std::string, std::string> m_kept;
};

/// Caches the first size of a file.
class OldSizes final : public SharedView {
 public:
  using SharedView::SharedView;
  os::Status stat(const std::string& name, os::FileStat& result) override {
    const os::Status status = SharedView::stat(name, result);
    result.size = m_kept.emplace(name, result.size).first->second;
    return status;
  }

 private:
  std::map<std::string, std::uint64_t> m_kept;
};

/// Caches whether a name exists.
class OldNames final : public SharedView {
 public:
  using SharedView::SharedView;
  bool has(const std::string& name) override {
    return m_kept.emplace(name, SharedView::has(name)).first->second;
  }

 private:
  std::map<std::string, bool> m_kept;
};

/// Caches the names of a listing.
class OldListings final : public SharedView {
 public:
  using SharedView::SharedView;
  bool lists(const std::string& name) override {
    return m_kept.emplace(name, SharedView::lists(name)).first->second;
  }

 private:
  std::map<std::string, bool> m_kept;
};

/// Its handles share a cache of bytes, which each open clears.
class OldBytesOfHandles final : public SharedView {
 public:
  using SharedView::SharedView;
  std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status) override {
    m_kept.reset();
    auto handle = SharedView::open(name, status);
    return handle ? std::make_unique<Keeping>(std::move(handle), m_kept) : nullptr;
  }

 private:
  struct Keeping final : SharedHandle {
    Keeping(std::unique_ptr<SharedHandle> file, std::optional<std::string>& kept)
        : m_file(std::move(file)), m_kept(kept) {}
    os::Status lock(bool exclusive) override { return m_file->lock(exclusive); }
    os::Status unlock() override { return m_file->unlock(); }
    os::Status read(std::string& bytes) override {
      const os::Status status = m_file->read(bytes);
      if (m_kept) bytes = *m_kept;
      m_kept = bytes;
      return status;
    }
    std::unique_ptr<SharedHandle> m_file;
    std::optional<std::string>& m_kept;
  };
  std::optional<std::string> m_kept;
};

/// Reports all times one hour late.
class OtherClock final : public SharedView {
 public:
  using SharedView::SharedView;
  os::Status stat(const std::string& name, os::FileStat& result) override {
    const os::Status status = SharedView::stat(name, result);
    result.modify_time += 3600;
    return status;
  }
};

}  // namespace

TEST(AdminSharedProbe, FindsNothingMissingInALocalFolderSeenTwice) {
  EXPECT_EQ(missing_with<SharedView>(), Lines{});
}

TEST(AdminSharedProbe, WaitsForALockThatEndsLate) {
  EXPECT_EQ(missing_with<LocksThatEndLate>(), Lines{});
}

TEST(AdminSharedProbe, LeavesNothingBehind) {
  const scratch_folder scratch;
  const std::string folder = system_form(scratch.path());
  const admin::SharedTrial trial = admin::try_shared(folder, folder);
  EXPECT_EQ(codes(trial.checks, Holds::kNo), Lines{});
  EXPECT_EQ(codes(trial.checks, Holds::kNotTried), Lines{});
  EXPECT_TRUE(list_folder(scratch.path()).empty());
}

TEST(AdminSharedProbe, SaysWhatItDidNotTryWithoutAPeer) {
  const scratch_folder scratch;
  const admin::SharedTrial trial = admin::try_shared(system_form(scratch.path()), "");
  EXPECT_EQ(codes(trial.checks, Holds::kNo), Lines{});
  EXPECT_EQ(codes(trial.checks, Holds::kNotTried),
            (Lines{"locks-between-hosts", "read-after-close", "read-after-lock", "names-at-once"}));
}

TEST(AdminSharedProbe, FindsAPeerThatIsAnotherFolder) {
  const scratch_folder scratch;
  make_folder(scratch.path("other"));
  make_folder(scratch.path("one"));
  const admin::SharedTrial trial =
      admin::try_shared(system_form(scratch.path("one")), system_form(scratch.path("other")));
  EXPECT_EQ(codes(trial.checks, Holds::kNo), Lines{"same-folder"});
  EXPECT_EQ(codes(trial.checks, Holds::kNotTried).size(), 4U);
  EXPECT_TRUE(list_folder(scratch.path("one")).empty());
  EXPECT_TRUE(list_folder(scratch.path("other")).empty());
}

TEST(AdminSharedProbe, SaysWhenNoFolderCanBeCreated) {
  const scratch_folder scratch;
  const admin::SharedTrial trial = admin::try_shared(system_form(scratch.path("none")), "");
  EXPECT_EQ(codes(trial.checks, Holds::kNo), Lines{"folder"});
}

TEST(AdminSharedProbe, FindsLocksThatAnotherHostDoesNotSee) {
  EXPECT_EQ(missing_with<LocksOfItsOwn>(), Lines{"locks-between-hosts"});
}

TEST(AdminSharedProbe, FindsALockThatEndsWithAnotherHandleOfItsHost) {
  using LostWith = SharesServerHandles::LostWith;
  for (const auto& [lost, detail] : std::vector<std::pair<LostWith, std::string>>{
           {LostWith::kOneThatHadALock,
            "a shared lock ends when a handle of its host that also has one is closed"},
           {LostWith::kOneThatWasRefused,
            "an exclusive lock ends when a handle of its host whose lock was refused is closed"}}) {
    const scratch_folder scratch;
    SharesServerHandles host(system_form(scratch.path()), lost);
    SharedView peer(system_form(scratch.path()));
    const std::vector<SharedCheck> checks = admin::check_shared(host, &peer, "cifs");
    EXPECT_EQ(codes(checks, Holds::kNo), Lines{"locks-between-hosts"});
    EXPECT_EQ(checks.at(2).detail, detail);
  }
}

TEST(AdminSharedProbe, RefusesAMountThatIsKnownToShareLocks) {
  const scratch_folder scratch;
  KnownToShareLocks host(system_form(scratch.path()));
  EXPECT_EQ(codes(admin::check_shared(host, nullptr, "cifs"), Holds::kNo),
            Lines{"locks-per-handle"});
}

TEST(AdminSharedProbe, FindsLocksThatDoNotExcludeAtAll) {
  const scratch_folder scratch;
  LocksOfItsOwn host(system_form(scratch.path()));
  EXPECT_EQ(codes(admin::check_shared(host, nullptr, "nfs"), Holds::kNo),
            Lines{"locks-per-handle"});
}

TEST(AdminSharedProbe, FindsCreatesAndRenamesThatReplaceFiles) {
  const scratch_folder scratch;
  Overwrites host(system_form(scratch.path()));
  EXPECT_EQ(codes(admin::check_shared(host, nullptr, "cifs"), Holds::kNo),
            (Lines{"exclusive-create", "rename-without-replace"}));
}

TEST(AdminSharedProbe, FindsTwoHostsThatBothCreateOrRenameAtOnce) {
  const scratch_folder scratch;
  AsksFirst host(system_form(scratch.path()));
  const std::vector<SharedCheck> checks = admin::check_shared(host, nullptr, "cifs");
  EXPECT_EQ(codes(checks, Holds::kNo), (Lines{"exclusive-create", "rename-without-replace"}));
  for (const SharedCheck& check : checks) {
    if (check.holds != Holds::kNo) continue;
    EXPECT_NE(check.detail.find("both of two attempts succeeded"), std::string::npos)
        << check.detail;
  }
}

TEST(AdminSharedProbe, RefusesAPeerThatIsKnownToShareLocks) {
  EXPECT_EQ(missing_with<KnownToShareLocks>(), Lines{"locks-per-handle"});
}

TEST(AdminSharedProbe, FindsOldBytes) {
  EXPECT_EQ(missing_with<OldBytes>(), Lines{"read-after-close"});
}

TEST(AdminSharedProbe, FindsOldBytesUnderALock) {
  EXPECT_EQ(missing_with<OldBytesOfHandles>(), Lines{"read-after-lock"});
}

TEST(AdminSharedProbe, FindsOldSizes) {
  EXPECT_EQ(missing_with<OldSizes>(), Lines{"read-after-close"});
}

TEST(AdminSharedProbe, FindsOldAnswersAboutNames) {
  EXPECT_EQ(missing_with<OldNames>(), Lines{"names-at-once"});
}

TEST(AdminSharedProbe, FindsOldListings) {
  EXPECT_EQ(missing_with<OldListings>(), Lines{"names-at-once"});
}

TEST(AdminSharedProbe, FindsAnotherClockAndTimesThatAreNotKept) {
  EXPECT_EQ(missing_with<OtherClock>(), (Lines{"times-kept", "read-after-close", "clocks"}));
}

TEST(AdminSharedProbe, NamesTheSettingsOfTheFileSystem) {
  EXPECT_NE(admin::mend_of("read-after-close", "fuse.glusterfs").find("performance.quick-read"),
            std::string::npos);
  EXPECT_NE(admin::mend_of("read-after-close", "nfs4").find("noac"), std::string::npos);
  EXPECT_NE(admin::mend_of("locks-between-hosts", "cifs").find("no option"), std::string::npos);
  EXPECT_EQ(admin::mend_of("nothing", "ext4"), "");
}
