#include "demo_options.h"

#include <charconv>
#include <system_error>

namespace demo {

namespace {

constexpr std::size_t kFewestFiles = 20;
constexpr std::size_t kMostFiles = 100000;

std::size_t number_of_files(const std::string& text) {
  std::size_t number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number < kFewestFiles || number > kMostFiles)
    throw Refusal("--max-files '" + text +
                  "' is not a number from 20 to 100000: use such a number or omit the option");
  return number;
}

}  // namespace

Options read_options(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (++i == arguments.size() || arguments[i].empty())
        throw Refusal(name + " has no value: see --help");
      return arguments[i];
    };
    if (name == "--help" || name == "-h") {
      options.help = true;
    } else if (name == "--fresh") {
      options.fresh = true;
    } else if (name == "--root") {
      options.root = value();
    } else if (name == "--source") {
      options.sources.push_back(value());
    } else if (name == "--verify-only") {
      options.verify_only = value();
    } else if (name == "--trace") {
      options.trace = value();
    } else if (name == "--max-files") {
      options.max_files = number_of_files(value());
    } else {
      throw Refusal("unknown argument '" + name + "': see --help");
    }
  }
  if (!options.help && options.root.empty())
    throw Refusal("no folder is given: name one with --root DIR");
  return options;
}

const char* usage() {
  return "usage: storage_demo --root DIR [--source DIR]... [--max-files N] [--fresh] [--trace "
         "FILE]\n"
         "       storage_demo --root DIR --verify-only MANIFEST [--trace FILE]\n"
         "\n"
         "Stores files of the source folders in a new storage below DIR, uses every part of the\n"
         "library, and checks each result. DIR/manifest.tsv lists the stored documents. With\n"
         "--verify-only this or another build of the program compares the storage with a manifest\n"
         "and changes nothing.\n"
         "\n"
         "  --root DIR              folder for the storage; created when missing\n"
         "  --source DIR            source folder; may be repeated (default: documentation,\n"
         "                          fonts, headers and certificates of the system)\n"
         "  --max-files N           the most files to store, 20 to 100000 (default 400)\n"
         "  --fresh                 remove the files of an earlier run of this program from DIR\n"
         "  --verify-only MANIFEST  compare the storage below DIR with the manifest\n"
         "  --trace FILE            write the library's trace to FILE\n"
         "\n"
         "Exit codes: 0 all checks passed, 1 a check failed, 2 the program did not start.\n";
}

}  // namespace demo
