#include "client/stgctl/text.h"

#include <gtest/gtest.h>

#include "client/stgctl/key_lines.h"

using namespace stgctl;

TEST(ClientText, WritesSizes) {
  EXPECT_EQ(format_bytes(0), "0 B");
  EXPECT_EQ(format_bytes(1023), "1023 B");
  EXPECT_EQ(format_bytes(1024), "1.0 KiB");
  EXPECT_EQ(format_bytes(1536), "1.5 KiB");
  EXPECT_EQ(format_bytes(1024 * 1024 - 1), "1.0 MiB");
  EXPECT_EQ(format_bytes(~0ULL), "16.0 EiB");
}

TEST(ClientText, WritesTimesInUtc) {
  EXPECT_EQ(format_time(0), "1970-01-01 00:00:00");
  EXPECT_EQ(format_time(1709210096), "2024-02-29 12:34:56");
  EXPECT_EQ(format_time(-1), "1969-12-31 23:59:59");
}

TEST(ClientText, WritesAges) {
  EXPECT_EQ(format_age(59), "59 s");
  EXPECT_EQ(format_age(60), "1 min");
  EXPECT_EQ(format_age(3600), "1 h");
  EXPECT_EQ(format_age(86400 * 2), "2 d");
  EXPECT_EQ(format_age(-60), "in 1 min");
}

TEST(ClientText, ReadsAges) {
  EXPECT_EQ(parse_age("90s"), 90);
  EXPECT_EQ(parse_age("15m"), 900);
  EXPECT_EQ(parse_age("30d"), 2'592'000);
  EXPECT_EQ(parse_age("1y"), 31'536'000);
  for (const char* const wrong : {"", "d", "30", "0", "1x", "-1d", "1.5d", "9223372036854775808",
                                  "9223372036854775807d", " 1"}) {
    EXPECT_EQ(parse_age(wrong), std::nullopt) << wrong;
  }
}

TEST(ClientText, ReadsSizes) {
  EXPECT_EQ(parse_size("500"), 500U);
  EXPECT_EQ(parse_size("64K"), 65536U);
  EXPECT_EQ(parse_size("1MiB"), 1048576U);
  EXPECT_EQ(parse_size("5GB"), 5368709120U);
  for (const char* const wrong : {"", "K", "1Q", "-1", "1.5G", "9999999999T"}) {
    EXPECT_EQ(parse_size(wrong), std::nullopt) << wrong;
  }
}

TEST(ClientText, ReadsTimestampsOfThirtyOneBits) {
  EXPECT_EQ(parse_stamp("0"), 0);
  EXPECT_EQ(parse_stamp("2147483647"), 2147483647);
  for (const char* const wrong : {"", "-", "2147483648", "1x", "mtime"}) {
    EXPECT_EQ(parse_stamp(wrong), std::nullopt) << wrong;
  }
  // Other programs may have stored it; nobody types it as an option.
  EXPECT_EQ(parse_stamp("-1"), -1);
  EXPECT_EQ(is_stamp("0"), "");
  for (const char* const wrong : {"", "-1", "2147483648", "1x"}) EXPECT_NE(is_stamp(wrong), "");
  EXPECT_EQ(stamp_of("mtime", -5), 0);
  EXPECT_EQ(stamp_of("mtime", 1LL << 40), 2147483647);
}

TEST(ClientKeyLines, ChangesTheFirstLineOfAKeyAndDropsTheOthers) {
  std::string text = "a=1\nb=2\ta=3\r\na=4";
  EXPECT_EQ(set_key(text, "a", "5"), KeyEdit::kChanged);
  EXPECT_EQ(text, "a=5\nb=2\t");
  EXPECT_EQ(set_key(text, "a", "5"), KeyEdit::kUnchanged);
  EXPECT_EQ(set_key(text, "c", ""), KeyEdit::kChanged);
  EXPECT_EQ(text, "a=5\nb=2\tc=\n");
}

TEST(ClientKeyLines, EndsALastLineBeforeItAddsOne) {
  std::string text = "a=1";
  EXPECT_EQ(set_key(text, "b", "2"), KeyEdit::kChanged);
  EXPECT_EQ(text, "a=1\nb=2\n");
  std::string empty;
  EXPECT_EQ(set_key(empty, "b", "2"), KeyEdit::kChanged);
  EXPECT_EQ(empty, "b=2\n");
}

TEST(ClientKeyLines, TakesNoOtherKeyForTheOne) {
  std::string text = "ab=1\na\na b=2\n=a=3\n";
  const std::string before = text;
  EXPECT_EQ(unset_key(text, "a"), KeyEdit::kUnchanged);
  EXPECT_EQ(text, before);
}
