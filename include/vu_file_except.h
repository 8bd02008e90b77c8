#pragma once

#include <cstdint>
#include <string>

#include "vu_export.h"

VU_STORAGE_TYPES_BEGIN

/// The one exception of the file layer.
///
/// It has no base class: catch it by name. The handles throw it from open, read and write, always
/// with the code 0; every other failure of the file layer is a result and a trace.
class VU_STORAGE_API vu_file_except {
 public:
  /// @param message the text, kept exactly as given.
  /// @param code an error code, 32 bits signed; it has no accessor and is no part of the text.
  /// @blocking{no} @threads{any}
  vu_file_except(std::string message = "", std::int32_t code = 0);
  /// An independent copy.
  /// @param other what is copied.
  /// @blocking{no} @threads{any, while none changes @p other}
  vu_file_except(const vu_file_except& other);
  /// Copies text and code.
  /// @param other what is copied.
  /// @return this exception.
  /// @blocking{no} @threads{one at a time on one exception}
  vu_file_except& operator=(const vu_file_except& other);
  /// Frees the text.
  /// @blocking{no} @threads{the last one that uses the exception}
  ~vu_file_except();

  /// @return a copy of the message.
  /// @blocking{no} @threads{any, while none changes the exception}
  std::string what() const;

 private:
  [[maybe_unused]] std::int32_t code;
  std::string message;
};

VU_STORAGE_TYPES_END
