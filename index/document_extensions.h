#pragma once

#include <algorithm>
#include <array>
#include <string_view>

/// The extensions of documents, without their dot.
inline constexpr std::array<std::string_view, 7> kDocumentExtensions = {"kdg", "kdb", "kda", "kdd",
                                                                        "kdc", "kdf", "kde"};

inline bool is_document_extension(std::string_view extension) {
  return std::find(kDocumentExtensions.begin(), kDocumentExtensions.end(), extension) !=
         kDocumentExtensions.end();
}
