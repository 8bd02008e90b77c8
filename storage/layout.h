#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "index/numbers.h"

/// The layout of a storage tree on disk, as pure text (docs/formats.md). vu_storage and the reader
/// of the client build their paths with it.
namespace layout {

inline constexpr std::string_view kStorageFolder = "storage";
/// The owner folder of an empty owner name.
inline constexpr std::string_view kNoOwner = "_";
/// The modulus of the hash that selects a document's bucket.
inline constexpr std::int32_t kBuckets = 101;
/// The folder, below each kind of rendition, for copies of sub-parts made ahead of time.
inline constexpr std::string_view kPreloadFolder = "preload";

/// The hash of a logical name. A @p modulus below 1 means kBuckets.
inline std::int32_t hash_of(std::string_view name, std::int32_t modulus) {
  const std::int32_t m = modulus >= 1 ? modulus : kBuckets;
  const auto as_signed = [](char c) {
    return static_cast<std::int32_t>(static_cast<signed char>(c));
  };

  if (name.empty()) return 0;
  // Required: the first byte is not reduced, and a negative remainder stays negative.
  std::int32_t h = as_signed(name.front());
  for (const char c : name.substr(1)) {
    // Unsigned arithmetic: its overflow is defined.
    const auto sum = static_cast<std::uint32_t>(as_signed(c)) + 31U * static_cast<std::uint32_t>(h);
    h = static_cast<std::int32_t>(sum) % m;
  }
  return h;
}

/// The name of a hash's bucket. A negative hash is read as a large unsigned number. Required: the
/// name is part of the layout on disk.
inline std::string bucket_name(std::int32_t hash) {
  constexpr std::size_t kDigits = 8;
  std::string name;
  append_padded(name, static_cast<std::uint32_t>(hash), kDigits);
  return name;
}

/// The folder that contains a document's sub-parts.
inline std::string root_of_parts(const std::string& document, const std::string& stamp) {
  return document + "_" + stamp;
}

/// The folder of a rendition's kind, relative to the root of the parts (empty: the root itself).
/// Then the folder of the rendition, relative to that of its kind.
struct RenditionFolders {
  std::string of_type;
  std::string of_parts;
};

// Required: reading splits only these two kinds at their "@", while writing splits every selector.
// Example: writing "x@n" uses the folder x\n, reading it uses the folder x@n.
inline RenditionFolders folders_to_read(const std::string& selector) {
  if (selector.starts_with("html@")) return {"html", selector.substr(5)};
  if (selector.starts_with("pdf@")) return {"pdf", selector.substr(4)};
  return {"", selector};
}

}  // namespace layout
