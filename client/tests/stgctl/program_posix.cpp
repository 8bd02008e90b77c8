#include "client/tests/stgctl/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int reader = -1;
  int writer = -1;
  Pipe() {
    std::array<int, 2> ends = {};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("test support: pipe");
    reader = ends[0];
    writer = ends[1];
  }
};

void close_one(int& descriptor) {
  if (descriptor >= 0) ::close(descriptor);
  descriptor = -1;
}

}  // namespace

struct running_program::system_part {
  ::pid_t process = -1;
  std::array<int, 2> readers = {-1, -1};
  std::array<std::string, 2> texts;
  std::optional<int> code;

  ~system_part() {
    if (process > 0 && !code) {
      ::kill(process, SIGKILL);
      reap();
    }
    for (int& reader : readers) close_one(reader);
  }

  void reap() {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  /// Reads until one of the outputs changes. @return false at the end of both, or after the time
  /// limit.
  bool read_some(Clock::time_point end) {
    std::array<::pollfd, 2> waiting = {};
    for (std::size_t i = 0; i < 2; ++i) waiting.at(i) = {readers.at(i), POLLIN, 0};
    if (readers[0] < 0 && readers[1] < 0) return false;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0 || ::poll(waiting.data(), 2, static_cast<int>(left)) <= 0) return false;
    for (std::size_t i = 0; i < 2; ++i) {
      if (readers.at(i) < 0 || waiting.at(i).revents == 0) continue;
      std::array<char, 65536> buffer;
      const ::ssize_t count = ::read(readers.at(i), buffer.data(), buffer.size());
      if (count > 0) {
        texts.at(i).append(buffer.data(), static_cast<std::size_t>(count));
      } else {
        close_one(readers.at(i));
      }
    }
    return true;
  }
};

std::string client_path() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "stgctl";
}

running_program::running_program(const std::vector<std::string>& arguments,
                                 const std::map<std::string, std::string>& environment)
    : m_system(std::make_unique<system_part>()) {
  const std::string program = client_path();
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  Pipe out;
  Pipe err;
  const ::pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("test support: fork");
  if (child == 0) {
    // The child dies with the test program.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGINT, SIG_DFL);
    for (const auto& [name, value] : environment) {
      value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
    }
    ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    ::dup2(out.writer, STDOUT_FILENO);
    ::dup2(err.writer, STDERR_FILENO);
    ::execv(program.c_str(), words.data());
    ::_exit(127);
  }
  m_system->process = child;
  close_one(out.writer);
  close_one(err.writer);
  m_system->readers = {out.reader, err.reader};
}

running_program::~running_program() = default;

bool running_program::complains(const std::string& text) {
  const Clock::time_point end = Clock::now() + kPatience;
  while (m_system->texts[1].find(text) == std::string::npos) {
    if (!m_system->read_some(end)) return false;
  }
  return true;
}

outcome running_program::wait() {
  const Clock::time_point end = Clock::now() + kPatience;
  while (m_system->read_some(end)) {
  }
  const bool ended = m_system->readers[0] < 0 && m_system->readers[1] < 0;
  if (!ended) ::kill(m_system->process, SIGKILL);
  m_system->reap();
  return {ended ? *m_system->code : -1, m_system->texts[0], m_system->texts[1]};
}

void running_program::interrupt() { ::kill(m_system->process, SIGINT); }
void running_program::terminate() { ::kill(m_system->process, SIGTERM); }

// ---- traced programs ---------------------------------------------------------------------------

namespace {

[[noreturn]] void run_traced(std::vector<std::string>& words) {
  std::vector<char*> list;
  for (std::string& word : words) list.push_back(word.data());
  list.push_back(nullptr);
  ::unsetenv("STG_ROOT");
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    ::dup2(::open("/dev/null", O_RDWR | O_CLOEXEC), stream);
  ::ptrace(PTRACE_TRACEME, 0, 0, 0);
  ::execv(list[0], list.data());
  ::_exit(127);
}

/// Whether a descriptor of a process is a file. A sanitizer writes to pipes to test its memory.
bool is_file(::pid_t process, std::uint64_t descriptor) {
  std::error_code error;
  const auto link =
      "/proc/" + std::to_string(process) + "/fd/" + std::to_string(static_cast<int>(descriptor));
  return std::filesystem::read_symlink(link, error).native().starts_with('/');
}

/// Whether a stopped process is about to make a system call that changes a file or a folder.
bool is_change(::pid_t process) {
  struct ::__ptrace_syscall_info info {};
  if (::ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info) <= 0 ||
      info.op != PTRACE_SYSCALL_INFO_ENTRY)
    return false;
  const auto& arguments = info.entry.args;
  if (info.entry.nr == SYS_write)
    return arguments[0] > STDERR_FILENO && is_file(process, arguments[0]);
  if (info.entry.nr == SYS_openat) return (arguments[2] & (O_CREAT | O_TRUNC)) != 0;
  static constexpr std::array<std::uint64_t, 14> kChanges = {
      SYS_pwrite64,  SYS_ftruncate, SYS_truncate, SYS_copy_file_range, SYS_sendfile,
      SYS_renameat2, SYS_unlinkat,  SYS_mkdirat,  SYS_linkat,          SYS_fchmod,
      SYS_fchmodat,  SYS_utimensat, SYS_writev,   SYS_fallocate};
#if defined(__x86_64__)
  static constexpr std::array<std::uint64_t, 7> kOld = {
      SYS_rename, SYS_renameat, SYS_unlink, SYS_rmdir, SYS_mkdir, SYS_link, SYS_chmod};
  if (std::ranges::count(kOld, info.entry.nr) != 0) return true;
#endif
  return std::ranges::count(kChanges, info.entry.nr) != 0;
}

}  // namespace

bool can_trace() {
  const ::pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, 0, 0) == 0) ::raise(SIGSTOP);
    ::_exit(0);
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return false;
  struct ::__ptrace_syscall_info info {};
  const bool can = ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) > 0;
  ::kill(child, SIGKILL);
  ::waitpid(child, &status, 0);
  return can;
}

int kill_before_change(std::vector<std::string> words, int nth) {
  const ::pid_t program = ::fork();
  if (program == 0) run_traced(words);
  int changes = 0;
  int signal = 0;
  int status = 0;
  bool is_first = true;
  while (::waitpid(program, &status, 0) == program && WIFSTOPPED(status)) {
    if (is_first) {
      is_first = false;
      // Otherwise the stops below look like signals, and no change is counted.
      ::ptrace(PTRACE_SETOPTIONS, program, 0, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
    } else if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
      signal = WSTOPSIG(status);
    } else if (is_change(program) && ++changes == nth) {
      ::kill(program, SIGKILL);
    }
    ::ptrace(PTRACE_SYSCALL, program, 0, signal);
    signal = 0;
  }
  return changes;
}
