#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/reliability/folder_state.h"

/// @file
/// What a folder must hold after operations that ended, and what it may hold after one that was
/// killed.
namespace reliability {

enum class Kind : std::uint8_t {
  kCreate,        ///< STGIndex::create
  kRemove,        ///< STGIndex::remove
  kRename,        ///< STGIndex::rename
  kClean,         ///< STGIndex::cleanOutOfDateOutput
  kWrite,         ///< vu_storage::OpenWrite, Write, Close
  kCopy,          ///< vu_storage::copyToStorage
  kSaveKeys,      ///< vu_storage::saveUserOrMasterProfile
  kForget,        ///< vu_storage::RemoveFile, which edits the category file as well
  kPlainRewrite,  ///< planted: the index is cut, then written again as it was
};
const char* name_of(Kind kind);

/// Whether loading an index adopts files that no line names.
enum class Adoption : std::uint8_t { kOff, kOn };

/// The text number @p id of @p size bytes. Two of them differ from their first bytes on.
std::string text_number(std::uint64_t id, std::size_t size);

/// The key file whose lines an entry's removal edits.
inline constexpr const char* kCategory = "list.ctg";

struct Operation {
  Kind kind = Kind::kCreate;
  std::string name;
  long stamp = 0;
  std::string new_name;  ///< of a rename
  long new_stamp = 0;
  std::uint64_t text_id = 0;  ///< of a write; of a copy the source's
  std::size_t text_size = 0;
  std::vector<std::string> category_lines;  ///< of kSaveKeys on the category file
  std::set<std::string> out_of_date;        ///< of a clean: the files that are too old

  std::string key() const { return key_for(name, stamp); }
  std::string new_key() const { return key_for(new_name, new_stamp); }
  /// What it writes.
  std::string text() const;
};

struct Entry {
  std::string stored;
  std::string content;
};

/// Everything that a folder holds.
struct Model {
  std::map<std::string, Entry> entries;       ///< by key
  std::map<std::string, std::string> strays;  ///< files in no line, with their content
  std::int64_t counter = 0;
  Adoption adoption = Adoption::kOff;
  /// What a reader of lines alone found last; it may miss what was saved, until the next save.
  Lines plain;

  /// Carries out an operation that ended. @return what a create answers, else nothing.
  std::string apply(const Operation& operation);
  Lines lines() const;
  /// The physical name that comes next, as it is stored.
  std::string next_number() const;

 private:
  void adopt();
  void make(const std::string& key, const std::string& content);
};

/// The text of a key file without the line that names @p entry.
std::string without_line_of(const std::string& text, const std::string& entry);

/// How much of what an operation cannot have touched is read.
enum class Depth : std::uint8_t { kSizes, kEveryByte };

struct Findings {
  std::vector<std::string> wrong;
  std::vector<std::string> windows;  ///< what the kill left behind that the promise allows
  bool index_is_in_the_middle =
      false;  ///< its text is neither that of the old lines nor of those it has
  Model now;  ///< what the folder holds
};

/// Compares a folder with what it held before an operation that was killed; null when none was
/// under way.
Findings check(const Model& before, const Operation* killed, const std::string& folder,
               Depth depth);

}  // namespace reliability
