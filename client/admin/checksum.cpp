#include "client/admin/checksum.h"

#include <xxhash.h>

#include "client/admin/text.h"

namespace admin {

namespace {

std::string text_of(const XXH128_hash_t& hash) {
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, hash);
  return to_hex({reinterpret_cast<const char*>(canonical.digest), sizeof canonical.digest});
}

}  // namespace

struct Checksum::State {
  XXH3_state_t value;
};

Checksum::Checksum() : m_state(std::make_unique<State>()) { XXH3_128bits_reset(&m_state->value); }
Checksum::~Checksum() = default;
Checksum::Checksum(Checksum&&) noexcept = default;
Checksum& Checksum::operator=(Checksum&&) noexcept = default;

void Checksum::add(std::string_view bytes) {
  XXH3_128bits_update(&m_state->value, bytes.data(), bytes.size());
}

std::string Checksum::text() const { return text_of(XXH3_128bits_digest(&m_state->value)); }

std::string checksum_of(std::string_view bytes) {
  return text_of(XXH3_128bits(bytes.data(), bytes.size()));
}

}  // namespace admin
