#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/admin/new_versions.h"
#include "tools/stgctl/target.h"

/// @file
/// Changes of versions. Each waits for the locks that it needs first, and looks afterwards whether
/// the tree shows what was asked for. New versions are entered by the client itself, as the library
/// writes them (admin::NewVersions); everything else goes through the library's interface.
namespace stgctl {

/// New versions on their way into the tree, with one load and one save of each index.
class StoreBatch {
 public:
  explicit StoreBatch(Context& context) : m_context(context) {}

  /// Copies a file beside its place. @return what is told of it; its fate is open until run(),
  /// unless it failed. @throws Failure kFailed when there is no room.
  const admin::NewVersion& add(const Target& target, const std::string& source, std::uint64_t size,
                               const std::string& name, std::int32_t timestamp);
  /// Enters all of them; each has its fate then.
  void run();

 private:
  Context& m_context;
  std::deque<admin::NewVersion> m_versions;
  std::map<std::string, std::unique_ptr<admin::NewVersions>> m_folders;
};

/// What a version that was not stored is to be told as: kFailed with the reason, kLockTimeout,
/// kInterrupted.
Failure failure_of(Context& context, const admin::NewVersion& version);

/// Stores a file as a version, which it replaces when it exists, with its parts. The version bears
/// the file's time. Key lines stay.
/// @throws Failure kFailed with the reason; nothing of a new version is left then.
void store_file(Context& context, const Target& target, const std::string& source,
                std::uint64_t size, const std::string& name, std::int32_t timestamp);

/// The folders with the parts of a document: those named like its file and "_", less those that
/// belong to another file of the folder with a longer name.
std::vector<std::string> part_folders(const FoundEntry& entry);

/// Whether the key lines that go with an entry are removed, too.
enum class KeyLines { kRemove, kLeave };
/// Removes a version with its parts. @throws Failure kFailed with the reason.
void remove_version(Context& context, const FoundEntry& entry, KeyLines lines);

/// The key files of the entry's folder in which the library, which looks for the name anywhere in
/// the text, would cut something else than a line of that name.
std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry);

}  // namespace stgctl
