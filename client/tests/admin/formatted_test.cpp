#include "client/admin/formatted.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

using admin::append_formatted;
using admin::formatted;

TEST(AdminFormatted, FillsInNumbersTextsAndCharacters) {
  const std::string text = "four";
  EXPECT_EQ(formatted("{} {} {} {} {}", 1, 2U, "three", text, '5'), "1 2 three four 5");
  EXPECT_EQ(formatted("{}", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(formatted("{}", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(formatted("{:.1f} {:04} {:x}", 2.25, std::int32_t{-7}, std::uint8_t{255}),
            "2.2 -007 ff");
}

TEST(AdminFormatted, KeepsWidthsAlsoThoseThatAreArguments) {
  EXPECT_EQ(formatted("[{:>5}][{:<5}]", "ab", 12), "[   ab][12   ]");
  EXPECT_EQ(formatted("[{:<{}}]", "ab", 4), "[ab  ]");
}

TEST(AdminFormatted, TakesDoubledBracesForBraces) {
  EXPECT_EQ(formatted("{{}}"), "{}");
  EXPECT_EQ(formatted("{{{}}}", 1), "{1}");
}

TEST(AdminFormatted, TakesArgumentsByTheirNumbers) {
  EXPECT_EQ(formatted("{1} {0} {1}", "a", "b"), "b a b");
}

TEST(AdminFormatted, AppendsToWhatIsThere) {
  std::string line = "a";
  append_formatted(line, "-{}", "b");
  EXPECT_EQ(line, "a-b");
}

TEST(AdminFormatted, CountsTheArgumentsThatAPatternWants) {
  EXPECT_EQ(admin::arguments_wanted("none {{}}"), 0U);
  EXPECT_EQ(admin::arguments_wanted("{} {:>{}}"), 3U);
  EXPECT_EQ(admin::arguments_wanted("{2} {0}"), 3U);
}
