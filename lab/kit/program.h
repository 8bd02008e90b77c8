#pragma once

#include <chrono>
#include <filesystem>
#include <string>

/// @file
/// A program of the kit: started in a folder of its own, with its output in a file, and ended with
/// everything that it has started when its time is over.
namespace kit {

struct Ended {
  bool was_started = false;
  bool was_in_time = true;
  unsigned long code = 0;
  std::chrono::duration<double> time{};
};

/// @param line the whole command line. @param log receives what the program says.
Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit);

/// A text for a command line, in quotes.
std::wstring quoted(const std::wstring& text);

}  // namespace kit
