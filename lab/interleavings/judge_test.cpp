// What the end of a meeting means, and whether it may be so.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lab/interleavings/judge.h"
#include "lab/interleavings/view.h"
#include "tests/support/scratch.h"

namespace interleavings {
namespace {

// ---- what a tree means --------------------------------------------------------------------------

constexpr const char* kBert = "storage/user/bert/";

void replace_in(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

TEST(InterleavingsView, TellsWhatDiffers) {
  const Tree tidy = tree_for(Ground::kTidy);
  const Facts before = facts_of(tidy);
  const std::string bert = kBert;
  const auto differs = [&](const std::string& path, const std::string& bytes) {
    Tree tree = tidy;
    add_file(tree, path, bytes, 0);
    return facts_of(tree) != before;
  };
  EXPECT_TRUE(differs(bert + "00000002.kdb", "other bytes"));
  EXPECT_TRUE(differs(bert + "00000007.kdb", ""));
  EXPECT_TRUE(differs(bert + "index.dat", ""));
  EXPECT_TRUE(differs(bert + "index", "00000003"));
  EXPECT_TRUE(differs("storage/docs/anna/00000046/00000001.kdf_/html/x/part", "other bytes"));
  EXPECT_TRUE(differs("plain/one.txt", "other bytes"));
  EXPECT_TRUE(differs(bert + "folder/file", ""));
  Tree tree = tidy;
  std::string& lines = tree[bert + "index.dat"].bytes;
  replace_in(lines, "second.kdb_0000000000/00000002", "second.kdb_0000000000/00000001");
  EXPECT_TRUE(facts_of(tree).contains("storage/user/bert: two entries, one file"));
  replace_in(lines, "second.kdb_0000000000/00000001\n", "");
  EXPECT_NE(facts_of(tree), before);
}

TEST(InterleavingsView, TellsHowAnIndexStands) {
  Tree tree = tree_for(Ground::kTidy);
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "whole");
  tree[std::string(kBert) + "index.dat"].bytes = "";
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "of no bytes");
  tree.erase(std::string(kBert) + "index.dat");
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "none");
}

TEST(InterleavingsView, CountsLooseFilesOfTheSameBytes) {
  Tree tree = tree_for(Ground::kTidy);
  add_file(tree, std::string(kBert) + "00000007.kdb", "x", 0);
  add_file(tree, std::string(kBert) + "00000008.kdb", "x", 0);
  EXPECT_EQ(facts_of(tree)["storage/user/bert: loose .kdb 'x'"], "2");
}

TEST(InterleavingsView, DoesNotTellTheNumberOfAFile) {
  Tree tree = tree_for(Ground::kTidy);
  const Facts before = facts_of(tree);
  const std::string bert = kBert;
  tree[bert + "00000009.kdb"] = tree[bert + "00000002.kdb"];
  tree.erase(bert + "00000002.kdb");
  replace_in(tree[bert + "index.dat"].bytes, "/00000002", "/00000009");
  tree[bert + "index"].bytes = "00000009";
  EXPECT_EQ(facts_of(tree), before);
}

// ---- what may be --------------------------------------------------------------------------------

constexpr const char* kFirst = "storage/user/anna: new.kdb_0000000000";
constexpr const char* kSecond = "storage/user/anna: newer.kdb_0000000000";

TEST(InterleavingsJudge, MissesWhatOneHasMadeWhenTheOtherOneDies) {
  const Gathering gathering = gathering_from("create + create, other-new, tidy, off");
  const Outcome both{{"a", "b"}, {{kFirst, ""}, {kSecond, ""}}, {false, false}};
  const Outcome without_a{{"", "b"}, {{kSecond, ""}}, {true, false}};
  const Outcome without_b{{"a", ""}, {{kFirst, ""}}, {false, true}};
  const Judge judge(gathering, {}, {both, without_a, without_b});
  EXPECT_EQ(judge.judge(without_a).wrong, "");
  EXPECT_EQ(judge.judge({{"a", ""}, both.facts, {false, true}}).wrong, "");
  // A has made its entry, and said so.
  const Outcome lost{{"a", ""}, {{kSecond, ""}}, {false, true}};
  EXPECT_NE(judge.judge(lost).wrong, "");
  EXPECT_NE(judge.judge({{"a", "b"}, {{kSecond, ""}}, {false, false}}).wrong, "");
}

TEST(InterleavingsJudge, MissesALineWhereTwoMakeOneEntry) {
  const Gathering gathering = gathering_from("create + create, same-new, tidy, off");
  const Judge judge(gathering, {}, {{{"a", "a"}, {{kFirst, ""}}, {false, false}}});
  const std::string loose = "storage/user/anna: loose .kdb ''";
  const Verdict accepted = judge.judge({{"a", "b"}, {{kFirst, ""}, {loose, "1"}}, {false, false}});
  EXPECT_EQ(accepted.wrong, "");
  EXPECT_EQ(accepted.races, std::vector<std::string>{"same-entry"});
  EXPECT_NE(judge.judge({{"a", "b"}, {{loose, "2"}}, {false, false}}).wrong, "");
}

TEST(InterleavingsJudge, FindsWhatNoStoryTells) {
  const Gathering gathering = gathering_from("create + remove, other, tidy, off");
  const std::string bystander = "storage/user/anna: other.kdc_0000000000";
  const std::string index = "storage/user/anna: index";
  const Facts before{{bystander, "bytes"}, {index, "whole"}};
  const Judge judge(gathering, before, {{{"", ""}, before, {false, false}}});
  const auto wrong = [&](const Facts& facts) {
    return judge.judge({{"", ""}, facts, {false, false}}).wrong;
  };
  EXPECT_EQ(wrong(before), "");
  EXPECT_NE(wrong({{index, "whole"}}), "");
  EXPECT_NE(wrong({{bystander, "others"}, {index, "whole"}}), "");
  EXPECT_NE(wrong({{bystander, "bytes"}, {index, "interrupted"}}), "");
  for (const char* const fact :
       {"storage/user/anna: another.kdb_0000000000", "storage/user/anna/x",
        "storage/user/anna: the counter is behind", "storage/user/anna: two entries, one file"}) {
    Facts facts = before;
    facts[fact] = "1";
    EXPECT_NE(wrong(facts), "") << fact;
  }
}

TEST(InterleavingsRaces, AreStoriesOfThePage) {
  const std::string page = read_file(VU_TEST_DOCS "/concurrency.md");
  for (const Race& each : accepted_races()) {
    const bool is_told = page.find("\n### " + each.story + "\n") != std::string::npos ||
                         page.find("\n## " + each.story + "\n") != std::string::npos;
    EXPECT_TRUE(is_told) << each.name << ": " << each.story;
  }
}

}  // namespace
}  // namespace interleavings
