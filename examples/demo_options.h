#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace demo {

/// Why the program does not start: one line that names the thing and the remedy.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line.
struct Options {
  std::string root;                  ///< folder that takes the storage and what stands beside it
  std::vector<std::string> sources;  ///< folders to take files from; none: the system's own
  std::string verify_only;           ///< manifest of an earlier run to compare the storage with
  std::string trace;                 ///< file for the library's trace
  std::size_t max_files = 400;       ///< source files to take
  bool fresh = false;                ///< remove what an earlier run left in the root
  bool help = false;
};

/// @throws Refusal for a command line that makes no sense.
Options read_options(const std::vector<std::string>& arguments);

/// The text of --help.
const char* usage();

}  // namespace demo
