#pragma once

#include <cstddef>
#include <exception>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "vu_export.h"

VU_STORAGE_TYPES_BEGIN

/// @file
/// The string classes of the library's interface: UTF-8 text, UTF-16 text, and the sequence that
/// carries lists of them.
///
/// All of them are value types: copies are independent.

class ucs2string;

/// The exception of the string classes: a text to convert is not valid UTF-8 or UTF-16, or an index
/// is outside a string. The file layer and the facade let it pass where a conversion happens
/// outside their own handlers.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API vu_i18n_except : public std::exception {
 public:
  /// @param message the complete text; copied.
  explicit vu_i18n_except(std::string message);
  /// An independent copy.
  /// @param other what is copied.
  vu_i18n_except(const vu_i18n_except& other);
  /// Copies the text.
  /// @param other what is copied.
  /// @return this exception.
  vu_i18n_except& operator=(const vu_i18n_except& other);
  /// Frees the text.
  ~vu_i18n_except() override;

  /// @return the text given at construction; owned by the exception.
  const char* what() const noexcept override;

 private:
  std::string m_message;
};

/// Text as UTF-8 bytes. The bytes are stored unchanged and unchecked: a string that is not valid
/// UTF-8 can be stored, compared and passed on. Only a conversion to UTF-16 checks the encoding.
/// Positions and sizes count bytes.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API vu_utf8string {
 public:
  /// "No position", the result of a search that found nothing and the default count of substr().
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  /// The empty string.
  vu_utf8string();
  /// @param bytes a NUL-terminated UTF-8 string; copied. A null pointer is the empty string.
  explicit vu_utf8string(const char* bytes);
  /// @param bytes UTF-8 bytes, embedded NULs included; copied.
  explicit vu_utf8string(std::string bytes);
  /// Converts from UTF-16.
  /// @param text UTF-16; copied.
  /// @throws vu_i18n_except when @p text contains an unpaired surrogate.
  explicit vu_utf8string(const ucs2string& text);
  /// An independent copy.
  /// @param other what is copied.
  vu_utf8string(const vu_utf8string& other);
  /// Moves the text.
  /// @param other is valid afterwards, with an unspecified text.
  vu_utf8string(vu_utf8string&& other) noexcept;
  /// Frees the text.
  ~vu_utf8string();
  /// Copies the text.
  /// @param other what is copied.
  /// @return this string.
  vu_utf8string& operator=(const vu_utf8string& other);
  /// Moves the text.
  /// @param other is valid afterwards, with an unspecified text.
  /// @return this string.
  vu_utf8string& operator=(vu_utf8string&& other) noexcept;

  /// @return the bytes, NUL-terminated; owned by this string and valid until it changes.
  const char* c_str() const noexcept;
  /// @return the bytes; valid as long as this string.
  const std::string& str() const noexcept;
  /// @return the number of bytes.
  std::size_t size() const noexcept;
  /// @return whether the string is empty.
  bool empty() const noexcept;
  /// @param index a position, counted from 0.
  /// @return the byte at @p index.
  /// @throws vu_i18n_except when @p index is not below size().
  char at(std::size_t index) const;

  /// @param what the text to find; an empty one is found at @p from, but not beyond the end.
  /// @param from where the search begins.
  /// @return the first position at or after @p from where @p what begins, or npos.
  std::size_t find(const vu_utf8string& what, std::size_t from = 0) const noexcept;
  /// @param what the text to find; an empty one is found at the end.
  /// @return the last position where @p what begins, or npos.
  std::size_t rfind(const vu_utf8string& what) const noexcept;
  /// @param from the first position.
  /// @param count the greatest length.
  /// @return at most @p count bytes (ucs2string: units) from @p from on; fewer at the end.
  /// @throws vu_i18n_except when @p from is beyond the end.
  vu_utf8string substr(std::size_t from, std::size_t count = npos) const;
  /// Replaces every occurrence of @p what by @p by, from left to right. The inserted text is not
  /// searched again. An empty @p what replaces nothing.
  /// @param what the text to replace.
  /// @param by the new text.
  /// @return this string.
  vu_utf8string& replace(const vu_utf8string& what, const vu_utf8string& by);
  /// Byte-wise comparison.
  /// @param other the string compared with.
  /// @return negative, 0 or positive: this string sorts before, with or after @p other.
  int compare(const vu_utf8string& other) const noexcept;
  /// Appends @p other.
  /// @param other the text appended.
  /// @return this string.
  vu_utf8string& operator+=(const vu_utf8string& other);

  /// @return whether the bytes are valid UTF-8.
  bool is_valid() const noexcept;

 private:
  std::string m_bytes;
};

/// @param left the first text.
/// @param right the second text.
/// @return @p left followed by @p right.
/// @blocking{no} @threads{any, while none changes either text}
VU_STORAGE_API vu_utf8string operator+(const vu_utf8string& left, const vu_utf8string& right);
/// Byte-wise equality.
/// @param left,right the texts.
/// @return whether they are equal.
/// @blocking{no} @threads{any, while none changes either text}
inline bool operator==(const vu_utf8string& left, const vu_utf8string& right) noexcept {
  return left.compare(right) == 0;
}
/// Byte-wise inequality.
/// @param left,right the texts.
/// @return whether they differ.
/// @blocking{no} @threads{any, while none changes either text}
inline bool operator!=(const vu_utf8string& left, const vu_utf8string& right) noexcept {
  return left.compare(right) != 0;
}
/// Byte-wise order.
/// @param left,right the texts.
/// @return whether @p left sorts before @p right.
/// @blocking{no} @threads{any, while none changes either text}
inline bool operator<(const vu_utf8string& left, const vu_utf8string& right) noexcept {
  return left.compare(right) < 0;
}

/// Text as 16-bit units of UTF-16, the form of names in Windows: the twin of vu_utf8string. A
/// character outside the basic plane is two units. Positions and sizes count units.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API ucs2string {
 public:
  /// "No position", the result of a search that found nothing and the default count of substr().
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  /// The empty string.
  ucs2string();
  /// @param units NUL-terminated units; copied. A null pointer is the empty string.
  ucs2string(const char16_t* units);
  /// @param units the units, embedded NULs included; copied.
  ucs2string(std::u16string units);
  /// Converts from UTF-8.
  /// @param text UTF-8; copied.
  /// @throws vu_i18n_except when @p text is not valid UTF-8.
  explicit ucs2string(const vu_utf8string& text);
  /// @copydoc vu_utf8string::vu_utf8string(const vu_utf8string&)
  ucs2string(const ucs2string& other);
  /// @copydoc vu_utf8string::vu_utf8string(vu_utf8string&&)
  ucs2string(ucs2string&& other) noexcept;
  /// Frees the text.
  ~ucs2string();
  /// @copydoc vu_utf8string::operator=(const vu_utf8string&)
  ucs2string& operator=(const ucs2string& other);
  /// @copydoc vu_utf8string::operator=(vu_utf8string&&)
  ucs2string& operator=(ucs2string&& other) noexcept;

  /// @return the units, NUL-terminated; owned by this string and valid until it changes.
  const char16_t* c_str() const noexcept;
  /// @return the units; valid as long as this string.
  const std::u16string& str() const noexcept;
  /// @return the number of 16-bit units.
  std::size_t size() const noexcept;
  /// @return whether the string is empty.
  bool empty() const noexcept;
  /// @param index a position, counted from 0.
  /// @return the unit at @p index.
  /// @throws vu_i18n_except when @p index is not below size().
  char16_t at(std::size_t index) const;

  /// @copydoc vu_utf8string::find
  std::size_t find(const ucs2string& what, std::size_t from = 0) const noexcept;
  /// @copydoc vu_utf8string::rfind
  std::size_t rfind(const ucs2string& what) const noexcept;
  /// @copydoc vu_utf8string::substr
  ucs2string substr(std::size_t from, std::size_t count = npos) const;
  /// @copydoc vu_utf8string::replace
  ucs2string& replace(const ucs2string& what, const ucs2string& by);
  /// Unit-wise comparison.
  /// @param other the string compared with.
  /// @return negative, 0 or positive: this string sorts before, with or after @p other.
  int compare(const ucs2string& other) const noexcept;
  /// @copydoc vu_utf8string::operator+=
  ucs2string& operator+=(const ucs2string& other);

 private:
  std::u16string m_units;
};

/// @copydoc operator+(const vu_utf8string&, const vu_utf8string&)
VU_STORAGE_API ucs2string operator+(const ucs2string& left, const ucs2string& right);
/// @copydoc operator==(const vu_utf8string&, const vu_utf8string&)
inline bool operator==(const ucs2string& left, const ucs2string& right) noexcept {
  return left.compare(right) == 0;
}
/// @copydoc operator!=(const vu_utf8string&, const vu_utf8string&)
inline bool operator!=(const ucs2string& left, const ucs2string& right) noexcept {
  return left.compare(right) != 0;
}
/// @copydoc operator<(const vu_utf8string&, const vu_utf8string&)
inline bool operator<(const ucs2string& left, const ucs2string& right) noexcept {
  return left.compare(right) < 0;
}

/// An ordered sequence, read by index from 0 to size() - 1.
/// @tparam T the type of the elements, a value type.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
template <class T>
class Sequence {
 public:
  /// The type of an element.
  using value_type = T;
  /// A position; reading only.
  using const_iterator = typename std::vector<T>::const_iterator;

  /// The empty sequence.
  Sequence() = default;
  /// @param elements the elements in their order.
  Sequence(std::initializer_list<T> elements) : m_elements(elements) {}

  /// @return the number of elements.
  std::size_t size() const noexcept { return m_elements.size(); }
  /// @return whether there is no element.
  bool empty() const noexcept { return m_elements.empty(); }
  /// @param index from 0.
  /// @return the element at @p index, which must be below size().
  const T& operator[](std::size_t index) const { return m_elements[index]; }
  /// @param index from 0.
  /// @return the element at @p index, which must be below size().
  T& operator[](std::size_t index) { return m_elements[index]; }
  /// Appends @p element.
  /// @param element copied or moved in.
  void push_back(T element) { m_elements.push_back(std::move(element)); }
  /// Removes every element.
  void clear() noexcept { m_elements.clear(); }
  /// @return the first position.
  const_iterator begin() const noexcept { return m_elements.begin(); }
  /// @return the position past the last element.
  const_iterator end() const noexcept { return m_elements.end(); }

 private:
  std::vector<T> m_elements;
};

VU_STORAGE_TYPES_END
