#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/tree_state.h"

/// @file
/// Checks that a disk after a power failure has the state before or after an operation.
namespace reliability {

/// A name for messages: short, without control characters.
std::string shortened(std::string_view name);

/// The text of every entry, by key.
using Known = std::map<std::string, std::string>;

/// A defect of a kind such as "lost", "invented", "redirected" or "between"; empty for none.
struct Harm {
  std::string kind;
  std::string what;
};

/// The entries of a text that the caller keeps. See visit_lines() for lines without "/".
using LineViews = std::map<std::string_view, std::string_view>;

/// An index text with its entries.
struct IndexText {
  explicit IndexText(std::string whole);

  std::shared_ptr<const std::string> text;
  LineViews lines;
};

/// Checks that the text has exactly the entries of @p before or of @p after, valid or not.
Harm judge_index(std::string_view bytes, const IndexText& before, const IndexText& after);
/// How @p found differs from both.
Harm difference(const LineViews& found, const LineViews& before, const LineViews& after);
LineViews views_of(const reader::Lines& lines);

/// One operation: the entries that it changes, and the number of the change that completes it.
struct PowerStep {
  /// Bytes that move and are always under one of the two names. @p from may be an orphan.
  struct Move {
    std::string from;
    std::string to;
    std::string text;
  };

  std::map<std::string, std::optional<std::string>>
      result;  ///< text by key; empty for a removed entry
  std::vector<Move> moves;
  std::size_t end = 0;
};

/// What the returned operations guarantee, and what the current one may change.
class Promise {
 public:
  explicit Promise(Known known) : m_kept(std::move(known)) {}

  void begin(const PowerStep& step);
  void end(const PowerStep& step);
  /// @param folder the folder of the index, with "/" at its end.
  Harm judge(const Tree& tree, const std::string& folder) const;

 private:
  Known m_kept;
  std::set<std::string> m_in_motion;
  std::vector<PowerStep::Move> m_moves;
};

// ------------------------------------------------------------------------------------------------
// The folders and operations of power-loss.

/// The index before the operations.
enum class IndexKind : std::uint8_t {
  kNone,     ///< no index.dat
  kNoBytes,  ///< created, but not written
  kBlank,    ///< without an entry
  kOneLine,
  kLines,        ///< about PowerScenario::size bytes
  kLongLines,    ///< with lines longer than a sector
  kForeignTail,  ///< its last line has no line feed
  kJunkTail,     ///< its last line has no line feed and no "/"
};

struct PowerScenario {
  std::string folder;  ///< below the root, with "/" at its end
  IndexKind kind = IndexKind::kLines;
  std::size_t size = 0;
  std::size_t strays = 0;      ///< number of orphans
  std::size_t operations = 0;  ///< how many, one after the other
  bool synchronize = false;
  bool is_mail =
      false;  ///< the orphans are mails with escaped names, and the first operation migrates them
  bool is_large = false;

  std::string index() const { return folder + "index.dat"; }
};

/// Returns the scenarios one after the other.
PowerScenario power_scene(std::uint64_t round, std::mt19937_64& random);

/// A folder on a disk, and operations on it.
class PowerWork {
 public:
  /// Fills the folder.
  PowerWork(const std::string& root, const PowerScenario& scenario, std::mt19937_64& random);
  /// Uses the folder as it is; @p tree is its content.
  PowerWork(const std::string& root, const PowerScenario& scenario, std::mt19937_64& random,
            const Tree& tree);

  const Known& known() const { return m_known; }
  /// Runs one operation. The caller sets PowerStep::end.
  PowerStep operate();
  /// Whether the library finds some of the entries. @return a key that it does not find, or empty.
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
  const PowerScenario& m_scenario;
  std::mt19937_64& m_random;
  Known m_known;
  reader::Lines m_lines;  ///< the entries, if the constructor did not fill the folder
  std::vector<std::pair<std::string, std::string>> m_mails;  ///< escaped names and texts
  bool m_is_converted = false;
};

}  // namespace reliability
