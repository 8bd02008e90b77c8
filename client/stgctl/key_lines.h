#pragma once

#include <string>
#include <string_view>

/// @file
/// Key files as text: lines "key=value", each ended by a carriage return, a line feed or a tab.
namespace stgctl {

enum class KeyEdit { kChanged, kUnchanged };

/// Gives a key a value: in its first line, while its other lines go, or in a new line at the end.
/// What is no line of the key stays as it is, to the byte.
KeyEdit set_key(std::string& text, std::string_view key, std::string_view value);
/// Removes every line of a key.
KeyEdit unset_key(std::string& text, std::string_view key);

}  // namespace stgctl
