#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// A storage folder in the library's layout, created without the library: "index.dat", the counter
/// "index" and an empty file for each entry.
///
/// Each entry is the only version of a name such as "Report 000042.kdb". The order of the names is
/// not the order of the file numbers.
class Folder {
 public:
  /// Creates the folder with its files; removes a folder of an earlier run first.
  Folder(std::string path, std::size_t entries, std::string extension = ".kdb");
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return m_path; }
  std::string path(const std::string& name) const { return m_path + "/" + name; }
  std::size_t entries() const { return m_numbers.size(); }

  std::string logical(std::size_t entry) const;
  long timestamp(std::size_t entry) const;
  /// The file name of the entry, with extension.
  std::string file(std::size_t entry) const;
  /// The name of the file that the next new document gets.
  std::string next_file() const;
  /// The text of "index.dat".
  const std::string& text() const { return m_text; }

  /// Restores and flushes the counter and "index.dat". Removes the files @p made, and creates the
  /// files @p lost again, empty.
  void restore(const std::vector<std::string>& made,
               const std::vector<std::string>& lost = {}) const;

 private:
  void make_file(const std::string& name) const;
  void write_index() const;

  std::string m_path;
  std::string m_extension;
  std::vector<std::size_t> m_numbers;
  std::string m_text;
};

std::string key_of(std::string_view logical, long timestamp);
/// The physical name of a number: at least eight digits.
std::string stored_name(std::size_t number);
/// Replaces a file and flushes it.
void put_file(const std::string& path, std::string_view bytes);

/// Chooses entries in a pseudo-random order that is the same in each run.
class Choice {
 public:
  explicit Choice(std::size_t entries) : m_entries(entries) {}
  std::size_t next() {
    m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<std::size_t>(m_state >> 33U) % m_entries;
  }

 private:
  std::size_t m_entries;
  unsigned long long m_state = 42;
};

}  // namespace bench
