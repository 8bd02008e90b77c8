#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "lab/reliability/index_reader.h"

/// @file
/// A storage folder as it lies on disk, read by the reader's rules (docs/formats.md) and without
/// the library: what the suites compare with what they know must be there.
namespace reliability {

/// file name -> size
using Files = std::map<std::string, std::uint64_t>;

/// The lines of a text that count when a folder holds these files. A stored name that would lead to
/// anything but a file of the listing (the folder itself, a pattern) counts as well: no operation
/// here writes one, so it shows as an entry that nobody made.
Lines read_index(std::string_view text, const Files& files);

/// The file that an entry stands for.
std::string file_of(const std::string& key, const std::string& stored);
/// The extension of a key's logical name, with its dot.
std::string extension_of_key(const std::string& key);
/// logical + "_" + ten digits
std::string key_for(const std::string& logical, long stamp);
/// The two parts of a key.
std::pair<std::string, long> parts_of_key(const std::string& key);

struct FolderState {
  std::string index_text;  ///< its bytes as they stand
  std::string counter_text;
  bool has_index = false;
  Lines lines;        ///< those that count, of the text that the bytes stand for
  Lines plain_lines;  ///< what a reader finds that knows lines alone
  Files files;        ///< all but "index.dat" and "index"
};

FolderState look_at(const std::string& folder);

/// The text that an index of these lines has after a save.
std::string index_text_of(const Lines& lines);

}  // namespace reliability
