#pragma once

#include <string>
#include <string_view>

#include "bench/bare.h"

/// @file
/// The floors: for each operation the calls that its stated behaviour asks for, in their order, as
/// bare system calls, and the work on the text that no way of doing it can leave out.
///
/// What the behaviour asks for: the existence tests of its steps; "index.dat" opened, locked, asked
/// for its size, read and closed; one listing of the folder where lines are judged (load and save:
/// each has one of its own moment); for a loaded index its two maps, built once, from lines taken
/// as valid; a save that a kill or a full disk at any moment cannot harm: space reserved, what
/// changed written behind the old text first and then in place, the file cut, flushed; the counter
/// and a new document's file flushed, too.
namespace floor_of {

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical);
std::string create(const std::string& folder, const std::string& logical, long timestamp);
void remove(const std::string& folder, const std::string& logical, long timestamp);
void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp);
void update(const std::string& folder);
/// With the two maps of the loaded index, as each of the stated steps has them, or without, which
/// is less than what is stated: a question need not build what it does not ask.
enum class Maps { kBuilt, kLeftOut };
/// Finds the name in the text.
bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Maps maps);
/// Builds the map that is asked for; @p extensions as in the literal way.
void pl_values(const std::string& folder, bare::NameMap& out, std::string_view extensions,
               Maps maps);

/// Opens, locks, reads by its size and closes.
void read_document(const std::string& path, std::string& out);
/// Opens, locks, cuts, writes, flushes and closes.
void write_document(const std::string& path, std::string_view bytes);

}  // namespace floor_of
