#pragma once

#include <exception>
#include <string>

#include "index/index_format.h"
#include "vu_file_except.h"

/// The source name of the index's traces.
inline constexpr const char* kIndexSource = "stg_index";

using index_format::kCounterFile;
using index_format::kIndexFile;

/// The text of the exception that is being handled.
inline std::string text_of_current_exception() {
  try {
    throw;
  } catch (const vu_file_except& e) {
    return e.what();
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown exception";
  }
}
