#include "client/stgctl/json.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

using stgctl::Json;
using stgctl::JsonError;

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

TEST(ClientJson, ReplacesBytesThatAreNoTextOrRefusesThem) {
  const Json json = {{"name", "\xff"}};
  EXPECT_EQ(json.dump(), "{\"name\":\"\xEF\xBF\xBD\"}");
  EXPECT_THROW(static_cast<void>(json.dump(-1, Json::Bytes::kMustBeUtf8)), JsonError);
}

TEST(ClientJson, TakesOverTheFieldsOfAnother) {
  Json json = {{"a", 1}, {"b", 2}};
  json.update({{"b", 3}, {"c", 4}});
  EXPECT_EQ(json.dump(), R"({"a":1,"b":3,"c":4})");
}

TEST(ClientJson, ReadsWhatItWrites) {
  const std::string text = R"({"a":[1,-2,0.5,"x",null,true,[],{}],"b":{"c":18446744073709551615}})";
  EXPECT_EQ(Json::parse(text).dump(), text);
}

TEST(ClientJson, GivesValuesOfTheKindAskedFor) {
  const Json json = Json::parse(R"({"n":-7,"big":5000000000,"t":"x","f":false})");
  EXPECT_EQ(json.at("n").get<std::int32_t>(), -7);
  EXPECT_EQ(json.at("big").get<std::uint64_t>(), 5000000000U);
  EXPECT_EQ(json.value("t", ""), "x");
  EXPECT_EQ(json.value("missing", std::int64_t{3}), 3);
  EXPECT_EQ(json.value("f", true), false);
  EXPECT_TRUE(json.at("t") == "x");
  EXPECT_FALSE(json.at("n") == "-7");
}

TEST(ClientJson, RefusesWhatIsNotThereOrOfAnotherKind) {
  const Json json = Json::parse(R"({"t":"x"})");
  EXPECT_THROW(static_cast<void>(json.at("missing")), JsonError);
  EXPECT_THROW(static_cast<void>(json.at("t").get<std::int64_t>()), JsonError);
  EXPECT_THROW(static_cast<void>(json.at("t").value("inner", "")), JsonError);
  EXPECT_THROW(static_cast<void>(json.at("t").items()), JsonError);
  EXPECT_THROW(Json("text").push_back(1), JsonError);
  EXPECT_THROW(Json("text")["field"], JsonError);
}

TEST(ClientJson, RefusesTextThatIsNone) {
  for (const char* const text : {"", "{", "{\"a\"}", "[1,]", "nul", "{} {}"}) {
    EXPECT_THROW(Json::parse(text), JsonError) << text;
    EXPECT_FALSE(Json::parse_or_null(text).is_object()) << text;
  }
}

TEST(ClientJson, RefusesTextThatIsNestedBeyondReason) {
  const std::string deep(100, '[');
  EXPECT_NO_THROW(Json::parse(deep + std::string(100, ']')));
  EXPECT_THROW(Json::parse(std::string(1000000, '[')), JsonError);
}
