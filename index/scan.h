#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define VU_INDEX_SCAN_BY_16
#endif

/// @file
/// Searches and comparisons within the lines of an index: many bytes at a time, without a call.
namespace scan {

/// A search may read this number of bytes after its end; their values do not matter.
inline constexpr std::size_t kBehind = 16;

/// The first position from @p at on and before @p last that contains one of two characters, or
/// null. kBehind bytes from @p last on must be readable.
inline const char* first_of(const char* at, const char* last, char one, char other) {
#if defined(VU_INDEX_SCAN_BY_16)
  const __m128i ones = _mm_set1_epi8(one);
  const __m128i others = _mm_set1_epi8(other);
  for (; at < last; at += sizeof(__m128i)) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i found = _mm_or_si128(_mm_cmpeq_epi8(bytes, ones), _mm_cmpeq_epi8(bytes, others));
    const auto places = static_cast<unsigned>(_mm_movemask_epi8(found));
    if (places == 0) continue;
    at += std::countr_zero(places);
    return at < last ? at : nullptr;
  }
  return nullptr;
#else
  at = std::find_if(at, last, [&](char found) { return found == one || found == other; });
  return at < last ? at : nullptr;
#endif
}

/// Like one < other for std::string.
inline bool stands_before(std::string_view one, std::string_view other) {
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  const std::size_t size = std::min(one.size(), other.size());
  std::size_t at = 0;
  for (; size - at >= kWord; at += kWord) {
    std::uint64_t words[2];
    std::memcpy(&words[0], one.data() + at, kWord);
    std::memcpy(&words[1], other.data() + at, kWord);
    const std::uint64_t bits = words[0] ^ words[1];
    if (bits == 0) continue;
    constexpr bool kLowFirst = std::endian::native == std::endian::little;
    const auto place =
        static_cast<std::size_t>(kLowFirst ? std::countr_zero(bits) : std::countl_zero(bits)) / 8;
    return static_cast<unsigned char>(one[at + place]) <
           static_cast<unsigned char>(other[at + place]);
  }
  return one.substr(at) < other.substr(at);
}

}  // namespace scan
