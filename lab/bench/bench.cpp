// Measures the library's speed against other contenders: storage_bench [options] [FILTER]
//
// All contenders run each workload in one run; their repetitions are interleaved:
//
//   library   the operation through the exported classes
//   floor     the system calls that the operation cannot omit (floor.h)
//   literal   a literal implementation, which probes the file of each index line (literal.h)
//   SQLite    the index in a database; opened for each operation like the library, or kept open
//   LMDB      likewise
//
// Times are microseconds per operation. "disk" is the folder of --disk, "memory" that of --memory.
// A folder has 100 to 100,000 entries of one version each, with empty files. "switch" is the
// synchronisation switch.
//
//   exists, hit              STGIndex::exists of an arbitrary entry
//   exists, miss             the same for an existing name with another timestamp
//   search for a key, a name  the search in the text of an index, in memory; floor: memchr
//   lastVersion              STGIndex::lastVersion of an arbitrary name, switch off and on
//   plValues, getVUDocs      the lists of all entries and of all documents (every entry is a
//                            document), switch on
//   getFileListFromIndexFile the same through vu_storage, as two lists
//   create                   STGIndex::create of a new name in the middle: number, empty file,
//                            index; switch off and on
//   remove                   STGIndex::remove of an entry in the middle, with its file
//   rename                   STGIndex::rename of an entry in the middle, with an empty file
//   updateIndexFile          STGIndex::updateIndexFile of a folder that needs no update
//   clean, nothing removed   STGIndex::cleanOutOfDateOutput with a limit that keeps all entries
//   clean, everything removed  the same with a limit that removes all entries
//   adoption                 STGIndex::updateIndexFile of a folder of files without an index
//   migration                STGIndex::migrateInboxRead of mails with escaped names, each with a
//                            line in the read list
//   OpenRead + Read + Close  a corporate document of 4 KB to 4 MB from a bucket of 100 entries
//   OpenWrite + Write + Close  a mail document, new or replaced, written and flushed
//   RemoveFile               a mail document, in a folder without category files
//   key file read, written   10,000 lines by readKeysFile and writeKeysFile (replaced, flushed)
//   copyFile                 4 MB onto an existing file; floor: the kernel's copy
//   copyToStorage            4 MB onto an existing document; floor: its steps and the kernel's copy
//   copyFromStorage          4 MB onto an existing file; floor: its steps and the kernel's copy
//
// After each operation its changes are undone; that time is not measured. A result that misses its
// requirement is printed as MISSED. It does not change the exit code.

#include <benchmark/benchmark.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "lab/bench/stage.h"
#include "lab/bench/table.h"

namespace {

struct Options {
  std::string disk = "build/bench/tree";
  std::string memory = "/dev/shm/vu-storage-bench";
  std::string results = "build/bench/results";
  std::string filter;
  bool quick = false;
};

constexpr const char* kUsage =
    "usage: storage_bench [--quick] [--disk FOLDER] [--memory FOLDER] [--results FILE] [FILTER]\n"
    "  --quick    folders of up to 1,000 entries, fewer repetitions\n"
    "  --disk     a folder on the device that is measured (it is emptied)\n"
    "  --memory   a folder on a file system in memory (it is emptied)\n"
    "  --results  FILE.md and FILE.json are written\n"
    "  FILTER     only workloads whose name, place or size contain it\n";

[[noreturn]] void refuse(const std::string& what) {
  std::cerr << "error: " << what << "\n" << kUsage;
  std::exit(2);
}

Options read_options(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    std::string* const wanted = word == "--disk"      ? &options.disk
                                : word == "--memory"  ? &options.memory
                                : word == "--results" ? &options.results
                                                      : nullptr;
    if (wanted != nullptr) {
      if (++i == argc) refuse(word + " needs a value");
      *wanted = argv[i];
    } else if (word == "--quick") {
      options.quick = true;
    } else if (word == "--help") {
      std::cout << kUsage;
      std::exit(0);
    } else if (word.starts_with("-") || !options.filter.empty()) {
      refuse("'" + word + "' is not understood");
    } else {
      options.filter = word;
    }
  }
  return options;
}

std::string file_system(const std::string& folder) {
  constexpr long kExt4 = 0xEF53;
  constexpr long kTmpfs = 0x01021994;
  struct ::statfs info {};
  if (::statfs(folder.c_str(), &info) != 0) return "unknown";
  if (info.f_type == kExt4) return "ext4";
  if (info.f_type == kTmpfs) return "tmpfs";
  char text[32];
  std::snprintf(text, sizeof text, "a file system of type 0x%lX",
                static_cast<unsigned long>(info.f_type));
  return text;
}

bench::Machine this_machine(const Options& options) {
  bench::Machine machine;
  machine.cores = std::thread::hardware_concurrency();
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line) && machine.processor.empty();) {
    if (line.starts_with("model name")) machine.processor = line.substr(line.find(':') + 2);
  }
  struct ::utsname system {};
  if (::uname(&system) == 0) machine.kernel = system.release;
  machine.kernel = machine.kernel.substr(0, machine.kernel.find('-'));
  machine.disk = file_system(options.disk);
  machine.memory = file_system(options.memory);
  return machine;
}

bench::Effort effort_for(const bench::Contest& contest, bool quick) {
  if (quick) return {0.01, 3, 3};
  if (contest.entries < 10000) return {0.02, 9, 5};
  if (contest.entries < 100000) return {0.02, 7, 3};
  return {0.02, 5, 1};
}

std::size_t largest_folder(const Options& options) { return options.quick ? 1000 : 100000; }

bool is_wanted(const bench::Contest& contest, const Options& options) {
  if (contest.entries > largest_folder(options)) return false;
  return (contest.workload + ", " + contest.place + ", " + contest.size).find(options.filter) !=
         std::string::npos;
}

void tell(const bench::Outcome& outcome) {
  std::printf("%-40s %-22s %-6s", outcome.contest.workload.c_str(), outcome.contest.size.c_str(),
              outcome.contest.place.c_str());
  for (const bench::Who who : bench::kEverybody) {
    if (outcome.has(who)) std::printf(" %10.1f", outcome.median(who) * 1e6);
  }
  for (const bench::Requirement& requirement : outcome.contest.requirements)
    std::printf(" %s", outcome.meets(requirement) ? "ok" : "MISSED");
  std::printf("\n");
  std::fflush(stdout);
}

int run(const Options& options) {
  // Absolute, because they are targets of symbolic links.
  bench::Stage stage(std::filesystem::absolute(options.disk).string(),
                     std::filesystem::absolute(options.memory).string(), largest_folder(options));
  std::vector<bench::Contest> contests;
  // Cleaning is last, because many removals make a file system slow to create files.
  for (const auto workloads :
       {bench::index_questions, bench::text_searches, bench::documents, bench::index_changes,
        bench::key_files, bench::copies, bench::arrivals, bench::cleaning}) {
    for (bench::Contest& contest : workloads(stage)) {
      if (is_wanted(contest, options)) contests.push_back(std::move(contest));
    }
  }
  if (contests.empty()) refuse("no workload's name contains '" + options.filter + "'");

  std::vector<bench::Outcome> outcomes;
  for (const bench::Contest& contest : contests) {
    outcomes.push_back(bench::run(contest, effort_for(contest, options.quick)));
    tell(outcomes.back());
  }
  const std::vector<bench::Flatness> flat = {
      {"clean, nothing removed", "disk", 100, 10000, 1.5},
      {"clean, everything removed", "disk", 100, 10000, 1.5}};
  const bench::Machine machine = this_machine(options);
  std::ofstream markdown(options.results + ".md");
  bench::write_markdown(markdown, machine, outcomes, flat);
  std::ofstream json(options.results + ".json");
  bench::write_json(json, machine, outcomes, flat);
  if (!markdown.flush() || !json.flush()) {
    std::cerr << "error: cannot write " << options.results << ".md and .json\n";
    return 1;
  }
  std::cout << "written: " << options.results
            << ".md and .json; requirements missed: " << bench::count_missed(outcomes, flat)
            << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = read_options(argc, argv);
    char program[] = "storage_bench";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char* arguments[] = {program, interleaving, nullptr};
    int count = 2;
    benchmark::Initialize(&count, arguments);
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << "\n";
    return 1;
  }
}
