#pragma once

#include <gtest/gtest.h>

#if defined(_WIN32)
inline constexpr bool kOnWindows = true;
// Declared here, because only the seam may include the system's header.
extern "C" __declspec(dllimport) void* __stdcall GetModuleHandleA(const char* name);
extern "C" __declspec(dllimport) void* __stdcall GetProcAddress(void* module, const char* name);
inline bool is_emulated() {
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}
#else
inline constexpr bool kOnWindows = false;
inline bool is_emulated() { return false; }
#endif

/// Skips a test of something that only a real Windows kernel does. Wine does not enforce locks
/// between handles. It maps the read-only attribute to permissions, which the superuser ignores.
#define NEEDS_A_REAL_KERNEL(what)                                                         \
  do {                                                                                    \
    if (is_emulated()) GTEST_SKIP() << "Wine does not do this, Windows does: " << (what); \
  } while (false)
