#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// The names of a folder as the system gives them, and a flat table to find them in: the least that
/// judging the lines of an index by one listing takes.
class Listed {
 public:
  /// Lists the folder; "." and ".." are left out.
  explicit Listed(const std::string& folder);

  std::size_t size() const { return m_size; }
  /// Whether the folder has a file @p stored + @p extension.
  bool contains(std::string_view stored, std::string_view extension) const;
  /// All of them, in no order.
  std::vector<std::string_view> names() const;

 private:
  struct Name {
    const char* bytes = nullptr;
    std::uint32_t size = 0;
    std::uint32_t tag = 0;
  };
  void enter(const char* name, std::size_t size);

  std::vector<char> m_records;  ///< as the system wrote them
  std::size_t m_size = 0;
  std::vector<Name> m_slots;
};

}  // namespace bench
