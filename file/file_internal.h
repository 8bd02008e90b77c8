#pragma once

#include <cstdint>
#include <string>

#include "platform/os/os.h"
#include "vu_i18n.h"

/// What the UTF-8 operations share.
namespace vu_file_internal {

/// The form in which a path goes to the wide system calls: separators made uniform and single, and
/// beyond the classic length limit the short names of the volume or, without them, the prefix
/// "\\?\".
ucs2string getLongPath(const ucs2string& path);

/// The same for a UTF-8 path, in UTF-8.
vu_utf8string long_form(const vu_utf8string& path);

/// A path that begins with one separator, or with a drive and a separator, with backslashes alone;
/// empty for every other path.
std::u16string absolute_form(const ucs2string& path);

/// Describes a file or folder; backslashes at the end of the path do not count, but for a root's
/// own.
/// @param alreadyLong whether @p path is in its long form.
/// @param folder what the last component is looked up in, see os::Path::in().
/// @return false after a warning when it is missing, after an error on any other failure.
bool getFileStat(const vu_utf8string& path, os::FileStat& result, bool alreadyLong,
                 os::Links links = os::Links::kFollow, os::Handle folder = os::kNoHandle);

/// The system's text for an error, never empty.
std::string system_error_text(std::int32_t code);

}  // namespace vu_file_internal
