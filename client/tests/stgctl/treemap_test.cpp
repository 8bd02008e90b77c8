#include "client/stgctl/report_charts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using stgctl::Box;

TEST(Treemap, GivesEachWeightItsShareOfTheBox) {
  const Box whole{10, 20, 300, 200};
  const std::vector<std::vector<std::uint64_t>> cases = {
      {1}, {5, 5}, {60, 20, 10, 5, 3, 1, 1}, {100, 1}, {4, 3, 2, 1, 30}, {7, 0}};
  for (const std::vector<std::uint64_t>& weights : cases) {
    const std::vector<Box> boxes = stgctl::divide(whole, weights);
    ASSERT_EQ(boxes.size(), weights.size());
    const auto total =
        static_cast<double>(std::accumulate(weights.begin(), weights.end(), std::uint64_t{0}));
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      const Box& box = boxes[i];
      EXPECT_NEAR(box.width * box.height, 60'000 * static_cast<double>(weights[i]) / total, 0.01);
      EXPECT_GE(box.x, whole.x - 0.001);
      EXPECT_GE(box.y, whole.y - 0.001);
      EXPECT_LE(box.x + box.width, whole.x + whole.width + 0.001);
      EXPECT_LE(box.y + box.height, whole.y + whole.height + 0.001);
      for (std::size_t j = 0; j < i; ++j) {
        const double across =
            std::min(box.x + box.width, boxes[j].x + boxes[j].width) - std::max(box.x, boxes[j].x);
        const double down = std::min(box.y + box.height, boxes[j].y + boxes[j].height) -
                            std::max(box.y, boxes[j].y);
        EXPECT_FALSE(across > 0.001 && down > 0.001) << i << " lies over " << j;
      }
    }
  }
}

TEST(Treemap, KeepsPiecesNearlySquare) {
  const std::vector<std::uint64_t> weights(16, 1);
  for (const Box& box : stgctl::divide({0, 0, 400, 400}, weights))
    EXPECT_LT(std::max(box.width / box.height, box.height / box.width), 2.0);
}

TEST(Treemap, TakesNothingForNothing) {
  EXPECT_TRUE(stgctl::divide({0, 0, 10, 10}, {}).empty());
  for (const Box& box : stgctl::divide({0, 0, 10, 10}, {0, 0}))
    EXPECT_EQ(box.width * box.height, 0);
  for (const Box& box : stgctl::divide({}, {2, 1})) EXPECT_EQ(box.width * box.height, 0);
  EXPECT_EQ((Box{0, 0, 4, 4}.inset(3).width), 0);
}
