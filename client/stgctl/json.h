#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace stgctl {

/// A JSON value to write. The fields of an object keep the order of insertion.
///
/// The files that read JSON use the library nlohmann-json itself. The others do not include it: in
/// each of them it would take three times as long to compile as all the rest.
class Json {
 public:
  struct Field;

  Json() noexcept : m_kind(Kind::kNull) {}
  Json(std::nullptr_t) noexcept : m_kind(Kind::kNull) {}
  Json(const char* text) : m_kind(Kind::kText), m_text(text) {}
  /// A text can be any bytes; see dump().
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
  Json(const std::vector<std::string>& texts)
      : m_kind(Kind::kArray), m_items(texts.begin(), texts.end()) {}

  static Json array() { return Json(Kind::kArray); }
  static Json object() { return Json(Kind::kObject); }

  bool is_object() const noexcept { return m_kind == Kind::kObject; }
  bool is_array() const noexcept { return m_kind == Kind::kArray; }
  bool is_text() const noexcept { return m_kind == Kind::kText; }
  /// Whether it is null, false, an empty text or an empty array.
  bool is_empty() const noexcept {
    return m_kind == Kind::kNull || (m_kind == Kind::kBool && m_unsigned == 0) ||
           (m_kind == Kind::kText && m_text.empty()) || (m_kind == Kind::kArray && m_items.empty());
  }
  /// Of a text.
  const std::string& text() const noexcept { return m_text; }
  /// Of an array.
  const std::vector<Json>& items() const noexcept { return m_items; }

  /// The field of that name; created if it is missing. Null becomes an object.
  Json& operator[](const std::string& name);
  /// The field of that name, or null.
  const Json* find(std::string_view name) const noexcept;
  /// Copies the fields of an object, or of null, over its own.
  void update(const Json& other);
  Json& push_back(Json value) { return m_items.emplace_back(std::move(value)); }
  Json& operator[](std::size_t index) { return m_items.at(index); }

  /// The text on one line, or with @p indent blanks per level on several lines. For bytes that are
  /// not UTF-8 it contains U+FFFD, and after such a field another one, NAME_hex, with the bytes.
  std::string dump(int indent = -1) const;

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

  explicit Json(Kind kind) noexcept : m_kind(kind) {}

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

}  // namespace stgctl
