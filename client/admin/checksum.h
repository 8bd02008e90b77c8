#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace admin {

/// The checksum of bytes that come in pieces: XXH3 of 128 bits. It finds damage, not forgery.
class Checksum {
 public:
  Checksum();
  ~Checksum();
  Checksum(Checksum&&) noexcept;
  Checksum& operator=(Checksum&&) noexcept;

  void add(std::string_view bytes);
  /// Of what was added so far: 32 lower-case hexadecimal digits.
  std::string text() const;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

/// Of a text as a whole.
std::string checksum_of(std::string_view bytes);

}  // namespace admin
