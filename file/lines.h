#pragma once

#include <string_view>

/// Takes the next non-empty line off the front of @p rest: the text before a line feed, less one
/// carriage return at its end, or what follows the last line feed as it stands.
/// @return false, with @p rest empty, when there is none.
bool next_line(std::string_view& rest, std::string_view& line);
