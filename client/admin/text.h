#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// @file
/// Names are bytes. What is needed to show and to compare them.
namespace admin {

bool is_utf8(std::string_view bytes);

/// The bytes as UTF-8: what is no UTF-8 becomes U+FFFD, byte by byte.
std::string to_utf8(std::string_view bytes);

/// to_utf8() for a terminal: control characters become U+FFFD as well.
std::string printable(std::string_view bytes);

/// Two lower-case digits per byte.
std::string to_hex(std::string_view bytes);

/// The name with its letters in lower case, so that names which a case-blind file system takes for
/// one are equal: ASCII, Latin-1, Latin Extended-A, Greek and Cyrillic letters.
void fold_case(std::string_view name, std::string& folded);

/// Whether fold_case() can change anything: an upper-case ASCII letter or a byte beyond ASCII.
bool has_case(std::string_view name);

/// "2024-05-01 07:09:59", in UTC. @param seconds since 1970.
std::string format_time(std::int64_t seconds);

/// Why a file of this name cannot be kept on every system; null when it can.
const char* why_not_portable(std::string_view name);

/// Why the library would be led astray by this logical name or owner, which it takes as part of a
/// path; null when it would not.
const char* why_not_safe(std::string_view name);

/// The text of a shell pattern: "*" any run of characters, "?" one character in UTF-8. Letter case
/// counts.
bool matches(std::string_view pattern, std::string_view name);

}  // namespace admin
