#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// Thin functions over system calls, from which the floors are built. They retry nothing, and end
/// the program when the tree of the benchmark is broken.
namespace bare {

using NameMap = std::map<std::string, std::string>;

/// Ends the program, because the tree of the benchmark is broken.
[[noreturn]] void broken(const char* what, const std::string& path);

/// The bytes of a file, in memory that was not cleared.
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

/// A locked file. Like the library's handle it reads the size by the path and releases the lock
/// before it closes the file.
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
  /// Reads the whole file.
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
/// The modification time (stat).
long modify_time(const std::string& path);
/// Lists a folder and discards the names. @return their number.
std::size_t list(const std::string& folder);
/// Adds the owner's permissions to read and write if one is missing.
void make_writable(const std::string& path);
void remove_file(const std::string& path);
void rename(const std::string& from, const std::string& to);
enum class Flush { kNo, kYes };
/// Copies onto an existing file under locks, with the kernel's copy call; keeps the modification
/// time.
void copy_onto(const std::string& from, const std::string& to, Flush flush = Flush::kNo);
/// Opens, locks, reads the size and the text, and closes.
Text read_locked(const std::string& path);

}  // namespace bare
