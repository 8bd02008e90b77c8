#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scratch.h"

/// A vu_file in a helper process, controlled by one line per command.
class remote_file : public child_process {
 public:
  explicit remote_file(const std::string& path) : child_process("hold_file", {path}) {}

  /// Starts to open the file; the helper may have to wait. @param mode "read", "write", "append" or
  /// "truncate". The helper says "locked" or "unlocked" when the file is open.
  void begin_open(const std::string& mode) {
    tell("open " + mode);
    hears("opening");
  }
  /// Opens the file. Only for an open that does not have to wait.
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

// The functions below read a storage folder without the library.

/// The lines of "index.dat": key and physical name, in the order of the file. An index without
/// entries is one blank.
inline std::vector<std::pair<std::string, std::string>> index_lines(const std::string& folder) {
  const std::string text = read_file(folder + "\\index.dat");
  std::vector<std::pair<std::string, std::string>> lines;
  if (text == " ") return lines;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t slash = text.find('/', start);
    const std::size_t end = text.find('\n', start);
    if (slash == std::string::npos || end == std::string::npos || slash > end) {
      ADD_FAILURE() << "a line of index.dat is not a valid entry: " << text.substr(start);
      break;
    }
    lines.emplace_back(text.substr(start, slash - start), text.substr(slash + 1, end - slash - 1));
    start = end + 1;
  }
  return lines;
}

inline std::string key_of(const std::string& logical, int timestamp) {
  const std::string digits = std::to_string(timestamp);
  return logical + "_" + std::string(10 - digits.size(), '0') + digits;
}

/// The physical name of an entry; empty if "index.dat" has no line or several lines for it.
inline std::string stored_name(const std::string& folder, const std::string& logical,
                               int timestamp) {
  std::string found;
  for (const auto& [key, stored] : index_lines(folder)) {
    if (key != key_of(logical, timestamp)) continue;
    if (!found.empty()) return {};
    found = stored;
  }
  return found;
}

/// The files in a folder except the index and the counter.
inline std::vector<std::string> data_files(const std::string& folder) {
  std::vector<std::string> names;
  for (const std::string& each : list_folder(folder)) {
    if (each != "index.dat" && each != "index") names.push_back(each);
  }
  return names;
}

/// Waits until a condition is true. @return false after kPatience.
template <class Condition>
bool wait_until(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + child_process::kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// Waits until a folder contains at least @p count data files.
inline bool wait_for_data_files(const std::string& folder, std::size_t count) {
  return wait_until([&] { return data_files(folder).size() >= count; });
}

/// Index operations in a helper process, controlled by one line per command.
class remote_index : public child_process {
 public:
  enum class synchronisation { off, on };

  explicit remote_index(const std::string& folder, synchronisation mode = synchronisation::off)
      : child_process("use_index", {folder, mode == synchronisation::on ? "on" : "off"}) {}

  /// Starts an operation, such as "create NAME TIMESTAMP", "remove NAME TIMESTAMP" or "update"; the
  /// helper may have to wait. It says "done" and, after a blank, the result.
  void begin(const std::string& operation) {
    tell(operation);
    hears("begun");
  }
  /// Runs an operation. @return its result.
  std::string result_of(const std::string& operation) {
    begin(operation);
    return result();
  }
  /// The result of the operation that begin() started.
  std::string result() {
    const std::string line = next_line().value_or("no answer");
    if (line.rfind("done ", 0) == 0) return line.substr(5);
    return line == "done" ? std::string() : "unexpected: " + line;
  }
};
