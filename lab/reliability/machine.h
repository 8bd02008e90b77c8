#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/model/tree.h"
#include "platform/os/os.h"

class child_process;

/// @file
/// What the suites need from the system, besides tests/support. Each system has one source file.
namespace reliability::machine {

/// Failures that a system reports.
enum class Trouble : std::uint8_t { kNotFound, kDenied, kDiskFull, kLocked, kNoName, kBroken };
os::Status status_of(Trouble trouble);

/// Call it at the start of every process. Output is not buffered. Writing to a helper that has
/// ended is an error and does not end this process.
void prepare_process();
/// Sets an environment variable for this process and its children.
void set_variable(const std::string& name, const std::string& value);
/// A folder of a file system in memory; empty if there is none.
std::string memory_folder();

/// The number of open handles, or a number that grows with it.
std::uint64_t open_handles();
/// The bytes of memory that this process allocated and did not free; 0 if they are unknown.
std::uint64_t memory_in_use();
/// The inaccuracy of memory_in_use(), in bytes.
std::uint64_t memory_slack();
/// Whether operations on a folder with thousands of files take seconds, as under Wine.
bool large_folders_are_slow();
/// Whether closing an old copy of a closed handle leaves other files open.
bool stale_copies_are_harmless();

/// Stops a helper process. If the system has no call for that, the process waits in hear().
void stop(child_process& helper);
void resume(child_process& helper);

/// Runs a role in another process, in the quickest way. @return its exit code.
int run_apart(const std::string& role, const std::vector<std::string>& args);
/// Whether open_handles() is exact, and the library allocates only through this operator new.
bool handles_and_allocations_are_exact();

/// Whether this process can read the folder VU_INCLUDE_FOLDER.
bool sees_the_sources();

/// Whether this process is the superuser.
bool is_superuser();

}  // namespace reliability::machine

// ------------------------------------------------------------------------------------------------
// Changes a real folder without the library, and compares it with a folder in memory. It must be
// quick: a run calls it a million times. There is one source file per system.

namespace reliability::ground {

void write(const std::string& path, const std::string& bytes);
void make_folder(const std::string& path);
/// Removes a file or an empty folder.
void remove(const std::string& path);
/// Sets the times of the last modification and the last access.
void set_time(const std::string& path, std::int64_t seconds);
void set_read_only(const std::string& path, bool read_only);
/// The names in a folder, in the order of the system.
std::vector<std::string> listing(const std::string& path);

enum class After { kKeep, kEmpty };

/// The first difference between a real folder and one in memory; empty if they are equal. With
/// After::kEmpty it also removes the content of the real folder.
std::string difference(const std::string& path, const model::Node& expected, After after);

/// The text with escapes for characters that cannot be printed.
std::string shown(const std::string& text);

}  // namespace reliability::ground
