#include "lab/reliability/power_judge.h"

#include <algorithm>
#include <utility>

#include "lab/reliability/folder_state.h"

namespace reliability {
namespace {

constexpr auto kNone = std::string_view::npos;

/// Whether the text is another one with something behind it that no reader takes for a line.
bool is_text_and_rubbish(std::string_view text, std::string_view other) {
  return text.starts_with(other) && (other.empty() || other.back() == '\n') &&
         text.find('/', other.size()) == kNone;
}

const std::string* stored_in(const Lines& lines, const std::string& key) {
  const auto found = lines.find(key);
  return found == lines.end() ? nullptr : &found->second;
}

bool has(const LineViews& lines, std::string_view key, std::string_view stored) {
  const auto found = lines.find(key);
  return found != lines.end() && found->second == stored;
}

LineViews views_in(std::string_view text) {
  LineViews lines;
  visit_lines(text,
              [&](std::string_view key, std::string_view stored) { lines.emplace(key, stored); });
  return lines;
}

}  // namespace

IndexText::IndexText(std::string whole)
    : text(std::make_shared<const std::string>(std::move(whole))), lines(views_in(*text)) {}

LineViews views_of(const Lines& lines) { return {lines.begin(), lines.end()}; }

std::string shortened(std::string_view name) {
  std::string text(name.substr(0, 60));
  if (name.size() > 60) {
    text = std::string(name.substr(0, 30)) + "..." + std::string(name.substr(name.size() - 27));
  }
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
  return text;
}

Harm difference(const LineViews& found, const LineViews& before, const LineViews& after) {
  for (const auto& [key, stored] : found) {
    if (has(before, key, stored) || has(after, key, stored)) continue;
    const bool is_known = before.count(key) != 0 || after.count(key) != 0;
    return {is_known ? "redirected" : "invented", shortened(key) + " / " + shortened(stored)};
  }
  for (const auto& [key, stored] : before) {
    if (has(after, key, stored) && found.count(key) == 0) return {"lost", shortened(key)};
  }
  return {"between", std::to_string(found.size()) + " lines, " + std::to_string(before.size()) +
                         " before and " + std::to_string(after.size()) + " after"};
}

Harm judge_index(std::string_view bytes, const IndexText& before, const IndexText& after) {
  const std::string text = text_of_index(bytes);
  for (const IndexText* each : {&before, &after}) {
    if (text == *each->text || is_text_and_rubbish(text, *each->text)) return {};
  }
  const LineViews lines = views_in(text);
  if (lines == before.lines || lines == after.lines) return {};
  return difference(lines, before.lines, after.lines);
}

void Promise::begin(const PowerStep& step) {
  for (const auto& [key, text] : step.result) m_in_motion.insert(key);
  m_moves = step.moves;
}

void Promise::end(const PowerStep& step) {
  for (const auto& [key, text] : step.result) {
    m_in_motion.erase(key);
    if (text) {
      m_kept[key] = *text;
    } else {
      m_kept.erase(key);
    }
  }
  m_moves.clear();
}

Harm Promise::judge(const Tree& tree, const std::string& folder) const {
  const auto index = tree.find(folder + "index.dat");
  const Lines lines = index == tree.end() ? Lines() : all_lines(text_of_index(index->second));
  const auto file_called = [&](const std::string& name) -> const std::string* {
    const auto found = tree.find(folder + name);
    return found == tree.end() ? nullptr : &found->second;
  };
  const auto file_behind = [&](const std::string& key) -> const std::string* {
    const std::string* const stored = stored_in(lines, key);
    if (stored == nullptr) return nullptr;
    const std::string* const file = file_called(file_of(key, *stored));
    return file != nullptr ? file : file_called(*stored);
  };
  for (const auto& [key, text] : m_kept) {
    if (m_in_motion.count(key) != 0) continue;
    const std::string* const file = file_behind(key);
    if (file == nullptr) {
      return {"lost", (lines.count(key) == 0 ? "the line of " : "the file of ") + shortened(key)};
    }
    if (*file != text) return {"other bytes", shortened(key)};
  }
  for (const PowerStep::Move& move : m_moves) {
    const auto [logical, stamp] = parts_of_key(move.from);
    bool is_there = false;
    for (const std::string* file : {stamp == 0 ? file_called(logical) : nullptr,
                                    file_behind(move.from), file_behind(move.to)}) {
      is_there = is_there || (file != nullptr && *file == move.text);
    }
    if (!is_there) return {"neither name", shortened(move.from) + " to " + shortened(move.to)};
  }
  return {};
}

}  // namespace reliability
