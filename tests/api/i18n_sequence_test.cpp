// Sequence: an ordered list read by index.

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "vu_i18n.h"

namespace {

using Names = Sequence<vu_utf8string>;

std::vector<std::string> contents(const Names& names) {
  std::vector<std::string> result;
  for (const vu_utf8string& each : names) result.push_back(each.str());
  return result;
}

}  // namespace

TEST(SequenceOfNames, IsEmptyAtFirst) {
  const Names names;
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(names.size(), 0U);
  EXPECT_TRUE(names.begin() == names.end());
}

TEST(SequenceOfNames, TakesElementsInTheirOrder) {
  const Names names = {vu_utf8string("b"), vu_utf8string("a"), vu_utf8string("b")};
  EXPECT_FALSE(names.empty());
  EXPECT_EQ(names.size(), 3U);
  EXPECT_EQ(contents(names), (std::vector<std::string>{"b", "a", "b"}));
}

TEST(SequenceOfNames, IsReadAndChangedByIndex) {
  Names names = {vu_utf8string("a"), vu_utf8string("b")};
  names[1] = vu_utf8string("c");
  const Names& fixed = names;
  EXPECT_EQ(fixed[0].str(), "a");
  EXPECT_EQ(fixed[1].str(), "c");
}

TEST(SequenceOfNames, GrowsAtTheEnd) {
  Names names;
  for (int i = 0; i < 1000; ++i) names.push_back(vu_utf8string(std::to_string(i)));
  ASSERT_EQ(names.size(), 1000U);
  EXPECT_EQ(names[0].str(), "0");
  EXPECT_EQ(names[999].str(), "999");
}

TEST(SequenceOfNames, TakesAnElementOfItsOwn) {
  Names names = {vu_utf8string("a text too long to be kept inside the object itself")};
  for (int i = 0; i < 20; ++i) names.push_back(names[0]);
  EXPECT_EQ(names[20], names[0]);
}

TEST(SequenceOfNames, IsCleared) {
  Names names = {vu_utf8string("a")};
  names.clear();
  EXPECT_TRUE(names.empty());
  names.push_back(vu_utf8string("b"));
  EXPECT_EQ(contents(names), (std::vector<std::string>{"b"}));
}

TEST(SequenceOfNames, IsCopiedIndependently) {
  Names original = {vu_utf8string("a")};
  Names copy = original;
  copy[0] += vu_utf8string("x");
  copy.push_back(vu_utf8string("b"));
  EXPECT_EQ(contents(original), (std::vector<std::string>{"a"}));
  EXPECT_EQ(contents(copy), (std::vector<std::string>{"ax", "b"}));
  original = copy;
  EXPECT_EQ(contents(original), (std::vector<std::string>{"ax", "b"}));
}

TEST(SequenceOfNames, HoldsOtherTypesToo) {
  Sequence<int> numbers = {3, 1, 2};
  numbers.push_back(4);
  int sum = 0;
  for (const int each : numbers) sum += each;
  EXPECT_EQ(sum, 10);
  static_assert(std::is_same_v<Sequence<int>::value_type, int>);
}
