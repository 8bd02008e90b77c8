#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// @file
/// Temporary folders of the kit: with long paths, on drives and on shares.
namespace kit {

// std::filesystem::path only stores texts here. It is not used to split them: the runtime treats
// the server of a share as a folder.

/// The absolute path without "." and "..", and without a separator at its end. Also for shares.
std::filesystem::path full_path(const std::filesystem::path& path);
bool is_on_share(const std::filesystem::path& path);
/// The parent folder; a drive or a share is its own parent.
std::filesystem::path parent_of(const std::filesystem::path& path);

/// The system's text for an error, with its number.
std::string system_text(unsigned long code);

/// The "\\?\" form, which has no classic limit.
std::wstring long_form(const std::filesystem::path& path);

/// Creates a folder and its missing parents. @return the created folders, outermost first.
/// @throws std::runtime_error if one cannot be created.
std::vector<std::filesystem::path> make_folders(const std::filesystem::path& folder);

/// Removes a folder with all its content, also if it is read-only. A link is removed, its target
/// stays. Retries for some seconds if a file is in use. @return whether it is removed.
bool remove_tree(const std::filesystem::path& folder);

/// Atomic replacement of a file. @return whether it succeeded.
bool replace_file(const std::filesystem::path& path, const std::string& bytes);

/// The folder's short name, if its path is long or not ASCII. The test programs use ASCII paths,
/// and some of their own paths are long.
std::filesystem::path short_form(const std::filesystem::path& folder);
bool is_ascii(const std::wstring& text);

/// A folder for one run of the kit, reserved for the object's lifetime, and removed at its end.
class WorkFolder {
 public:
  /// Creates a folder in @p where (created if missing). Removes folders of killed runs.
  explicit WorkFolder(const std::filesystem::path& where);
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  /// Removes the folder now. @return whether nothing is left.
  bool remove();

 private:
  std::filesystem::path m_path;
  std::vector<std::filesystem::path> m_made;  ///< parents that did not exist before
  void* m_taken = nullptr;
};

/// UTF-8 for the console and the reports.
std::string utf8_of(const std::wstring& text);

// ------------------------------------------------------------------------------------------------
// A drive letter for a share. Two cases also use something that outlives their process: a drive
// letter, and a disk in a file. A case releases it, unless it is killed.

/// A drive letter for a folder on a share, during this session. The runtime of the test programs
/// treats the path of a share as a path on the current drive.
class BorrowedLetter {
 public:
  explicit BorrowedLetter(std::filesystem::path folder);
  ~BorrowedLetter();
  BorrowedLetter(const BorrowedLetter&) = delete;
  BorrowedLetter& operator=(const BorrowedLetter&) = delete;

  /// "X:\"; empty if there is no free letter.
  std::filesystem::path root() const;

 private:
  std::filesystem::path m_folder;
  std::wstring m_drive;
};

/// Releases the drive letters that lead into a folder, and the disks in it.
void give_back_what_was_borrowed(const std::filesystem::path& folder);

}  // namespace kit
