#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>

#include "client/stgctl/json.h"
#include "client/stgctl/report_charts.h"
#include "client/stgctl/template_text.h"
#include "client/stgctl/text.h"

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
  EXPECT_EQ(parse_age("10000y"), 315'360'000'000);
  for (const char* const wrong :
       {"", "d", "30", "0", "1x", "-1d", "1.5d", "10001y", "9223372036854775807s",
        "9223372036854775808", "9223372036854775807d", " 1"}) {
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
  // Other programs may have stored it; it is not valid as an option.
  EXPECT_EQ(parse_stamp("-1"), -1);
  EXPECT_EQ(is_stamp("0"), "");
  for (const char* const wrong : {"", "-1", "2147483648", "1x"}) EXPECT_NE(is_stamp(wrong), "");
  EXPECT_EQ(stamp_of("mtime", -5), 0);
  EXPECT_EQ(stamp_of("mtime", 1LL << 40), 2147483647);
}

TEST(ClientJson, KeepsTheOrderOfFields) {
  Json json = {{"z", 1}, {"a", "text"}};
  json["m"] = true;
  json["z"] = 2;
  EXPECT_EQ(json.dump(), R"({"z":2,"a":"text","m":true})");
}

TEST(ClientJson, WritesEveryKindOfValue) {
  Json json;
  json["null"] = nullptr;
  json["least"] = std::numeric_limits<std::int64_t>::min();
  json["most"] = std::numeric_limits<std::uint64_t>::max();
  json["real"] = 0.5;
  json["list"] = std::vector<std::string>{"a", "b"};
  json["empty"] = Json::array();
  json["inner"]["field"] = Json::object();
  EXPECT_EQ(json.dump(),
            R"({"null":null,"least":-9223372036854775808,"most":18446744073709551615,"real":0.5,)"
            R"("list":["a","b"],"empty":[],"inner":{"field":{}}})");
  EXPECT_EQ(Json().dump(), "null");
  EXPECT_EQ(Json({{"a", Json::array()}}).dump(2), "{\n  \"a\": []\n}");
}

TEST(ClientJson, AddsTheBytesOfATextThatIsNotUtf8) {
  const Json json = {{"name", "\xff"}, {"inner", Json{{"a", "\xfe"}, {"b", 1}}}};
  EXPECT_EQ(json.dump(),
            "{\"name\":\"\xEF\xBF\xBD\",\"name_hex\":\"ff\","
            "\"inner\":{\"a\":\"\xEF\xBF\xBD\",\"a_hex\":\"fe\",\"b\":1}}");
  EXPECT_EQ(Json(std::vector<std::string>{"\xff"}).dump(), "[\"\xEF\xBF\xBD\"]");
}

TEST(ClientJson, TakesOverTheFieldsOfAnother) {
  Json json = {{"a", 1}, {"b", 2}};
  json.update({{"b", 3}, {"c", 4}});
  EXPECT_EQ(json.dump(), R"({"a":1,"b":3,"c":4})");
}

namespace {

std::string_view no_file(std::string_view name) {
  return name == "row" ? "<{{name}}>" : throw std::logic_error("no such file");
}

std::string filled(std::string_view text, const Json& data) {
  return stgctl::filled(text, data, no_file);
}

}  // namespace

TEST(Template, HasValuesAsTextForHtml) {
  EXPECT_EQ(filled("{{text}} {{number}} {{truth}}",
                   {{"text", "a<b & \"c\" \xff"}, {"number", 12U}, {"truth", true}}),
            "a&lt;b &amp; &quot;c&quot; \xEF\xBF\xBD 12 true");
}

TEST(Template, RepeatsAPartForEachElement) {
  Json data;
  data["list"] = Json::array();
  EXPECT_EQ(filled("a{{#list}}x{{/list}}{{^list}}none{{/list}}b", data), "anoneb");
  data["list"].push_back({{"name", "one"}});
  data["list"].push_back({{"name", "two"}});
  EXPECT_EQ(filled("{{#list}}{{>row}}{{/list}}{{^list}}none{{/list}}", data), "<one><two>");
}

TEST(Template, HasAPartOnlyWhereTheFieldSaysSomething) {
  const Json data = {{"null", nullptr}, {"no", false}, {"empty", ""}, {"yes", "said"}, {"zero", 0}};
  for (const char* const name : {"null", "no", "empty", "missing"}) {
    const std::string tag(name);
    EXPECT_EQ(filled("{{#" + tag + "}}x{{/" + tag + "}}{{^" + tag + "}}y{{/" + tag + "}}", data),
              "y")
        << name;
  }
  EXPECT_EQ(filled("{{#yes}}{{yes}}{{/yes}}{{#zero}}{{zero}}{{/zero}}", data), "said0");
}

TEST(Template, LooksForFieldsFromTheInnermostOutwards) {
  Json data = {{"name", "outer"}, {"other", "seen"}};
  data["in"] = {{"name", "inner"}};
  EXPECT_EQ(filled("{{name}} {{#in}}{{name}} {{other}}{{/in}} {{name}}", data),
            "outer inner seen outer");
  // The same section within itself.
  data["in"]["in"] = {{"name", "deep"}};
  EXPECT_EQ(filled("{{#in}}{{name}}{{#in}}-{{name}}{{/in}}{{/in}}", data), "inner-deep");
}

TEST(Template, LosesLinesThatHoldNothingButATag) {
  Json data;
  data["list"] = Json::array();
  data["list"].push_back({{"name", "one"}});
  EXPECT_EQ(filled("a\n{{#list}}\n{{name}}\n{{/list}}\nb\n", data), "a\none\nb\n");
}

TEST(Template, RefusesWhatIsNone) {
  for (const char* const text :
       {"{{name", "{{#name}}", "{{^name}}x{{/other}}", "{{missing}}", "{{>missing}}"})
    EXPECT_THROW(filled(text, {{"name", "x"}}), std::logic_error) << text;
}

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
