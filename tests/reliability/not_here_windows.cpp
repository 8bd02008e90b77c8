// Suites that this system cannot run. They say so, which is neither passed nor failed.

#include "tests/reliability/reliability.h"

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

}  // namespace
}  // namespace reliability
