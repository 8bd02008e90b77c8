#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/model/tree.h"

/// @file
/// A real folder beside a tree in memory: what is changed behind the library's back, and the
/// comparison of both. Quick, since it happens a million times. One file per system.
namespace reliability::ground {

void write(const std::string& path, const std::string& bytes);
void make_folder(const std::string& path);
/// A file or an empty folder.
void remove(const std::string& path);
/// Of last modification and last access.
void set_time(const std::string& path, std::int64_t seconds);
void set_read_only(const std::string& path, bool read_only);
/// The names in a folder as the system lists them.
std::vector<std::string> listing(const std::string& path);

enum class After { kKeep, kEmpty };

/// What differs between a real folder and one in memory, and then nothing of the real one's content
/// is left, if so wished. Empty when they are equal.
std::string difference(const std::string& path, const model::Node& expected, After after);

/// A text with what cannot be printed made visible.
std::string shown(const std::string& text);

}  // namespace reliability::ground
