#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "client/stgctl/terminal.h"

namespace stgctl::terminal {

namespace {

// A signal handler requires it.
static_assert(std::atomic<bool>::is_always_lock_free);

void note_interrupt(int) { interrupt_seen.store(true); }

/// The streams have the order of the descriptors.
int descriptor(Stream stream) { return static_cast<int>(stream); }
static_assert(static_cast<int>(Stream::kErr) == STDERR_FILENO);

}  // namespace

void set_up() {
  // A reader that ends early (such as "head") causes a write error, and not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
}

bool is_terminal(Stream stream) { return ::isatty(descriptor(stream)) == 1; }

bool understands_colors(Stream stream) {
  const char* const type = std::getenv("TERM");
  return is_terminal(stream) && type != nullptr && std::string_view(type) != "dumb" &&
         *type != '\0';
}

int width(Stream stream) {
  struct ::winsize size = {};
  if (::ioctl(descriptor(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

std::string read_line() {
  std::string line;
  while (!interrupt_seen.load()) {
    // Calls read() only when there is input: a Ctrl-C between the check of the flag and read()
    // would not end a read() that blocks.
    ::pollfd waiting = {STDIN_FILENO, POLLIN, 0};
    if (::poll(&waiting, 1, 100) <= 0) continue;
    char c = 0;
    if (::read(STDIN_FILENO, &c, 1) != 1 || c == '\n') return line;
    line += c;
  }
  return {};
}

void watch_interrupt() {
  struct ::sigaction action = {};
  action.sa_handler = note_interrupt;
  // The handler works once: a second Ctrl-C ends the process.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  ::sigaction(SIGINT, &action, nullptr);
  // The same for SIGTERM: the current entry is finished, and the results are printed.
  ::sigaction(SIGTERM, &action, nullptr);
}

}  // namespace stgctl::terminal

int main(int argc, char** argv) {
  return stgctl::terminal::run_program(argc < 1 ? std::vector<std::string>{}
                                                : std::vector<std::string>{argv + 1, argv + argc});
}
