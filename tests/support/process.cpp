#include "tests/support/process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

#if defined(_WIN32)
#include "tests/support/windows_process.h"
#else
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

using namespace std::chrono_literals;

test_alarm::test_alarm(std::string what, std::chrono::seconds limit) {
  if (limit <= 0s) return;
  m_thread = std::thread([this, what = std::move(what), limit] {
    // The wait is split into short steps: an emulator can lose a wake-up, and the next step notices
    // it.
    const auto end = std::chrono::steady_clock::now() + limit;
    std::unique_lock lock(m_mutex);
    while (std::chrono::steady_clock::now() < end) {
      if (m_over.wait_for(lock, 200ms, [this] { return m_done; })) return;
    }
    std::fprintf(stderr, "ALARM: %s has not ended after %lld seconds; giving up\n", what.c_str(),
                 static_cast<long long>(limit.count()));
    std::fflush(stderr);
    std::_Exit(kExitCode);
  });
}

test_alarm::~test_alarm() {
  if (!m_thread.joinable()) return;
  {
    const std::scoped_lock guard(m_mutex);
    m_done = true;
  }
  m_over.notify_all();
  m_thread.join();
}

std::chrono::seconds test_alarm::default_limit() {
  const char* const set = std::getenv("VU_TEST_ALARM");
  if (set != nullptr && *set != '\0') return std::chrono::seconds(std::strtol(set, nullptr, 10));
#if defined(_WIN32)
  return 180s;
#else
  return 50s;
#endif
}

#if defined(_WIN32)
bool locks_are_enforced() {
  return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr;
}
#else
bool locks_are_enforced() { return true; }
#endif

// ---- the helper's side --------------------------------------------------------------------------

namespace {

std::map<std::string, role_function>& roles() {
  static std::map<std::string, role_function> known;
  return known;
}

constexpr char kRoleFlag[] = "--role=";

}  // namespace

bool register_role(const char* name, role_function function) {
  if (!roles().emplace(name, function).second) {
    std::cerr << "test support: two roles are called " << name << std::endl;
    std::_Exit(1);
  }
  return true;
}

std::optional<int> run_role(int argc, char** argv) {
  if (argc < 2 || std::strncmp(argv[1], kRoleFlag, std::strlen(kRoleFlag)) != 0) {
    return std::nullopt;
  }
  const std::string name = argv[1] + std::strlen(kRoleFlag);
  const auto found = roles().find(name);
  if (found == roles().end()) {
    std::cerr << "test support: no role is called " << name << std::endl;
    return 2;
  }
#if !defined(_WIN32)
  // Without this a suspended helper would outlive a parent that dies.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
  const test_alarm alarm("helper process " + name, test_alarm::default_limit());
  try {
    return found->second(std::vector<std::string>(argv + 2, argv + argc));
  } catch (const std::exception& e) {
    std::cerr << "helper process " << name << ": " << e.what() << std::endl;
  } catch (...) {
    std::cerr << "helper process " << name << ": an exception of another kind" << std::endl;
  }
  return 3;
}

void say(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

std::optional<std::string> hear() {
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// ---- the parent's side --------------------------------------------------------------------------

#if defined(_WIN32)

struct child_process::system_part {
  HANDLE process = nullptr;
  HANDLE input = nullptr;   ///< the parent writes, the helper reads
  HANDLE output = nullptr;  ///< the helper writes, the parent reads

  ~system_part() {
    for (const HANDLE each : {process, input, output}) {
      if (each != nullptr) ::CloseHandle(each);
    }
  }
};

namespace {

std::runtime_error system_error(const char* what) {
  return std::runtime_error(std::string("test support: ") + what + " failed with " +
                            std::to_string(::GetLastError()));
}

std::wstring widened(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// One argument, quoted as the C runtime parses it: a backslash is special only before a quotation
/// mark.
std::wstring quoted(const std::string& argument) {
  std::wstring result = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : widened(argument)) {
    if (c == L'"') result.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    result += c;
  }
  result.append(backslashes, L'\\');
  return result + L"\"";
}

std::wstring own_program() {
  std::array<wchar_t, 32768> buffer;
  const DWORD length =
      ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length == 0 || length == buffer.size()) throw system_error("GetModuleFileName");
  return {buffer.data(), length};
}

/// The changed environment as a block for CreateProcess.
std::wstring environment_block(const std::map<std::string, std::string>& changes) {
  std::map<std::wstring, std::wstring> variables;
  wchar_t* const own = ::GetEnvironmentStringsW();
  for (const wchar_t* entry = own; entry != nullptr && *entry != L'\0';
       entry += std::wcslen(entry) + 1) {
    const std::wstring text = entry;
    // Variables such as "=C:" contain the current folder of a drive.
    const std::size_t separator = text.find(L'=', 1);
    if (separator != std::wstring::npos) {
      variables[text.substr(0, separator)] = text.substr(separator + 1);
    }
  }
  if (own != nullptr) ::FreeEnvironmentStringsW(own);
  for (const auto& [name, value] : changes) {
    variables.erase(widened(name));
    if (!value.empty()) variables[widened(name)] = widened(value);
  }
  std::wstring block;
  for (const auto& [name, value] : variables) block += name + L"=" + value + L'\0';
  return block + L'\0';
}

void make_pipe(HANDLE& reader, HANDLE& writer, HANDLE& ours) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  if (!::CreatePipe(&reader, &writer, &inheritable, 0)) throw system_error("CreatePipe");
  if (!::SetHandleInformation(ours, HANDLE_FLAG_INHERIT, 0)) {
    throw system_error("SetHandleInformation");
  }
}

}  // namespace

child_process::child_process(const std::string& role, const std::vector<std::string>& args,
                             const std::map<std::string, std::string>& environment)
    : m_system(std::make_unique<system_part>()) {
  HANDLE their_input = nullptr;
  HANDLE their_output = nullptr;
  make_pipe(their_input, m_system->input, m_system->input);
  make_pipe(m_system->output, their_output, m_system->output);

  const std::wstring program = own_program();
  std::wstring command = L"\"" + program + L"\" " + quoted(kRoleFlag + role);
  for (const std::string& each : args) command += L" " + quoted(each);
  std::wstring variables = environment_block(environment);

  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = their_input;
  start.hStdOutput = their_output;
  start.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION info = {};
  const bool started = start_program(program, command, variables.data(), start, info);
  ::CloseHandle(their_input);
  ::CloseHandle(their_output);
  if (!started) throw system_error("CreateProcess");
  ::CloseHandle(info.hThread);
  m_system->process = info.hProcess;
}

bool child_process::tell(const std::string& line) {
  const std::string text = line + "\n";
  DWORD written = 0;
  return m_system->input != nullptr &&
         ::WriteFile(m_system->input, text.data(), static_cast<DWORD>(text.size()), &written,
                     nullptr) &&
         written == text.size();
}

void child_process::close_input() {
  if (m_system->input != nullptr) ::CloseHandle(std::exchange(m_system->input, nullptr));
}

std::optional<std::string> child_process::next_line(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    const std::size_t line_feed = m_pending.find('\n');
    if (line_feed != std::string::npos) {
      std::string line = m_pending.substr(0, line_feed);
      m_pending.erase(0, line_feed + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return line;
    }
    // There is no wait for anonymous pipes: poll with short sleeps.
    DWORD available = 0;
    if (!::PeekNamedPipe(m_system->output, nullptr, 0, nullptr, &available, nullptr)) {
      return std::nullopt;
    }
    if (available == 0) {
      if (std::chrono::steady_clock::now() >= end) return std::nullopt;
      ::Sleep(2);
      continue;
    }
    std::array<char, 4096> buffer;
    DWORD done = 0;
    if (!::ReadFile(m_system->output, buffer.data(), static_cast<DWORD>(buffer.size()), &done,
                    nullptr) ||
        done == 0) {
      return std::nullopt;
    }
    m_pending.append(buffer.data(), done);
  }
}

std::optional<int> child_process::wait(std::chrono::milliseconds limit) {
  if (::WaitForSingleObject(m_system->process, static_cast<DWORD>(limit.count())) !=
      WAIT_OBJECT_0) {
    return std::nullopt;
  }
  DWORD code = 0;
  if (!::GetExitCodeProcess(m_system->process, &code)) throw system_error("GetExitCodeProcess");
  return static_cast<int>(code);
}

void child_process::kill() { ::TerminateProcess(m_system->process, kKilled); }

#else

struct child_process::system_part {
  ::pid_t process = -1;
  int input = -1;   ///< the parent writes, the helper reads
  int output = -1;  ///< the helper writes, the parent reads
  std::optional<int> exit_code;

  ~system_part() {
    if (input >= 0) ::close(input);
    if (output >= 0) ::close(output);
  }
};

namespace {

std::runtime_error system_error(const char* what, int code) {
  return std::runtime_error(std::string("test support: ") + what + ": " + std::strerror(code));
}

std::string own_program() {
  std::array<char, 4096> buffer;
  const ::ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0) throw system_error("readlink", errno);
  return {buffer.data(), static_cast<std::size_t>(length)};
}

/// Both ends close on exec: no helper keeps another one's pipe open.
void make_pipe(int& reader, int& writer) {
  std::array<int, 2> ends;
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw system_error("pipe2", errno);
  reader = ends[0];
  writer = ends[1];
}

std::vector<std::string> changed_environment(const std::map<std::string, std::string>& changes) {
  std::vector<std::string> result;
  for (char** each = ::environ; *each != nullptr; ++each) {
    const std::string entry = *each;
    if (changes.count(entry.substr(0, entry.find('='))) == 0) result.push_back(entry);
  }
  for (const auto& [name, value] : changes) {
    if (!value.empty()) result.push_back(name + "=" + value);
  }
  return result;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& each : texts) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

child_process::child_process(const std::string& role, const std::vector<std::string>& args,
                             const std::map<std::string, std::string>& environment)
    : m_system(std::make_unique<system_part>()) {
  int their_input = -1;
  int their_output = -1;
  make_pipe(their_input, m_system->input);
  make_pipe(m_system->output, their_output);

  const std::string program = own_program();
  std::vector<std::string> arguments = {program, kRoleFlag + role};
  arguments.insert(arguments.end(), args.begin(), args.end());
  std::vector<std::string> variables = changed_environment(environment);

  ::posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, their_input, STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, their_output, STDOUT_FILENO);
  const int error = ::posix_spawn(&m_system->process, program.c_str(), &actions, nullptr,
                                  pointers_to(arguments).data(), pointers_to(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(their_input);
  ::close(their_output);
  if (error != 0) {
    m_system->process = -1;
    throw system_error("posix_spawn", error);
  }
}

bool child_process::tell(const std::string& line) {
  const std::string text = line + "\n";
  return m_system->input >= 0 &&
         ::write(m_system->input, text.data(), text.size()) == static_cast<::ssize_t>(text.size());
}

void child_process::close_input() {
  if (m_system->input >= 0) ::close(std::exchange(m_system->input, -1));
}

std::optional<std::string> child_process::next_line(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    const std::size_t line_feed = m_pending.find('\n');
    if (line_feed != std::string::npos) {
      std::string line = m_pending.substr(0, line_feed);
      m_pending.erase(0, line_feed + 1);
      return line;
    }
    const auto left = std::max(0ms, std::chrono::duration_cast<std::chrono::milliseconds>(
                                        end - std::chrono::steady_clock::now()));
    ::pollfd wanted = {m_system->output, POLLIN, 0};
    const int ready = ::poll(&wanted, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    std::array<char, 4096> buffer;
    const ::ssize_t done = ::read(m_system->output, buffer.data(), buffer.size());
    if (done <= 0) return std::nullopt;
    m_pending.append(buffer.data(), static_cast<std::size_t>(done));
  }
}

std::optional<int> child_process::wait(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!m_system->exit_code) {
    int status = 0;
    const ::pid_t ended = ::waitpid(m_system->process, &status, WNOHANG);
    if (ended < 0) throw system_error("waitpid", errno);
    if (ended > 0) {
      m_system->exit_code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    } else if (std::chrono::steady_clock::now() >= end) {
      return std::nullopt;
    } else {
      std::this_thread::sleep_for(1ms);
    }
  }
  return m_system->exit_code;
}

void child_process::kill() {
  // After the exit code was collected, the number may belong to another process.
  if (!m_system->exit_code) ::kill(m_system->process, SIGKILL);
}

void child_process::stop() {
  ::kill(m_system->process, SIGSTOP);
  int status = 0;
  if (::waitpid(m_system->process, &status, WUNTRACED) != m_system->process ||
      !WIFSTOPPED(status)) {
    throw std::runtime_error("test support: the helper process did not stop");
  }
}

void child_process::resume() { ::kill(m_system->process, SIGCONT); }

#endif

child_process::child_process(child_process&&) noexcept = default;

child_process::~child_process() {
  if (m_system == nullptr) return;
  try {
    if (!wait(0ms)) {
      kill();
      if (!wait()) std::cerr << "test support: a helper process cannot be ended" << std::endl;
    }
  } catch (const std::exception& e) {
    std::cerr << e.what() << std::endl;
  }
}

bool child_process::hears(const std::string& line, std::chrono::milliseconds limit) {
  const std::optional<std::string> heard = next_line(limit);
  if (heard == line) return true;
  ADD_FAILURE() << "the helper process should say \"" << line << "\" and "
                << (heard ? "says \"" + *heard + "\"" : "says nothing");
  return false;
}

bool child_process::stays_silent(std::chrono::milliseconds time) {
  const std::optional<std::string> heard = next_line(time);
  if (!heard) return !wait(0ms);
  m_pending.insert(0, *heard + "\n");
  return false;
}
