#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "index/folder_files.h"
#include "index/index_format.h"

/// @file
/// The one reader of an index: from its text to lines, and to what each line is worth in its
/// folder. The library's operations and the client's checks, explanations and repairs all read an
/// index with it. It traces nothing and changes nothing.

/// What a line is worth.
enum class LineState : std::uint8_t {
  kValid,    ///< its file is there
  kMissing,  ///< its file is not there: the line is passed over, and not written back
  kUnknown,  ///< the system does not tell: a question passes it over, a save keeps it
  kNone,     ///< no entry, whatever the folder holds: a short key, or no "/" of its own
};

/// A line, as views of the text.
struct IndexLine {
  std::string_view key;
  std::string_view stored;
  LineState state = LineState::kNone;
  bool runs_on = false;        ///< see index_format::Line
  bool has_extension = false;  ///< its file bears the stored name and the logical name's extension
  std::size_t entry = FolderFiles::kNone;  ///< the file's place in the listing, if it shows it
};

/// Reads the lines of a text in order.
///
///   IndexReader reader(text, files);
///   IndexLine line;
///   while (reader.next(line)) ...
class IndexReader {
 public:
  /// @param text, files must outlive this object.
  IndexReader(std::string_view text, FolderFiles& files) : m_lines(text), m_files(files) {}

  /// The next line, or false at the end.
  bool next(IndexLine& line);

 private:
  /// So many lines are looked up at once, so that the processor waits for its memory once for all.
  static constexpr std::size_t kTogether = 16;

  /// The last answer about a line that runs on.
  struct RunningOn {
    std::size_t separator = std::string_view::npos;
    std::size_t extension_length = 0;
    LineState state = LineState::kNone;
  };

  void read_some();
  void judge_running_on(IndexLine& line, std::size_t separator);

  index_format::Lines m_lines;
  FolderFiles& m_files;
  std::array<IndexLine, kTogether> m_some;
  std::size_t m_count = 0;
  std::size_t m_next = 0;
  std::array<std::string, kTogether> m_candidates;
  RunningOn m_last_running_on;
};

/// What a single line is worth, by the listing of @p files.
LineState state_by_listing(std::string_view key, std::string_view stored, FolderFiles& files);
/// The same, asked of the system without a listing.
LineState state_by_probing(std::string_view key, std::string_view stored, FolderFiles& files);

/// The text of an index as it was read, and its lines that are valid, missing or not known. The
/// lines are views of the text, so it is neither copied nor moved.
struct IndexReading {
  /// Reads a text in its folder.
  IndexReading(std::string index_text, FolderFiles& files);
  IndexReading(const IndexReading&) = delete;
  IndexReading& operator=(const IndexReading&) = delete;

  const std::string text;
  std::vector<IndexLine> lines;  ///< in the order of the text
  bool ascending = true;         ///< the valid ones by key, so that each key occurs once
  std::size_t missing = 0;       ///< so many lines are
  std::size_t unknown = 0;
};
