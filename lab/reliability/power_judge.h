#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
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

}  // namespace reliability
