#include "client/tests/stgctl/json_value.h"

#include <nlohmann/json.hpp>

struct JsonReader {
  using Library = nlohmann::json;

  static Json read(const Library& value) {
    Json json;
    json.m_kind = kind_of(value);
    json.m_dump = value.dump(-1, ' ', false, Library::error_handler_t::replace);
    if (value.is_string()) json.m_text = value.get<std::string>();
    if (value.is_structured()) {
      for (const auto& [name, item] : value.items()) {
        if (value.is_object()) json.m_names.push_back(name);
        json.m_items.push_back(read(item));
      }
    }
    return json;
  }

 private:
  static Json::Kind kind_of(const Library& value) {
    if (value.is_null()) return Json::Kind::kNull;
    if (value.is_boolean()) return Json::Kind::kBool;
    if (value.is_number()) return Json::Kind::kNumber;
    if (value.is_string()) return Json::Kind::kText;
    return value.is_array() ? Json::Kind::kArray : Json::Kind::kObject;
  }
};

Json Json::parse(const std::string& text) { return JsonReader::read(nlohmann::json::parse(text)); }

bool Json::accept(const std::string& text) { return nlohmann::json::accept(text); }

const Json* Json::find(const std::string& name) const {
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    if (m_names[i] == name) return &m_items[i];
  }
  return nullptr;
}

const Json& Json::at(const std::string& name) const {
  const Json* const found = find(name);
  if (found == nullptr) throw std::out_of_range("no field " + name + ": " + m_dump);
  return *found;
}
