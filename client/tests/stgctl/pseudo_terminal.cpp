#include "client/tests/stgctl/pseudo_terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "client/tests/stgctl/program.h"

using Clock = std::chrono::steady_clock;

pseudo_terminal::pseudo_terminal(const std::vector<std::string>& arguments, int columns) {
  const std::string program = client_path();
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  ::winsize size = {};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = 25;
  m_process = ::forkpty(&m_terminal, nullptr, nullptr, &size);
  if (m_process < 0) throw std::runtime_error("test support: forkpty");
  if (m_process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::setenv("TERM", "xterm", 1);
    ::unsetenv("NO_COLOR");
    ::unsetenv("STG_ROOT");
    ::execv(program.c_str(), words.data());
    ::_exit(127);
  }
}

pseudo_terminal::~pseudo_terminal() {
  if (m_process > 0) {
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
  }
  ::close(m_terminal);
}

bool pseudo_terminal::read_some(Clock::time_point end) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  ::pollfd waiting = {m_terminal, POLLIN, 0};
  if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0) return false;
  std::array<char, 4096> buffer;
  const ::ssize_t count = ::read(m_terminal, buffer.data(), buffer.size());
  // The end of the other side is an error here.
  if (count <= 0) return false;
  m_text.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

bool pseudo_terminal::shows(const std::string& text) {
  const Clock::time_point end = Clock::now() + kPatience;
  while (m_text.find(text) == std::string::npos) {
    if (!read_some(end)) return false;
  }
  return true;
}

void pseudo_terminal::type(const std::string& keys) {
  if (::write(m_terminal, keys.data(), keys.size()) != static_cast<::ssize_t>(keys.size())) {
    throw std::runtime_error("test support: the terminal takes no keys");
  }
}

int pseudo_terminal::wait() {
  const Clock::time_point end = Clock::now() + kPatience;
  while (read_some(end)) {
  }
  const bool late = Clock::now() >= end;
  if (late) ::kill(m_process, SIGKILL);
  int status = 0;
  while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
  }
  m_process = -1;
  if (late) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
