#include "client/stgctl/template_text.h"

#include <stdexcept>

#include "client/admin/text.h"

namespace stgctl {

namespace {

constexpr auto kNone = std::string_view::npos;

/// A tag of a template: its position, its sign (a blank for a value), its name.
struct Tag {
  std::size_t begin = kNone;
  std::size_t end = kNone;
  char sign = ' ';
  std::string_view name;
};

Tag next_tag(std::string_view text, std::size_t from) {
  Tag tag;
  tag.begin = text.find("{{", from);
  if (tag.begin == kNone) return tag;
  const std::size_t close = text.find("}}", tag.begin);
  if (close == kNone) throw std::logic_error("a tag of a template is not closed");
  tag.name = text.substr(tag.begin + 2, close - tag.begin - 2);
  tag.end = close + 2;
  if (tag.name.find_first_of("#^/>") != 0) return tag;
  tag.sign = tag.name.front();
  tag.name.remove_prefix(1);
  const bool begins_line = tag.begin == 0 || text[tag.begin - 1] == '\n';
  if (begins_line && text.substr(tag.end).starts_with('\n')) ++tag.end;
  return tag;
}

class Filling {
 public:
  Filling(const Json& data, const std::function<std::string_view(std::string_view)>& file)
      : m_file(file), m_scopes({&data}) {}

  void fill(std::string_view text) {
    for (std::size_t at = 0;;) {
      const Tag tag = next_tag(text, at);
      m_result.append(text.substr(at, tag.begin - at));
      if (tag.begin == kNone) return;
      at = tag.end;
      if (tag.sign == '>') {
        fill(m_file(tag.name));
      } else if (tag.sign == ' ') {
        append_value(tag.name);
      } else {
        const Tag close = end_of(text, tag);
        section(tag, text.substr(tag.end, close.begin - tag.end));
        at = close.end;
      }
    }
  }
  std::string result() && { return std::move(m_result); }

 private:
  static Tag end_of(std::string_view text, const Tag& begin) {
    int depth = 1;
    for (Tag tag = next_tag(text, begin.end); tag.begin != kNone; tag = next_tag(text, tag.end)) {
      if (tag.name != begin.name || tag.sign == ' ' || tag.sign == '>') continue;
      depth += tag.sign == '/' ? -1 : 1;
      if (depth == 0) return tag;
    }
    throw std::logic_error("the section " + std::string(begin.name) +
                           " of a template is not closed");
  }

  void section(const Tag& tag, std::string_view inner) {
    const Json* const value = find(tag.name);
    const bool is_there = value != nullptr && !value->is_empty();
    if (tag.sign == '^') {
      if (!is_there) fill(inner);
      return;
    }
    if (!is_there) return;
    if (!value->is_array()) return fill_in(*value, inner);
    for (const Json& each : value->items()) fill_in(each, inner);
  }

  void fill_in(const Json& scope, std::string_view inner) {
    m_scopes.push_back(&scope);
    fill(inner);
    m_scopes.pop_back();
  }

  const Json* find(std::string_view name) const {
    for (auto scope = m_scopes.rbegin(); scope != m_scopes.rend(); ++scope) {
      const Json* const found = (*scope)->is_object() ? (*scope)->find(name) : nullptr;
      if (found != nullptr) return found;
    }
    return nullptr;
  }

  void append_value(std::string_view name) {
    const Json* const value = find(name);
    if (value == nullptr) throw std::logic_error("no field " + std::string(name));
    m_result += value->is_text() ? html(value->text()) : value->dump();
  }

  const std::function<std::string_view(std::string_view)>& m_file;
  std::vector<const Json*> m_scopes;  ///< the innermost last
  std::string m_result;
};

}  // namespace

std::string filled(std::string_view text, const Json& data,
                   const std::function<std::string_view(std::string_view)>& file) {
  Filling filling(data, file);
  filling.fill(text);
  return std::move(filling).result();
}

std::string html(std::string_view bytes) {
  std::string text;
  for (const char c : admin::printable(bytes)) {
    switch (c) {
      case '<': text += "&lt;"; break;
      case '>': text += "&gt;"; break;
      case '&': text += "&amp;"; break;
      case '"': text += "&quot;"; break;
      default: text += c;
    }
  }
  return text;
}

}  // namespace stgctl
