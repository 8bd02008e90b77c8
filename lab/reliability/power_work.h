#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "lab/reliability/power_judge.h"

/// @file
/// The folders and operations of power-loss.
namespace reliability {

/// How an index looks before the operations.
enum class IndexKind : std::uint8_t {
  kNone,     ///< there is no index.dat
  kNoBytes,  ///< it was made and not written
  kBlank,    ///< it has no line
  kOneLine,
  kLines,        ///< of PowerScene::size bytes, about
  kLongLines,    ///< longer than a sector
  kForeignTail,  ///< the last line has no line feed
  kJunkTail,     ///< the last line has neither line feed nor "/"
};

struct PowerScene {
  std::string folder;  ///< below the root, with a "/" at its end
  IndexKind kind = IndexKind::kLines;
  std::size_t size = 0;
  std::size_t strays = 0;      ///< files that no line names
  std::size_t operations = 0;  ///< in a row
  bool synchronize = false;
  bool is_mail = false;  ///< strays are mails with escaped names, and the first operation converts
  bool is_large = false;

  std::string index() const { return folder + "index.dat"; }
};

/// The scenes come in turn.
PowerScene power_scene(std::uint64_t round, std::mt19937_64& random);

/// A folder on a disk, and operations in it.
class PowerWork {
 public:
  /// Fills the folder.
  PowerWork(const std::string& root, const PowerScene& scene, std::mt19937_64& random);
  /// Takes it as it is found, which is @p tree.
  PowerWork(const std::string& root, const PowerScene& scene, std::mt19937_64& random,
            const Tree& tree);

  const Known& known() const { return m_known; }
  /// One operation of the library; its end is left to the caller.
  PowerStep operate();
  /// Whether the library finds some of what is there. @return what it does not.
  std::string ask_the_library() const;

 private:
  std::string folder() const;
  std::string some_text();
  std::string new_name();
  std::string some_key();
  void fill();
  void fill_mails();

  PowerStep make();
  PowerStep write(const std::string& key);
  PowerStep remove();
  PowerStep rename();
  PowerStep save_keys();
  PowerStep adopt();
  PowerStep clean();
  PowerStep convert();

  const std::string m_root;
  const PowerScene& m_scene;
  std::mt19937_64& m_random;
  Known m_known;
  Lines m_lines;                                             ///< when the folder was taken as found
  std::vector<std::pair<std::string, std::string>> m_mails;  ///< escaped names, and texts
  bool m_is_converted = false;
};

}  // namespace reliability
