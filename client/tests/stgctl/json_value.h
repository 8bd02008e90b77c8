#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// A JSON value for tests. Only json_value.cpp includes the library that reads the text: in every
/// test it would double the compile time.
class Json {
 public:
  /// @throws std::exception if the text is not JSON.
  static Json parse(const std::string& text);
  /// Whether a text is JSON.
  static bool accept(const std::string& text);

  bool contains(const std::string& name) const { return find(name) != nullptr; }
  /// @throws std::out_of_range if there is no such field or element.
  const Json& at(const std::string& name) const;
  const Json& at(std::size_t index) const { return m_items.at(index); }
  const Json& operator[](std::size_t index) const { return m_items.at(index); }
  /// The elements of an array, the values of an object's fields.
  std::size_t size() const { return m_items.size(); }
  bool empty() const { return m_items.empty(); }
  auto begin() const { return m_items.begin(); }
  auto end() const { return m_items.end(); }
  bool is_null() const { return m_kind == Kind::kNull; }

  /// @throws std::runtime_error for a value of another kind.
  template <class T>
  T get() const {
    if constexpr (std::same_as<T, std::string>) {
      if (m_kind != Kind::kText) throw std::runtime_error("no text: " + m_dump);
      return m_text;
    } else {
      static_assert(std::integral<T> && !std::same_as<T, bool>);
      T number = 0;
      const char* const end = m_dump.data() + m_dump.size();
      if (m_kind != Kind::kNumber || std::from_chars(m_dump.data(), end, number).ptr != end) {
        throw std::runtime_error("no whole number: " + m_dump);
      }
      return number;
    }
  }
  operator std::string() const { return get<std::string>(); }
  operator std::uint64_t() const { return get<std::uint64_t>(); }
  /// The value of a field, or @p otherwise.
  template <class T>
  T value(const std::string& name, const T& otherwise) const {
    const Json* const found = find(name);
    return found != nullptr ? found->get<T>() : otherwise;
  }
  std::string value(const std::string& name, const char* otherwise) const {
    return value<std::string>(name, otherwise);
  }
  /// The whole value on one line; the fields of an object in the order of their names.
  const std::string& dump() const { return m_dump; }

  bool operator==(const Json& other) const { return m_dump == other.m_dump; }
  bool operator==(std::string_view text) const { return m_kind == Kind::kText && m_text == text; }
  bool operator==(std::same_as<bool> auto truth) const {
    return m_dump == (truth ? "true" : "false");
  }
  template <std::integral T>
  requires(!std::same_as<T, bool>) bool operator==(T number) const {
    return m_kind == Kind::kNumber && m_dump == std::to_string(number);
  }
  friend std::ostream& operator<<(std::ostream& out, const Json& json) {
    return out << json.m_dump;
  }

 private:
  friend struct JsonReader;
  enum class Kind : unsigned char { kNull, kBool, kNumber, kText, kArray, kObject };

  const Json* find(const std::string& name) const;

  Kind m_kind = Kind::kNull;
  std::string m_text;
  std::string m_dump = "null";
  std::vector<Json> m_items;
  /// Of an object: the names of m_items.
  std::vector<std::string> m_names;
};
