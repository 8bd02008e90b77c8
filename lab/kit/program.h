#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

/// @file
/// A program of the kit: started in a folder of its own, with its output in a file, and ended with
/// everything that it has started when its time is over.
namespace kit {

struct Ended {
  bool was_started = false;
  bool was_in_time = true;
  bool was_stopped = false;  ///< by request_stop()
  unsigned long code = 0;
  std::chrono::duration<double> time{};
};

/// Is called every few seconds while a program runs.
using Waiting = std::function<void(std::chrono::seconds)>;

/// @param line the whole command line. @param log receives what the program says.
Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit,
          const Waiting& waiting = {});

/// A text for a command line, in quotes.
std::wstring quoted(const std::wstring& text);

/// Ends the program that runs, and keeps others from being started. From any thread.
void request_stop();
bool is_stopped();

/// Nothing of the caller's environment changes what the programs do.
/// @param temporary the folder for their temporary files.
void clean_environment(const std::filesystem::path& temporary);

}  // namespace kit
