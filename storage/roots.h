#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "vu_storage.h"

/// @file
/// What an initialisation decides, and how it reaches the other threads.

/// Where the storage lies. It is published whole and never changed afterwards: an operation that
/// began after an initialisation that failed may run while the next attempt takes another root.
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

/// The marker of the initialisation, the roots in force, and the one way into the facade for the
/// index.
struct StorageGate {
  static constexpr std::int32_t kInitialised = 1234;

  /// Whoever sees the marker sees everything that was written before it was set.
  static bool initialised() {
    return std::atomic_ref<std::int32_t>(vu_storage::s_initDone).load(std::memory_order_acquire) ==
           kInitialised;
  }
  static void set_initialised() {
    std::atomic_ref<std::int32_t>(vu_storage::s_initDone)
        .store(kInitialised, std::memory_order_release);
  }

  /// Puts roots into force; under the storage mutex. Those before stay in memory: references to
  /// their paths have been given out.
  static void publish(vu_storage::Roots roots);

  static const std::string& mail_root();
  /// Whether every owner has folders of its own.
  static bool owners_have_folders() { return vu_storage::roots().s_bUseDomain; }
  /// Takes the lines of an entry out of the category files of its folder.
  static void remove_from_categories(const std::string& folder, const std::string& entry) {
    vu_storage::RemoveFromCategFiles(folder, entry);
  }

  /// Roots, and those that were in force before.
  struct Published {
    vu_storage::Roots roots;
    const Published* earlier;
  };
  /// Null until the first initialisation. What it leads to is never destroyed.
  static std::atomic<const Published*> s_published;
};
