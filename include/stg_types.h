#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// @file
/// Types that the storage facade and its clients share. All are value types.
namespace STG {

/// The area of a file. Every 32-bit value is allowed: a value without a name selects the user area.
enum RepositoryType : std::int32_t {
  UserRepository = 0,       ///< user area ("user")
  UserFilesRepository = 1,  ///< user area ("user"), with category files and "attribut.txt"
  CorporateRepository = 2,  ///< corporate documents ("docs"), spread over hash buckets
  MailRepository = 3,       ///< mail ("mail")
  MailFilesRepository = 4   ///< mail ("mail")
};

/// One line of a key file. Both texts are bytes in any encoding, and may be empty.
struct NameValue {
  std::string name;   ///< the text before the separator
  std::string value;  ///< the text after it
};

/// The lines of a key file, in file order. The same name can occur several times.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class NameValueSeq {
 public:
  /// The type of an element.
  using value_type = NameValue;
  /// A position.
  using iterator = std::vector<NameValue>::iterator;
  /// A position; reading only.
  using const_iterator = std::vector<NameValue>::const_iterator;

  /// @return the number of lines.
  std::size_t size() const noexcept { return m_lines.size(); }
  /// @return whether there are no lines.
  bool empty() const noexcept { return m_lines.empty(); }
  /// @param index from 0.
  /// @return line @p index, which must be below size().
  NameValue& operator[](std::size_t index) { return m_lines[index]; }
  /// @param index from 0.
  /// @return line @p index, which must be below size().
  const NameValue& operator[](std::size_t index) const { return m_lines[index]; }
  /// Appends a line.
  /// @param line copied or moved in.
  void push_back(NameValue line) { m_lines.push_back(std::move(line)); }
  /// Removes every line.
  void clear() noexcept { m_lines.clear(); }
  /// @return the first line.
  iterator begin() noexcept { return m_lines.begin(); }
  /// @return the position past the last line.
  iterator end() noexcept { return m_lines.end(); }
  /// @return the first line.
  const_iterator begin() const noexcept { return m_lines.begin(); }
  /// @return the position past the last line.
  const_iterator end() const noexcept { return m_lines.end(); }

 private:
  std::vector<NameValue> m_lines;
};

}  // namespace STG
