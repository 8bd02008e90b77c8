#pragma once

#include <cstdint>
#include <string>

#include "vu_export.h"

VU_STORAGE_TYPES_BEGIN

/// The exception of the file layer. It has no base class: catch it by name.
///
/// The handles throw it from open, read and write, always with the code 0. Other failures of the
/// file layer are results and traces: see vu_file.
///
/// @all_blocking{no}
/// @all_threads{several may read one object; to change or destroy it, use it alone}
class VU_STORAGE_API vu_file_except {
 public:
  /// @param message the text, stored unchanged.
  /// @param code an error code, 32 bits signed. Nothing returns it, and the text does not contain
  /// it.
  vu_file_except(std::string message = "", std::int32_t code = 0);
  /// An independent copy.
  /// @param other what is copied.
  vu_file_except(const vu_file_except& other);
  /// Copies text and code.
  /// @param other what is copied.
  /// @return this exception.
  vu_file_except& operator=(const vu_file_except& other);
  /// Frees the text.
  ~vu_file_except();

  /// @return a copy of the message.
  std::string what() const;

 private:
  [[maybe_unused]] std::int32_t code;
  std::string message;
};

VU_STORAGE_TYPES_END
