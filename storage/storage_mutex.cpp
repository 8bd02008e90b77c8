#include "storage/roots.h"

#include <Poco/Mutex.h>

namespace {

// Constructed when the library is loaded, destroyed when it is unloaded. So no static initialiser
// of the library or of a program may call an operation that locks it.
Poco::Mutex g_storage_mutex;

}  // namespace

StorageLock::StorageLock() { g_storage_mutex.lock(); }

StorageLock::~StorageLock() { g_storage_mutex.unlock(); }
