#pragma once

#include <exception>
#include <optional>
#include <string>

#include "file/handle_core.h"
#include "index/index_format.h"
#include "platform/host/trace.h"
#include "vu_file.h"
#include "vu_file_except.h"

class IndexState;

/// The source name of the index's traces.
inline constexpr const char* kIndexSource = "stg_index";

using index_format::kCounterFile;
using index_format::kIndexFile;

/// The text of the exception that is being handled. Destructors call it while they are unwound, so
/// it never throws: without memory the text is another one.
inline std::string text_of_current_exception() noexcept {
  try {
    try {
      throw;
    } catch (const vu_file_except& e) {
      return e.what();
    } catch (const std::exception& e) {
      return e.what();
    } catch (...) {
      return "unknown exception";
    }
  } catch (...) {
    return "out of memory";  // so short that it needs none
  }
}

/// Opens index.dat for reading and reads all of it; returns nothing if it does not exist. The
/// handle stays open and keeps the shared lock until the caller closes it.
/// @param index the handle of index.dat in @p folder. A missing folder is traced as an error.
/// @throws vu_file_except if index.dat is not missing and cannot be opened or read.
std::optional<FileText> read_index(vu_file& index, const std::string& folder);

/// Draws the next number of a folder's counter as the physical name of a new file: STGIndex's
/// newIndex(). It skips the names that the index uses.
/// @param own_extension null, or the file's extension: then names of files that exist are skipped,
/// too, and a counter that cannot be used is an exception instead of kTroubleName.
/// @throws the exception of the counter's handle if a lock limit has passed, or with @p
/// own_extension.
/// @param operation the scope of the caller's records.
std::string draw_name(IndexState& state, const std::string* own_extension,
                      const trace::Scope& operation);
