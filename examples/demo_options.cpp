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
                  "' is no number from 20 to 100000; leave it out for 400");
  return number;
}

}  // namespace

Options read_options(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (++i == arguments.size() || arguments[i].empty())
        throw Refusal(name + " needs a value; see --help");
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
      throw Refusal("unknown argument '" + name + "'; see --help");
    }
  }
  if (!options.help && options.root.empty())
    throw Refusal("no folder to work in; name one with --root DIR");
  return options;
}

const char* usage() {
  return "usage: storage_demo --root DIR [--source DIR]... [--max-files N] [--fresh] [--trace "
         "FILE]\n"
         "       storage_demo --root DIR --verify-only MANIFEST [--trace FILE]\n"
         "\n"
         "Fills a new storage below DIR with files of the source folders, uses every part of the\n"
         "library on it, and checks what comes back. DIR/manifest.tsv tells what is stored then;\n"
         "with --verify-only this or another build of the program compares the storage with it "
         "and\n"
         "changes nothing.\n"
         "\n"
         "  --root DIR              where to work; made when missing\n"
         "  --source DIR            take files from here; may be repeated (default: "
         "documentation,\n"
         "                          fonts, headers and certificates of the system)\n"
         "  --max-files N           how many of them, 20 to 100000 (default 400)\n"
         "  --fresh                 remove what an earlier run of this program left in DIR\n"
         "  --verify-only MANIFEST  compare the storage below DIR with the manifest\n"
         "  --trace FILE            write the library's trace to FILE\n"
         "\n"
         "The exit code is 0 when all checks passed, 1 when one failed, 2 when it did not start.\n";
}

}  // namespace demo
