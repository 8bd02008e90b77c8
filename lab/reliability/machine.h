#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/model/tree.h"
#include "platform/os/os.h"

class child_process;

/// @file
/// What the suites ask of the system, besides tests/support. One file per system.
namespace reliability::machine {

/// What can go wrong, as a system reports it.
enum class Trouble : std::uint8_t { kNotFound, kDenied, kDiskFull, kLocked, kNoName, kBroken };
os::Status status_of(Trouble trouble);

/// At the start of every process: what is said goes out at once, and telling a helper that has died
/// is an error, not the end.
void prepare_process();
/// Sets an environment variable for this process and those that it starts.
void set_variable(const std::string& name, const std::string& value);
/// A folder on a file system in memory; empty when there is none.
std::string memory_folder();

/// How many files (and whatever else is counted with them) this process has open, or a number that
/// grows with that.
std::uint64_t open_handles();
/// The memory that this process has obtained and not given back, in bytes; 0 where nobody knows.
std::uint64_t memory_in_use();
/// How exactly that is known.
std::uint64_t memory_slack();
/// Whether an operation on a folder of thousands of files takes seconds here (an emulator's
/// look-up).
bool large_folders_are_slow();
/// Whether a copy of a handle that is closed late leaves other files alone.
bool stale_copies_are_harmless();

/// Stops a helper where it stands; where the system has no call for that the helper goes on, and
/// does what it does in hear().
void stop(child_process& helper);
void resume(child_process& helper);

/// Runs a role in a process of its own, as quickly as the system can. @return its exit code.
int run_apart(const std::string& role, const std::vector<std::string>& args);
/// Whether open_handles() is a count, and whether the library's allocations are all this program's.
bool handles_and_allocations_are_exact();

/// Whether VU_INCLUDE_FOLDER means something to this process.
bool sees_the_sources();

/// Whether this process may do what no ordinary user may.
bool is_superuser();

}  // namespace reliability::machine

// ------------------------------------------------------------------------------------------------
// A real folder beside a tree in memory: what is changed behind the library's back, and the
// comparison of both. Quick, since it happens a million times. One file per system.

namespace reliability::ground {

void write(const std::string& path, const std::string& bytes);
void make_folder(const std::string& path);
/// A file or an empty folder.
void remove(const std::string& path);
/// Of last modification and last access.
void set_time(const std::string& path, std::int64_t seconds);
void set_read_only(const std::string& path, bool read_only);
/// The names in a folder as the system lists them.
std::vector<std::string> listing(const std::string& path);

enum class After { kKeep, kEmpty };

/// What differs between a real folder and one in memory, and then nothing of the real one's content
/// is left, if so wished. Empty when they are equal.
std::string difference(const std::string& path, const model::Node& expected, After after);

/// A text with what cannot be printed made visible.
std::string shown(const std::string& text);

}  // namespace reliability::ground
