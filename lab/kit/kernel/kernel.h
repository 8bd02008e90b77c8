#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "vu/storage.h"

/// @file
/// Shared code of the cases that only a real Windows kernel can show.

/// real_kernel.h is not used: it declares what <windows.h> declares too.
bool is_emulated();
#define NEEDS_A_REAL_KERNEL(what)                                                         \
  do {                                                                                    \
    if (is_emulated()) GTEST_SKIP() << "Wine does not do this, Windows does: " << (what); \
  } while (false)

/// States what the running case shows.
/// @param number its number in docs/porting.md.
void settles(int number, const char* what);
/// Reports what the case saw.
void found(const std::string& what);

/// Whether this process has the rights of an administrator.
bool is_administrator();

/// Example: "NTFS". Empty if it is unknown.
std::string file_system_of(const std::string& folder);

constexpr DWORD kAllShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// A file that is opened by the system directly, without the library.
class RawFile {
 public:
  RawFile(const std::string& path, DWORD access, DWORD sharing, DWORD disposition = OPEN_EXISTING);
  ~RawFile();
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;

  bool is_open() const { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return m_handle; }
  /// The error code of the constructor's attempt to open the file; 0 for a success.
  DWORD code() const { return m_code; }
  /// Reads a byte. @return the error code; 0 for a success.
  DWORD read_a_byte() const;

 private:
  HANDLE m_handle;
  DWORD m_code;
};

/// The folder of this process's only storage; its cases share it.
const std::string& program_root();

/// A handle of the storage, and operations of one owner.
class Store {
 public:
  /// @throws std::runtime_error if the storage cannot be opened.
  explicit Store(const std::string& root, std::string owner = "anna");
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  vu_status put(const std::string& name, const std::string& bytes);
  vu_status remove(const std::string& name);
  vu_status rename(const std::string& name, const std::string& to);
  /// The bytes, or in brackets the name of the status.
  std::string content(const std::string& name);
  /// The names of all documents, sorted.
  std::vector<std::string> names();
  /// The path of a document's file.
  std::string path(const std::string& name);

 private:
  vu_document document(const std::string& name) const;

  std::string m_owner;
  vu_store* m_store = nullptr;
};

/// Stores, reads, replaces, renames, lists and removes documents in a new tree, in another process.
/// @param root an ASCII path. @return "all right", or the first defect.
std::string work_of_a_process_in(const std::string& root);
/// The same in this process; @p store must be its storage.
std::string work_in(Store& store);

/// Whether a lock on one path also locks the other path.
bool is_one_lock(const std::string& one, const std::string& other);

class Kernel : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return m_scratch.path(name); }

  const scratch_folder m_scratch;
};
