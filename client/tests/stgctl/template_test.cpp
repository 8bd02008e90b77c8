#include <gtest/gtest.h>

#include <stdexcept>

#include "client/stgctl/template_text.h"

using stgctl::Json;

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
  // The same part within itself.
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
