#pragma once

#include <string>
#include <string_view>

#include "index/index_state.h"
#include "vu_file.h"

/// Saves a changed index: reads index.dat again, merges, and replaces the text. Then it removes the
/// files of the entries that the change has replaced.
///
/// If index.dat cannot be opened for writing, a warning is traced; if the system refuses to write,
/// an error. Then the change is lost: the files that the operation created are orphans, and entries
/// whose files it removed are dangling. @p state tells afterwards: IndexState::is_saved().
/// @param index the instance's closed handle of index.dat; it is closed again afterwards.
/// @throws vu_file_except if index.dat cannot be read to its end, and any exception of reading or
/// merging; nothing has been written then. An exception of a removal is thrown at the end.
void save_index(vu_file& index, IndexState& state);

/// Traces an error that names an unknown entry.
void report_unknown_line(const std::string& folder, std::string_view key, std::string_view stored);
/// The same for the first unknown entries of an index, and the number of the others.
void report_unknown_lines(const IndexReading& reading, const std::string& folder);
