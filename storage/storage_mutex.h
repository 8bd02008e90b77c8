#pragma once

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
