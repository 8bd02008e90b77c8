#pragma once

/// @file
/// Marks what the library exports. Programs that link the DLL define nothing. The build of the
/// library defines `VU_STORAGE_BUILDING`; a static build (tests) defines `VU_STORAGE_STATIC`.

/// Marks each exported class and function; empty in a static build.
#if defined(VU_STORAGE_STATIC)
#define VU_STORAGE_API
#elif defined(_WIN32)
#if defined(VU_STORAGE_BUILDING)
#define VU_STORAGE_API __declspec(dllexport)
#else
#define VU_STORAGE_API __declspec(dllimport)
#endif
#else
#define VU_STORAGE_API __attribute__((visibility("default")))
#endif

/// Before exported classes with private members of standard types. It silences a warning of MSVC
/// about different runtime libraries: library and programs share one (docs/host-guide.md).
#if defined(_MSC_VER)
#define VU_STORAGE_TYPES_BEGIN __pragma(warning(push)) __pragma(warning(disable : 4251 4275))
/// After them.
#define VU_STORAGE_TYPES_END __pragma(warning(pop))
#else
#define VU_STORAGE_TYPES_BEGIN
/// After them.
#define VU_STORAGE_TYPES_END
#endif
