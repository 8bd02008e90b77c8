#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "lab/bench/bare.h"

/// @file
/// The floors: for each operation what no way of doing it can leave out, and nothing twice, as bare
/// system calls and loops over the text.
///
/// What cannot be left out: the existence tests of the stated steps; "index.dat" opened, locked,
/// asked for its size, read and closed; one listing of the folder where all lines are judged, with
/// a flat table of its names; for a question about one name a search of the text, and that name's
/// file; the lock taken exclusively and the text read again before it is changed; a save that
/// neither a kill nor a power failure at any moment can harm (what changed is written and flushed
/// behind the old text, then in place, with the lines at page edges taken out before and put in
/// after, and flushed; the file is cut). The counter and the file of a new document are flushed,
/// too. Maps are built where a map is the result, and nowhere else; their names are sorted first,
/// since that is quicker than to search the tree for each.
namespace floor_of {

/// Whether files that no line names are looked for.
enum class Adoption { kOff, kOn };

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical);
bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Adoption adoption);

/// Which way a list leads.
enum class List { kByPhysicalName, kByLogicalName };
/// @param extensions those that are listed, one behind the other, or "" for all.
void list(const std::string& folder, bare::NameMap& out, std::string_view extensions, List way);

/// The logical and the physical names of all entries, in the order of the physical ones.
void file_list(const std::string& folder, std::vector<std::string>& logical,
               std::vector<std::string>& physical);

std::string create(const std::string& folder, const std::string& logical, long timestamp);
void remove(const std::string& folder, const std::string& logical, long timestamp);
void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp);
void update(const std::string& folder);

/// What follows the removal of a document: whether the folder has category files, by a look of its
/// own at the index.
bool has_categories(const std::string& folder, Adoption adoption);

/// Ages in seconds, the greatest first, with what has that age.
using Ages = std::multimap<unsigned long, std::string, std::greater<unsigned long>>;
/// Asks for the age of each entry's file, and removes nothing.
void clean_nothing(const std::string& folder, Ages& kept);
/// Removes every entry, whatever its age.
void clean_everything(const std::string& folder);

/// Makes the index of a folder that has none: each of its files becomes an entry.
void adopt(const std::string& folder);

/// Gives the mails of a folder that bear escaped names their unescaped ones, with their lines of
/// the read list. There is no other adopted file.
void migrate(const std::string& folder);

/// Opens, locks, reads by its size and closes.
void read_document(const std::string& path, std::string& out);
/// Opens, locks, cuts, writes, flushes and closes.
void write_document(const std::string& path, std::string_view bytes);

}  // namespace floor_of
