#include "client/tests/stgctl/program.h"

#include <windows.h>

#include <array>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tests/support/windows_process.h"

namespace {

using namespace std::chrono_literals;

std::wstring widened(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).native();
}

/// One argument, quoted for the start code of a program.
std::wstring quoted(const std::wstring& argument) {
  std::wstring result = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') result.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    result += c;
  }
  result.append(backslashes, L'\\');
  return result + L"\"";
}

std::filesystem::path own_program() {
  std::array<wchar_t, 32768> buffer;
  const DWORD length =
      ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return std::wstring(buffer.data(), length);
}

/// A pipe with a writing end that a child inherits.
struct Pipe {
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  Pipe() {
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    if (!::CreatePipe(&reader, &writer, &inheritable, 0) ||
        !::SetHandleInformation(reader, HANDLE_FLAG_INHERIT, 0)) {
      throw std::runtime_error("test support: pipe");
    }
  }
};

}  // namespace

struct running_program::system_part {
  HANDLE process = nullptr;
  std::array<HANDLE, 2> readers = {};
  std::array<std::thread, 2> threads;
  std::array<std::string, 2> texts;
  std::mutex mutex;

  void read(std::size_t which) {
    std::array<char, 65536> buffer;
    DWORD count = 0;
    while (::ReadFile(readers.at(which), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                      nullptr) &&
           count > 0) {
      const std::scoped_lock guard(mutex);
      texts.at(which).append(buffer.data(), count);
    }
  }

  ~system_part() {
    if (process != nullptr) {
      ::TerminateProcess(process, 1);
      ::WaitForSingleObject(process, INFINITE);
      ::CloseHandle(process);
    }
    for (std::thread& thread : threads) {
      if (thread.joinable()) thread.join();
    }
    for (const HANDLE reader : readers) {
      if (reader != nullptr) ::CloseHandle(reader);
    }
  }
};

std::string client_path() { return (own_program().parent_path() / L"stgctl.exe").string(); }

running_program::running_program(const std::vector<std::string>& arguments,
                                 const std::map<std::string, std::string>& environment)
    : m_system(std::make_unique<system_part>()) {
  const std::wstring program = (own_program().parent_path() / L"stgctl.exe").native();
  std::wstring line = quoted(program);
  for (const std::string& argument : arguments) line += L" " + quoted(widened(argument));
  Pipe out;
  Pipe err;
  // One test at a time runs in a process; its children inherit the changed variables.
  for (const auto& [name, value] : environment) {
    ::SetEnvironmentVariableW(widened(name).c_str(),
                              value.empty() ? nullptr : widened(value).c_str());
  }
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const HANDLE nothing = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                       &inheritable, OPEN_EXISTING, 0, nullptr);
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = nothing;
  start.hStdOutput = out.writer;
  start.hStdError = err.writer;
  PROCESS_INFORMATION started = {};
  const bool good = start_program(program, line, nullptr, start, started);
  for (const auto& [name, value] : environment) {
    ::SetEnvironmentVariableW(widened(name).c_str(), nullptr);
  }
  for (const HANDLE each : {nothing, out.writer, err.writer}) ::CloseHandle(each);
  m_system->readers = {out.reader, err.reader};
  if (!good) throw std::runtime_error("test support: the client cannot be started");
  ::CloseHandle(started.hThread);
  m_system->process = started.hProcess;
  for (std::size_t i = 0; i < 2; ++i) {
    m_system->threads.at(i) = std::thread([this, i] { m_system->read(i); });
  }
}

running_program::~running_program() = default;

bool running_program::complains(const std::string& text) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    {
      const std::scoped_lock guard(m_system->mutex);
      if (m_system->texts[1].find(text) != std::string::npos) return true;
    }
    if (::WaitForSingleObject(m_system->process, 20) == WAIT_OBJECT_0) break;
  }
  const std::scoped_lock guard(m_system->mutex);
  return m_system->texts[1].find(text) != std::string::npos;
}

outcome running_program::wait() {
  const auto limit = static_cast<DWORD>(std::chrono::milliseconds(kPatience).count());
  const bool ended = ::WaitForSingleObject(m_system->process, limit) == WAIT_OBJECT_0;
  if (!ended) ::TerminateProcess(m_system->process, 1);
  ::WaitForSingleObject(m_system->process, INFINITE);
  for (std::thread& thread : m_system->threads) thread.join();
  DWORD code = 0;
  ::GetExitCodeProcess(m_system->process, &code);
  return {ended ? static_cast<int>(code) : -1, m_system->texts[0], m_system->texts[1]};
}
