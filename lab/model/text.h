#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// @file
/// The rules for pure text (docs/formats.md), written a second time, byte by byte and without the
/// library. Some are slow, because a slow rule can be simpler to read.
namespace model {

using Map = std::map<std::string, std::string>;
using Pair = std::pair<std::string, std::string>;
using Pairs = std::vector<Pair>;

// ---- entries of an index -----------------------------------------------------------------------

/// A number as a 32-bit decimal parser reads it: blanks, a sign, digits, within its limits.
std::int32_t number(const std::string& text);

std::string key(const std::string& logical, std::int32_t stamp);
/// @param key at least eleven characters.
std::string logical_of(const std::string& key);
std::int32_t stamp_of(const std::string& key);

/// The text after the last dot, with the dot or without it. Empty if there is no dot.
std::string extension_with_dot(const std::string& name);
std::string extension(const std::string& name);

/// The file of an entry.
std::string file_of(const std::string& key, const std::string& stored);

/// The pairs of key and stored name in the text of an index, whether their files exist or not.
Pairs index_pairs(const std::string& text);

/// The index text of these entries.
std::string index_text(const Map& entries);

// ---- names -------------------------------------------------------------------------------------

bool is_escaped(const std::string& name);
std::string unescaped(const std::string& name);

/// The name with the text after its last dot in lower case (ASCII).
std::string with_small_extension(const std::string& name);

std::int32_t hash(const std::string& name, std::int32_t modulus);
std::string bucket(const std::string& name);
bool is_document(const std::string& bare_extension);

// ---- key files ---------------------------------------------------------------------------------

Pairs key_pairs(const std::string& text, bool last_separator);
std::string key_text(const Pairs& pairs);
/// Removes the line with the first occurrence. @return false if there is none.
bool cut_line(std::string& text, const std::string& what);

// ---- the list of read mails --------------------------------------------------------------------

/// The mail name in a line; empty if the line contains none.
std::string mail_name(const std::string& line);
/// The lines of a text by name; of two with the same name the first.
Map mail_lines(const std::string& text);
/// The line with its second field unescaped.
std::string mail_line_unescaped(const std::string& line);

// ---- lines of any file -------------------------------------------------------------------------

std::vector<std::string> lines_not_empty(const std::string& text);

}  // namespace model
