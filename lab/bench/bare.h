#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// The system's calls, bare: what the floors of the workloads are written in. Nothing is retried or
/// checked beyond what ends the program when the benchmark's own tree is broken.
namespace bare {

using NameMap = std::map<std::string, std::string>;

/// Ends the program: the tree that is measured is not what it should be.
[[noreturn]] void broken(const char* what, const std::string& path);

/// The bytes of a file, read into memory that nobody clears first.
class Text {
 public:
  Text() = default;
  explicit Text(std::size_t size) : m_bytes(new char[size]), m_size(size) {}
  char* data() { return m_bytes.get(); }
  std::string_view view() const { return {m_bytes.get(), m_size}; }

 private:
  std::unique_ptr<char[]> m_bytes;
  std::size_t m_size = 0;
};

/// A locked file. As the handle's steps are stated, its size is asked for by its path, and the lock
/// given back before the file is closed.
class File {
 public:
  enum class Mode { kRead, kReadWriteCreate };
  File(const std::string& path, Mode mode);
  ~File();
  File(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int get() const { return m_descriptor; }
  std::size_t size() const;
  /// The whole file, by its size.
  Text read() const;
  void read_into(char* buffer, std::size_t wanted) const;
  void write_at(std::size_t offset, std::string_view bytes) const;
  void cut(std::size_t size) const;
  void reserve(std::size_t size) const;
  void flush() const;

 private:
  std::string m_path;
  int m_descriptor;
};

/// Whether the name has an entry (lstat).
bool entry_exists(const std::string& path);
/// Whether the path leads to a folder (stat).
bool is_folder(const std::string& path);
/// The last modification (stat).
long modify_time(const std::string& path);
/// Reads the names of a folder and lets them go; returns how many there are.
std::size_t list(const std::string& folder);
/// Asks for the permission bits, and adds the owner's where they lack.
void make_writable(const std::string& path);
void remove_file(const std::string& path);
void rename(const std::string& from, const std::string& to);
/// Copies by the kernel alone onto a file that exists, with the source's modification time.
void copy_onto(const std::string& from, const std::string& to);
/// Opens, locks, asks the size, reads and closes.
Text read_locked(const std::string& path);

}  // namespace bare
