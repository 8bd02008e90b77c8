#pragma once

#include <filesystem>
#include <string>

/// @file
/// A drive letter for a share; and what two cases borrow that outlives a process, a letter and a
/// disk in a file. They give it back themselves, unless they are ended before they can.
namespace kit {

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
