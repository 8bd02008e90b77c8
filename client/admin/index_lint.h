#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/name_table.h"
#include "index/index_reader.h"

namespace admin {

/// What the library's reader makes of a line of "index.dat".
enum class Verdict : std::uint8_t {
  kEntry,         ///< an entry of the folder
  kNoSeparator,   ///< no "/": passed over
  kShortKey,      ///< the key has no room for a timestamp: passed over
  kNoFile,        ///< neither the physical name nor that with the extension exists: passed over
  kDuplicateKey,  ///< an earlier line has the key: passed over
  kUnknown,       ///< the system does not tell whether its file is there: passed over, but kept
};

/// "entry", "no-separator", ...
std::string_view name_of(Verdict verdict);
/// Whether a line of this verdict says nothing, so that an index may do without it.
inline bool is_bad(Verdict verdict) {
  return verdict != Verdict::kEntry && verdict != Verdict::kUnknown;
}

/// One line, with views into the folder's view and into the walk: good until its next step.
struct LintedLine {
  std::size_t number = 0;  ///< from 1
  std::string_view raw;    ///< without its line feed
  std::string_view key;
  std::string_view logical;
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name as the line has it
  Verdict verdict = Verdict::kEntry;
  bool has_odd_stamp = false;  ///< what ends the key is not "_" and ten digits
  /// The line is what zeros have left of several ones, whatever readers make of it: no name holds a
  /// zero.
  bool has_zeros = false;
  /// The name of the entry's file, and where the listing has it (FolderView::kNone when the name
  /// leads to a file that is listed differently).
  std::string_view file;
  std::uint32_t listed = FolderView::kNone;
  /// Of kEntry: the line counts by its physical name with or without the extension, and only one
  /// of the two is the entry's file.
  bool has_file = false;
  std::size_t same_stored_as = 0;  ///< the earlier line with this physical name, or 0
  std::size_t same_key_as = 0;     ///< the earlier line with this key, or 0
};

/// Walks the lines of a folder's index in one pass and with memory for one folder. What a line is
/// worth is what the library's reader says; this class adds what only a look at the file as such
/// needs.
class IndexLint {
 public:
  /// Begins with the folder that the view has loaded.
  void start(const FolderView& view);
  /// The next line, valid or not; false at the end. Blanks behind the last line say nothing.
  bool next(LintedLine& line);

  /// After the walk: whether a line was met that counts because of this name of the listing.
  bool is_claimed(std::uint32_t listed) const { return m_claimed[listed]; }
  /// Lines whose keys do not ascend, as the writer's do.
  std::size_t unordered_lines() const { return m_unordered; }
  /// Lines of the verdict kUnknown.
  std::size_t unknown_lines() const { return m_unknown; }

 private:
  void judge(LintedLine& line, const IndexLine& read);
  void note_order(const IndexLine& read);
  void find_file(LintedLine& line, const IndexLine& read);
  void note_entry(LintedLine& line, const IndexLine& read);

  const FolderView* m_view = nullptr;
  std::optional<IndexReader> m_reader;
  std::size_t m_number = 0;
  std::size_t m_at = 0;  ///< where the next line begins
  std::size_t m_unordered = 0;
  std::size_t m_unknown = 0;
  std::string_view m_last_key;
  std::string m_file;
  std::vector<bool> m_claimed;
  NameTable m_stored;
  NameTable m_keys;
};

}  // namespace admin
