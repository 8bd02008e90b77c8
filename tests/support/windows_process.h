#pragma once

#include <windows.h>

#include <string>

/// Starts a program with the handles of @p start. Retries on an internal error of Wine, which can
/// occur when another process was just killed.
/// @param variables the environment as a block; null: the environment of this process.
/// @param info receives the handles; the caller closes them.
/// @return whether the program was started; if not, ::GetLastError() has the reason.
inline bool start_program(const std::wstring& program, const std::wstring& command,
                          wchar_t* variables, STARTUPINFOW& start, PROCESS_INFORMATION& info) {
  constexpr int kAttempts = 20;
  constexpr DWORD kPause = 50;  // milliseconds
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt != 0) ::Sleep(kPause);
    std::wstring line = command;
    if (::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                         CREATE_UNICODE_ENVIRONMENT, variables, nullptr, &start, &info)) {
      return true;
    }
    if (::GetLastError() != ERROR_INTERNAL_ERROR) break;
  }
  return false;
}
