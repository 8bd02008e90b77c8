#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "vu_file_except.h"

/// @file
/// How exceptions become results of vu_storage.
namespace storage {

/// The source name of all traces in this folder.
inline constexpr const char* kSource = "vu_storage";

/// Passed instead of the second handler: the operation lets those exceptions out.
struct PassOn {};
inline constexpr PassOn kPassOn;

namespace detail {

/// Runs a handler, whose exceptions must not replace the operation's result.
template <class Handler>
void say(Handler&& handler) noexcept {
  try {
    std::forward<Handler>(handler)();
  } catch (...) {
    // The trace is lost.
  }
}

}  // namespace detail

/// Runs the body of an operation and returns its result, or @p failure if it throws.
///
/// A handler is a lambda that captures by reference and traces with the record macros. These use
/// the scope of the enclosing operation:
///
///     return guarded(
///         false, [&] { ...; return true; },
///         [&](const std::string& text) { VU_ERROR("vu_storage::OpenWrite : ", text); },
///         [&] { VU_ERROR("vu_storage::OpenWrite : Can't open file for write : ", entry); });
///
/// @param on_file_error is called with the text of a vu_file_except. @param on_any_other is called
/// for every other exception; kPassOn in its place lets these exceptions out.
template <class Result, class Body, class OnFileError, class OnAnyOther>
Result guarded(Result failure, Body&& body, OnFileError&& on_file_error,
               OnAnyOther&& on_any_other) {
  try {
    return std::forward<Body>(body)();
  } catch (const vu_file_except& error) {
    detail::say([&] { on_file_error(error.what()); });
  } catch (...) {
    if constexpr (std::is_same_v<std::remove_cvref_t<OnAnyOther>, PassOn>) {
      throw;
    } else {
      detail::say([&] { on_any_other(); });
    }
  }
  return failure;
}

/// The same for an operation without a result.
template <class Body, class OnFileError, class OnAnyOther>
void guarded(Body&& body, OnFileError&& on_file_error, OnAnyOther&& on_any_other) {
  guarded(
      false,
      [&] {
        body();
        return true;
      },
      on_file_error, on_any_other);
}

}  // namespace storage
