#pragma once

/// Holds the storage mutex for the span of a block.
///
/// The mutex is recursive. It serialises the one initialisation and the listing of a user's
/// documents; nothing else in the library locks inside the process.
class StorageLock {
 public:
  StorageLock();
  ~StorageLock();
  StorageLock(const StorageLock&) = delete;
  StorageLock& operator=(const StorageLock&) = delete;
};
