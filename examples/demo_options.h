#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace demo {

/// The reason why the program does not start: one line with the cause and the remedy.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line.
struct Options {
  std::string root;                  ///< folder for the storage and the other files of a run
  std::vector<std::string> sources;  ///< source folders; none: default_sources()
  std::string verify_only;           ///< manifest of an earlier run to compare the storage with
  std::string trace;                 ///< file for the library's trace
  std::size_t max_files = 400;       ///< the most source files to store
  bool fresh = false;                ///< remove the files of an earlier run from the root
  bool help = false;
};

/// @throws Refusal for an invalid command line.
Options read_options(const std::vector<std::string>& arguments);

/// The text of --help.
const char* usage();

}  // namespace demo
