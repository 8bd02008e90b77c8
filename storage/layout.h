#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// @file
/// The layout of a storage tree on disk, as pure text: what the facade builds its paths from, and
/// what a reader that must not ask the facade finds its way by (docs/formats.md).
namespace layout {

inline constexpr std::string_view kStorageFolder = "storage";
/// The owner folder of an empty owner name.
inline constexpr std::string_view kNoOwner = "_";
/// Corporate documents are spread over this many hash values (and their negatives).
inline constexpr std::int32_t kBuckets = 101;
/// In each folder of a kind of rendition: copies of parts made ahead of time.
inline constexpr std::string_view kPreloadFolder = "preload";

/// The hash of a logical name, by which its bucket is chosen.
inline std::int32_t hash_of(std::string_view name, std::int32_t modulus) {
  const std::int32_t m = modulus >= 1 ? modulus : kBuckets;
  const auto as_signed = [](char c) {
    return static_cast<std::int32_t>(static_cast<signed char>(c));
  };

  if (name.empty()) return 0;
  // Required: the first byte is not reduced, and no step makes a negative remainder positive.
  std::int32_t h = as_signed(name.front());
  for (const char c : name.substr(1)) {
    // Unsigned, where a product too large wraps by definition.
    const auto sum = static_cast<std::uint32_t>(as_signed(c)) + 31U * static_cast<std::uint32_t>(h);
    h = static_cast<std::int32_t>(sum) % m;
  }
  return h;
}

/// The hash bucket's name: the bits of a negative hash read as a large number. Required: it is part
/// of the layout on disk.
inline std::string bucket_name(std::int32_t hash) {
  char text[15] = {};
  std::snprintf(text, sizeof text, "%.8u", static_cast<unsigned int>(hash));
  return text;
}

/// The folder below which a document's parts are kept.
inline std::string root_of_parts(const std::string& document, const std::string& stamp) {
  return document + "_" + stamp;
}

/// The folder of a rendition's kind below the root of the parts (empty: the root itself), and the
/// folder of the rendition in it.
struct RenditionFolders {
  std::string of_type;
  std::string of_parts;
};

// Required: only these two kinds are split at their "@", while writing splits every selector.
// Another one that holds an "@" is written in two folders and looked for in one.
inline RenditionFolders folders_to_read(const std::string& selector) {
  if (selector.starts_with("html@")) return {"html", selector.substr(5)};
  if (selector.starts_with("pdf@")) return {"pdf", selector.substr(4)};
  return {"", selector};
}

}  // namespace layout
