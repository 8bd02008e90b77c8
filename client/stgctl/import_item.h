#pragma once

#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "client/admin/entries.h"
#include "client/stgctl/context.h"
#include "client/stgctl/manifest.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/target.h"
#include "vu_file.h"

namespace stgctl {

/// A journal of the versions that an import overwrites in place. It is a file beside the storage
/// folder, with the same name and ".import". A killed process leaves it. The next import,
/// of any export, then distinguishes a truncated document from one that another process stored. The
/// file stays locked during the import, which excludes a second import into the same tree.
class ImportJournal {
 public:
  enum class Use { kLook, kWork };

  /// Reads what an earlier import left, and opens the journal. Reading changes nothing.
  /// @throws Failure kLockTimeout while another import runs, kFailed if the journal cannot be
  /// written.
  ImportJournal(Context& context, Use use);

  /// Whether the overwrite of a version was begun and not completed.
  bool is_pending(const admin::Holding& version) const;
  void begin(const admin::Holding& version);
  /// The version is complete, or was removed again.
  void end(const admin::Holding& version);
  /// Ends the import: removes the journal, unless it contains pending versions.
  void close();

 private:
  std::string open();
  void append(const std::string& line);

  std::string m_path;
  vu_file m_file;
  std::set<std::string> m_pending;
};

/// The result for an item of an export; in a dry run the expected result.
enum class Imported {
  kNew,        ///< it did not exist
  kReplaced,   ///< it existed with other bytes
  kCompleted,  ///< a killed import had begun it
  kTimeSet,    ///< it existed with another time
  kThere,      ///< it existed already
};
/// "imported", "replaced", ...
const char* name_of(Imported what);

enum class Existing { kKeep, kReplace };

/// Imports items of an export into a tree, in the order of the manifest. New versions are stored in
/// batches, as by put. Sub-parts, and files that are addressed by path, get their names when they
/// are complete and have their time.
class Importer {
 public:
  /// The result for an item. If @p failure is null, the item exists.
  using Told =
      std::function<void(const ManifestItem& item, Imported result, const Failure* failure)>;

  /// A dry run changes nothing.
  Importer(Context& context, std::string folder, Existing existing, ImportJournal& journal);

  /// Imports the next items as one batch, and reports each.
  /// @throws Failure kLockTimeout, kInterrupted, after it reported what was done.
  void run(std::span<const ManifestItem> items, const Told& told);

 private:
  /// An item during the import.
  struct Work {
    const ManifestItem* item = nullptr;
    std::string source;
    Imported result = Imported::kNew;
    std::optional<Failure> failure;
    std::optional<std::string> place;            ///< of a version: its path, once it exists
    const admin::NewVersion* version = nullptr;  ///< of a version that is stored
  };

  void judge(Work& work, StoreBatch& batch);
  void judge_version(Work& work, StoreBatch& batch);
  void judge_existing(Work& work, const FoundEntry& found);
  void finish(Work& work);
  void finish_version(Work& work);
  Imported import_by_path(const ManifestItem& item, const std::string& source,
                          const std::string& place);
  std::string place_of(const ManifestItem& item) const;
  void check_owner(const admin::Holding& what);

  Context& m_context;
  std::string m_folder;
  Existing m_existing;
  ImportJournal& m_journal;
  bool m_is_dry;
  KnownEntries m_entries;                                  ///< for one batch
  std::set<std::pair<admin::Area, std::string>> m_owners;  ///< checked and allowed
  /// The last version of the manifest and its path; empty if it was not imported.
  std::optional<std::string> m_document;
};

}  // namespace stgctl
