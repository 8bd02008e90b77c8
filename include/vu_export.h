#pragma once

/// @file
/// Marks what the library exports.
///
/// `VU_STORAGE_API` stands before every exported class and function. Programs that link the DLL
/// need no definition of their own; the library's own compilation defines `VU_STORAGE_BUILDING`, a
/// static build (the test programs that look inside) defines `VU_STORAGE_STATIC`.

/// Before each exported class and function; empty in a static build.
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

/// Around exported classes with private members of standard types. MSVC warns of each, since a
/// program might have a runtime library of its own; library and programs share one
/// (docs/host-guide.md).
#if defined(_MSC_VER)
#define VU_STORAGE_TYPES_BEGIN __pragma(warning(push)) __pragma(warning(disable : 4251 4275))
/// Behind them.
#define VU_STORAGE_TYPES_END __pragma(warning(pop))
#else
#define VU_STORAGE_TYPES_BEGIN
/// Behind them.
#define VU_STORAGE_TYPES_END
#endif
