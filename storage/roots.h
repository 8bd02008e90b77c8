#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "vu_storage.h"

/// @file
/// The results of an initialisation, and how other threads see them.

/// Locks the storage mutex during a block.
///
/// The mutex is recursive. It serialises the one initialisation and the listing of a user's
/// documents. No thread waits for a file lock while it has this mutex.
class StorageLock {
 public:
  StorageLock();
  ~StorageLock();
  StorageLock(const StorageLock&) = delete;
  StorageLock& operator=(const StorageLock&) = delete;
};

/// The folders of the storage. A published object never changes: an operation may still use the
/// roots of a failed initialisation while the next attempt publishes others.
struct vu_storage::Roots {
  bool s_bUseDomain = true;
  std::string s_storagePath;
  std::string s_sCorpPath;
  std::string s_sSemletPath;
  std::string s_sUserPath;
  std::string s_sListPath;
  std::string s_sMailPath;
  std::string s_sConfigDirPath;

  bool operator==(const Roots&) const = default;
};

/// What has to be done before a sub-part can be read. The numbers are part of the trace texts.
enum UpdateWay : int {
  kForceRetrieve = -1,
  kUpToDate = 0,
  kFromPreload = 1,
  kRegenerate = 2,
};

/// The mark of the initialisation, the current roots, and the private parts of vu_storage that
/// other folders may use.
struct StorageGate {
  static constexpr std::int32_t kInitialised = 1234;

  /// A thread that sees the mark sees everything that was written before it was set.
  static bool initialised() {
    return std::atomic_ref<std::int32_t>(vu_storage::s_initDone).load(std::memory_order_acquire) ==
           kInitialised;
  }
  static void set_initialised() {
    std::atomic_ref<std::int32_t>(vu_storage::s_initDone)
        .store(kInitialised, std::memory_order_release);
  }

  /// Makes these roots the current ones; call it under the storage mutex. Earlier roots stay in
  /// memory, because callers have references to their paths.
  static void publish(vu_storage::Roots roots);

  static const std::string& mail_root();
  /// Whether every owner has a folder of its own.
  static bool owners_have_folders() { return vu_storage::roots().s_bUseDomain; }
  /// Removes the lines of an entry from the category files of its folder.
  static void remove_from_categories(const std::string& folder, const std::string& entry) {
    vu_storage::RemoveFromCategFiles(folder, entry);
  }
  /// The same, except for the category file with the name of the entry.
  static void remove_from_other_categories(const std::string& folder, const std::string& entry);
  /// Removes the lines of an entry that vu_storage::RemoveFile() removes.
  static void remove_lines(const std::string& folder, const std::string& entry,
                           STG::RepositoryType type) {
    if (type == STG::UserFilesRepository)
      vu_storage::DeleteKeyLineFromFile(folder, "attribut.txt", entry);  // sic
    // Required: an empty entry removes the first line of each file.
    vu_storage::RemoveFromCategFiles(folder, entry);
  }

  /// How vu_storage::OpenReadSubPart() gets a sub-part: an UpdateWay, and the folders of the part
  /// and its preload copy. After an exception, which is traced, kUpToDate.
  static int update_way(vu_storage& facade, const std::string& owner, const std::string& entry,
                        const std::string& rendition, const std::string& part, long version,
                        std::string& part_folder, std::string& preload_folder) {
    return facade.getBestUpdateWay(owner, entry, rendition, part, part_folder, preload_folder,
                                   version);
  }

  /// Roots, and the roots that were current before.
  struct Published {
    vu_storage::Roots roots;
    const Published* earlier;
  };
  /// Null until the first initialisation. The objects are never destroyed.
  static std::atomic<const Published*> s_published;
};
