#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "client/stgctl/json.h"

namespace stgctl {

/// A file of the folders report/ and completion/, which are built into the program (embed.cmake).
/// @throws std::logic_error for a name that none bears.
std::string_view embedded_file(std::string_view name);

/// Fills a template with the fields of an object. In the template
///
///     {{name}}                 is the field's value, as text for HTML
///     {{#name}}...{{/name}}    stands once for each element of a list, with its fields; for any
///                              other value once, and not at all for null, false, "" and a field
///                              that is not there
///     {{^name}}...{{/name}}    stands where the other form does not
///     {{>name}}                is another template, which @p file gives
///
/// Fields are looked for in the innermost element first, then outwards. A tag that stands in a line
/// by itself takes the line away with it. @throws std::logic_error for a template that is none.
std::string filled(std::string_view text, const Json& data,
                   const std::function<std::string_view(std::string_view name)>& file);

/// Bytes as text for HTML: what is no UTF-8 and control characters become U+FFFD.
std::string html(std::string_view bytes);

}  // namespace stgctl
