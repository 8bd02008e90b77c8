#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/interleavings/stage.h"

/// @file
/// What a tree means, without the numbers that it happened to draw: two ends are equal when nobody
/// can tell them apart by names and bytes.
namespace interleavings {

/// What is so -> how. "user/anna: report.kdb_0000000000" -> the bytes of its document.
using Facts = std::map<std::string, std::string>;

/// The facts of a tree, each index read by the second reader. A line whose file is gone is none.
///
/// * "FOLDER: KEY" -> the bytes that the entry leads to;
/// * "FOLDER: loose .kdb BYTES" -> how many such files no line names;
/// * "FOLDER: below NAME/..." -> sub-part folders and their files;
/// * "FOLDER: two entries, one file" -> their keys;
/// * "FOLDER: index" -> "none", "whole", "of no bytes", or "interrupted";
/// * "FOLDER: the counter is behind" -> the number;
/// * "PATH" -> the bytes of any other file, "" for a folder.
Facts facts_of(const Tree& tree);

/// Names of files as an operation has answered them, told as what they stand for in a folder:
/// the key of the entry in the tree before the meeting, else in the one after it.
std::string without_numbers(const std::string& answer, const std::string& folder,
                            const Tree& before, const Tree& after);

/// A text with what cannot be printed made visible, and cut where it is long.
std::string shown(const std::string& text);

}  // namespace interleavings
