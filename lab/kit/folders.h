#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// @file
/// Folders that the kit makes and takes away again: of any length, on drives and on shares.
namespace kit {

// std::filesystem::path keeps the texts; it is not asked for parts of them, since the runtime takes
// the name of a share's server for a folder.

/// The whole path, "." and ".." resolved, without a separator at its end; also of a share.
std::filesystem::path full_path(const std::filesystem::path& path);
bool is_on_share(const std::filesystem::path& path);
/// The folder that holds it; of a drive, and of a share, itself.
std::filesystem::path parent_of(const std::filesystem::path& path);

/// What the system says to an error, and its number.
std::string system_text(unsigned long code);

/// The form that has no classic limit.
std::wstring long_form(const std::filesystem::path& path);

/// Makes a folder and its missing parents. @return those that it has made, the outermost first;
/// throws std::runtime_error when one cannot be made.
std::vector<std::filesystem::path> make_folders(const std::filesystem::path& folder);

/// Removes a folder with everything in it, read-only things included. A link goes, and what it
/// leads to stays. What somebody still holds is tried again for some seconds.
/// @return whether it has gone.
bool remove_tree(const std::filesystem::path& folder);

/// Replaces a file as a whole: whoever ends the run meanwhile leaves the old one or the new one.
/// @return whether it could.
bool replace_file(const std::filesystem::path& path, const std::string& bytes);

/// The folder's short name, where it is long or has letters beyond ASCII: the test programs write
/// their paths in ASCII, and some of these are long themselves.
std::filesystem::path short_form(const std::filesystem::path& folder);
bool is_ascii(const std::wstring& text);

/// A folder for one run of the kit, taken until the object goes, which removes it.
class WorkFolder {
 public:
  /// In @p where, which is made when it is missing. Folders of runs that were killed are removed.
  explicit WorkFolder(const std::filesystem::path& where);
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  /// Removes it now. @return whether nothing is left.
  bool remove();

 private:
  std::filesystem::path m_path;
  std::vector<std::filesystem::path> m_made;  ///< parents that were not there before
  void* m_taken = nullptr;
};

/// The same text for the console and the reports.
std::string utf8_of(const std::wstring& text);

// ------------------------------------------------------------------------------------------------
// A drive letter for a share; and what two cases borrow that outlives a process, a letter and a
// disk in a file. They give it back themselves, unless they are ended before they can.

/// A drive letter that leads to a folder, for this session: the runtime of the test programs takes
/// the path of a share for one on the current drive.
class BorrowedLetter {
 public:
  explicit BorrowedLetter(std::filesystem::path folder);
  ~BorrowedLetter();
  BorrowedLetter(const BorrowedLetter&) = delete;
  BorrowedLetter& operator=(const BorrowedLetter&) = delete;

  /// "X:\"; empty where none could be had.
  std::filesystem::path root() const;

 private:
  std::filesystem::path m_folder;
  std::wstring m_drive;
};

/// Takes back what leads into a folder, or lies in it as a disk.
void give_back_what_was_borrowed(const std::filesystem::path& folder);

}  // namespace kit
