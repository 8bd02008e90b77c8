#include <windows.h>

#include <psapi.h>

#include <cstdio>
#include <cstdlib>

#include "lab/reliability/machine.h"
#include "tests/support/process.h"

namespace reliability::machine {

os::Status status_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNotFound:
      return {ERROR_FILE_NOT_FOUND, os::Failure::kNotFound};
    case Trouble::kDenied:
      return {ERROR_ACCESS_DENIED, os::Failure::kOther};
    case Trouble::kDiskFull:
      return {ERROR_DISK_FULL, os::Failure::kOther};
    case Trouble::kLocked:
      return {ERROR_LOCK_VIOLATION, os::Failure::kLocked};
    case Trouble::kNoName:
      return {ERROR_INVALID_NAME, os::Failure::kNoName};
    case Trouble::kBroken:
      return {ERROR_IO_DEVICE, os::Failure::kOther};
  }
  return {};
}

void prepare_process() { std::setvbuf(stdout, nullptr, _IONBF, 0); }

void set_variable(const std::string& name, const std::string& value) {
  ::_putenv_s(name.c_str(), value.c_str());
}

std::string memory_folder() {
  // Under Wine the system beneath shows through.
  const char* const folder = "Z:\\dev\\shm";
  return ::GetFileAttributesA(folder) != INVALID_FILE_ATTRIBUTES ? folder : std::string();
}

// A new handle gets the lowest number that is free: one that is never closed moves it up. (Not
// every system counts a process's handles.)
std::uint64_t open_handles() {
  const HANDLE probe = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const auto number = reinterpret_cast<std::uintptr_t>(probe) / 4;
  ::CloseHandle(probe);
  return number;
}

std::uint64_t memory_in_use() {
  PROCESS_MEMORY_COUNTERS counters = {};
  ::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
  return counters.PagefileUsage;
}

// The system counts pages, of a heap that keeps some.
std::uint64_t memory_slack() { return std::uint64_t{512} * 1024; }

bool large_folders_are_slow() { return !locks_are_enforced(); }

bool stale_copies_are_harmless() { return false; }

void stop(child_process&) {}

void resume(child_process&) {}

int run_apart(const std::string& role, const std::vector<std::string>& args) {
  child_process child(role, args);
  return child.wait().value_or(-1);
}

// The strings of the C++ library come from its own operator new.
bool handles_and_allocations_are_exact() { return false; }

bool sees_the_sources() { return false; }

bool is_superuser() { return false; }

}  // namespace reliability::machine
