#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace stgctl {

/// A JSON value to write. The fields of an object keep the order of insertion.
///
/// The files that read JSON use the library nlohmann-json itself. The others do not include it: in
/// each of them it would take three times as long to compile as all the rest.
class Json {
 public:
  struct Field;

  Json(std::nullptr_t = nullptr) noexcept {}
  Json(const char* text) : m_value(std::string(text)) {}
  /// A text can be any bytes; see dump().
  Json(std::string text) : m_value(std::move(text)) {}
  Json(std::string_view text) : m_value(std::string(text)) {}
  Json(double value) noexcept : m_value(value) {}
  Json(std::signed_integral auto value) noexcept : m_value(std::int64_t{value}) {}
  /// A number or a bool.
  Json(std::unsigned_integral auto value) noexcept {
    if constexpr (std::same_as<decltype(value), bool>) {
      m_value = value;
    } else {
      m_value = std::uint64_t{value};
    }
  }
  /// An object: {{"files", 3}, {"bytes", 4096}}.
  Json(std::initializer_list<Field> fields);
  /// A list of texts.
  Json(const std::vector<std::string>& texts)
      : m_shape(Shape::kArray), m_items(texts.begin(), texts.end()) {}

  static Json array() { return Json(Shape::kArray); }
  static Json object() { return Json(Shape::kObject); }

  bool is_object() const noexcept { return m_shape == Shape::kObject; }
  bool is_array() const noexcept { return m_shape == Shape::kArray; }
  bool is_text() const noexcept { return std::holds_alternative<std::string>(m_value); }
  /// Whether it is null, false, an empty text or an empty array.
  bool is_empty() const noexcept {
    if (m_shape != Shape::kValue) return is_array() && m_items.empty();
    return m_value == Value() || m_value == Value(false) || m_value == Value(std::string());
  }
  /// Of a text.
  const std::string& text() const { return std::get<std::string>(m_value); }
  /// Of an array.
  const std::vector<Json>& items() const noexcept { return m_items; }

  /// The field of that name; created if it is missing. Null becomes an object.
  Json& operator[](const std::string& name);
  /// The field of that name, or null.
  const Json* find(std::string_view name) const noexcept;
  /// Copies the fields of an object, or of null, over its own.
  void update(const Json& other);
  Json& push_back(Json value) { return m_items.emplace_back(std::move(value)); }

  /// The text on one line, or with @p indent blanks per level on several lines. For bytes that are
  /// not UTF-8 it contains U+FFFD, and after such a field another one, NAME_hex, with the bytes.
  std::string dump(int indent = -1) const;

 private:
  friend struct JsonText;
  using Value =
      std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string>;
  enum class Shape : unsigned char { kValue, kArray, kObject };

  explicit Json(Shape shape) noexcept : m_shape(shape) {}

  Shape m_shape = Shape::kValue;
  Value m_value;  ///< of kValue
  /// The elements, or the values of the fields in m_names.
  std::vector<Json> m_items;
  std::vector<std::string> m_names;
};

struct Json::Field {
  std::string name;
  Json value;
};

}  // namespace stgctl
