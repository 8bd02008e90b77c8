#include "file/replacement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "index/index_format.h"

// A process that dies while it replaces an index. The tests create every state that it can leave,
// with small pages, and read each one with a simple reader.

namespace {

using Map = std::map<std::string, std::string>;

std::string text_of(const Map& entries) {
  std::string text;
  for (const auto& [key, name] : entries) text += key + "/" + name + "\n";
  return text.empty() ? " " : text;
}

/// Reads like an index: a line is valid if its file exists (the empty name is the folder itself);
/// the first of equal keys wins.
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

void write_at(std::string& file, std::uint64_t offset, std::string_view bytes) {
  if (file.size() < offset + bytes.size()) file.resize(offset + bytes.size(), '\0');
  file.replace(offset, bytes.size(), bytes);
}

/// The text of the bytes as the library reads them.
std::string text_in(const std::string& bytes) {
  std::string storage;
  return std::string(replacement::text_of(bytes, storage));
}

/// A state that a killed process can leave: each write may end at any page edge. With `page` 1 it
/// is also a state that a failing device can leave.
struct Killed {
  std::string bytes;
  bool is_over_old = false;  ///< writing over the old text has begun
};

std::vector<Killed> killed_states(const std::string& old_bytes, const replacement::Plan& plan,
                                  std::size_t page) {
  std::vector<Killed> states = {{old_bytes}};
  std::string file = old_bytes;
  for (std::size_t stage = 0; stage < plan.stages.size(); ++stage) {
    const bool is_over_old = plan.first_over_old != 0 && stage >= plan.first_over_old;
    for (const replacement::Write& write : plan.stages[stage]) {
      const std::uint64_t end = write.offset + write.bytes.size();
      for (std::uint64_t edge = (write.offset / page + 1) * page; edge < end; edge += page) {
        std::string torn = file;
        write_at(torn, write.offset, write.bytes.substr(0, edge - write.offset));
        states.push_back({torn, is_over_old});
      }
      write_at(file, write.offset, write.bytes);
      states.push_back({file, is_over_old});
    }
  }
  file.resize(plan.size);
  states.push_back({file, true});
  return states;
}

/// Some of the states that a power failure can leave within each stage. Each sector is old, or it
/// has the bytes of any write of the stage, or it is zero if the file did not have it. The size is
/// the old or the new one. The last state is the truncated file.
std::vector<std::string> power_images(const std::string& old_bytes, const replacement::Plan& plan,
                                      std::mt19937& random, int images_of_a_stage) {
  constexpr std::size_t kSector = replacement::kSectorSize;
  std::vector<std::string> images;
  std::string durable = old_bytes;
  for (const replacement::Stage& stage : plan.stages) {
    std::vector<std::string> versions = {durable};  // a sector may come from any of them
    for (const replacement::Write& write : stage) {
      versions.push_back(versions.back());
      write_at(versions.back(), write.offset, write.bytes);
    }
    const std::size_t whole = versions.back().size();
    for (int i = 0; i < images_of_a_stage; ++i) {
      std::string image(whole, '\0');
      const auto lean = random() % 3;  // mostly old, mostly new, or an equal mix
      for (std::size_t at = 0; at < whole; at += kSector) {
        const bool is_new = lean == 2 ? random() % 2 == 0 : (random() % 8 == 0) == (lean == 0);
        const std::string& from = is_new ? versions[random() % versions.size()] : durable;
        if (at < from.size()) write_at(image, at, std::string_view(from).substr(at, kSector));
      }
      image.resize(random() % 3 == 0 ? durable.size() : whole, '\0');
      images.push_back(image);
    }
    durable = versions.back();
  }
  std::string cut = durable;
  cut.resize(plan.size);
  images.push_back(durable);
  images.push_back(cut);
  return images;
}

struct Case {
  Map old_entries;
  Map new_entries;
  std::set<std::string> files;  ///< of the new entries, and of old entries that still exist
};

/// For a reader of lines: each line that it reads is in the old or the new text. No line is missing
/// until the old text is overwritten.
::testing::AssertionResult harmless(const Case& c, const Killed& state) {
  const Map found = read(state.bytes, c.files);
  for (const Map::value_type& line : found) {
    const auto is_in = [&](const Map& entries) {
      const auto it = entries.find(line.first);
      return it != entries.end() && it->second == line.second;
    };
    if (!is_in(c.old_entries) && !is_in(c.new_entries)) {
      return ::testing::AssertionFailure() << "invented " << line.first << " / " << line.second;
    }
  }
  if (!state.is_over_old && found != c.old_entries)
    return ::testing::AssertionFailure() << "not the old lines";
  return ::testing::AssertionSuccess();
}

/// For the library's readers: all entries are the old ones, or all are the new ones.
::testing::AssertionResult is_old_or_new(const Case& c, const std::string& bytes) {
  const Map found = read(text_in(bytes), c.files);
  if (found == c.old_entries || found == c.new_entries) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "neither the old entries nor the new ones";
}

void expect_harmless(const Case& c, const std::string& old_text, std::size_t page) {
  const std::string new_text = text_of(c.new_entries);
  const replacement::Plan plan = replacement::plan(old_text, new_text, page);
  const std::vector<Killed> states = killed_states(old_text, plan, page);
  ASSERT_EQ(states.back().bytes, new_text);
  for (std::size_t i = 0; i < states.size(); ++i) {
    ASSERT_TRUE(harmless(c, states[i]) && is_old_or_new(c, states[i].bytes))
        << harmless(c, states[i]).message() << is_old_or_new(c, states[i].bytes).message()
        << ", page " << page << ", state " << i << " of " << states.size() << ":\n"
        << states[i].bytes << "\nold:\n"
        << old_text << "\nnew:\n"
        << new_text;
    ASSERT_LE(states[i].bytes.size(), plan.reserve);
  }
}

/// Names that are prefixes and suffixes of each other, so that torn lines and joined lines name
/// existing files.
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
  for (const Map* entries : {&c.old_entries, &c.new_entries}) {
    for (const auto& [k, n] : *entries) {
      const std::string_view extension = index_format::extension_of(index_format::logical_of(k));
      c.files.insert(random() % 2 == 0 ? n : n + std::string(extension));
    }
  }
  return c;
}

}  // namespace

TEST(FileReplacement, OfRandomIndexesHarmsNoLineInAnyState) {
  std::mt19937 random(7);
  for (int round = 0; round < 3000; ++round) {
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

TEST(FileReplacement, FailingAtAnyByteForGoodLeavesTheOldEntriesOrTheNewOnes) {
  std::mt19937 random(10);
  for (int round = 0; round < 800; ++round) {
    const Case c = some_case(random);
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const replacement::Plan plan = replacement::plan(old_text, new_text);
    for (const Killed& state : killed_states(old_text, plan, 1))
      ASSERT_TRUE(is_old_or_new(c, state.bytes)) << state.bytes << "\nold:\n" << old_text;
  }
}

namespace {

/// A change of an index of several sectors, with lines of up to three sectors.
Case some_large_case(std::mt19937& random) {
  Case c;
  const auto entry = [&] {
    const std::string name(1 + random() % (random() % 8 == 0 ? 1500 : 60),
                           static_cast<char>('a' + random() % 26));
    return Map::value_type(index_format::key_of(name + ".kdb", static_cast<int>(random() % 1000)),
                           std::to_string(10'000'000 + random() % 90'000'000));
  };
  const auto count = random() % 3 == 0 ? random() % 3 : random() % 120;
  for (auto left = count; left != 0; --left) c.old_entries.insert(entry());
  c.new_entries = c.old_entries;
  for (auto left = 1 + random() % (random() % 4 == 0 ? 40 : 2); left != 0; --left) {
    if (!c.new_entries.empty() && random() % 2 == 0) {
      c.new_entries.erase(std::next(c.new_entries.begin(),
                                    static_cast<std::ptrdiff_t>(random() % c.new_entries.size())));
    } else {
      c.new_entries.insert(entry());
    }
  }
  for (const Map* entries : {&c.old_entries, &c.new_entries}) {
    for (const auto& [key, name] : *entries) c.files.insert(name + ".kdb");
  }
  return c;
}

/// Checks every image of the replacement, then of its completion, and so on.
void expect_whole(const Case& c, const std::string& bytes, const std::string& new_text,
                  std::mt19937& random, int depth) {
  const auto found = replacement::interrupted_in(bytes);
  const replacement::Plan plan =
      found ? replacement::completion(bytes, *found) : replacement::plan(bytes, new_text);
  for (const std::string& image : power_images(bytes, plan, random, depth == 0 ? 40 : 4)) {
    ASSERT_TRUE(is_old_or_new(c, image)) << "depth " << depth << ":\n" << image;
    if (depth < 3 && random() % 16 == 0) {
      expect_whole(c, image, new_text, random, depth + 1);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

}  // namespace

TEST(FileReplacement, OnWhichThePowerFailsLeavesTheOldEntriesOrTheNewOnes) {
  std::mt19937 random(11);
  for (int round = 0; round < 60; ++round) {
    const Case c = some_large_case(random);
    std::string old_text = text_of(c.old_entries);
    if (c.old_entries.empty() && random() % 2 == 0) old_text.clear();
    if (!c.old_entries.empty() && random() % 8 == 0) old_text.pop_back();
    expect_whole(c, old_text, text_of(c.new_entries), random, 0);
    if (HasFatalFailure()) return;
  }
}

TEST(FileReplacement, ThatIsCompletedHoldsExactlyTheNewText) {
  std::mt19937 random(12);
  for (int round = 0; round < 60; ++round) {
    const Case c = some_large_case(random);
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const replacement::Plan plan = replacement::plan(old_text, new_text);
    if (plan.first_over_old == 0) continue;
    for (const Killed& state : killed_states(old_text, plan, 400)) {
      const auto found = replacement::interrupted_in(state.bytes);
      ASSERT_TRUE(found || !state.is_over_old || state.bytes == new_text);
      if (!found) continue;
      ASSERT_EQ(found->text, new_text);
      const auto states =
          killed_states(state.bytes, replacement::completion(state.bytes, *found), 400);
      ASSERT_EQ(states.back().bytes, new_text);
    }
  }
}

TEST(FileReplacement, OfALeftOverStateHarmsNoLine) {
  std::mt19937 random(9);
  for (int round = 0; round < 1500; ++round) {
    const Case c = some_case(random);
    const std::size_t page = 1 + random() % 40;
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const auto states = killed_states(old_text, replacement::plan(old_text, new_text, page), page);
    const std::string& left_over = states[random() % states.size()].bytes;
    if (replacement::interrupted_in(left_over)) continue;  // the next save completes it first
    // The next operation reads this state and writes it back in order.
    Case next = c;
    next.old_entries = read(left_over, c.files);
    next.new_entries = next.old_entries;
    expect_harmless(next, left_over, page);
    if (HasFatalFailure()) return;
  }
}

namespace {

/// A file after a power failure that followed the first flush.
std::string interrupted_file(const std::string& old_text, const std::string& new_text) {
  const replacement::Plan plan = replacement::plan(old_text, new_text);
  std::string file = old_text;
  for (std::size_t stage = 0; stage < plan.first_over_old; ++stage) {
    for (const replacement::Write& write : plan.stages[stage])
      write_at(file, write.offset, write.bytes);
  }
  return file;
}

}  // namespace

TEST(FileReplacement, CopiesEveryByteAndWritesNoSlashAfterTheText) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  const std::string old_text = "b_0000000001/1\n";
  for (const std::string& name :
       {all, std::string("\x1b/\x1bs/e\x1b\x1b"), std::string(5000, '/')}) {
    const std::string new_text = name + "_0000000001/00000001\n" + old_text;
    const std::string file = interrupted_file(old_text, new_text);
    EXPECT_EQ(file.find('/', old_text.size()), std::string::npos);
    EXPECT_EQ(file.substr(0, old_text.size()), old_text);
    ASSERT_TRUE(replacement::interrupted_in(file));
    EXPECT_EQ(replacement::interrupted_in(file)->text, new_text);
  }
}

TEST(FileReplacement, KeepsItsCopyInSectorsOfItsOwn) {
  std::mt19937 random(13);
  for (int round = 0; round < 300; ++round) {
    const Case c = some_large_case(random);
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const replacement::Plan plan = replacement::plan(old_text, new_text);
    if (plan.first_over_old == 0) continue;
    const std::uint64_t copy_at = plan.stages[plan.first_over_old - 1].front().offset;
    EXPECT_EQ(copy_at % replacement::kSectorSize, 0U);
    EXPECT_GE(copy_at, std::max(old_text.size(), new_text.size()));
    for (const replacement::Write& write : plan.stages.back())
      EXPECT_LE(write.offset + write.bytes.size(), copy_at);
  }
}

/// Copies of the file, each with zeros in one of the sectors of these writes.
std::vector<std::string> without_a_sector(const std::string& file,
                                          const replacement::Stage& stage) {
  constexpr std::size_t kSector = replacement::kSectorSize;
  std::vector<std::string> torn;
  for (const replacement::Write& write : stage) {
    const std::size_t end = static_cast<std::size_t>(write.offset) + write.bytes.size();
    for (std::size_t at = write.offset / kSector * kSector; at < end; at += kSector) {
      torn.push_back(file);
      torn.back().replace(at, kSector, kSector, '\0');
    }
  }
  return torn;
}

TEST(FileReplacement, CopiesAllOfEverySectorThatItWritesOver) {
  std::mt19937 random(14);
  std::size_t completed = 0;
  for (int round = 0; round < 100; ++round) {
    const Case c = some_large_case(random);
    const std::string old_text = text_of(c.old_entries);
    const std::string new_text = text_of(c.new_entries);
    const replacement::Plan plan = replacement::plan(old_text, new_text);
    if (plan.first_over_old == 0) continue;
    const std::string file = interrupted_file(old_text, new_text);
    for (const std::string& torn : without_a_sector(file, plan.stages.back())) {
      const auto found = replacement::interrupted_in(torn);
      ASSERT_TRUE(found && found->text == new_text) << "round " << round;
      // The same for the save that completes it.
      const replacement::Plan completion = replacement::completion(torn, *found);
      for (const std::string& again : without_a_sector(torn, completion.stages.back())) {
        const auto left = replacement::interrupted_in(again);
        ASSERT_TRUE(left && left->text == new_text) << "round " << round;
        ++completed;
      }
    }
  }
  EXPECT_GT(completed, 100U);
}

TEST(FileReplacement, DoesNotTrustACopyWithAnyChangedByte) {
  const std::string old_text = "a_0000000001/1\n";
  const std::string new_text = old_text + "b_0000000001/2\n";
  const std::string file = interrupted_file(old_text, new_text);
  ASSERT_TRUE(replacement::interrupted_in(file));
  // The bytes before the copy may be torn, except the ones that the new text keeps.
  for (std::size_t at = 512; at < file.size(); ++at) {
    for (const char other : {'\0', ' ', '0', 'f', 'F', '\n', '\x1b'}) {
      std::string torn = file;
      if (torn[at] == other) continue;
      torn[at] = other;
      EXPECT_FALSE(replacement::interrupted_in(torn)) << at << " " << static_cast<int>(other);
    }
  }
  for (std::size_t size = 0; size < file.size(); ++size)
    EXPECT_FALSE(replacement::interrupted_in(file.substr(0, size))) << size;
  EXPECT_FALSE(replacement::interrupted_in(file + "\n"));
}

TEST(FileReplacement, DoesNotTrustNumbersThatAreTooLarge) {
  const std::string file = interrupted_file("a_0000000001/1\n", "b_0000000001/2\n");
  for (std::size_t number = 0; number < 3; ++number) {
    for (const char* value : {"ffffffffffffffff", "00000000ffffffff", "7fffffffffffffff"}) {
      std::string wrong = file;
      wrong.replace(file.size() - 85 + 17 + number * 17, 16, value);
      EXPECT_FALSE(replacement::interrupted_in(wrong)) << number << " " << value;
    }
  }
}

TEST(FileReplacement, OfDigitsInOneSectorIsOneWriteAndOneFlush) {
  const replacement::Plan plan = replacement::plan("00000041", "00000042");
  ASSERT_EQ(plan.stages.size(), 1U);
  ASSERT_EQ(plan.stages[0].size(), 1U);
  EXPECT_EQ(plan.first_over_old, 0U);
  EXPECT_EQ(plan.stages[0][0].bytes, "00000042");
  // A longer number needs two stages: a power failure could remove its last digit.
  EXPECT_EQ(replacement::plan("99999999", "100000000").stages.size(), 2U);
}

TEST(FileReplacement, OfALineAddedAtTheEndCopiesALastSectorOnly) {
  std::string old_text;
  for (int i = 0; i < 1000; ++i)
    old_text += index_format::key_of("name", i) + "/" + std::to_string(10000000 + i) + "\n";
  const std::string line = index_format::key_of("name", 1000) + "/10001000\n";
  const std::string new_text = old_text + line;
  const replacement::Plan plan = replacement::plan(old_text, new_text);
  std::size_t written = 0;
  for (const replacement::Stage& stage : plan.stages) {
    for (const replacement::Write& write : stage) written += write.bytes.size();
  }
  EXPECT_LE(written, 85 + 2 * replacement::kSectorSize + 3 * line.size());
}

TEST(FileReplacement, IsLinearInTheTextAlsoWhereLinesAreLongerThanPages) {
  const std::string old_text =
      std::string(1 << 20, 'x') + "/1\n" + std::string(1 << 20, '/') + "\n";
  const replacement::Plan plan = replacement::plan(old_text, "k_0000000001/1\n");
  std::size_t written = 0;
  for (const replacement::Stage& stage : plan.stages) {
    for (const replacement::Write& write : stage) written += write.bytes.size();
  }
  EXPECT_LE(written, 4 * old_text.size());
}

TEST(FileReplacement, TakesTwoFlushesAndFourWritesHoweverManyLinesThereAre) {
  for (const int lines : {200, 20000}) {
    std::string old_text;
    for (int i = 0; i < lines; ++i)
      old_text += index_format::key_of("name", i) + "/" + std::to_string(10000000 + i) + "\n";
    const std::string new_text = old_text.substr(old_text.find('\n') + 1);
    const replacement::Plan plan = replacement::plan(old_text, new_text);
    ASSERT_EQ(plan.stages.size(), 2U);
    EXPECT_EQ(plan.stages[0].size() + plan.stages[1].size(), 4U);
  }
}
