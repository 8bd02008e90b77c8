#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <windows.h>

// Needs the types of <windows.h>.
#include <psapi.h>

#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

namespace reliability::machine {

os::Status status_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNotFound: return {ERROR_FILE_NOT_FOUND, os::Failure::kNotFound};
    case Trouble::kDenied: return {ERROR_ACCESS_DENIED, os::Failure::kOther};
    case Trouble::kDiskFull: return {ERROR_DISK_FULL, os::Failure::kOther};
    case Trouble::kLocked: return {ERROR_LOCK_VIOLATION, os::Failure::kLocked};
    case Trouble::kNoName: return {ERROR_INVALID_NAME, os::Failure::kNoName};
    case Trouble::kBroken: return {ERROR_IO_DEVICE, os::Failure::kOther};
  }
  return {};
}

void prepare_process() { std::setvbuf(stdout, nullptr, _IONBF, 0); }

void set_variable(const std::string& name, const std::string& value) {
  ::_putenv_s(name.c_str(), value.c_str());
}

std::string memory_folder() {
  // Wine shows the folders of the system below it.
  const char* const folder = "Z:\\dev\\shm";
  return ::GetFileAttributesA(folder) != INVALID_FILE_ATTRIBUTES ? folder : std::string();
}

// A new handle gets the lowest free number, so a leaked handle raises that number. (Not every
// system counts the handles of a process.)
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

// The system counts pages, and the heap keeps some of them.
std::uint64_t memory_slack() { return std::uint64_t{512} * 1024; }

bool large_folders_are_slow() { return !locks_are_enforced(); }

bool stale_copies_are_harmless() { return false; }

void stop(child_process&) {}

void resume(child_process&) {}

int run_apart(const std::string& role, const std::vector<std::string>& args) {
  child_process child(role, args);
  return child.wait().value_or(-1);
}

// The strings of the C++ library use its own operator new.
bool handles_and_allocations_are_exact() { return false; }

bool sees_the_sources() { return false; }

bool is_superuser() { return false; }

}  // namespace reliability::machine

// ------------------------------------------------------------------------------------------------

namespace reliability::ground {
namespace {

std::string walk(const std::string& path, const model::Node* expected, After after) {
  std::string result;
  std::size_t met = 0;
  for (const std::string& name : list_folder(path)) {
    const std::string inner = path + "\\" + name;
    const model::Node* node = nullptr;
    if (expected != nullptr) {
      const auto found = expected->names.find(name);
      if (found != expected->names.end()) node = &found->second;
      if (node == nullptr && result.empty()) result = inner + " should not be there";
      if (node != nullptr) ++met;
    }
    if (folder_exists(inner)) {
      if (node != nullptr && !node->is_folder && result.empty()) result = inner + " is a folder";
      const std::string below = walk(inner, node, after);
      if (result.empty()) result = below;
    } else if (node != nullptr && result.empty()) {
      const std::string bytes = node->is_folder ? "" : read_file(inner);
      if (node->is_folder) {
        result = inner + " is a file";
      } else if (bytes != node->bytes) {
        result = inner + " contains " + shown(bytes) + " instead of " + shown(node->bytes);
      } else if (get_modify_time(inner) != node->time) {
        result = inner + " has another time";
      } else if (is_writable(inner) == node->is_read_only) {
        result = inner + " has another read-only mark";
      }
    }
    if (after == After::kEmpty) remove(inner);
  }
  if (expected != nullptr && result.empty() && met != expected->names.size())
    result = path + " lacks a name";
  return result;
}

}  // namespace

void write(const std::string& path, const std::string& bytes) { write_file(path, bytes); }
void make_folder(const std::string& path) { ::make_folder(path); }
void remove(const std::string& path) { std::filesystem::remove(native(path)); }
void set_time(const std::string& path, std::int64_t seconds) { set_modify_time(path, seconds); }
void set_read_only(const std::string& path, bool read_only) {
  if (read_only) {
    make_read_only(path);
  } else {
    make_writable(path);
  }
}
std::vector<std::string> listing(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(native(path)))
    names.push_back(entry.path().filename().string());
  return names;
}

std::string difference(const std::string& path, const model::Node& expected, After after) {
  return walk(path, &expected, after);
}

}  // namespace reliability::ground

// ------------------------------------------------------------------------------------------------
// Suites that cannot run on this system. They report that, which is neither passed nor failed.

namespace reliability {
namespace {

void full_disk(Run& run) { run.not_run("this system has no file system of a chosen size"); }
REGISTER_SUITE(full_disk, "full-disk",
               "operations with 0 to 64 KB of free space, alone and with another writer",
               "operations", 0, Scratch::kMemory)

void read_only(Run& run) {
  run.not_run("Wine decides about read-only files by the permissions of its user");
}
REGISTER_SUITE(read_only, "read-only", "read-only files and folders, for a user and the superuser",
               "answers", 0, Scratch::kMemory)

void power_cut(Run& run) { run.not_run("it needs the loop devices of Linux"); }
REGISTER_SUITE(power_cut, "power-cut", "file systems that are shut down during operations",
               "crashes", 10'000, Scratch::kMemory)
void power_cut_noticed(Run& run) { power_cut(run); }
REGISTER_SUITE(power_cut_noticed, "power-cut-noticed",
               "operations without a flush are seen to lose entries", "crashes", 200,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
