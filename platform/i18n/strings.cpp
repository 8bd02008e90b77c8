#include <utf8.h>

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "vu_i18n.h"

namespace {

/// The texts are passed by value: either may be the text that changes.
template <class Text>
void replace_all(Text& text, Text what, Text by) {
  if (what.empty()) return;
  for (auto at = text.find(what); at != Text::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

/// Copies the leading ASCII characters of a text, which are the same in both forms, and returns
/// where the others begin. Nearly all texts are ASCII only.
template <class From, class To>
typename From::const_iterator assign_ascii(const From& from, To& to) {
  const auto is_other = [](auto unit) {
    return static_cast<std::make_unsigned_t<decltype(unit)>>(unit) >= 0x80;
  };
  const auto others = std::find_if(from.begin(), from.end(), is_other);
  to.assign(from.begin(), others);
  return others;
}

[[noreturn]] void throw_index_error() { throw vu_i18n_except("string index out of range"); }

}  // namespace

vu_i18n_except::vu_i18n_except(std::string message) : m_message(std::move(message)) {}
vu_i18n_except::vu_i18n_except(const vu_i18n_except&) = default;
vu_i18n_except& vu_i18n_except::operator=(const vu_i18n_except&) = default;
vu_i18n_except::~vu_i18n_except() = default;

const char* vu_i18n_except::what() const noexcept { return m_message.c_str(); }

// ---- UTF-8 -------------------------------------------------------------------------------------

vu_utf8string::vu_utf8string() = default;
vu_utf8string::vu_utf8string(const char* bytes) : m_bytes(bytes != nullptr ? bytes : "") {}
vu_utf8string::vu_utf8string(std::string bytes) : m_bytes(std::move(bytes)) {}
vu_utf8string::vu_utf8string(const vu_utf8string&) = default;
vu_utf8string::vu_utf8string(vu_utf8string&&) noexcept = default;
vu_utf8string::~vu_utf8string() = default;
vu_utf8string& vu_utf8string::operator=(const vu_utf8string&) = default;
vu_utf8string& vu_utf8string::operator=(vu_utf8string&&) noexcept = default;

vu_utf8string::vu_utf8string(const ucs2string& text) {
  try {
    const auto others = assign_ascii(text.str(), m_bytes);
    utf8::utf16to8(others, text.str().end(), std::back_inserter(m_bytes));
  } catch (const utf8::exception&) {
    throw vu_i18n_except("text is not valid UTF-16");
  }
}

const char* vu_utf8string::c_str() const noexcept { return m_bytes.c_str(); }
const std::string& vu_utf8string::str() const noexcept { return m_bytes; }
std::size_t vu_utf8string::size() const noexcept { return m_bytes.size(); }
bool vu_utf8string::empty() const noexcept { return m_bytes.empty(); }

char vu_utf8string::at(std::size_t index) const {
  if (index >= m_bytes.size()) throw_index_error();
  return m_bytes[index];
}

std::size_t vu_utf8string::find(const vu_utf8string& what, std::size_t from) const noexcept {
  return m_bytes.find(what.m_bytes, from);
}

std::size_t vu_utf8string::rfind(const vu_utf8string& what) const noexcept {
  return m_bytes.rfind(what.m_bytes);
}

vu_utf8string vu_utf8string::substr(std::size_t from, std::size_t count) const {
  if (from > m_bytes.size()) throw_index_error();
  return vu_utf8string(m_bytes.substr(from, count));
}

vu_utf8string& vu_utf8string::replace(const vu_utf8string& what, const vu_utf8string& by) {
  replace_all(m_bytes, what.m_bytes, by.m_bytes);
  return *this;
}

int vu_utf8string::compare(const vu_utf8string& other) const noexcept {
  return m_bytes.compare(other.m_bytes);
}

vu_utf8string& vu_utf8string::operator+=(const vu_utf8string& other) {
  m_bytes += other.m_bytes;
  return *this;
}

bool vu_utf8string::is_valid() const noexcept {
  return utf8::is_valid(m_bytes.begin(), m_bytes.end());
}

vu_utf8string operator+(const vu_utf8string& left, const vu_utf8string& right) {
  return vu_utf8string(left.str() + right.str());
}

// ---- UTF-16: the twin of the above, with other units and conversions --------------------------

ucs2string::ucs2string() = default;
ucs2string::ucs2string(const char16_t* units) : m_units(units != nullptr ? units : u"") {}
ucs2string::ucs2string(std::u16string units) : m_units(std::move(units)) {}
ucs2string::ucs2string(const ucs2string&) = default;
ucs2string::ucs2string(ucs2string&&) noexcept = default;
ucs2string::~ucs2string() = default;
ucs2string& ucs2string::operator=(const ucs2string&) = default;
ucs2string& ucs2string::operator=(ucs2string&&) noexcept = default;

ucs2string::ucs2string(const vu_utf8string& text) {
  try {
    const auto others = assign_ascii(text.str(), m_units);
    utf8::utf8to16(others, text.str().end(), std::back_inserter(m_units));
  } catch (const utf8::exception&) {
    throw vu_i18n_except("text is not valid UTF-8");
  }
}

const char16_t* ucs2string::c_str() const noexcept { return m_units.c_str(); }
const std::u16string& ucs2string::str() const noexcept { return m_units; }
std::size_t ucs2string::size() const noexcept { return m_units.size(); }
bool ucs2string::empty() const noexcept { return m_units.empty(); }

char16_t ucs2string::at(std::size_t index) const {
  if (index >= m_units.size()) throw_index_error();
  return m_units[index];
}

std::size_t ucs2string::find(const ucs2string& what, std::size_t from) const noexcept {
  return m_units.find(what.m_units, from);
}

std::size_t ucs2string::rfind(const ucs2string& what) const noexcept {
  return m_units.rfind(what.m_units);
}

ucs2string ucs2string::substr(std::size_t from, std::size_t count) const {
  if (from > m_units.size()) throw_index_error();
  return m_units.substr(from, count);
}

ucs2string& ucs2string::replace(const ucs2string& what, const ucs2string& by) {
  replace_all(m_units, what.m_units, by.m_units);
  return *this;
}

int ucs2string::compare(const ucs2string& other) const noexcept {
  return m_units.compare(other.m_units);
}

ucs2string& ucs2string::operator+=(const ucs2string& other) {
  m_units += other.m_units;
  return *this;
}

ucs2string operator+(const ucs2string& left, const ucs2string& right) {
  return left.str() + right.str();
}
