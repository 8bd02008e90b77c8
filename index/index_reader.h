#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "index/folder_files.h"
#include "index/index_format.h"

/// @file
/// The one reader of an index. It splits a text into lines and judges each line by its folder. The
/// library's operations and the client's checks, explanations and repairs use it. It traces nothing
/// and changes nothing.

/// The state of a line in its folder.
enum class LineState : std::uint8_t {
  kValid,    ///< a valid entry
  kMissing,  ///< a dangling entry
  kUnknown,  ///< an unknown entry
  kNone,     ///< not an entry: the key is too short, or the line runs on and no file has its name
};

/// A line. Its texts are views of the text of the index.
struct IndexLine {
  std::string_view key;
  std::string_view stored;  ///< the physical name
  LineState state = LineState::kNone;
  bool runs_on = false;        ///< see index_format::Line
  bool has_extension = false;  ///< the file's name is the physical name with an extension
  std::size_t file = FolderFiles::kNone;  ///< the file's position in the listing, if it is there
};

/// Reads the lines of a text in order, and judges each one by the folder.
///
///   IndexReader reader(text, files);
///   IndexLine line;
///   while (reader.next(line)) ...
///
/// Order of calls: next() until it returns false, or next_lines() until it returns none. Do not mix
/// them. Errors: none, whatever the text contains; a file that the system cannot check makes the
/// line LineState::kUnknown. The only exception is std::bad_alloc. Threads: one at a time, the
/// FolderFiles included.
class IndexReader {
 public:
  /// @param text, files must outlive this object.
  /// @param from the start of a line.
  IndexReader(std::string_view text, FolderFiles& files, std::size_t from = 0)
      : m_text(text), m_lines(text, from), m_files(files) {}

  /// The next line, or false at the end.
  bool next(IndexLine& line) {
    if (m_left.empty()) m_left = next_lines();
    if (m_left.empty()) return false;
    line = m_left.front();
    m_left = m_left.subspan(1);
    return true;
  }
  /// The next lines, judged together; none at the end. They are valid until the next call.
  std::span<const IndexLine> next_lines();

 private:
  /// The number of lines that are looked up together, so that the processor waits for memory once.
  static constexpr std::size_t kTogether = 16;

  /// Room for the file name of a line. Few names are longer than `bytes`.
  struct FileName {
    std::array<char, 64> bytes;
    std::string longer;
  };

  /// The last result for a line that runs on.
  struct RunningOn {
    std::size_t separator = std::string_view::npos;
    std::size_t extension_length = 0;
    LineState state = LineState::kNone;
  };

  std::string_view file_name(FileName& room, std::string_view stored, std::string_view extension);
  void judge_running_on(IndexLine& line);

  std::string_view m_text;
  index_format::Lines m_lines;
  FolderFiles& m_files;
  std::array<IndexLine, kTogether> m_some;
  std::span<const IndexLine> m_left;
  std::array<FileName, kTogether> m_names;
  RunningOn m_last_running_on;
};

/// Judges a single line by the listing of @p files.
LineState state_by_listing(std::string_view key, std::string_view stored, FolderFiles& files);
/// Judges a line of a text by checking single names, without a listing.
LineState state_by_probing(const index_format::Line& line, FolderFiles& files);
/// The same for a line that does not run on.
LineState state_by_probing(std::string_view key, std::string_view stored, FolderFiles& files);

/// The text of an index and its lines, except for those that are not entries. The lines are views
/// of the text. The object cannot be copied or moved.
///
/// Order of calls: the constructor reads everything. Then use the fields, and call revise() for a
/// valid line whose file is gone or will be removed. Errors: as with IndexReader. Threads: any
/// number may read it while none calls revise().
struct IndexReading {
  /// Reads a text in its folder. The text must outlive this object.
  IndexReading(std::string_view index_text, FolderFiles& files);
  /// Reads a text that has most lines in common with an earlier reading. A line that was valid then
  /// stays valid if the earlier listing shows its file. All other lines are judged by the folder as
  /// it is now.
  /// @param before the earlier reading. If the new text has a line that runs on, the reading ends
  /// there and sets any_runs_on.
  /// @param changed positions in the earlier listing: lines of these files are judged again.
  IndexReading(std::string_view index_text, FolderFiles& files, const IndexReading& before,
               const FileSet& changed);
  IndexReading(const IndexReading&) = delete;
  IndexReading& operator=(const IndexReading&) = delete;

  /// Sets the new state of a line that was valid.
  void revise(IndexLine& line, LineState state);

  const std::string_view text;
  std::vector<IndexLine> lines;  ///< in the order of the text
  bool ascending = true;         ///< the valid lines are in order of their keys, each key once
  bool any_runs_on = false;      ///< at least one line runs on, entry or not
  std::size_t missing = 0;       ///< the number of dangling entries
  std::size_t unknown = 0;       ///< the number of unknown entries
  bool is_listed = true;         ///< lines were judged by a listing, not one by one

 private:
  std::size_t likely_lines(FolderFiles& files) const;
  std::size_t read_plain_lines(FolderFiles& files);
  void count(const IndexLine& line);

  std::string_view m_last_key;
};

/// The valid lines of a reading by their keys; of each key the first one. If the text is in order,
/// these are the reading's own lines, and nothing is copied.
class EntriesByKey {
 public:
  /// @param reading must outlive this object and must not change.
  explicit EntriesByKey(const IndexReading& reading);
  EntriesByKey(const EntriesByKey&) = delete;
  EntriesByKey& operator=(const EntriesByKey&) = delete;

  std::span<const IndexLine> get() const { return m_entries; }

 private:
  std::vector<IndexLine> m_sorted;
  std::span<const IndexLine> m_entries;
};
