// Compares the library with the literal implementation: storage_bench_plain [--quick] [FOLDER]
//
// For systems without the databases and the benchmark library (the Windows build under Wine). The
// folder has 1,000 entries. Times are medians of interleaved repetitions, in microseconds per
// operation:
//
//   exists, hit / miss     STGIndex::exists of an entry, of a name with another timestamp
//   lastVersion, plValues  operations on the whole index, synchronisation switch on
//   create, remove         creating and removing an entry with an empty file; switch on
//
// The library must be at least 50 times faster than the literal implementation.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "lab/bench/literal.h"
#include "stg_index.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kEntries = 1000;
constexpr double kRequired = 50;
constexpr auto kOn = literal::Synchronize::kOn;

std::string logical_name(std::size_t entry) {
  char text[32];
  std::snprintf(text, sizeof text, "Report %06u.kdb", static_cast<unsigned>(entry));
  return text;
}

/// Fills the folder. The order of the file numbers is not the order of the names.
void fill(const std::string& folder) {
  constexpr std::size_t kStep = 617;  // coprime to the number of entries
  std::string text;
  for (std::size_t i = 0; i < kEntries; ++i) {
    char stored[16];
    std::snprintf(stored, sizeof stored, "%.8u", static_cast<unsigned>(i * kStep % kEntries + 1));
    text += logical_name(i) + "_0000000007/" + stored + "\n";
    vu_file file(folder, std::string(stored) + ".kdb");
    file.open(vu_file::o_truncate);
    file.close();
  }
  vu_file index(folder, "index.dat");
  index.open(vu_file::o_truncate);
  index.write(text);
  index.close();
  vu_file counter(folder, "index");
  counter.open(vu_file::o_truncate);
  char last[16];
  std::snprintf(last, sizeof last, "%.8u", static_cast<unsigned>(kEntries));
  counter.write(std::string(last));
  counter.close();
}

/// @return seconds per call.
double time_of(const std::function<void()>& work, int times) {
  const Clock::time_point start = Clock::now();
  for (int i = 0; i < times; ++i) work();
  return std::chrono::duration<double>(Clock::now() - start).count() / times;
}

double middle(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Workload {
  const char* name;
  std::function<void()> library;
  std::function<void()> literal;
  std::function<void()> undo;  ///< not timed
};

/// Prints one row of the table. @return whether the requirement is met.
bool compare(const Workload& workload, int repetitions) {
  const int times = workload.undo ? 1 : 20;
  const auto run = [&](const std::function<void()>& work, int count) {
    const double seconds = time_of(work, count);
    if (workload.undo) workload.undo();
    return seconds;
  };
  std::vector<double> library;
  std::vector<double> literal;
  run(workload.library, 1);
  for (int i = 0; i < repetitions; ++i) {
    library.push_back(run(workload.library, times));
    literal.push_back(run(workload.literal, 1));
  }
  const double faster = middle(literal) / middle(library);
  std::printf("| %s | %.1f | %.1f | %.0f | %s |\n", workload.name, middle(library) * 1e6,
              middle(literal) * 1e6, faster, faster >= kRequired ? "ok" : "**missed**");
  return faster >= kRequired;
}

int run(const std::string& folder, int repetitions) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  fill(folder);
  STGIndex::setSynchronizeMode(true);

  const std::string middle_name = logical_name(kEntries / 2);
  std::string physical;
  long latest = 0;
  STGIndex::NameMap names;
  const std::vector<Workload> workloads = {
      {"exists, hit",
       [&] { STGIndex::exists(folder, middle_name, 7, physical); },
       [&] { literal::exists(folder, middle_name, 7, physical); },
       {}},
      {"exists, miss",
       [&] { STGIndex::exists(folder, middle_name, 8, physical); },
       [&] { literal::exists(folder, middle_name, 8, physical); },
       {}},
      {"lastVersion",
       [&] { STGIndex::lastVersion(folder, middle_name, latest); },
       [&] { literal::last_version(folder, middle_name, latest, kOn); },
       {}},
      {"plValues",
       [&] { STGIndex::plValues(folder, names); },
       [&] { literal::pl_values(folder, names, "", kOn); },
       {}},
      {"create", [&] { STGIndex::create(folder, middle_name, 8); },
       [&] { literal::create(folder, middle_name, 8, kOn); },
       [&] { STGIndex::remove(folder, middle_name, 8); }},
      {"remove", [&] { STGIndex::remove(folder, middle_name, 7); },
       [&] { literal::remove(folder, middle_name, 7, kOn); },
       [&] { STGIndex::create(folder, middle_name, 7); }},
  };
  std::printf(
      "| %u entries | library | literal | literal / library | at least %.0f |\n"
      "|---|--:|--:|--:|---|\n",
      static_cast<unsigned>(kEntries), kRequired);
  std::size_t missed = 0;
  for (const Workload& workload : workloads) missed += compare(workload, repetitions) ? 0 : 1;
  std::printf("\nRequirements missed: %u\n", static_cast<unsigned>(missed));
  if (names.size() != kEntries) std::fprintf(stderr, "error: a wrong list\n");
  std::filesystem::remove_all(folder);
  return names.size() == kEntries ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const bool is_quick = argc > 1 && std::string(argv[1]) == "--quick";
    const int named = is_quick ? 2 : 1;
    const std::string folder =
        argc > named ? argv[named]
                     : (std::filesystem::temp_directory_path() / "storage-bench-plain").string();
    return run(folder, is_quick ? 3 : 7);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
  }
}
