#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/new_versions.h"
#include "client/admin/old_versions.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/target.h"

/// @file
/// Changes of versions. Each waits first for the locks that it needs, and checks the result in the
/// tree afterwards. The client stores versions itself, as the library writes them
/// (admin::NewVersions). Everything else goes through the library's interface.
namespace stgctl {

/// A file to store as a version of a target.
struct StoreItem {
  std::string source;
  std::string name;
  std::uint64_t size = 0;
  std::int32_t timestamp = 0;
};

/// Versions to be stored with one load and one save of each index.
class StoreBatch {
 public:
  /// Limits of a batch: a number of files, a number of bytes.
  static constexpr std::size_t kMostFiles = 100;
  static constexpr std::uint64_t kMostBytes = std::uint64_t{256} * 1024 * 1024;

  explicit StoreBatch(Context& context);

  /// Copies a file beside its place. @return its record. Its fate is open until run(), unless the
  /// copy failed.
  /// @throws Failure kFailed if the free space is too small.
  const admin::NewVersion& add(const Target& target, const StoreItem& item);
  /// The same for an existing version. If there is no space for both files, the fate is kInPlace.
  const admin::NewVersion& add_replacing(const Target& target, const StoreItem& item,
                                         const FoundEntry& old);
  /// Enters all versions; then each has its fate. Removes the sub-parts of replaced versions.
  void run();

 private:
  admin::NewVersion& stage(const Target& target, const StoreItem& item,
                           const std::string& replaces);

  Context& m_context;
  std::uint64_t m_free;  ///< free space, less the copied bytes
  std::deque<admin::NewVersion> m_versions;
  std::map<std::string, std::unique_ptr<admin::NewVersions>> m_folders;
  std::vector<std::pair<const admin::NewVersion*, std::string>> m_replaced;  ///< and their folders
};

/// Whether a failure ends the work, because the next item would meet it too.
inline bool ends_work(const Failure& failure) {
  return failure.code() == Exit::kInterrupted || failure.code() == Exit::kLockTimeout;
}

/// The failure of a version that was not stored: kFailed with the reason, kLockTimeout,
/// kInterrupted.
Failure failure_of(Context& context, const admin::NewVersion& version);

/// Stores a file as a version. Replaces an existing version with its sub-parts. The version gets
/// the file's time. Key lines stay.
/// @throws Failure kFailed, kLockTimeout, kInterrupted; then nothing of a new version is left.
void store_file(Context& context, const Target& target, const StoreItem& item);
/// Replaces a version in place, through the library. A failed or killed copy leaves it truncated.
/// For NewVersion::Fate::kInPlace. @throws Failure kFailed; as wait_until_free().
void overwrite_file(Context& context, const Target& target, const StoreItem& item);

/// The sub-part folders in a folder, by its current names. The name of each begins with
/// the name of a document's file and "_". It belongs to the file with the longest such name.
class FoundParts {
 public:
  explicit FoundParts(std::string folder);

  /// The sub-part folders of some files.
  std::vector<std::string> of(const std::vector<std::string>& files) const;
  /// Removes the sub-part folders of some files. @throws Failure kFailed if one stays.
  void remove(const std::vector<std::string>& files) const;
  /// The same, with a warning instead of the exception.
  void try_to_remove(Context& context, const std::vector<std::string>& files) const;

 private:
  std::string m_folder;
  std::vector<std::string> m_names;  ///< sorted
};

/// The sub-part folders of one version.
std::vector<std::string> part_folders(const FoundEntry& entry);

/// Whether to remove the key lines of an entry too.
enum class KeyLines { kRemove, kLeave };
/// Removes a version with its sub-parts. @throws Failure kFailed; as wait_until_free().
void remove_version(Context& context, const FoundEntry& entry, KeyLines lines);

/// The key files of the entry's folder in which the library would damage another line. The library
/// searches for the name anywhere in the text.
std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry);

// ---- removing many -----------------------------------------------------------------------------

/// An entry to remove, and the result.
struct Removal {
  const FoundEntry* entry = nullptr;
  admin::OldVersion version;
};

/// @param is_same whether the entry is still the one to remove; called while no other process can
/// write to it.
Removal removal_of(const FoundEntry& entry, std::function<bool(admin::LockedFile& file)> is_same);

/// Removes entries with their sub-parts together: see admin::remove_old_versions(). Key lines stay.
/// @return why it stopped taking locks: kLockTimeout or kInterrupted.
std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals);

/// Whether the entry was removed.
inline bool is_removed(const Removal& removal) {
  return removal.version.fate == admin::OldVersion::Fate::kRemoved;
}
/// Why it was not removed.
std::string why_not_removed(const Removal& removal);

}  // namespace stgctl
