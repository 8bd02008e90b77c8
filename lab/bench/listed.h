#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// The names of a folder in a flat hash table: the least work to check all lines of an index with
/// one listing.
class Listed {
 public:
  /// Lists the folder without "." and "..".
  explicit Listed(const std::string& folder);

  std::size_t size() const { return m_size; }
  /// Whether the folder contains the file @p stored + @p extension.
  bool contains(std::string_view stored, std::string_view extension) const;
  /// All names, unsorted.
  std::vector<std::string_view> names() const;

 private:
  struct Name {
    const char* bytes = nullptr;
    std::uint32_t size = 0;
    std::uint32_t tag = 0;
  };
  void enter(const char* name, std::size_t size);

  std::vector<char> m_records;  ///< the records of getdents64()
  std::size_t m_size = 0;
  std::vector<Name> m_slots;
};

}  // namespace bench
