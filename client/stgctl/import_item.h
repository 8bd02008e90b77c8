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

/// Which versions an import has begun to write and not completed: a file beside the storage folder,
/// called like it and ".import". A process that is killed leaves it there, and the next import of
/// whichever export then knows a cut document from one that somebody else stored. It is held locked
/// meanwhile, so that two imports into one tree do not meet.
class ImportJournal {
 public:
  enum class Use { kLook, kWork };

  /// Reads what an import before has left, and opens the journal for work; looking changes nothing.
  /// @throws Failure kLockTimeout when another import is at work, kFailed when it cannot be
  /// written.
  ImportJournal(Context& context, Use use);

  /// Whether a version was begun and not completed.
  bool is_pending(const admin::Holding& version) const;
  void begin(const admin::Holding& version);
  /// The version is complete, or gone again.
  void end(const admin::Holding& version);
  /// Ends the work: takes the journal away, unless something in it is still pending.
  void close();

 private:
  std::string open();
  void append(const std::string& line);

  std::string m_path;
  vu_file m_file;
  std::set<std::string> m_pending;
};

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

/// Brings items of an export into a tree, in the order of the manifest. New versions come in
/// batches, as with put; their parts, and what is addressed by path, are put in place complete and
/// with their time.
class Importer {
 public:
  /// What became of an item: null for @p failure when it is there.
  using Told =
      std::function<void(const ManifestItem& item, Imported result, const Failure* failure)>;

  /// A dry run changes nothing.
  Importer(Context& context, std::string folder, Existing existing, ImportJournal& journal);

  /// Imports some items as one batch, and tells of each. @throws Failure kLockTimeout, kInterrupted
  /// when what was done is told.
  void run(std::span<const ManifestItem> items, const Told& told);

 private:
  /// An item on its way.
  struct Work {
    const ManifestItem* item = nullptr;
    std::string source;
    Imported result = Imported::kNew;
    std::optional<Failure> failure;
    std::optional<std::string> place;            ///< of a version: where it lies, once it does
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
  KnownEntries m_entries;                                  ///< for a batch
  std::set<std::pair<admin::Area, std::string>> m_owners;  ///< that were found to be good
  /// The last version of the manifest, and where it lies; nothing when it was not imported.
  std::optional<std::string> m_document;
};

}  // namespace stgctl
