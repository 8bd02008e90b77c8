#include "index/name_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Names = std::vector<std::string>;

template <std::size_t Words>
std::vector<std::size_t> order_of(const Names& names) {
  NameOrder<Words> order;
  for (std::size_t i = 0; i < names.size(); ++i) order.add(names[i], i);
  order.sort([&](std::size_t position) { return std::string_view(names[position]); });
  std::vector<std::size_t> result;
  for (const auto& element : order.sorted()) result.push_back(element.position);
  return result;
}

/// The same by whole names.
std::vector<std::size_t> expected_order(const Names& names) {
  std::vector<std::pair<std::string, std::size_t>> all;
  for (std::size_t i = 0; i < names.size(); ++i) all.emplace_back(names[i], i);
  std::sort(all.begin(), all.end());
  std::vector<std::size_t> result;
  for (const auto& [name, position] : all) result.push_back(position);
  return result;
}

TEST(NameOrder, IsByteWiseWhereverNamesDiffer) {
  std::mt19937 random(1);
  for (std::size_t round = 0; round < 300; ++round) {
    // Few different bytes and a common beginning, so that names are equal for a while.
    const std::string begin(round % 20, 'a');
    const std::string bytes("\0\1a\x7f\x80\xff", 6);
    Names names;
    for (std::size_t i = 0; i < 40; ++i) {
      names.push_back(begin);
      for (std::size_t size = random() % 6; size != 0; --size)
        names.back() += bytes[random() % bytes.size()];
    }
    EXPECT_EQ(order_of<1>(names), expected_order(names)) << round;
    EXPECT_EQ(order_of<2>(names), expected_order(names)) << round;
  }
}

}  // namespace
