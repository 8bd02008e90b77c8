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

/// How a missing folder is taken.
enum class MissingFolder : std::uint8_t { kEndsIt, kWouldBeMade };

/// The steps that reading, writing and parts have in common. Each returns whether to go on.
class Steps {
 public:
  Steps(const Tree& tree, const Request& request, const sys::Locking& locking, Explanation& result)
      : m_tree(tree), m_request(request), m_locking(locking), m_result(result) {}

  using Values = std::vector<std::pair<std::string, std::string>>;
  bool yes(std::string name, std::string text, Values values = {});
  bool no(std::string name, std::string text, Values values = {});
  void note(std::string name, std::string text, Values values = {});

  /// The entry has a name.
  bool entry_is_named();
  /// The area's, the owner's and the bucket's folder.
  bool folders(MissingFolder missing);
  /// Looks an entry up as the library does: a plain file of its name first, then the index.
  bool lookup(std::int32_t timestamp);
  /// The modification time of a document, 0 for none, in the library's 32 bits.
  static std::int32_t time_of(const std::string& path);

  /// After folders(): whether the folder is there.
  bool has_folder() const { return m_has_folder; }
  const DocumentFolder& folder() const { return m_folder; }
  /// After lookup(): the file's name in the folder.
  const std::string& file() const { return m_file; }
  std::string path() const { return sys::join(m_folder.path, m_file); }
  /// Whether the index was asked and could not be read, which ends a writing too.
  bool index_failed() const { return m_view.index_state() == IndexState::kFailed; }
  /// Entries of the folder's index that have this extension.
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

/// A number as text, and a time with its plain form.
std::string shown_time(std::int64_t seconds);

// ---- finding an entry --------------------------------------------------------------------------

/// Where the library finds an entry.
struct Lookup {
  bool found = false;
  bool by_plain_name = false;  ///< a file of the entry's own name, which goes before the index
  bool lock_missed = false;
  DocumentFolder folder;
  std::string file;
  std::string path;
  std::string why;  ///< what said no
};

/// Looks an entry up at exactly one timestamp, as the library does before it opens anything.
Lookup look_up(const Tree& tree, const Request& request, const sys::Locking& locking);

/// A key file: lines of name and value, split at the first "=".
struct KeyFile {
  std::vector<std::pair<std::string, std::string>> lines;
  std::size_t passed_over = 0;  ///< lines without "="
};
os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file);

/// The master profile's file in a configuration folder: "profile.txt" when it is there, else
/// "master.txt". Empty when neither is.
std::string master_profile(const std::string& config_folder);

}  // namespace admin
