#include "storage/storage_mutex.h"

#include <Poco/Mutex.h>

namespace {

// Made when the library is loaded and gone when it is unloaded: no static initialiser, of the
// library or of a program, may call an operation that locks it.
Poco::Mutex g_storage_mutex;

}  // namespace

StorageLock::StorageLock() { g_storage_mutex.lock(); }

StorageLock::~StorageLock() { g_storage_mutex.unlock(); }
