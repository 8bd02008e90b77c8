#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "tools/stgctl/import_journal.h"
#include "tools/stgctl/manifest.h"
#include "tools/stgctl/target.h"

namespace stgctl {

/// What became of an item of an export, or would in a dry run.
enum class Imported {
  kNew,        ///< it was not there
  kReplaced,   ///< it was there with other bytes
  kCompleted,  ///< an import that was killed had begun it
  kTimeSet,    ///< it was there with another time
  kThere,      ///< it was there
};
/// "imported", "replaced", ...
const char* name_of(Imported what);

enum class Existing { kKeep, kReplace };

/// Brings items of an export into a tree, in the order of the manifest. Versions go through the
/// library; their parts, and what is addressed by path, are put in place complete and with their
/// time.
class Importer {
 public:
  /// A dry run changes nothing.
  Importer(Context& context, std::string folder, Existing existing, ImportJournal& journal);

  /// @throws Failure kFailed with the reason, kRefused for what the library must not be given,
  /// kLockTimeout, kInterrupted.
  Imported run(const ManifestItem& item);

 private:
  Imported import_version(const ManifestItem& item, const std::string& source);
  Imported import_by_path(const ManifestItem& item, const std::string& source,
                          const std::string& place);
  void store(const ManifestItem& item, const std::string& source, const Target& target);
  std::string place_of(const ManifestItem& item) const;
  void check_owner(const admin::Holding& what);

  Context& m_context;
  std::string m_folder;
  Existing m_existing;
  ImportJournal& m_journal;
  bool m_is_dry;
  std::set<std::pair<admin::Area, std::string>> m_owners;  ///< that were found to be good
  /// The last version of the manifest, and where it lies; nothing when it was not imported.
  std::optional<std::string> m_document;
  bool m_document_is_planned = false;
};

}  // namespace stgctl
