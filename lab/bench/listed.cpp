#include "lab/bench/listed.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "lab/bench/bare.h"

namespace bench {
namespace {

constexpr std::size_t kBuffer = std::size_t{1} << 16U;
/// The position of the name in a record, after inode, offset, record length and type.
constexpr std::size_t kNameAt = offsetof(dirent64, d_name);

/// Multiplies and folds eight bytes at a time.
std::uint64_t hash_of(const char* bytes, std::size_t size) {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
  std::uint64_t hash = size;
  for (; size >= sizeof(std::uint64_t); size -= sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    hash = std::rotl((hash ^ word) * kFactor, 29);
    bytes += sizeof word;
  }
  std::uint64_t rest = 0;
  std::memcpy(&rest, bytes, size);
  hash = (hash ^ rest) * kFactor;
  return hash ^ hash >> 32U;
}

}  // namespace

Listed::Listed(const std::string& folder) {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) bare::broken("cannot list", folder);
  std::size_t used = 0;
  for (;;) {
    m_records.resize(used + kBuffer);
    const ::ssize_t count = ::getdents64(descriptor, m_records.data() + used, kBuffer);
    if (count < 0) bare::broken("cannot list", folder);
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  ::close(descriptor);

  const auto each = [&](auto visit) {
    for (std::size_t at = 0; at < used;) {
      const char* const record = m_records.data() + at;
      std::uint16_t length = 0;
      std::memcpy(&length, record + offsetof(dirent64, d_reclen), sizeof length);
      const char* const name = record + kNameAt;
      const bool is_itself = name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
      if (!is_itself) visit(name);
      at += length;
    }
  };
  each([&](const char*) { ++m_size; });
  m_slots.resize(std::bit_ceil(m_size * 2 + 1));
  each([&](const char* name) { enter(name, std::strlen(name)); });
}

std::vector<std::string_view> Listed::names() const {
  std::vector<std::string_view> result;
  result.reserve(m_size);
  for (const Name& name : m_slots) {
    if (name.bytes != nullptr) result.emplace_back(name.bytes, name.size);
  }
  return result;
}

void Listed::enter(const char* name, std::size_t size) {
  const std::uint64_t hash = hash_of(name, size);
  const std::size_t mask = m_slots.size() - 1;
  std::size_t slot = hash & mask;
  while (m_slots[slot].bytes != nullptr) slot = (slot + 1) & mask;
  m_slots[slot] = {name, static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(hash >> 32U)};
}

bool Listed::contains(std::string_view stored, std::string_view extension) const {
  std::array<char, 256> name;
  const std::size_t size = stored.size() + extension.size();
  if (size > name.size()) return false;
  std::copy(extension.begin(), extension.end(),
            std::copy(stored.begin(), stored.end(), name.begin()));
  const std::uint64_t hash = hash_of(name.data(), size);
  const std::size_t mask = m_slots.size() - 1;
  for (std::size_t slot = hash & mask; m_slots[slot].bytes != nullptr; slot = (slot + 1) & mask) {
    const Name& found = m_slots[slot];
    if (found.tag == static_cast<std::uint32_t>(hash >> 32U) && found.size == size &&
        std::memcmp(found.bytes, name.data(), size) == 0)
      return true;
  }
  return false;
}

}  // namespace bench
