#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "index/index_state.h"
#include "vu_file.h"

/// The result of a save.
enum class Saved : std::uint8_t {
  kYes,         ///< index.dat contains the entries of this instance
  kNotOpened,   ///< index.dat cannot be opened for writing: the change is lost, a warning is traced
  kNotWritten,  ///< the system refuses to write: the change is lost, an error is traced
};

/// Saves a changed index: reads index.dat again, merges, and replaces the text. Then it removes the
/// files of the entries that the change has replaced. If the change is lost, the files that the
/// operation created are orphans, and entries whose files it removed are dangling.
/// @param index the instance's closed handle of index.dat; it is closed again afterwards.
/// @throws vu_file_except if index.dat cannot be read to its end, and any exception of reading or
/// merging; nothing has been written then. An exception of a removal is thrown at the end.
Saved save_index(vu_file& index, IndexState& state);

/// Traces an error that names an unknown entry.
void report_unknown_line(const std::string& folder, std::string_view key, std::string_view stored);
/// The same for the first unknown entries of an index, and the number of the others.
void report_unknown_lines(const IndexReading& reading, const std::string& folder);
