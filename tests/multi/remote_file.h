#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/process.h"

/// A vu_file in a helper process, which does what it is told line by line.
class remote_file : public child_process {
 public:
  explicit remote_file(const std::string& path) : child_process("hold_file", {path}) {}

  /// Begins to open the file, which may have to wait. @param mode "read", "write", "append" or
  /// "truncate". It says "locked" or "unlocked" when the file is open.
  void begin_open(const std::string& mode) {
    tell("open " + mode);
    hears("opening");
  }
  /// Opens the file, which must not have to wait for long.
  void open(const std::string& mode) {
    begin_open(mode);
    hears("locked");
  }
  /// Tries without waiting: "open, locked", "open, refused" or "not open".
  std::string try_open(const std::string& mode) { return answer_to("try " + mode); }
  /// The whole content, or "exception " and its text.
  std::string read() { return answer_to("read"); }
  /// The number of bytes written, or "exception " and its text.
  std::string write(const std::string& text) { return answer_to("write " + text); }
  void close() { EXPECT_EQ(answer_to("close"), "closed"); }

 private:
  std::string answer_to(const std::string& command) {
    tell(command);
    return next_line().value_or("no answer");
  }
};
