#pragma once

#include <functional>

#include "client/stgctl/json.h"

namespace stgctl {

/// A file of the folders report/ and completion/, which are built into the program (embed.cmake).
/// @throws std::logic_error for an unknown name.
std::string_view embedded_file(std::string_view name);

/// Fills a template with the fields of an object. In the template
///
///     {{name}}                 is the field's value, as text for HTML
///     {{#name}}...{{/name}}    appears once for each element of a list, with its fields. For any
///                              other value it appears once; not for null, false, "" or a missing
///                              field
///     {{^name}}...{{/name}}    appears where the other form does not
///     {{>name}}                is another template, which @p file returns
///
/// Fields are searched in the innermost element first, then outwards. A line that contains only a
/// tag is removed. @throws std::logic_error for a template that is not valid.
std::string filled(std::string_view text, const Json& data,
                   const std::function<std::string_view(std::string_view name)>& file);

/// Bytes as text for HTML. Invalid UTF-8 and control characters become U+FFFD.
std::string html(std::string_view bytes);

}  // namespace stgctl
