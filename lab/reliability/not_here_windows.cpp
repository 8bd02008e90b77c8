// Suites that this system cannot run. They say so, which is neither passed nor failed.

#include "lab/reliability/reliability.h"

namespace reliability {
namespace {

void full_disk(Run& run) { run.not_run("no small disk can be made here"); }
REGISTER_SUITE(full_disk, "full-disk", "operations with 0 to 64 KB left, alone and beside a writer",
               "operations", 0, Scratch::kMemory)

void read_only(Run& run) {
  run.not_run("the emulator leaves read-only files to the permissions of its user");
}
REGISTER_SUITE(read_only, "read-only", "read-only files and folders, for a user and the superuser",
               "answers", 0, Scratch::kMemory)

void power_cut(Run& run) { run.not_run("it takes Linux's loop devices"); }
REGISTER_SUITE(power_cut, "power-cut", "file systems that are shut down while operations go on",
               "crashes", 10'000, Scratch::kMemory)
void power_cut_noticed(Run& run) { power_cut(run); }
REGISTER_SUITE(power_cut_noticed, "power-cut-noticed",
               "operations that flush nothing are found to lose entries", "crashes", 200,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
