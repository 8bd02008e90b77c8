#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

/// @file
/// Runs a program of the kit in its folder, with its output in a file. At the time limit it ends
/// the program and all of its helpers.
namespace kit {

struct Ended {
  bool was_started = false;
  bool was_in_time = true;
  bool was_stopped = false;  ///< by request_stop()
  unsigned long code = 0;
  std::chrono::duration<double> time{};
};

/// Called every few seconds while a program runs.
using Waiting = std::function<void(std::chrono::seconds)>;

/// @param line the whole command line.
/// @param log receives the output.
Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit,
          const Waiting& waiting = {});

/// An argument for a command line, in quotes.
std::wstring quoted(const std::wstring& text);

/// Ends the running program, and prevents others from starting. Callable from any thread.
void request_stop();
bool is_stopped();

/// Removes variables that change what the programs do.
/// @param temporary the folder for their temporary files.
void clean_environment(const std::filesystem::path& temporary);

}  // namespace kit
