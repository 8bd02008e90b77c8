#pragma once

#include <atomic>
#include <string>
#include <vector>

/// @file
/// The terminal and the process, per system: terminal_posix.cpp, terminal_windows.cpp.
namespace stgctl::terminal {

enum class Stream { kIn, kOut, kErr };

/// Prepares the console for UTF-8 and escape sequences, and the standard output for unchanged
/// bytes. Call it first.
void set_up();
/// The whole client, called by the system's entry point.
/// @param arguments without the program's name, in UTF-8 (on Linux unchanged).
/// @return the exit code.
int run_program(const std::vector<std::string>& arguments);
/// Whether the stream is a terminal.
bool is_terminal(Stream stream);
/// Whether the terminal at the stream understands colours.
bool understands_colors(Stream stream);
/// The width of the terminal in columns; 80 if unknown.
int width(Stream stream);

/// Reads one line of an answer, without its end. Empty at the end of the input, and after Ctrl-C.
std::string read_line();

/// From now on Ctrl-C is recorded and does not end the program. A second one ends it at once.
void watch_interrupt();
/// Whether Ctrl-C was pressed.
inline std::atomic<bool> interrupt_seen{false};

}  // namespace stgctl::terminal
