#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

/// @file
/// What is known of the machine that a report comes from. Nothing of it names a person.
namespace kit {

using Facts = std::vector<std::pair<std::string, std::string>>;

/// @param work a folder on the disk that everything runs on.
Facts facts_of_machine(const std::filesystem::path& work);

/// Whether this is Wine, whose results must not be taken for those of a kernel.
bool is_emulated();

}  // namespace kit
