#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_format.h"
#include "index/index_state.h"
#include "vu_file.h"

/// What a save has done.
struct Saved {
  bool is_written = false;  ///< index.dat contains the entries, and they are on the device
  /// The keys, in order, of new entries whose files a clean has swept and the save could not create
  /// again.
  std::vector<std::string> withdrawn;
  std::exception_ptr raised;  ///< the first exception of a removal, after the text was written
};

/// Saves a changed index: reads index.dat again, merges, and replaces the text. Then it removes the
/// files of the entries that the change has replaced.
///
/// If index.dat cannot be opened for writing, a warning is traced; if the system refuses to write,
/// an error. Then the change is lost: the files that the operation created are orphans, and entries
/// whose files it removed are dangling.
/// @param index the instance's closed handle of index.dat; it is closed again afterwards.
/// @throws vu_file_except if index.dat cannot be read to its end, and any exception of reading or
/// merging; nothing has been written then.
Saved save_index(vu_file& index, IndexState& state);

/// Receives what the instances of the calling thread save while it exists: a destructor returns
/// nothing. Of several saves the last one counts; of nested objects the innermost one receives it.
///
///     const SaveWatch watch;
///     STGIndex::updateIndexFile(folder);
///     if (watch.has_failed()) ...
///
/// Errors: none. Threads: the object stays in its block, on the thread that constructed it.
class SaveWatch {
 public:
  SaveWatch() noexcept;
  ~SaveWatch();
  SaveWatch(const SaveWatch&) = delete;
  SaveWatch& operator=(const SaveWatch&) = delete;

  /// Whether a save began and did not write. False if there was none.
  bool has_failed() const { return m_has_begun && !m_saved.is_written; }
  /// Whether the save has withdrawn this entry.
  bool has_withdrawn(std::string_view logical, std::int32_t timestamp) const {
    const std::vector<std::string>& all = m_saved.withdrawn;
    return !all.empty() &&
           std::binary_search(all.begin(), all.end(), index_format::key_of(logical, timestamp));
  }

  /// The instance calls it before its save, with nothing, and after it.
  static void note(Saved saved) noexcept;

 private:
  Saved m_saved;
  bool m_has_begun = false;
  SaveWatch* m_before;
};

/// Traces an error that names an unknown entry.
void report_unknown_line(const std::string& folder, std::string_view key, std::string_view stored);
/// The same for the first unknown entries of an index, and the number of the others.
void report_unknown_lines(const IndexReading& reading, const std::string& folder);
