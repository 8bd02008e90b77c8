#pragma once

#include <string_view>

/// Removes the next non-empty line from the front of @p rest. A line is the text before a line
/// feed, without one carriage return at its end, or all text after the last line feed.
/// @return false if there is no line; @p rest is empty then.
bool next_line(std::string_view& rest, std::string_view& line);
