#include "file/replacement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "index/index_format.h"

// A process that dies while it replaces an index: every state that it can leave is made, with small
// pages, and read by the reader's own rules.

namespace {

using Map = std::map<std::string, std::string>;

std::string text_of(const Map& entries) {
  std::string text;
  for (const auto& [key, name] : entries) text += key + "/" + name + "\n";
  return text.empty() ? " " : text;
}

/// Reads like an index: a line counts when its file exists (the empty name is the folder itself), the
/// first of equal keys wins.
Map read(const std::string& text, const std::set<std::string>& files) {
  Map entries;
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line)) {
    if (line.key.size() < index_format::kStampLength) continue;
    const std::string name(line.stored);
    const std::string extension(index_format::extension_of(index_format::logical_of(line.key)));
    const bool exists = name.empty() || files.contains(name) || files.contains(name + extension);
    if (exists) entries.emplace(line.key, name);
  }
  return entries;
}

void write_at(std::string& file, std::uint64_t offset, const std::string& bytes) {
  if (file.size() < offset + bytes.size()) file.resize(offset + bytes.size(), '\0');
  file.replace(offset, bytes.size(), bytes);
}

/// Every state of the file on the way, the first and the last included.
std::vector<std::string> states_of(const std::string& old_text, const replacement::Plan& plan,
                                   std::size_t page) {
  std::vector<std::string> states = {old_text};
  std::string file = old_text;
  for (const replacement::Step& step : plan.steps) {
    const std::uint64_t end = step.offset + step.bytes.size();
    for (std::uint64_t edge = (step.offset / page + 1) * page; edge < end; edge += page) {
      std::string torn = file;
      write_at(torn, step.offset, step.bytes.substr(0, edge - step.offset));
      states.push_back(torn);
    }
    write_at(file, step.offset, step.bytes);
    states.push_back(file);
  }
  file.resize(plan.size);
  states.push_back(file);
  return states;
}

struct Case {
  Map old_entries;
  Map new_entries;
  std::set<std::string> files;  ///< those of the new entries, and of old ones still there
};

/// What must hold in every state: each line of both texts is read as it is, and no line is read that
/// neither has.
::testing::AssertionResult harmless(const Case& c, const std::string& state) {
  const Map found = read(state, c.files);
  for (const auto& [key, name] : c.old_entries) {
    const auto kept = c.new_entries.find(key);
    if (kept == c.new_entries.end() || kept->second != name) continue;
    const auto it = found.find(key);
    if (it == found.end()) return ::testing::AssertionFailure() << "lost " << key;
    if (it->second != name) return ::testing::AssertionFailure() << "redirected " << key;
  }
  for (const Map::value_type& line : found) {
    const auto is_in = [&](const Map& entries) {
      const auto it = entries.find(line.first);
      return it != entries.end() && it->second == line.second;
    };
    if (!is_in(c.old_entries) && !is_in(c.new_entries)) {
      return ::testing::AssertionFailure() << "invented " << line.first << " / " << line.second;
    }
  }
  return ::testing::AssertionSuccess();
}

void expect_harmless(const Case& c, const std::string& old_text, std::size_t page) {
  const std::string new_text = text_of(c.new_entries);
  const replacement::Plan plan = replacement::plan(old_text, new_text, page);
  const std::vector<std::string> states = states_of(old_text, plan, page);
  ASSERT_EQ(states.back(), new_text);
  for (std::size_t i = 0; i < states.size(); ++i) {
    ASSERT_TRUE(harmless(c, states[i]))
        << "page " << page << ", state " << i << " of " << states.size() << ":\n"
        << states[i] << "\nold:\n"
        << old_text << "\nnew:\n"
        << new_text;
    ASSERT_LE(states[i].size(), plan.reserve);
  }
  std::string file = old_text;
  for (std::size_t i = 0; i < plan.appended; ++i)
    write_at(file, plan.steps[i].offset, plan.steps[i].bytes);
  ASSERT_TRUE(file.starts_with(old_text));
}

/// Names that are prefixes and suffixes of each other, so that torn and glued ones hit files.
std::string some_name(std::mt19937& random) {
  static const std::vector<std::string> kStems = {"a", "aa", "aaa", "b", "ab", "a b", ""};
  static const std::vector<std::string> kExtensions = {"", ".k", ".kd", ".kdb"};
  return kStems[random() % kStems.size()] + kExtensions[random() % kExtensions.size()];
}

Case some_case(std::mt19937& random) {
  Case c;
  const auto key = [&] {
    return index_format::key_of(some_name(random), static_cast<std::int32_t>(random() % 3));
  };
  const auto name = [&] {
    if (random() % 6 == 0) return std::string("1/2");
    return std::string(1 + random() % 8, static_cast<char>('1' + random() % 2));
  };
  for (auto left = random() % 9; left != 0; --left) c.old_entries.emplace(key(), name());
  c.new_entries = c.old_entries;
  for (auto left = random() % 4; left != 0; --left) {
    if (!c.new_entries.empty() && random() % 2 == 0) {
      c.new_entries.erase(std::next(c.new_entries.begin(),
                                    static_cast<std::ptrdiff_t>(random() % c.new_entries.size())));
    } else {
      c.new_entries.emplace(key(), name());
    }
  }
  for (const auto& [k, n] : c.new_entries) {
    c.files.insert(random() % 2 == 0
                       ? n
                       : n + std::string(index_format::extension_of(index_format::logical_of(k))));
  }
  return c;
}

}  // namespace

TEST(FileReplacement, OfRandomIndexesHarmsNoLineInAnyState) {
  std::mt19937 random(7);
  for (int round = 0; round < 6000; ++round) {
    const Case c = some_case(random);
    const std::size_t page = 1 + random() % 40;
    expect_harmless(c, text_of(c.old_entries), page);
    if (HasFatalFailure()) return;
  }
}

TEST(FileReplacement, OfATextWithoutALastLineEndHarmsNoLine) {
  std::mt19937 random(8);
  for (int round = 0; round < 2000; ++round) {
    const Case c = some_case(random);
    if (c.old_entries.empty()) continue;
    std::string old_text = text_of(c.old_entries);
    old_text.pop_back();
    expect_harmless(c, old_text, 1 + random() % 40);
    if (HasFatalFailure()) return;
  }
}

TEST(FileReplacement, OfALeftOverStateHarmsNoLine) {
  std::mt19937 random(9);
  for (int round = 0; round < 1500; ++round) {
    const Case c = some_case(random);
    const std::size_t page = 1 + random() % 40;
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const auto states = states_of(old_text, replacement::plan(old_text, new_text, page), page);
    const std::string& left_over = states[random() % states.size()];
    // The next operation reads what is there and writes it back in order.
    Case next = c;
    next.old_entries = read(left_over, c.files);
    next.new_entries = next.old_entries;
    expect_harmless(next, left_over, page);
    if (HasFatalFailure()) return;
  }
}

TEST(FileReplacement, OfATextWithinAPageIsOneWrite) {
  const replacement::Plan plan =
      replacement::plan("b_0000000001/1\nc_0000000001/2\n", "c_0000000001/2\n");
  ASSERT_EQ(plan.steps.size(), 1U);
  EXPECT_EQ(plan.steps[0].offset, 0U);
  EXPECT_EQ(plan.steps[0].bytes, "c_0000000001/2\n               ");
  EXPECT_EQ(plan.size, 15U);
}

TEST(FileReplacement, OfALineAddedAtTheEndWritesNoOtherLine) {
  std::string old_text;
  for (int i = 0; i < 1000; ++i)
    old_text += index_format::key_of("name", i) + "/" + std::to_string(10000000 + i) + "\n";
  const std::string line = index_format::key_of("name", 1000) + "/10001000\n";
  const replacement::Plan plan = replacement::plan(old_text, old_text + line);
  std::size_t written = 0;
  for (const replacement::Step& step : plan.steps) {
    EXPECT_GE(step.offset, old_text.size());
    written += step.bytes.size();
  }
  EXPECT_LE(written, line.size() + 1);
}

TEST(FileReplacement, IsLinearInTheTextAlsoWhereLinesAreLongerThanPages) {
  const std::string old_text =
      std::string(1 << 20, 'x') + "/1\n" + std::string(1 << 20, '/') + "\n";
  const replacement::Plan plan = replacement::plan(old_text, "k_0000000001/1\n");
  std::size_t written = 0;
  for (const replacement::Step& step : plan.steps) written += step.bytes.size();
  EXPECT_LE(written, 4 * old_text.size());
}

TEST(FileReplacement, TakesFiveWritesHoweverManyLinesThereAre) {
  for (const int lines : {200, 20000}) {
    std::string old_text;
    for (int i = 0; i < lines; ++i)
      old_text += index_format::key_of("name", i) + "/" + std::to_string(10000000 + i) + "\n";
    EXPECT_EQ(replacement::plan(old_text, old_text.substr(old_text.find('\n') + 1)).steps.size(),
              5U);
  }
}
