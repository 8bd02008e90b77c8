#pragma once

#include "api/store.h"
#include "vu_file.h"

/// @file
/// Opening versions to write them in place.
namespace api {

/// Checks a file that is to be copied over a version in place. Call it before open_to_write(): that
/// empties the version. @throws Refusal if the file cannot be read, or is that of the version
void check_source(const std::string& path, const Address& address);

/// Opens a version to write it. A missing one is created, with a file of its own. If @p replaces,
/// an existing one is emptied and loses its parts or its lines in category files, as in
/// vu_storage::OpenWrite2(). Within a time limit all locks are taken first. So an existing version
/// is unchanged after VU_LOCK_TIMEOUT.
///
/// The file stays closed after a failure that was traced, and if the version exists and is not to
/// be replaced. It can be open without its lock. A version that was created stays, empty: another
/// program may have opened its file already. @throws Refusal, vu_file_except
void open_to_write(vu_file& file, const Address& address, bool replaces);

/// Whether a file that open_to_write() opened is empty and belongs to the version: some failures
/// are only traced. If false, closes the file; removes it too if no entry names it.
bool is_opened_anew(const Address& address, vu_file& file);

}  // namespace api
