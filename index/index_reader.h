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

/// Reads the lines of a text in order, and judges each by the folder.
///
///   IndexReader reader(text, files);
///   IndexLine line;
///   while (reader.next(line)) ...
///
/// Order of calls: next() until it says false, or next_lines() until it gives none, and not both.
/// Errors: none, whatever the text holds; what the system does not tell is LineState::kUnknown.
/// Only memory that runs out raises. Threads: one at a time, as with the FolderFiles that it asks.
class IndexReader {
 public:
  /// @param text, files must outlive this object.
  /// @param from where a line begins.
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
  /// The next lines, as many as are judged together; none at the end. They are valid until the next
  /// call. Not to be mixed with the other one.
  std::span<const IndexLine> next_lines();

 private:
  /// So many lines are looked up at once, so that the processor waits for its memory once for all.
  static constexpr std::size_t kTogether = 16;

  /// The name of a line's file, which is in no text as it is. Few are longer than what needs no
  /// memory of its own.
  struct FileName {
    std::array<char, 64> bytes;
    std::string longer;
  };

  /// The last answer about a line that runs on.
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

/// What a single line is worth, by the listing of @p files.
LineState state_by_listing(std::string_view key, std::string_view stored, FolderFiles& files);
/// A line as it stands in a text, asked of the system without a listing.
LineState state_by_probing(const index_format::Line& line, FolderFiles& files);
/// The same for a line of which the text is of no account.
LineState state_by_probing(std::string_view key, std::string_view stored, FolderFiles& files);

/// The text of an index as it was read, and its lines that are valid, missing or not known. The
/// lines are views of the text, so it is neither copied nor moved.
///
/// Order of calls: the construction reads everything; then the fields, and revise() for a line
/// whose file has come or gone since. Errors as with IndexReader. Threads: any number may read it
/// while none revises.
struct IndexReading {
  /// Reads a text in its folder. The text must outlive this object.
  IndexReading(std::string_view index_text, FolderFiles& files);
  /// Reads a text of which most lines stood in an earlier one, too: a line that was valid then is
  /// valid still. The other ones are judged as the folder is now, and so are those whose files the
  /// listing of that time does not show.
  /// @param before in ascending order, without lines that run on. Where this text has such a line,
  /// the reading ends, and any_runs_on says so.
  /// @param changed files of the listing of that time whose lines are judged again.
  IndexReading(std::string_view index_text, FolderFiles& files, const IndexReading& before,
               const std::set<std::size_t>& changed);
  IndexReading(const IndexReading&) = delete;
  IndexReading& operator=(const IndexReading&) = delete;

  /// Gives a valid line of this reading the state that it has by now.
  void revise(IndexLine& line, LineState state);

  const std::string_view text;
  std::vector<IndexLine> lines;  ///< in the order of the text
  bool ascending = true;         ///< the valid ones by key, so that each key occurs once
  bool any_runs_on = false;      ///< some line does, be it an entry or none
  std::size_t missing = 0;       ///< so many lines are
  std::size_t unknown = 0;
  bool is_listed = true;  ///< lines were judged by a listing, and not each by itself

 private:
  std::size_t likely_lines(FolderFiles& files) const;
  std::size_t read_plain_lines(FolderFiles& files);
  void count(const IndexLine& line);

  std::string_view m_last_key;
};

/// The entries of a reading: its valid lines by their keys, of each key the first one. Where the
/// text is in order these are the reading's own lines, and nothing is copied.
class EntriesByKey {
 public:
  /// @param reading must outlive this object, and not change.
  explicit EntriesByKey(const IndexReading& reading);
  EntriesByKey(const EntriesByKey&) = delete;
  EntriesByKey& operator=(const EntriesByKey&) = delete;

  std::span<const IndexLine> get() const { return m_entries; }

 private:
  std::vector<IndexLine> m_sorted;
  std::span<const IndexLine> m_entries;
};
