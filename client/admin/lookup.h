#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/explain.h"
#include "client/admin/folder_view.h"

namespace admin {

/// What a missing folder means for the request.
enum class MissingFolder : std::uint8_t { kEndsIt, kWouldBeMade };

/// The steps that reads, writes and sub-parts share. Each returns whether to continue.
class Steps {
 public:
  Steps(const Tree& tree, const Request& request, const sys::Locking& locking, Explanation& result)
      : m_tree(tree), m_request(request), m_locking(locking), m_result(result) {}

  using Values = std::vector<std::pair<std::string, std::string>>;
  bool yes(std::string name, std::string text, Values values = {});
  bool no(std::string name, std::string text, Values values = {});
  void note(std::string name, std::string text, Values values = {});

  /// Whether the entry's name is not empty.
  bool entry_is_named();
  /// Whether the folders of the area, the owner and the bucket exist.
  bool folders(MissingFolder missing);
  /// Looks up the entry as the library does: first a file with its name, then the index.
  bool lookup(std::int32_t timestamp);
  /// The modification time of a file in the library's 32 bits; 0 if the file is missing.
  static std::int32_t time_of(const std::string& path);

  /// After folders(): whether the folder exists.
  bool has_folder() const { return m_has_folder; }
  const DocumentFolder& folder() const { return m_folder; }
  /// After lookup(): the name of the file.
  const std::string& file() const { return m_file; }
  std::string path() const { return sys::join(m_folder.path, m_file); }
  /// Whether the index could not be read. That also ends a write.
  bool index_failed() const { return m_view.index_state() == IndexState::kFailed; }
  /// The logical names in the folder's index that have this extension.
  std::vector<std::string> names_with_extension(std::string_view extension);

 private:
  bool one_folder(std::string name, const std::string& path, MissingFolder missing, Values values);
  bool in_index(std::int32_t timestamp);
  bool index_is_readable();
  void tell_near_misses(std::string_view wanted);

  const Tree& m_tree;
  const Request& m_request;
  const sys::Locking& m_locking;
  Explanation& m_result;
  DocumentFolder m_folder;
  bool m_has_folder = true;
  FolderView m_view;
  IndexLint m_lint;
  std::string m_file;
};

/// A time as a number and as a date.
std::string shown_time(std::int64_t seconds);

// ---- finding an entry --------------------------------------------------------------------------

struct Lookup {
  bool found = false;
  bool by_plain_name = false;  ///< a file has the entry's name; it precedes the index
  bool lock_missed = false;
  DocumentFolder folder;
  std::string file;
  std::string path;
  std::string why;  ///< the text of the step that failed
};

/// Looks up an entry at exactly one timestamp, as the library does before it opens a file.
Lookup look_up(const Tree& tree, const Request& request, const sys::Locking& locking);

// ---- key files ---------------------------------------------------------------------------------

/// A key file: lines "name=value", split at the first "=", each ended by a carriage return, a line
/// feed or a tab.
struct KeyFile {
  std::vector<std::pair<std::string, std::string>> lines;
  std::size_t passed_over = 0;  ///< number of lines without "="
};
os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file);

enum class KeyEdit { kChanged, kUnchanged };

/// Sets the value of a key in its first line and removes its other lines, or appends a new line.
/// All other bytes stay as they are.
KeyEdit set_key(std::string& text, std::string_view key, std::string_view value);
/// Removes every line of a key.
KeyEdit unset_key(std::string& text, std::string_view key);

/// The path of the master profile in a configuration folder: "profile.txt" if it exists, else
/// "master.txt". Empty if both are missing.
std::string master_profile(const std::string& config_folder);

}  // namespace admin
