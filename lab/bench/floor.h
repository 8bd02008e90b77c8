#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lab/bench/bare.h"

/// @file
/// The floors: for each operation the work that no implementation can omit, each step once, as bare
/// system calls and loops over the text. That work is:
///
/// - the required checks whether files and folders exist;
/// - "index.dat": open, lock, read the size, read the text, close;
/// - to check all lines: one listing of the folder and a flat table of its names;
/// - to look up one name: a search of the text and a check of the file;
/// - before a change: an exclusive lock and a second read of the text;
/// - of a file that is opened for writing: whether it is read-only, since no user may write one;
/// - a save that is safe against a kill and a power failure at any moment. It writes and flushes
///   the change after the old text. It overwrites the "/" of old lines at page edges with blanks.
///   It writes the new text in place, with the "/" at page edges last, flushes and truncates;
/// - a flush of the counter and of the file of a new document.
///
/// A map is built only where it is the result. Its names are sorted first, because inserting sorted
/// names is faster.
namespace floor_of {

/// Whether a floor searches for orphans.
enum class Adoption { kOff, kOn };

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical);
bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Adoption adoption);

enum class List { kByPhysicalName, kByLogicalName };
/// @param extensions the listed extensions, concatenated, or "" for all.
void list(const std::string& folder, bare::NameMap& out, std::string_view extensions, List way);

/// The logical and the physical names of the wanted entries, in the order of the physical names.
/// @param wanted logical names; null wants all entries.
void file_list(const std::string& folder, const std::vector<std::string>* wanted,
               std::vector<std::string>& logical, std::vector<std::string>& physical);

/// Steps: exists(), load, check of all lines, new number, new file, save. @return the file name.
std::string create(const std::string& folder, const std::string& logical, long timestamp);
void remove(const std::string& folder, const std::string& logical, long timestamp);
void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp);
void update(const std::string& folder);

/// The step after the removal of a document: reads the index again. @return whether the folder has
/// category files.
bool has_categories(const std::string& folder, Adoption adoption);

/// Ages in seconds, the greatest first, each with its entry.
using Ages = std::multimap<unsigned long, std::string, std::greater<unsigned long>>;
/// Reads the age of each entry's file and removes nothing.
void clean_nothing(const std::string& folder, Ages& kept);
void clean_everything(const std::string& folder);

/// Creates the index of a folder without one: adopts each of its files.
void adopt(const std::string& folder);

/// Migrates a mail folder: replaces the escaped names of its files, and of the lines in its read
/// list, by the unescaped names. All files of the folder have escaped names.
void migrate(const std::string& folder);

/// Opens, locks, reads and closes.
void read_document(const std::string& path, std::string& out);
/// Opens, locks, truncates, writes, flushes and closes.
void write_document(const std::string& path, std::string_view bytes);

}  // namespace floor_of
