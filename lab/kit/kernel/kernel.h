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
/// What the cases have in common that only a real Windows kernel settles.

/// Not real_kernel.h, which declares for itself what <windows.h> does.
bool is_emulated();
#define NEEDS_A_REAL_KERNEL(what)                                                         \
  do {                                                                                    \
    if (is_emulated()) GTEST_SKIP() << "Wine does not do this, Windows does: " << (what); \
  } while (false)

/// What the running case settles.
/// @param number that of docs/porting.md.
void settles(int number, const char* what);
/// What it has seen.
void found(const std::string& what);

/// Whether this process has the rights of an administrator.
bool is_administrator();

/// "NTFS" say; empty where the system does not tell.
std::string file_system_of(const std::string& folder);

constexpr DWORD kAllShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// A file that the system alone opens, without the library.
class RawFile {
 public:
  RawFile(const std::string& path, DWORD access, DWORD sharing, DWORD disposition = OPEN_EXISTING);
  ~RawFile();
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;

  bool is_open() const { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return m_handle; }
  /// The system's code for opening it; 0 for a success.
  DWORD code() const { return m_code; }
  /// The system's code for reading a byte; 0 for a success.
  DWORD read_a_byte() const;

 private:
  HANDLE m_handle;
  DWORD m_code;
};

/// Where this process has its storage, of which there is one; its cases share it.
const std::string& program_root();

/// A handle of the storage, and what one owner does with it.
class Store {
 public:
  /// Throws std::runtime_error where it cannot be opened.
  explicit Store(const std::string& root, std::string owner = "anna");
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  vu_status put(const std::string& name, const std::string& bytes);
  vu_status remove(const std::string& name);
  vu_status rename(const std::string& name, const std::string& to);
  /// The bytes, or the name of the status in brackets.
  std::string content(const std::string& name);
  /// The names of all documents, sorted.
  std::vector<std::string> names();
  /// Where a document's file lies.
  std::string path(const std::string& name);

 private:
  vu_document document(const std::string& name) const;

  std::string m_owner;
  vu_store* m_store = nullptr;
};

/// What a program does to a tree of its own: it stores, reads, replaces, renames, lists and removes
/// documents, in a process of its own.
/// @param root ASCII. @return "all right", or the first thing that was wrong.
std::string work_of_a_process_in(const std::string& root);
/// The same in this process, whose storage has to lie there.
std::string work_in(Store& store);

/// Whether a lock that one way to a file takes keeps the other one out.
bool is_one_lock(const std::string& one, const std::string& other);

class Kernel : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return m_scratch.path(name); }

  const scratch_folder m_scratch;
};
