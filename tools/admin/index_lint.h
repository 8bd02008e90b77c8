#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_format.h"
#include "tools/admin/folder_view.h"
#include "tools/admin/name_table.h"

namespace admin {

/// What the library's reader makes of a line of "index.dat".
enum class Verdict : std::uint8_t {
  kEntry,         ///< an entry of the folder
  kNoSeparator,   ///< no "/": passed over
  kShortKey,      ///< the key has no room for a timestamp: passed over
  kNoFile,        ///< neither the physical name nor that with the extension exists: passed over
  kDuplicateKey,  ///< an earlier line has the key: passed over
};

/// "entry", "no-separator", ...
std::string_view name_of(Verdict verdict);

/// One line, with views into the folder's view and into the walk: good until its next step.
struct IndexLine {
  std::size_t number = 0;  ///< from 1
  std::string_view raw;    ///< without its line feed
  std::string_view key;
  std::string_view logical;
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name as the line has it
  Verdict verdict = Verdict::kEntry;
  bool has_odd_stamp = false;  ///< what ends the key is not "_" and ten digits
  /// Of kEntry: the name of its file in the folder, and where the listing has it (FolderView::kNone
  /// when the name leads to a file that is listed differently).
  std::string_view file;
  std::uint32_t listed = FolderView::kNone;
  /// Valid lines may still name no file: the reader accepts the physical name alone, where the
  /// entry's file would be that with the extension.
  bool has_file = false;
  std::size_t same_stored_as = 0;  ///< the earlier line with this physical name, or 0
  std::size_t same_key_as = 0;     ///< the earlier line with this key, or 0
};

/// Walks the lines of a folder's index by the rules of the library's reader, in one pass and with
/// memory for one folder.
class IndexLint {
 public:
  IndexLint() = default;

  /// Begins with the folder that the view has loaded.
  void start(const FolderView& view);
  /// The next line, valid or not; false at the end.
  bool next(IndexLine& line);

  /// After the walk: whether a line was met whose file this name of the listing is.
  bool is_claimed(std::uint32_t listed) const { return m_claimed[listed]; }
  /// Lines whose keys do not ascend, as the writer's do.
  std::size_t unordered_lines() const { return m_unordered; }

 private:
  bool next_after_separators(IndexLine& line);
  void judge(IndexLine& line, const index_format::Line& parsed);
  bool find_file(IndexLine& line, bool runs_on);
  bool probe(std::string_view name);
  void collect_keys_before(std::size_t number);
  void note_key(IndexLine& line);

  const FolderView* m_view = nullptr;
  index_format::Lines m_lines{std::string_view()};
  std::size_t m_number = 0;
  std::size_t m_at = 0;  ///< where the next line begins
  bool m_in_tail = false;
  bool m_keys_ascend = true;
  std::size_t m_unordered = 0;
  std::string_view m_last_key;
  std::string m_file;
  std::vector<bool> m_claimed;
  NameTable m_stored;
  NameTable m_keys;
};

}  // namespace admin
