#pragma once

#include <gtest/gtest.h>

#if defined(_WIN32)
inline constexpr bool kOnWindows = true;
// Without the system's own header, which only the seam may see.
extern "C" __declspec(dllimport) void* __stdcall GetModuleHandleA(const char* name);
extern "C" __declspec(dllimport) void* __stdcall GetProcAddress(void* module, const char* name);
inline bool is_emulated() {
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}
#else
inline constexpr bool kOnWindows = false;
inline bool is_emulated() { return false; }
#endif

/// For what only a Windows kernel does. Wine leaves locks between handles to whoever asks for them,
/// and the read-only attribute to the permissions of the user, who may be the superuser.
#define NEEDS_A_REAL_KERNEL(what)                                                         \
  do {                                                                                    \
    if (is_emulated()) GTEST_SKIP() << "Wine does not do this, Windows does: " << (what); \
  } while (false)
