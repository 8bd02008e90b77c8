#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// A storage folder made without the library, in its layout: "index.dat", the counter "index" and
/// an empty file for each entry.
///
/// The entries are one version each of names as "Report 000042.kdb". The numbers of their files lie
/// in no order, as those of documents that arrived in no order of their names.
class Folder {
 public:
  /// Makes the folder with everything in it; what was there of an earlier run goes.
  Folder(std::string path, std::size_t entries, std::string extension = ".kdb");
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return m_path; }
  std::string path(const std::string& name) const { return m_path + "/" + name; }
  std::size_t entries() const { return m_numbers.size(); }

  std::string logical(std::size_t entry) const;
  long timestamp(std::size_t entry) const;
  /// The name of the entry's file, extension included.
  std::string file(std::size_t entry) const;
  /// The name of the file that the next new document gets.
  std::string next_file() const;
  /// The text of "index.dat".
  const std::string& text() const { return m_text; }

  /// Puts the counter and "index.dat" back as they were, on the device; the files @p made go, and
  /// the files @p lost are there again, empty.
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

/// Ten digits behind an underscore.
std::string key_of(std::string_view logical, long timestamp);
/// Eight or more digits.
std::string stored_name(std::size_t number);
/// Replaces a file, on the device.
void put_file(const std::string& path, std::string_view bytes);

/// Entries in an order that looks arbitrary but is the same in each run.
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
