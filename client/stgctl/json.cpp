#include "client/stgctl/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/admin/text.h"

namespace stgctl {

/// Converts to the values of the JSON library.
struct JsonText {
  using Library = nlohmann::ordered_json;

  static Library to_library(const Json& json) {
    if (json.m_shape == Json::Shape::kValue)
      return std::visit([](const auto& value) { return Library(value); }, json.m_value);
    if (json.is_array()) {
      Library array = Library::array();
      for (const Json& item : json.m_items) array.push_back(to_library(item));
      return array;
    }
    Library object = Library::object();
    auto& fields = object.get_ref<Library::object_t&>();
    fields.reserve(json.m_items.size());
    for (std::size_t i = 0; i < json.m_items.size(); ++i) {
      const Json& value = json.m_items[i];
      fields.emplace_back(json.m_names[i], to_library(value));
      if (value.is_text() && !admin::is_utf8(value.text()))
        fields.emplace_back(json.m_names[i] + "_hex", admin::to_hex(value.text()));
    }
    return object;
  }
};

Json::Json(std::initializer_list<Field> fields) : m_shape(Shape::kObject) {
  m_names.reserve(fields.size());
  m_items.reserve(fields.size());
  for (const Field& field : fields) {
    m_names.push_back(field.name);
    m_items.push_back(field.value);
  }
}

Json& Json::operator[](const std::string& name) {
  m_shape = Shape::kObject;
  if (const Json* const found = find(name)) return const_cast<Json&>(*found);
  m_names.push_back(name);
  return m_items.emplace_back();
}

const Json* Json::find(std::string_view name) const noexcept {
  const auto found = std::find(m_names.begin(), m_names.end(), name);
  return found == m_names.end() ? nullptr
                                : &m_items[static_cast<std::size_t>(found - m_names.begin())];
}

void Json::update(const Json& other) {
  for (std::size_t i = 0; i < other.m_names.size(); ++i)
    (*this)[other.m_names[i]] = other.m_items[i];
}

std::string Json::dump(int indent) const {
  using Library = JsonText::Library;
  return JsonText::to_library(*this).dump(indent, ' ', false, Library::error_handler_t::replace);
}

}  // namespace stgctl
