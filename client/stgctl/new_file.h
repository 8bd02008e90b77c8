#pragma once

#include <fstream>

#include "client/stgctl/context.h"

/// @file
/// Files that the client writes itself: files outside the tree, and files in it that the library
/// addresses only by path.
namespace stgctl {

/// Whether a folder, or a file that exists, is the storage folder or in it.
bool is_in_tree(Context& context, const std::string& path);
/// @throws Failure kRefused for a path in the tree, or with a backslash on Linux.
void check_outside_tree(Context& context, const std::string& path);

/// Whether there is a file, which the command would overwrite.
/// @throws Failure kRefused if something else is there.
bool is_file_at(const std::string& path);

/// The name of an unfinished file, in the folder of the finished one.
inline constexpr std::string_view kUnfinishedName = ".stgctl-part";

/// A file could not be written. The next file will probably fail too.
class WriteFailure : public Failure {
 public:
  using Failure::Failure;
};

/// A file that gets its name only when it is complete. Until then it has another name in the same
/// folder.
class NewFile {
 public:
  enum class IfGivenUp : std::uint8_t { kRemove, kKeep };

  /// Creates missing folders. @param unfinished the path until commit().
  /// @throws WriteFailure kFailed with the reason, as do the other functions.
  NewFile(std::string path, std::string unfinished, IfGivenUp if_given_up = IfGivenUp::kRemove);
  /// Beside @p path under kUnfinishedName.
  explicit NewFile(const std::string& path);
  ~NewFile();

  void write(std::string_view bytes);
  /// Completes the file: sets its time, if one is given, then renames it over a file at the path.
  /// @throws also Failure kFailed if the time cannot be set.
  void commit(std::optional<std::int64_t> modify_time = std::nullopt);

 private:
  [[noreturn]] void fail();

  std::string m_path;
  std::string m_unfinished;
  IfGivenUp m_if_given_up;
  std::ofstream m_stream;
  bool m_committed = false;
};

/// Writes a whole file: first beside it, so that an existing file stays until the new one is whole.
/// @throws Failure kFailed, also if its folder does not exist.
void write_file(const std::string& path, std::string_view bytes);

/// Gives a file its modification time. @throws Failure kFailed with the reason.
void set_modify_time(const std::string& path, std::int64_t seconds);

/// The bytes of a file, counted.
struct Content {
  std::uint64_t bytes = 0;
  std::string checksum;
};
/// Reads a whole file, and copies it if a copy is requested.
/// @throws Failure kFailed with the reason, kLockTimeout, kInterrupted; WriteFailure.
Content read_content(const std::string& path, const sys::Locking& locking, NewFile* copy = nullptr);

/// Writes the bytes of a file to the standard output, until Ctrl-C.
os::Status write_out(Context& context, const std::string& path, const sys::Locking& locking);

/// The names in a folder, sorted. @throws Failure kFailed if it cannot be listed.
std::vector<std::string> names_of_folder(const std::string& path);

}  // namespace stgctl
