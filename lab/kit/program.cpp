#include "lab/kit/kit.h"

#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <vector>

namespace kit {
namespace {

class Handle {
 public:
  explicit Handle(HANDLE handle) : m_handle(handle) {}
  ~Handle() {
    if (m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE) ::CloseHandle(m_handle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  HANDLE get() const { return m_handle; }

 private:
  HANDLE m_handle;
};

HANDLE opened(const wchar_t* path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  return ::CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// A job that ends its processes, helpers included, when its last handle is closed.
HANDLE job_that_ends_with_us() {
  const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

/// Set once the user stops the run.
HANDLE stop_event() {
  static const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return event;
}

/// Waits for the end of the process, the time limit, or a stop.
void wait_for(HANDLE process, std::chrono::seconds limit, const Waiting& waiting, Ended& ended) {
  constexpr std::chrono::seconds kStep{5};
  const HANDLE both[] = {process, stop_event()};
  // A program that starts after a stop only cleans up, so the stop does not end it.
  const DWORD count = is_stopped() ? 1 : 2;
  std::chrono::seconds waited{0};
  for (;;) {
    const std::chrono::milliseconds step = std::min(kStep, limit - waited);
    const DWORD first =
        ::WaitForMultipleObjects(count, both, FALSE, static_cast<DWORD>(step.count()));
    if (first == WAIT_OBJECT_0) return;
    ended.was_stopped = first == WAIT_OBJECT_0 + 1;
    waited += kStep;
    ended.was_in_time = waited < limit;
    if (ended.was_stopped || !ended.was_in_time) return;
    if (waiting) waiting(waited);
  }
}

bool begins_with(const std::wstring& text, const wchar_t* begin) {
  return text.rfind(begin, 0) == 0;
}

/// Whether a variable of this name (in capitals) could change what a test program does.
bool is_hostile(const std::wstring& name) {
  // The user sets it on purpose; see docs/porting.md.
  if (name == L"VU_KIT_SMALL_DISK") return false;
  for (const wchar_t* const begin : {L"VU_", L"GTEST_", L"STGCTL", L"TESTBRIDGE_", L"TEST_"})
    if (begins_with(name, begin)) return true;
  for (const wchar_t* const whole :
       {L"XML_OUTPUT_FILE", L"TZ", L"NO_COLOR", L"COLUMNS", L"LINES", L"LANG", L"PAGER"})
    if (name == whole) return true;
  return begins_with(name, L"LC_");
}

std::vector<std::wstring> names_of_environment() {
  std::vector<std::wstring> names;
  wchar_t* const block = ::GetEnvironmentStringsW();
  for (const wchar_t* each = block; *each != L'\0'; each += std::wcslen(each) + 1) {
    // The current folders of drives are variables whose names begin with "=".
    const std::wstring line = each;
    const std::size_t end = line.find(L'=', 1);
    if (end != std::wstring::npos && line[0] != L'=') names.push_back(line.substr(0, end));
  }
  ::FreeEnvironmentStringsW(block);
  return names;
}

}  // namespace

void request_stop() { ::SetEvent(stop_event()); }
bool is_stopped() { return ::WaitForSingleObject(stop_event(), 0) == WAIT_OBJECT_0; }

void clean_environment(const std::filesystem::path& temporary) {
  for (const std::wstring& name : names_of_environment()) {
    std::wstring capitals = name;
    std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                   [](wchar_t c) { return static_cast<wchar_t>(std::towupper(c)); });
    if (is_hostile(capitals)) ::SetEnvironmentVariableW(name.c_str(), nullptr);
  }
  for (const wchar_t* const name : {L"TMP", L"TEMP", L"VU_TEST_TMP"})
    ::SetEnvironmentVariableW(name, temporary.c_str());
}

std::wstring quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit, const Waiting& waiting) {
  const Handle output(opened(log.c_str(), GENERIC_WRITE, CREATE_ALWAYS));
  const Handle input(opened(L"NUL", GENERIC_READ, OPEN_EXISTING));
  const Handle job(job_that_ends_with_us());
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = input.get();
  start.hStdOutput = start.hStdError = output.get();
  PROCESS_INFORMATION info = {};
  std::wstring writable = line;
  Ended ended;
  const auto begin = std::chrono::steady_clock::now();
  ended.was_started = ::CreateProcessW(nullptr, writable.data(), nullptr, nullptr, TRUE,
                                       CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr, folder.c_str(),
                                       &start, &info) != FALSE;
  if (!ended.was_started) {
    ended.code = ::GetLastError();
    return ended;
  }
  const Handle process(info.hProcess);
  const Handle thread(info.hThread);
  ::AssignProcessToJobObject(job.get(), process.get());
  ::ResumeThread(thread.get());
  wait_for(process.get(), limit, waiting, ended);
  // Also ends its helpers, even if the program itself has ended.
  ::TerminateJobObject(job.get(), 99);
  ::WaitForSingleObject(process.get(), 10'000);
  DWORD code = 0;
  ::GetExitCodeProcess(process.get(), &code);
  ended.code = code;
  ended.time = std::chrono::steady_clock::now() - begin;
  return ended;
}

}  // namespace kit
