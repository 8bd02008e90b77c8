#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>

#include "client/stgctl/terminal.h"

namespace stgctl::terminal {

namespace {

BOOL WINAPI note_interrupt(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  // The second event is not handled: the system then ends the program.
  return interrupt_seen.exchange(true) ? FALSE : TRUE;
}

HANDLE handle_of(Stream stream) {
  switch (stream) {
    case Stream::kIn: return ::GetStdHandle(STD_INPUT_HANDLE);
    case Stream::kOut: return ::GetStdHandle(STD_OUTPUT_HANDLE);
    default: return ::GetStdHandle(STD_ERROR_HANDLE);
  }
}

std::string utf8(const wchar_t* text) {
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return {};
  std::string bytes(static_cast<std::size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes.data(), size, nullptr, nullptr);
  bytes.pop_back();
  return bytes;
}

void let_escape_sequences_work(Stream stream) {
  DWORD mode = 0;
  const HANDLE handle = handle_of(stream);
  if (::GetConsoleMode(handle, &mode)) {
    ::SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  }
}

}  // namespace

void set_up() {
  ::SetConsoleOutputCP(CP_UTF8);
  ::SetConsoleCP(CP_UTF8);
  let_escape_sequences_work(Stream::kOut);
  let_escape_sequences_work(Stream::kErr);
  // Line feeds stay line feeds, so that JSON and documents have the same bytes on every system.
  ::_setmode(::_fileno(stdout), _O_BINARY);
}

bool is_terminal(Stream stream) {
  DWORD mode = 0;
  return ::GetConsoleMode(handle_of(stream), &mode) != 0;
}

bool understands_colors(Stream stream) {
  DWORD mode = 0;
  return ::GetConsoleMode(handle_of(stream), &mode) &&
         (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int width(Stream stream) {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (!::GetConsoleScreenBufferInfo(handle_of(stream), &info)) return 80;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  return columns > 0 ? columns : 80;
}

std::string read_line() {
  std::string line;
  for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
    line += static_cast<char>(c);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

void watch_interrupt() { ::SetConsoleCtrlHandler(note_interrupt, TRUE); }

}  // namespace stgctl::terminal

// main() would get the arguments in the system's code page. The C runtime splits the command line:
// the shell's library could do it too, but loading it takes as long as loading all others.
int wmain(int argc, wchar_t** argv) {
  // No DLL in the current folder can replace a system DLL.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(stgctl::terminal::utf8(argv[i]));
  return stgctl::terminal::run_program(arguments);
}
