// The only file that includes nlohmann-json.
#include "client/stgctl/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace stgctl {

namespace {

using Library = nlohmann::ordered_json;

/// More than the program ever writes. A deeper text is refused before it can exhaust the stack.
constexpr std::size_t kDeepest = 100;

}  // namespace

/// Converts between Json and the JSON library's values.
struct JsonText {
  static Library to_library(const Json& json) {
    switch (json.m_kind) {
      case Json::Kind::kNull:
        return nullptr;
      case Json::Kind::kBool:
        return json.m_unsigned != 0;
      case Json::Kind::kSigned:
        return json.m_signed;
      case Json::Kind::kUnsigned:
        return json.m_unsigned;
      case Json::Kind::kReal:
        return json.m_real;
      case Json::Kind::kText:
        return json.m_text;
      case Json::Kind::kArray: {
        Library array = Library::array();
        for (const Json& item : json.m_items) array.push_back(to_library(item));
        return array;
      }
      case Json::Kind::kObject:
        break;
    }
    Library object = Library::object();
    auto& fields = object.get_ref<Library::object_t&>();
    fields.reserve(json.m_items.size());
    for (std::size_t i = 0; i < json.m_items.size(); ++i)
      fields.emplace_back(json.m_names[i], to_library(json.m_items[i]));
    return object;
  }

  /// Runs work of the library on the value; turns its exceptions into JsonError with the same text.
  template <class Use>
  static auto by_library(const Json& json, Use use) {
    try {
      return use(to_library(json));
    } catch (const Library::exception& error) {
      throw JsonError(error.what());
    }
  }

  static bool is_text(const Json& json) { return json.m_kind == Json::Kind::kText; }
  static const std::string& text(const Json& json) { return json.m_text; }
};

namespace {

/// Receives what the library parses, piece by piece.
class Builder {
 public:
  bool null() { return put(nullptr); }
  bool boolean(bool value) { return put(value); }
  bool number_integer(std::int64_t value) { return put(value); }
  bool number_unsigned(std::uint64_t value) { return put(value); }
  bool number_float(double value, const std::string&) { return put(value); }
  bool string(std::string& value) { return put(std::move(value)); }
  bool binary(Library::binary_t&) { return false; }
  bool start_object(std::size_t) { return open(Json::object()); }
  bool key(std::string& name) {
    m_name = std::move(name);
    return true;
  }
  bool end_object() { return close(); }
  bool start_array(std::size_t) { return open(Json::array()); }
  bool end_array() { return close(); }
  bool parse_error(std::size_t, const std::string&, const Library::exception& error) {
    throw JsonError(error.what());
  }

  Json take() { return std::move(m_whole); }

 private:
  Json& place(Json value) {
    if (m_open.empty()) return m_whole = std::move(value);
    Json& parent = *m_open.back();
    if (parent.is_object()) return parent[m_name] = std::move(value);
    return parent.push_back(std::move(value));
  }
  bool put(Json value) {
    place(std::move(value));
    return true;
  }
  bool open(Json container) {
    if (m_open.size() == kDeepest) throw JsonError("it is nested too deeply");
    m_open.push_back(&place(std::move(container)));
    return true;
  }
  bool close() {
    m_open.pop_back();
    return true;
  }

  Json m_whole;
  std::vector<Json*> m_open;
  std::string m_name;
};

}  // namespace

Json::Json(std::initializer_list<Field> fields) : m_kind(Kind::kObject) {
  m_names.reserve(fields.size());
  m_items.reserve(fields.size());
  for (const Field& field : fields) {
    m_names.push_back(field.name);
    m_items.push_back(field.value);
  }
}

Json::Json(const std::vector<std::string>& texts)
    : m_kind(Kind::kArray), m_items(texts.begin(), texts.end()) {}

Json Json::array() {
  Json made;
  made.m_kind = Kind::kArray;
  return made;
}

Json Json::object() {
  Json made;
  made.m_kind = Kind::kObject;
  return made;
}

Json& Json::operator[](const std::string& name) {
  if (m_kind == Kind::kNull) m_kind = Kind::kObject;
  if (m_kind != Kind::kObject) throw JsonError("a field of something that is not an object");
  const auto found = std::find(m_names.begin(), m_names.end(), name);
  if (found != m_names.end()) return m_items[static_cast<std::size_t>(found - m_names.begin())];
  m_names.push_back(name);
  return m_items.emplace_back();
}

const Json* Json::find(const std::string& name) const noexcept {
  const auto found = std::find(m_names.begin(), m_names.end(), name);
  return found == m_names.end() ? nullptr
                                : &m_items[static_cast<std::size_t>(found - m_names.begin())];
}

const Json& Json::at(const std::string& name) const {
  if (const Json* const found = find(name)) return *found;
  JsonText::by_library(*this, [&](const Library& library) { return library.at(name); });
  throw JsonError("there is no \"" + name + "\"");
}

const Json* Json::find_in_object(const std::string& name) const {
  if (m_kind != Kind::kObject)
    JsonText::by_library(*this, [&](const Library& library) { return library.value(name, false); });
  return find(name);
}

const std::vector<Json>& Json::items() const {
  if (m_kind != Kind::kArray) throw JsonError("a value that should be an array is not one");
  return m_items;
}

void Json::update(const Json& other) {
  for (std::size_t i = 0; i < other.m_names.size(); ++i)
    (*this)[other.m_names[i]] = other.m_items[i];
}

Json& Json::push_back(Json value) {
  if (m_kind == Kind::kNull) m_kind = Kind::kArray;
  if (m_kind != Kind::kArray) throw JsonError("an element of something that is not an array");
  return m_items.emplace_back(std::move(value));
}

template <>
std::string Json::get<std::string>() const {
  if (JsonText::is_text(*this)) return JsonText::text(*this);
  return JsonText::by_library(*this,
                              [](const Library& library) { return library.get<std::string>(); });
}

template <>
bool Json::get<bool>() const {
  return JsonText::by_library(*this, [](const Library& library) { return library.get<bool>(); });
}

template <>
std::int64_t Json::get<std::int64_t>() const {
  return JsonText::by_library(*this,
                              [](const Library& library) { return library.get<std::int64_t>(); });
}

template <>
std::int32_t Json::get<std::int32_t>() const {
  return JsonText::by_library(*this,
                              [](const Library& library) { return library.get<std::int32_t>(); });
}

template <>
std::uint64_t Json::get<std::uint64_t>() const {
  return JsonText::by_library(*this,
                              [](const Library& library) { return library.get<std::uint64_t>(); });
}

Json Json::parse(std::string_view text) {
  Builder builder;
  Library::sax_parse(text, &builder);
  return builder.take();
}

Json Json::parse_or_null(std::string_view text) {
  try {
    return parse(text);
  } catch (const JsonError&) {
    return {};
  }
}

std::string Json::dump(int indent, Bytes bytes) const {
  return JsonText::by_library(*this, [&](const Library& library) {
    return library.dump(indent, ' ', false,
                        bytes == Bytes::kReplaced ? Library::error_handler_t::replace
                                                  : Library::error_handler_t::strict);
  });
}

}  // namespace stgctl
