#pragma once

#include "api/store.h"
#include "vu_file.h"

/// @file
/// Opening versions to write them in place.
namespace api {

/// A version that open_to_write() may create. Without keep() the destructor removes it again, so
/// that a call that fails leaves no empty version. The version stays if it has another file or
/// bytes, if another handle has locked its file, and if the system refuses something.
///
/// Order of calls: construct it before the vu_file, so that the file is closed when the destructor
/// runs. Errors: the destructor throws nothing. Threads: one.
class NewVersion {
 public:
  /// @param address must outlive this object.
  explicit NewVersion(const Address& address) : m_address(address) {}
  ~NewVersion();
  NewVersion(const NewVersion&) = delete;
  NewVersion& operator=(const NewVersion&) = delete;

  const Address& address() const { return m_address; }
  /// Finds the version in a folder, or creates it. @return whether it was created.
  /// @throws like api::find_or_create()
  bool find_or_create(Place& place);
  void keep() { m_file.clear(); }

 private:
  const Address& m_address;
  std::string m_folder;
  std::string m_file;  ///< of the created version; empty if there is none
};

/// Opens a version to write it. A missing one is created, with a file of its own. If @p replaces,
/// an existing one is emptied and loses its parts or its lines in category files, as in
/// vu_storage::OpenWrite2(). Within a time limit all locks are taken first. So an existing version
/// is unchanged after VU_LOCK_TIMEOUT.
///
/// The file stays closed after a failure that was traced, and if the version exists and is not to
/// be replaced. It can be open without its lock. @throws Refusal, vu_file_except
void open_to_write(vu_file& file, NewVersion& version, bool replaces);

/// Whether a file that open_to_write() opened is empty and belongs to the version: some failures
/// are only traced. If false, closes the file; removes it too if no entry names it.
bool is_opened_anew(const Address& address, vu_file& file);

}  // namespace api
