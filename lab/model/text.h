#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// @file
/// The rules that are pure text (docs/formats.md), written a second time: plainly, byte by byte,
/// without anything of the library. Slow on purpose where the rule is simpler to read that way.
namespace model {

using Map = std::map<std::string, std::string>;
using Pair = std::pair<std::string, std::string>;
using Pairs = std::vector<Pair>;

// ---- entries of an index -----------------------------------------------------------------------

/// A number as a 32-bit reader of decimals takes it: blanks, a sign, digits; it stops at the ends.
std::int32_t number(const std::string& text);

std::string key(const std::string& logical, std::int32_t stamp);
/// Of a key of eleven characters at least.
std::string logical_of(const std::string& key);
std::int32_t stamp_of(const std::string& key);

/// Behind the last dot; with the dot, or without it. Empty when there is none.
std::string extension_with_dot(const std::string& name);
std::string extension(const std::string& name);

/// The file that an entry stands for.
std::string file_of(const std::string& key, const std::string& stored);

/// The pairs of key and stored name that a text of an index holds, whatever files there are.
Pairs index_pairs(const std::string& text);

/// The lines of these entries.
std::string index_text(const Map& entries);

// ---- names -------------------------------------------------------------------------------------

bool is_escaped(const std::string& name);
std::string unescaped(const std::string& name);

/// The name behind the last dot in small ASCII letters.
std::string with_small_extension(const std::string& name);

std::int32_t hash(const std::string& name, std::int32_t modulus);
std::string bucket(const std::string& name);
bool is_document(const std::string& bare_extension);

// ---- key files ---------------------------------------------------------------------------------

Pairs key_pairs(const std::string& text, bool last_separator);
std::string key_text(const Pairs& pairs);
/// Takes the line away that holds the first occurrence; false without one.
bool cut_line(std::string& text, const std::string& what);

// ---- the list of read mails --------------------------------------------------------------------

/// The name that a line makes up; empty when it makes none.
std::string mail_name(const std::string& line);
/// Every line of a text under its name; of two with one name the first.
Map mail_lines(const std::string& text);
/// The line with its second field decoded.
std::string mail_line_unescaped(const std::string& line);

// ---- lines of any file -------------------------------------------------------------------------

std::vector<std::string> lines_not_empty(const std::string& text);

}  // namespace model
