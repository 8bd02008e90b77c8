#pragma once

#include <map>
#include <string>
#include <string_view>

/// @file
/// The literal way, a yardstick and nothing else: every step of an index operation as one would
/// write it down first. Each line of "index.dat" is tried by asking the system for its file, again
/// whenever the text is read or written; each name of the folder is asked whether it is a folder.
/// It uses the library's own file operations, so it is the same program on every system.
namespace literal {

using NameMap = std::map<std::string, std::string>;

enum class Synchronize { kOff, kOn };

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical);
std::string create(const std::string& folder, const std::string& logical, long timestamp,
                   Synchronize synchronize);
void remove(const std::string& folder, const std::string& logical, long timestamp,
            Synchronize synchronize);
void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp, Synchronize synchronize);
void update(const std::string& folder, Synchronize synchronize);
bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Synchronize synchronize);
/// Physical file name -> logical name of the entries whose extension is one of @p extensions (all
/// when empty).
void pl_values(const std::string& folder, NameMap& out, std::string_view extensions,
               Synchronize synchronize);

}  // namespace literal
