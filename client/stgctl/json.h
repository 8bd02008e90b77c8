#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace stgctl {

/// The text is not JSON, or a value has another type than the requested one.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A JSON value. The fields of an object keep the order of insertion.
///
/// Only json.cpp includes the library that reads and writes the text: it is slow to compile.
class Json {
 public:
  struct Field;

  Json() noexcept : m_kind(Kind::kNull) {}
  Json(std::nullptr_t) noexcept : m_kind(Kind::kNull) {}
  Json(const char* text) : m_kind(Kind::kText), m_text(text) {}
  Json(std::string text) : m_kind(Kind::kText), m_text(std::move(text)) {}
  Json(std::string_view text) : m_kind(Kind::kText), m_text(text) {}
  Json(std::same_as<bool> auto value) noexcept : m_kind(Kind::kBool), m_unsigned(value ? 1 : 0) {}
  Json(double value) noexcept : m_kind(Kind::kReal), m_real(value) {}
  template <std::signed_integral T>
  Json(T value) noexcept : m_kind(Kind::kSigned), m_signed(value) {}
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) Json(T value)
  noexcept : m_kind(Kind::kUnsigned), m_unsigned(value) {}
  /// An object: {{"files", 3}, {"bytes", 4096}}.
  Json(std::initializer_list<Field> fields);
  /// A list of texts.
  Json(const std::vector<std::string>& texts);

  static Json array();
  static Json object();

  bool is_object() const noexcept { return m_kind == Kind::kObject; }
  bool is_array() const noexcept { return m_kind == Kind::kArray; }
  bool is_text() const noexcept { return m_kind == Kind::kText; }
  /// Whether it is null, false, an empty text or an empty array.
  bool is_empty() const noexcept {
    return m_kind == Kind::kNull || (m_kind == Kind::kBool && m_unsigned == 0) ||
           (m_kind == Kind::kText && m_text.empty()) || (m_kind == Kind::kArray && m_items.empty());
  }
  /// Whether it is this text.
  bool operator==(std::string_view text) const noexcept {
    return m_kind == Kind::kText && m_text == text;
  }

  // ---- objects ----

  /// The field of that name; created if it is missing. Null becomes an object.
  Json& operator[](const std::string& name);
  /// The field of that name, or null.
  const Json* find(const std::string& name) const noexcept;
  bool contains(const std::string& name) const noexcept { return find(name) != nullptr; }
  /// @throws JsonError if there is no such field.
  const Json& at(const std::string& name) const;
  /// Like at(name).get<T>(), or @p otherwise if there is no such field.
  template <class T>
  T value(const std::string& name, const T& otherwise) const {
    const Json* const found = find_in_object(name);
    return found != nullptr ? found->get<T>() : otherwise;
  }
  std::string value(const std::string& name, const char* otherwise) const {
    return value<std::string>(name, otherwise);
  }
  /// Copies the fields of another object over its own.
  void update(const Json& other);

  // ---- arrays ----

  Json& push_back(Json value);
  Json& operator[](std::size_t index) { return m_items.at(index); }
  /// @throws JsonError if it is not an array.
  const std::vector<Json>& items() const;

  // ---- values ----

  /// @throws JsonError if it is of another kind.
  template <class T>
  T get() const;

  // ---- text ----

  /// @throws JsonError if the text is not JSON.
  static Json parse(std::string_view text);
  /// Null if the text is not JSON.
  static Json parse_or_null(std::string_view text);
  enum class Bytes { kMustBeUtf8, kReplaced };
  /// On one line, or with @p indent blanks per level on several lines.
  /// @throws JsonError for bytes that are not UTF-8, unless they are to be replaced by U+FFFD.
  std::string dump(int indent = -1, Bytes bytes = Bytes::kReplaced) const;

 private:
  friend struct JsonText;
  enum class Kind : unsigned char {
    kNull,
    kBool,
    kSigned,
    kUnsigned,
    kReal,
    kText,
    kArray,
    kObject
  };

  const Json* find_in_object(const std::string& name) const;

  Kind m_kind;
  union {
    std::int64_t m_signed = 0;
    std::uint64_t m_unsigned;
    double m_real;
  };
  std::string m_text;
  /// The elements, or the values of the fields in m_names.
  std::vector<Json> m_items;
  std::vector<std::string> m_names;
};

struct Json::Field {
  std::string name;
  Json value;
};

template <>
std::string Json::get<std::string>() const;
template <>
bool Json::get<bool>() const;
template <>
std::int64_t Json::get<std::int64_t>() const;
template <>
std::int32_t Json::get<std::int32_t>() const;
template <>
std::uint64_t Json::get<std::uint64_t>() const;

}  // namespace stgctl
