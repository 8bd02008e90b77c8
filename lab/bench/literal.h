#pragma once

#include <map>
#include <string>
#include <string_view>

/// @file
/// The literal implementation, only for comparison: each step of an index operation in its simplest
/// form. It checks whether the file of each line of "index.dat" exists, at every read and every
/// write of the text. For each name of the folder it checks whether that is a folder. It uses the
/// file operations of the library, so it is the same on every system.
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
/// Fills @p out with physical name -> logical name of the entries with one of the extensions. Empty
/// @p extensions match every entry.
void pl_values(const std::string& folder, NameMap& out, std::string_view extensions,
               Synchronize synchronize);

}  // namespace literal
