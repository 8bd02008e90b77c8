#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/system.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"

/// @file
/// Files that the client writes itself: outside of the tree, and those in it that the library
/// addresses by path alone.
namespace stgctl {

/// @throws Failure kRefused for a path in the tree.
void check_outside_tree(Context& context, const std::string& path);

/// The name of a file that is not complete yet, in the folder where it is to be.
inline constexpr std::string_view kUnfinishedName = ".stgctl-part";

/// A file could not be written: the next one will hardly fare better.
class WriteFailure : public Failure {
 public:
  using Failure::Failure;
};

/// A file that has its name only once it is complete: until then it is written beside it.
class NewFile {
 public:
  enum class IfGivenUp : std::uint8_t { kRemove, kKeep };

  /// Missing folders are made. @param unfinished the path until commit().
  /// @throws WriteFailure kFailed, as all of it, with the reason.
  NewFile(std::string path, std::string unfinished, IfGivenUp if_given_up = IfGivenUp::kRemove);
  /// Beside @p path under kUnfinishedName.
  explicit NewFile(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view bytes);
  /// Completes the file: it gets its time, if one is given, and then its name. A file of that name
  /// is replaced.
  void commit(std::optional<std::int64_t> modify_time = std::nullopt);

 private:
  [[noreturn]] void fail();

  std::string m_path;
  std::string m_unfinished;
  IfGivenUp m_if_given_up;
  std::ofstream m_stream;
  bool m_committed = false;
};

/// Gives a file its modification time. @throws Failure kFailed with the reason.
void set_modify_time(const std::string& path, std::int64_t seconds);

/// The bytes of a file, counted.
struct Content {
  std::uint64_t bytes = 0;
  std::string checksum;
};
/// Reads a file as a whole, and copies it when a copy is wanted.
/// @throws Failure kFailed with the reason, kLockTimeout, kInterrupted; WriteFailure.
Content read_content(const std::string& path, const admin::sys::Locking& locking,
                     NewFile* copy = nullptr);

/// The names in a folder, sorted. @throws Failure kFailed when it cannot be listed.
std::vector<std::string> names_of_folder(const std::string& path);

}  // namespace stgctl
