#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "vu_i18n.h"

/// Opens the trace scope of an operation of the file layer, at the level that all of them have. The
/// arguments are the pieces of the label, if the operation has one. The scope is vu_trace_scope, as
/// with VU_TRACE_SCOPE; the members of the handles pass it to HandleCore.
#define VU_FILE_SCOPE(...) VU_TRACE_SCOPE("vu_file", vu_host::trace_level::xl, __VA_ARGS__)

/// Removes the next non-empty line from the front of @p rest. A line is the text before a line
/// feed, without one carriage return at its end, or all text after the last line feed.
/// @return false if there is no line; @p rest is empty then.
bool next_line(std::string_view& rest, std::string_view& line);

/// Functions that the UTF-8 operations share.
namespace vu_file_internal {

/// The long form of a path, for the wide system calls. Separators become single backslashes. A path
/// beyond the classic length limit becomes its short name on the volume; if there is none, it gets
/// the prefix "\\?\".
ucs2string getLongPath(const ucs2string& path);

/// The same for a UTF-8 path, in UTF-8.
vu_utf8string long_form(const vu_utf8string& path);

/// The path with backslashes only, if it begins with one separator or with a drive and a separator.
/// Empty for every other path.
std::u16string absolute_form(const ucs2string& path);

/// Describes a file or folder. Backslashes at the end are ignored, except that of a root.
/// @param alreadyLong whether @p path is in its long form.
/// @param folder where the last component is looked up, see os::Path::in().
/// @return false after a warning if it is missing, and after an error on any other failure.
bool getFileStat(const vu_utf8string& path, os::FileStat& result, bool alreadyLong,
                 os::Links links = os::Links::kFollow, os::Handle folder = os::kNoHandle);

/// The system's text for an error, never empty.
std::string system_error_text(std::int32_t code);

}  // namespace vu_file_internal
