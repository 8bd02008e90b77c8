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

#include "lab/reliability/index_reader.h"
#include "lab/reliability/tree_state.h"

/// @file
/// Whether what is found after the power went off is what was there before an operation or what is
/// there after it.
namespace reliability {

/// A name as it can be told in a line.
std::string shortened(std::string_view name);

/// The text of every entry, by key.
using Known = std::map<std::string, std::string>;

/// What is wrong: "lost", "invented", "redirected" or "between" of a line, or another word; empty
/// when nothing is.
struct Harm {
  std::string kind;
  std::string what;
};

/// Lines of a text that somebody else keeps: a line that runs on has the rest of the text as its
/// name.
using LineViews = std::map<std::string_view, std::string_view>;

/// A text, read once.
struct IndexText {
  explicit IndexText(std::string whole);

  std::shared_ptr<const std::string> text;
  LineViews lines;
};

/// Judges by all lines, whether their files are there or not: exactly those of one of the texts.
Harm judge_index(std::string_view bytes, const IndexText& before, const IndexText& after);
/// How @p found differs from both.
Harm difference(const LineViews& found, const LineViews& before, const LineViews& after);
LineViews views_of(const Lines& lines);

/// One operation: what it makes of the entries, and where its changes end among all.
struct PowerStep {
  /// Bytes that go from one name to another: they are always under one of them. The first one may
  /// be a file that no line names.
  struct Move {
    std::string from;
    std::string to;
    std::string text;
  };

  std::map<std::string, std::optional<std::string>> result;  ///< text by key; nothing for what goes
  std::vector<Move> moves;
  std::size_t end = 0;
};

/// What operations that returned have promised, and what the one under way may change.
class Promise {
 public:
  explicit Promise(Known known) : m_kept(std::move(known)) {}

  void begin(const PowerStep& step);
  void end(const PowerStep& step);
  /// @param folder of the index, with a "/" at its end.
  Harm judge(const Tree& tree, const std::string& folder) const;

 private:
  Known m_kept;
  std::set<std::string> m_in_motion;
  std::vector<PowerStep::Move> m_moves;
};

// ------------------------------------------------------------------------------------------------
// The folders and operations of power-loss.

/// How an index looks before the operations.
enum class IndexKind : std::uint8_t {
  kNone,     ///< there is no index.dat
  kNoBytes,  ///< it was made and not written
  kBlank,    ///< it has no line
  kOneLine,
  kLines,        ///< of PowerScenario::size bytes, about
  kLongLines,    ///< longer than a sector
  kForeignTail,  ///< the last line has no line feed
  kJunkTail,     ///< the last line has neither line feed nor "/"
};

struct PowerScenario {
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

/// The scenarios come in turn.
PowerScenario power_scene(std::uint64_t round, std::mt19937_64& random);

/// A folder on a disk, and operations in it.
class PowerWork {
 public:
  /// Fills the folder.
  PowerWork(const std::string& root, const PowerScenario& scenario, std::mt19937_64& random);
  /// Takes it as it is found, which is @p tree.
  PowerWork(const std::string& root, const PowerScenario& scenario, std::mt19937_64& random,
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
  const PowerScenario& m_scenario;
  std::mt19937_64& m_random;
  Known m_known;
  Lines m_lines;                                             ///< when the folder was taken as found
  std::vector<std::pair<std::string, std::string>> m_mails;  ///< escaped names, and texts
  bool m_is_converted = false;
};

}  // namespace reliability
