// The loops over the text of an index that take many bytes at a time, beside plain ones.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>

#include "index/scan.h"

namespace {

std::string some_text(std::mt19937& random, std::size_t size) {
  // Few kinds of bytes, so that they meet; above 127, too.
  constexpr std::string_view kBytes("ab/\n\x80\xff\0", 7);
  std::string text(size, '\0');
  for (char& each : text) each = kBytes[random() % (random() % 8 == 0 ? kBytes.size() : 2)];
  return text;
}

TEST(IndexScan, FindsTheFirstOfTwoCharacters) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::size_t size = random() % 80;
    const std::string text = some_text(random, size + scan::kBehind);
    const std::size_t from = random() % (size + 1);
    const char* const last = text.data() + size;
    const bool two = random() % 2 == 0;
    const char* const expected = std::find_if(
        text.data() + from, last, [&](char c) { return c == '\n' || (two && c == '/'); });
    ASSERT_EQ(scan::first_of(text.data() + from, last, two ? '/' : '\n', '\n'),
              expected == last ? nullptr : expected)
        << "from " << from << " of " << size;
  }
}

TEST(IndexScan, OrdersAsStringsDo) {
  std::mt19937 random(2);
  for (int round = 0; round < 20000; ++round) {
    const std::string one = some_text(random, random() % 30);
    std::string other = one;
    if (!other.empty() && random() % 4 != 0) other[random() % other.size()] = "a\xff"[random() % 2];
    other.resize(other.size() - random() % (other.size() + 1) * (random() % 2));
    ASSERT_EQ(scan::stands_before(one, other), one < other);
    ASSERT_EQ(scan::stands_before(other, one), other < one);
  }
}

}  // namespace
