#include "lab/kit/program.h"

#include <windows.h>

namespace kit {
namespace {

/// Closes a handle when it goes.
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

/// What ends with the last handle of it, helpers included.
HANDLE job_that_ends_with_us() {
  const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

}  // namespace

std::wstring quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit) {
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
  // No box asks anybody when a program dies.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
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
  const auto milliseconds =
      static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(limit).count());
  ended.was_in_time = ::WaitForSingleObject(process.get(), milliseconds) == WAIT_OBJECT_0;
  if (!ended.was_in_time) {
    ::TerminateJobObject(job.get(), 99);
    ::WaitForSingleObject(process.get(), 10'000);
  }
  DWORD code = 0;
  ::GetExitCodeProcess(process.get(), &code);
  ended.code = code;
  ended.time = std::chrono::steady_clock::now() - begin;
  return ended;
}

}  // namespace kit
