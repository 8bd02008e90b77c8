#pragma once

#include <string>

#include "api/store.h"
#include "platform/os/os.h"
#include "vu_file.h"

/// @file
/// Opening versions to write them in place.
namespace api {

/// A file that is to be copied over a version in place. It is open, but locked only while it is
/// copied: of two programs that copy one version over the other, each would wait for the other one.
///
/// Order of calls: construct it before open_to_write(), which empties the version; then copy_to().
/// Threads: one.
class SourceFile {
 public:
  /// @throws Refusal if the file cannot be read or a writer has locked it, and if it is that of the
  /// version
  SourceFile(const std::string& path, const Address& address);
  ~SourceFile();
  SourceFile(const SourceFile&) = delete;
  SourceFile& operator=(const SourceFile&) = delete;

  /// Copies bytes and modification time to the empty file of the version.
  ///
  /// Required: by its handle, which keeps the lock since the cut. A copy by path would need the
  /// file without a lock. Another program could rename or remove the version just then; the copy
  /// would create the file again, without an entry.
  /// @return whether all bytes were written; a failure is traced, and the version is empty then.
  /// @throws Refusal if the file cannot be read; then, too, the version is empty.
  bool copy_to(vu_file& version) const;

 private:
  os::Status lock_at_once() const;
  void check(const os::Status& status, const char* text) const;

  std::string m_path;
  os::Handle m_handle = os::kNoHandle;
};

/// Opens a version to write it. A missing one is created, with a file of its own. If @p replaces,
/// an existing one is emptied and loses its parts or its lines in category files, as in
/// vu_storage::OpenWrite2(). Within a time limit all locks are taken first. So an existing version
/// is unchanged after VU_LOCK_TIMEOUT.
///
/// The file stays closed after a failure that was traced, and if the version is not to be replaced
/// and exists, or another program writes it just after it was created. It can be open without its
/// lock. A version that was created stays, empty: another program may have opened its file already.
/// @throws Refusal, vu_file_except
void open_to_write(vu_file& file, const Address& address, bool replaces);

/// Whether a file that open_to_write() opened is empty and belongs to the version: some failures
/// are only traced. If false, closes the file; removes it too if no entry names it.
bool is_opened_anew(const Address& address, vu_file& file);

}  // namespace api
