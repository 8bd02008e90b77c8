#pragma once

/// Holds the storage mutex during a block.
///
/// The mutex is recursive. It serialises the one initialisation and the listing of a user's
/// documents. Nothing else in the library locks within the process.
class StorageLock {
 public:
  StorageLock();
  ~StorageLock();
  StorageLock(const StorageLock&) = delete;
  StorageLock& operator=(const StorageLock&) = delete;
};
