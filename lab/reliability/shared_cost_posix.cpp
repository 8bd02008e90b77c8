// The cost of operations on a shared file system and on the local disk: times and round trips. Also
// what the attribute caches of a mount save, and how long they hide changes.

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/shared_posix.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "vu_file.h"

namespace reliability {
namespace {

constexpr long kStamp = 7;

std::string number(double value) {
  char text[40];
  std::snprintf(text, sizeof text, value < 10 ? "%.2f" : "%.0f", value);
  return text;
}

/// The round trips since the last call, by kind.
std::map<std::string, double> round_trips() {
  std::map<std::string, double> found;
  std::istringstream lines(control("round-trips"));
  std::string name;
  double count = 0;
  while (lines >> name >> count) found[name] = count;
  return found;
}

struct Cost {
  double per_second = 0;
  double round_trips = 0;
  std::string which;
};

/// @param act the measured operation; its argument is the number of the turn.
Cost measure(std::size_t times, bool counts, const std::function<void(std::size_t)>& act) {
  if (counts) round_trips();
  const auto begin = Clock::now();
  for (std::size_t i = 0; i < times; ++i) act(i);
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  Cost cost;
  cost.per_second = static_cast<double>(times) / seconds;
  if (!counts) return cost;
  for (const auto& [name, count] : round_trips()) {
    const double each = count / static_cast<double>(times);
    cost.round_trips += each;
    if (each >= 0.05) cost.which += " " + name + " " + number(each);
  }
  return cost;
}

// ---- operations ---------------------------------------------------------------------------------

std::string entry_name(std::size_t i) { return "document " + std::to_string(i) + ".kdb"; }

/// Creates a folder with entries directly, in the format of the library (docs/formats.md). Creating
/// them one by one would take minutes on a mount.
void fill(const std::string& folder, std::size_t entries) {
  make_folder(folder);
  reader::Lines lines;
  for (std::size_t i = 0; i < entries; ++i) {
    char stored[24];
    std::snprintf(stored, sizeof stored, "%08zu", i + 1);
    const std::string logical = entry_name(i);
    lines[reader::key_for(logical, kStamp)] = stored;
    write_file(folder + "\\" + stored + ".kdb", content_of(logical));
  }
  write_file(folder + "\\index.dat", reader::index_text_of(lines));
  write_file(folder + "\\index", std::to_string(entries));
}

void replace_document(const std::string& folder, const std::string& logical) {
  std::string physical;
  if (!STGIndex::exists(folder, logical, kStamp, physical))
    throw std::runtime_error(logical + " is not an entry");
  vu_file file(folder, physical);
  file.open(vu_file::o_truncate);
  file.write(content_of(logical));
  file.close();
}

struct Operation {
  const char* name;
  std::function<void(const std::string& folder, std::size_t turn)> act;
};

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      {"exists, hit",
       [](const std::string& folder, std::size_t turn) {
         std::string physical;
         if (!STGIndex::exists(folder, entry_name(turn % 50), kStamp, physical))
           throw std::runtime_error("no entry");
       }},
      {"exists, miss",
       [](const std::string& folder, std::size_t turn) {
         std::string physical;
         if (STGIndex::exists(folder, "none " + std::to_string(turn), kStamp, physical))
           throw std::runtime_error("an entry that was never created");
       }},
      {"read",
       [](const std::string& folder, std::size_t turn) {
         const std::string wrong = read_document(folder, entry_name(turn % 50));
         if (!wrong.empty()) throw std::runtime_error(wrong);
       }},
      {"replace", [](const std::string& folder,
                     std::size_t turn) { replace_document(folder, entry_name(turn % 50)); }},
      {"create and write",
       [](const std::string& folder, std::size_t turn) {
         create_document(folder, "new " + std::to_string(turn) + ".kdb");
       }},
      {"remove", [](const std::string& folder, std::size_t turn) {
         STGIndex::remove(folder, "new " + std::to_string(turn) + ".kdb", kStamp);
       }}};
  return all;
}

void measure_operations(Run& run, std::size_t entries, const std::string& local,
                        const std::string& shared) {
  fill(local, entries);
  fill(shared, entries);
  for (const Operation& each : operations()) {
    constexpr std::size_t kTimes = 20;
    const Cost here = measure(kTimes * 10, false, [&](std::size_t turn) { each.act(local, turn); });
    const Cost there = measure(kTimes, true, [&](std::size_t turn) { each.act(shared, turn); });
    run.figure(std::to_string(entries) + " entries, " + each.name,
               "local disk " + number(here.per_second) + " per second; mount " +
                   number(there.per_second) + " per second, " + number(there.round_trips) +
                   " round trips:" + there.which);
    run.counted(kTimes);
  }
}

// ---- one listing, or a check of each name -------------------------------------------------------

void measure_judgement(Run& run, std::size_t names, const std::string& local,
                       const std::string& shared) {
  for (const std::string* const folder : {&local, &shared}) {
    make_folder(*folder);
    for (std::size_t i = 0; i < names; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "%08zu.kdb", i);
      write_file(*folder + "\\" + name, "");
    }
  }
  const auto list = [](const std::string& folder) {
    os::Listing entries;
    if (!os::list(folder + "\\", entries).ok()) throw std::runtime_error("no listing");
    return entries;
  };
  const os::Listing known = list(local);
  if (known.size() != names || list(shared).size() != names)
    run.fail("a listing has another number of names than were created");
  const auto ask = [&](const std::string& folder) {
    for (const os::Entry each : known) {
      const std::string path = folder + "\\" + std::string(each.name);
      if (!os::probe_search(path).ok()) throw std::runtime_error("no file");
    }
  };
  constexpr std::size_t kTimes = 3;
  const auto as_text = [](const Cost& cost, bool counted) {
    return number(1000 / cost.per_second) + " ms" +
           (counted ? ", " + number(cost.round_trips) + " round trips" : "");
  };
  for (const bool is_shared : {false, true}) {
    const std::string& folder = is_shared ? shared : local;
    const Cost listed = measure(kTimes, is_shared, [&](std::size_t) { list(folder); });
    const Cost asked = measure(kTimes, is_shared, [&](std::size_t) { ask(folder); });
    run.figure(std::to_string(names) + " entries checked, " + (is_shared ? "mount" : "local disk"),
               "one listing " + as_text(listed, is_shared) + "; a look-up each " +
                   as_text(asked, is_shared));
  }
  run.counted(kTimes);
}

// ---- caches -------------------------------------------------------------------------------------

/// How long the old state stays visible after the change by the other host.
Clock::duration until(const std::function<bool()>& is_new) {
  const auto begin = Clock::now();
  while (!is_new() && Clock::now() - begin < std::chrono::seconds(20))
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return Clock::now() - begin;
}

/// How long B sees the old state of files that A changed.
void measure_hidden(Run& run, const std::string& what, const SharedFolder& folder) {
  Clock::duration size{}, gone{}, made{};
  const std::string& a = folder.seen_by(Host::kA);
  const std::string& b = folder.seen_by(Host::kB);
  for (int round = 0; round < 5; ++round) {
    const std::string name = "\\hidden" + std::to_string(round);
    os::FileStat found;
    // B looks first, so that its cache has an answer.
    (void)os::probe_search(b + name + "new");
    write_file(a + name, "1");
    (void)os::stat(b + name, found);
    write_file(a + name, "two");
    size = std::max(size, until([&] { return os::stat(b + name, found).ok() && found.size == 3; }));
    write_file(a + name + "new", "");
    made = std::max(made, until([&] { return os::probe_search(b + name + "new").ok(); }));
    std::filesystem::remove(native(a + name));
    gone = std::max(gone, until([&] { return !os::probe_search(b + name).ok(); }));
  }
  run.figure(what + ", longest time with the old state",
             "size " + as_milliseconds(size) + ", a new name missing " + as_milliseconds(made) +
                 ", a removed name there " + as_milliseconds(gone));
}

/// Measures B with caches that keep answers for a second, and without caches.
void measure_caches(Run& run) {
  for (const char* const caches : {"kept", "none"}) {
    control("unmount b");
    control(std::string("mount b ") + caches);
    const std::string what = std::string("caches ") + caches;
    const SharedFolder folder;
    fill(folder.seen_by(Host::kB) + "\\entries", 60);
    for (const Operation& each : {operations()[0], operations()[2]}) {
      const Cost cost = measure(40, true, [&](std::size_t turn) {
        each.act(folder.seen_by(Host::kB) + "\\entries", turn);
      });
      run.figure(what + ", " + each.name, number(cost.per_second) + " per second, " +
                                              number(cost.round_trips) +
                                              " round trips:" + cost.which);
    }
    measure_hidden(run, what, folder);
  }
  control("unmount b");
  control("mount b");
}

void shared_cost(Run& run) {
  if (!two_hosts_and_control(run)) return;
  STGIndex::setSynchronizeMode(false);
  const scratch_folder local;
  const SharedFolder shared;
  for (const std::size_t entries : {100U, 1000U}) {
    const std::string name = "operations" + std::to_string(entries);
    measure_operations(run, entries, local.path(name), shared.seen_by(Host::kA) + "\\" + name);
  }
  for (const std::size_t names : {1U, 10U, 100U, 1000U}) {
    const std::string name = "judged" + std::to_string(names);
    measure_judgement(run, names, local.path(name), shared.seen_by(Host::kA) + "\\" + name);
  }
  measure_caches(run);
}
REGISTER_SUITE(shared_cost, "shared-cost",
               "operations per second and round trips, on a mount and on the local disk",
               "operations", 0, Scratch::kDisk)

}  // namespace
}  // namespace reliability
