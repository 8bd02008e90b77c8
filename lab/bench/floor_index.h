#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "lab/bench/bare.h"
#include "lab/bench/listed.h"

/// @file
/// Parts of the floors: the text of an index, its load and its save.
namespace floor_of {

inline constexpr auto kNone = std::string_view::npos;
inline constexpr std::size_t kStamp = 11;

// ---- the text ----------------------------------------------------------------------------------

std::string_view extension_of(std::string_view name);
std::size_t find(std::string_view text, std::string_view wanted, std::size_t from = 0);
/// The position of the line of a key, or kNone.
std::size_t line_of(std::string_view text, const std::string& key);
std::size_t end_of_line(std::string_view text, std::size_t from);
std::string_view stored_at(std::string_view text, std::size_t line, const std::string& key);
/// The file name of an entry: its number and the extension of the logical name.
std::string file_of(std::string_view stored, std::string_view logical);

// ---- an index ----------------------------------------------------------------------------------

/// A loaded index. The open handle keeps its lock.
struct Index {
  explicit Index(const std::string& path);

  std::string folder;
  std::optional<bare::File> file;
  bare::Text text;
};

/// Calls visit(logical, stored, extension) for each valid entry.
template <class Visit>
void judge(std::string_view text, const bench::Listed& files, Visit visit) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = end_of_line(text, start);
    const std::size_t separator = text.find('/', start);
    if (separator >= end) break;
    const std::string_view logical = text.substr(start, separator - start - kStamp);
    const std::string_view stored = text.substr(separator + 1, end - separator - 1);
    const std::string_view extension = extension_of(logical);
    if (files.contains(stored, extension)) visit(logical, stored, extension);
    start = end + 1;
  }
}

/// Checks that all entries are valid and no file is an orphan; ends the program otherwise.
void judge_for_save(std::string_view text, const bench::Listed& files);

// ---- a change ----------------------------------------------------------------------------------

/// Releases the shared lock and takes the exclusive lock. Ends the program if the text has changed.
bare::File lock_for_save(Index& index);
/// Replaces the old text by @p text. Their first @p base bytes are equal.
void replace(const bare::File& file, std::string_view old_text, const std::string& text,
             std::size_t base);
std::string next_number(const std::string& folder);
/// Creates the empty file of a new document. @return its name.
std::string make_file(const std::string& folder, const std::string& stored,
                      const std::string& logical);
/// Copies one file of a folder onto another one and flushes the copy.
void copy_for_good(const std::string& folder, const std::string& from, const std::string& to);
/// Makes the file writable, removes it, and checks that it no longer exists.
void remove_file(const std::string& path);

}  // namespace floor_of
