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
/// Changes of versions. Each waits for the locks that it needs first, and looks afterwards whether
/// the tree shows what was asked for. Versions are stored by the client itself, as the library
/// writes them (admin::NewVersions); everything else goes through the library's interface.
namespace stgctl {

/// A file to store as a version of a target.
struct StoreItem {
  std::string source;
  std::string name;
  std::uint64_t size = 0;
  std::int32_t timestamp = 0;
};

/// Versions on their way into the tree, with one load and one save of each index.
class StoreBatch {
 public:
  /// A batch should end after so many files, or so many bytes.
  static constexpr std::size_t kMostFiles = 100;
  static constexpr std::uint64_t kMostBytes = std::uint64_t{256} * 1024 * 1024;

  explicit StoreBatch(Context& context);

  /// Copies a file beside its place. @return what is told of it; its fate is open until run(),
  /// unless it failed. @throws Failure kFailed when there is no room.
  const admin::NewVersion& add(const Target& target, const StoreItem& item);
  /// The same for a version that is there. Where there is no room for both the fate is kInPlace.
  const admin::NewVersion& add_replacing(const Target& target, const StoreItem& item,
                                         const FoundEntry& old);
  /// Enters all of them; each has its fate then. Of versions that were replaced the parts go.
  void run();

 private:
  admin::NewVersion& stage(const Target& target, const StoreItem& item,
                           const std::string& replaces);

  Context& m_context;
  std::uint64_t m_free;  ///< room, less what was copied
  std::deque<admin::NewVersion> m_versions;
  std::map<std::string, std::unique_ptr<admin::NewVersions>> m_folders;
  std::vector<std::pair<const admin::NewVersion*, std::string>> m_replaced;  ///< and their folders
};

/// Whether a failure ends the work: what follows would meet it as well.
inline bool ends_work(const Failure& failure) {
  return failure.code() == Exit::kInterrupted || failure.code() == Exit::kLockTimeout;
}

/// What a version that was not stored is to be told as: kFailed with the reason, kLockTimeout,
/// kInterrupted.
Failure failure_of(Context& context, const admin::NewVersion& version);

/// Stores a file as a version, which it replaces when it exists, with its parts. The version bears
/// the file's time. Key lines stay.
/// @throws Failure kFailed with the reason; nothing of a new version is left then.
void store_file(Context& context, const Target& target, const StoreItem& item);
/// Replaces a version where its file stands, through the library. A copy that fails, or is killed,
/// leaves it cut: for those that no StoreBatch could replace (NewVersion::Fate::kInPlace).
void overwrite_file(Context& context, const Target& target, const StoreItem& item);

/// The folders of parts in a folder, as its names are now: each is named like its document's file
/// and "_", and belongs to the file with the longest such name.
class FoundParts {
 public:
  explicit FoundParts(std::string folder);

  /// Those of some files.
  std::vector<std::string> of(const std::vector<std::string>& files) const;
  /// Removes those of some files. @throws Failure kFailed when one stays.
  void remove(const std::vector<std::string>& files) const;
  /// The same with a warning instead.
  void try_to_remove(Context& context, const std::vector<std::string>& files) const;

 private:
  std::string m_folder;
  std::vector<std::string> m_names;  ///< sorted
};

/// Those of one version.
std::vector<std::string> part_folders(const FoundEntry& entry);

/// Whether the key lines that go with an entry are removed, too.
enum class KeyLines { kRemove, kLeave };
/// Removes a version with its parts. @throws Failure kFailed with the reason.
void remove_version(Context& context, const FoundEntry& entry, KeyLines lines);

/// The key files of the entry's folder in which the library, which looks for the name anywhere in
/// the text, would cut something else than a line of that name.
std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry);

// ---- removing many -----------------------------------------------------------------------------

/// An entry that is to go, and what has become of it.
struct Removal {
  const FoundEntry* entry = nullptr;
  admin::OldVersion version;
};

/// @param is_same whether it is still what is to go; asked while nobody else can write to it.
Removal removal_of(const FoundEntry& entry, std::function<bool(admin::LockedFile& file)> is_same);

/// Removes entries with their parts, together: see admin::remove_old_versions(). Key lines stay.
/// @return why no further lock was asked for: kLockTimeout or kInterrupted.
std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals);

/// Whether the entry was removed.
inline bool is_removed(const Removal& removal) {
  return removal.version.fate == admin::OldVersion::Fate::kRemoved;
}
/// Why it was not.
std::string why_not_removed(const Removal& removal);

}  // namespace stgctl
