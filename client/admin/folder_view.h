#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/system.h"
#include "client/admin/tree.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_reader.h"
#include "index/name_index.h"

namespace admin {

class LockedFile;

/// The result of reading a folder's index.
enum class IndexState : std::uint8_t {
  kMissing,
  kRead,
  kNoBytes,  ///< empty or only zeros: a writer was interrupted (a save writes at least one blank)
  kLocked,   ///< another process had it locked until the time-out
  kFailed,   ///< could not be read, see index_status()
};

struct Name {
  std::string_view text;
  sys::Kind kind = sys::Kind::kMissing;
};

/// The content of a document folder at one moment: its names and the text of its index. Use one
/// object for many folders: it keeps its memory.
class FolderView {
 public:
  FolderView() = default;
  FolderView(const FolderView&) = delete;
  FolderView& operator=(const FolderView&) = delete;

  /// Reads the index, then lists the folder. This is the library's order: a file that is created in
  /// between seems to be an orphan, but no entry seems to be dangling.
  void load(const DocumentFolder& folder, const sys::Locking& locking);

  /// The same with an index that the caller has locked. If it is locked for changing, the call
  /// completes an interrupted save. @return the status of reading it, or of the listing.
  os::Status load_locked(const DocumentFolder& folder, LockedFile& index);

  /// Only lists the folder, as if it had no index. @return the status of the listing.
  const os::Status& list(const std::string& folder);

  const DocumentFolder& folder() const { return m_folder; }
  /// The status of the listing.
  const os::Status& status() const { return m_status; }
  IndexState index_state() const { return m_index_state; }
  const os::Status& index_status() const { return m_index_status; }
  /// The valid text of the index; after an interrupted save, the new text.
  std::string_view index_text() const { return m_index_text; }
  /// All bytes of the index file.
  const std::string& index_bytes() const { return m_index_bytes; }
  /// Whether an interrupted save waits for completion by the next writer.
  bool has_interrupted_save() const { return m_has_interrupted_save; }

  /// All items of the folder, also the index and the counter, in the system's order.
  std::span<const Name> names() const { return m_names; }
  static constexpr auto kNone = static_cast<std::uint32_t>(FolderFiles::kNone);
  /// The position of a name in names(), compared byte by byte; or kNone.
  std::uint32_t find(std::string_view name) const {
    return m_files ? static_cast<std::uint32_t>(m_files->spelled(name)) : kNone;
  }

  /// The kind of a listed name; kMissing if it is not listed.
  sys::Kind kind_of(std::string_view name) const {
    const std::uint32_t at = find(name);
    return at == kNone ? sys::Kind::kMissing : m_names[at].kind;
  }

  /// The file to which a sub-part folder belongs: the longest file name that precedes one of the
  /// folder name's underscores; or kNone.
  std::uint32_t document_of(std::string_view parts) const;

  /// The same names for the library's index reader. It asks the system for names that are missing
  /// here.
  FolderFiles& files() const { return *m_files; }

  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }

  /// Reads the counter; nothing if it is missing or cannot be read.
  std::optional<std::string> read_counter(const sys::Locking& locking) const;

 private:
  void read_index(const sys::Locking& locking);
  void take_text();
  const os::Status& read_names();

  DocumentFolder m_folder;
  os::Status m_status;
  IndexState m_index_state = IndexState::kMissing;
  os::Status m_index_status;
  std::string m_index_bytes;
  std::string m_saved_text;       ///< the new text of an interrupted save
  std::string_view m_index_text;  ///< a view of one of the two
  bool m_has_interrupted_save = false;
  std::unique_ptr<FolderFiles> m_files;
  std::vector<Name> m_names;  ///< views of m_files
};

// ---- the lines of its index --------------------------------------------------------------------

/// Whether a name is that of an entry's file, or of a sub-part folder of it. The file need not
/// exist. Reads the whole index.
bool belongs_to_entry(const FolderView& folder, std::string_view name);

/// Whether a key ends in "_" and ten digits. It must have at least index_format::kStampLength
/// characters.
bool has_stamp(std::string_view key);

/// Remembers the first line with each text. The caller keeps the bytes.
class FirstLines {
 public:
  /// @return the first line with the text; @p line if the text is new.
  std::size_t insert(std::string_view text, std::size_t line) {
    const std::uint64_t hash = m_index.ask(text);
    const std::size_t found =
        m_index.find(text, hash, [this](std::size_t at) { return m_texts[at].first; });
    if (found != NameIndex::kNone) return m_texts[found].second;
    m_index.add(hash, m_texts.size());
    m_texts.emplace_back(text, line);
    return line;
  }

 private:
  NameIndex m_index;
  std::vector<std::pair<std::string_view, std::size_t>> m_texts;
};

/// How the library's reader treats a line of the index.
enum class Verdict : std::uint8_t {
  kEntry,         ///< a valid entry
  kNoSeparator,   ///< no "/": skipped
  kShortKey,      ///< the key is too short for a timestamp: skipped
  kNoFile,        ///< dangling: no file has the physical name, with or without extension
  kDuplicateKey,  ///< an earlier line has the key: skipped
  kUnknown,       ///< unknown entry: skipped, but a save keeps it
};

constexpr std::string_view name_of(Verdict verdict) {
  return word_of(verdict,
                 {"entry", "no-separator", "short-key", "no-file", "duplicate-key", "unknown"});
}
/// Whether a save drops a line with this verdict.
inline bool is_bad(Verdict verdict) {
  return verdict != Verdict::kEntry && verdict != Verdict::kUnknown;
}

/// One line. The views are valid until the next line; those of the index text and of listed names
/// as long as the FolderView.
struct LintedLine {
  std::size_t number = 0;  ///< from 1
  std::string_view raw;    ///< without its line feed
  std::string_view key;
  std::string_view logical;
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name
  Verdict verdict = Verdict::kEntry;
  bool has_odd_stamp = false;  ///< the key does not end in "_" and ten digits
  /// The line contains zeros: it is damaged, whatever the verdict, because no name contains zeros.
  bool has_zeros = false;
  /// The name of the entry's file, and its position in the listing. The position is
  /// FolderView::kNone if the file is listed under another spelling.
  std::string_view file;
  std::uint32_t listed = FolderView::kNone;
  /// Of kEntry: whether readers find the file. An entry is valid if a file exists with or without
  /// the extension, but readers open only one of the two.
  bool has_file = false;
  std::size_t same_stored_as = 0;  ///< an earlier line with this physical name, or 0
  std::size_t same_key_as = 0;     ///< an earlier line with this key, or 0

  bool is_blank() const { return raw.find_first_not_of(' ') == std::string_view::npos; }
};

/// Reads the lines of a folder's index in one pass, valid or not. Blanks after the last line are
/// ignored. The library's reader decides whether an entry is valid; this class adds what only a
/// check needs.
///
///   IndexLint lint(view);
///   for (const LintedLine& line : lint) ...
class IndexLint {
 public:
  explicit IndexLint(const FolderView& view);
  IndexLint(const IndexLint&) = delete;
  IndexLint& operator=(const IndexLint&) = delete;

  class Iterator {
   public:
    explicit Iterator(IndexLint& lint) : m_lint(lint) { ++*this; }
    const LintedLine& operator*() const { return m_lint.m_line; }
    Iterator& operator++() {
      m_has_line = m_lint.next();
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return !m_has_line; }

   private:
    IndexLint& m_lint;
    bool m_has_line = false;
  };
  /// To be called once.
  Iterator begin() { return Iterator(*this); }
  static std::default_sentinel_t end() { return {}; }

  /// After the last line: whether this name of the listing makes an entry valid, or is its file.
  bool is_claimed(std::uint32_t listed) const { return m_claimed[listed]; }
  /// The number of lines whose key is not greater than the one before.
  std::size_t unordered_lines() const { return m_unordered; }
  /// The number of lines with the verdict kUnknown.
  std::size_t unknown_lines() const { return m_unknown; }

 private:
  bool next();
  void judge(const IndexLine& read);
  void note_order(const IndexLine& read);
  void find_file(const IndexLine& read);
  void note_entry(const IndexLine& read);

  const FolderView& m_view;
  IndexReader m_reader;
  LintedLine m_line;
  std::size_t m_number = 0;
  std::size_t m_at = 0;  ///< start of the next line
  std::size_t m_unordered = 0;
  std::size_t m_unknown = 0;
  std::string_view m_last_key;
  std::string m_file;
  std::vector<bool> m_claimed;
  FirstLines m_stored;
  FirstLines m_keys;
};

}  // namespace admin
