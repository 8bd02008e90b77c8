#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/system.h"

/// @file
/// Trials of a file system: whether locks exclude, and whether hosts can share it.
namespace admin {

/// An open file. The destructor closes it, which also ends its lock.
class SharedHandle {
 public:
  virtual ~SharedHandle() = default;
  /// Requests a whole-file lock, without waiting.
  virtual os::Status lock(bool exclusive) = 0;
  virtual os::Status unlock() = 0;
  /// Reads all bytes.
  virtual os::Status read(std::string& bytes) = 0;
};

/// A folder as one host sees it, through its mount. All names are names in that folder. A write is
/// flushed and its file closed when the call returns.
class SharedView {
 public:
  explicit SharedView(std::string folder) : m_folder(std::move(folder)) {}
  virtual ~SharedView() = default;
  SharedView(const SharedView&) = delete;
  SharedView& operator=(const SharedView&) = delete;

  const std::string& folder() const { return m_folder; }

  /// Creates or overwrites a file.
  virtual os::Status store(const std::string& name, std::string_view bytes);
  virtual os::Status load(const std::string& name, std::string& bytes);
  virtual os::Status stat(const std::string& name, os::FileStat& result);
  virtual bool has(const std::string& name);
  /// Whether a listing of the folder contains the name.
  virtual bool lists(const std::string& name);
  virtual os::Status remove(const std::string& name);
  virtual os::Status rename(const std::string& from, const std::string& to);
  /// Copies a file with its time. Fails if @p to exists.
  virtual os::Status copy_to_new(const std::string& from, const std::string& to);
  virtual os::Status set_time(const std::string& name, std::int64_t seconds);
  /// Opens a file for reading and writing; creates a missing one. Null on failure.
  virtual std::unique_ptr<SharedHandle> open(const std::string& name, os::Status& status);
  /// What is known about this kind of file system, without a trial.
  virtual bool locks_belong_to_handles();

 private:
  std::string path(const std::string& name) const;

  const std::string m_folder;
};

// ---- whether locks exclude ---------------------------------------------------------------------

/// Whether whole-file locks work on a file system.
enum class LockProof : std::uint8_t {
  kExclude,       ///< while one handle has an exclusive lock, another handle gets none
  kDoNotExclude,  ///< both get a lock: processes would overwrite each other's changes
  kFailed,        ///< the trial file could not be created or locked
};
constexpr std::string_view name_of(LockProof proof) {
  return word_of(proof, {"exclude", "do-not-exclude", "failed"});
}

struct LockTrial {
  LockProof proof = LockProof::kFailed;
  std::string folder;
  std::string detail;
};

/// Tries locks on a new file in @p folder, and removes the file. The folder should be on the tree's
/// file system, but outside the tree.
LockTrial try_locks(const std::string& folder);
/// The system's folder for temporary files; empty if it is not a folder.
std::string temporary_folder();

// ---- what hosts need from a shared file system -------------------------------------------------

/// Whether a shared file system has a property that the library needs.
enum class Holds : std::uint8_t { kYes, kNo, kNotTried };
constexpr std::string_view name_of(Holds holds) {
  return word_of(holds, {"yes", "no", "not-tried"});
}

struct SharedCheck {
  std::string_view code;  ///< "locks-between-hosts"
  Holds holds = Holds::kNotTried;
  std::string detail;  ///< the result in words
  std::string mend;    ///< the mount option or setting that helps; empty unless `holds` is kNo
};

/// Checks with new files whether two hosts can use a storage tree in one folder.
/// @param peer the same folder as the other host sees it. Null: the checks between hosts are not
/// tried.
/// @param file_system for example "fuse.glusterfs" or "nfs4"; selects the options to recommend.
std::vector<SharedCheck> check_shared(SharedView& host, SharedView* peer,
                                      const std::string& file_system);

/// The checks of a folder and their results.
struct SharedTrial {
  std::string folder;
  std::string peer;  ///< empty: none
  std::string file_system;
  std::vector<SharedCheck> checks;
};

/// Runs check_shared() in a new folder "stgctl-shared-trial-..." below @p folder, and removes it. A
/// kill leaves that folder.
/// @param peer the same folder through another mount, or empty.
SharedTrial try_shared(const std::string& folder, const std::string& peer);

/// What to change if a check fails on a file system.
std::string mend_of(std::string_view code, const std::string& file_system);

}  // namespace admin
