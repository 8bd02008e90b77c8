#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "index/index_state.h"
#include "vu_file.h"

/// What became of a save.
enum class Saved : std::uint8_t {
  kYes,         ///< index.dat holds the entries of this instance
  kNotOpened,   ///< index.dat could not be opened for writing: the change is lost, with a warning
  kNotWritten,  ///< the system refused to write: the change is lost, with an error
};

/// Writes a changed index back: reads what index.dat holds by now, merges, and replaces the text.
/// Then it removes the files of the entries that the change has replaced.
/// @param index the instance's handle of index.dat, closed; it is closed again afterwards.
/// @throws vu_file_except when index.dat cannot be read to its end, and whatever else reading and
/// merging raise. Nothing has been written then.
Saved save_index(vu_file& index, IndexState& state);

/// Traces an error for a line of which the system does not tell whether its file is there.
void report_unknown_line(const std::string& folder, std::string_view key, std::string_view stored);
/// The same for the first ones of an index, and how many more there are.
void report_unknown_lines(const IndexReading& reading, const std::string& folder);
