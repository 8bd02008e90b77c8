#include <algorithm>
#include <ctime>
#include <optional>

#include "client/tests/stgctl/fixture.h"

namespace {

/// One start tag of a page.
struct Tag {
  std::string name;
  std::map<std::string, std::string> attributes;
};

/// Reads a page as XML. @return the error; empty if it is well formed.
std::string read_page(const std::string& page, std::vector<Tag>& tags) {
  std::vector<std::string> open;
  const auto is_text = [](const std::string& text) {
    for (std::size_t at = text.find('&'); at != std::string::npos; at = text.find('&', at + 1)) {
      const std::string rest = text.substr(at, 6);
      if (!rest.starts_with("&lt;") && !rest.starts_with("&gt;") && !rest.starts_with("&amp;") &&
          !rest.starts_with("&quot;"))
        return false;
    }
    return true;
  };
  std::size_t at = page.find('\n');
  if (page.substr(0, at) != "<!DOCTYPE html>") return "no document type";
  while (at < page.size()) {
    const std::size_t begin = std::min(page.find('<', at), page.size());
    if (!is_text(page.substr(at, begin - at)))
      return "a bare ampersand near " + page.substr(at, 60);
    if (begin == page.size()) break;
    // A value can contain ">".
    std::size_t end = begin;
    for (bool quoted = false; end < page.size() && (quoted || page[end] != '>'); ++end)
      quoted ^= page[end] == '"';
    const std::string tag = page.substr(begin + 1, end - begin - 1);
    at = end + 1;
    if (tag.starts_with('/')) {
      if (open.empty() || open.back() != tag.substr(1))
        return "</" + tag.substr(1) + "> does not fit";
      open.pop_back();
      continue;
    }
    Tag read;
    std::size_t in = std::min(tag.find_first_of(" /"), tag.size());
    read.name = tag.substr(0, in);
    const bool is_empty = tag.ends_with('/');
    while ((in = tag.find_first_not_of(" \n/", in)) != std::string::npos) {
      const std::size_t equals = tag.find("=\"", in);
      if (equals == std::string::npos) return "an attribute without a value in <" + tag + ">";
      const std::size_t close = tag.find('"', equals + 2);
      if (close == std::string::npos) return "an open quote in <" + tag + ">";
      const std::string value = tag.substr(equals + 2, close - equals - 2);
      if (!is_text(value) || value.find('<') != std::string::npos)
        return "a bad value in <" + tag + ">";
      if (!read.attributes.emplace(tag.substr(in, equals - in), value).second)
        return "an attribute twice in <" + tag + ">";
      in = close + 1;
    }
    if (!is_empty) open.push_back(read.name);
    tags.push_back(std::move(read));
  }
  return open.empty() ? "" : "<" + open.back() + "> stays open";
}

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  }
  return result;
}

}  // namespace

class ClientReport : public Client {
 protected:
  ClientReport() {
    init();
    m_now = static_cast<std::int64_t>(std::time(nullptr));
  }

  /// A few owners, ages and extensions, sub-parts, and something for the check to find.
  void fill() {
    const std::vector<std::string> owners = {"anna", "bert", "R&D"};
    for (std::size_t i = 0; i < owners.size(); ++i) {
      std::vector<std::string> arguments = {"put"};
      for (std::size_t j = 0; j < 6; ++j) {
        arguments.push_back(source("d" + std::to_string(j) + ".kd" + static_cast<char>('a' + j),
                                   std::string(100 * (j + 1) * (i + 1), 'x'),
                                   m_now - static_cast<std::int64_t>(j * j * 20 * 86'400 + 600)));
      }
      arguments.insert(arguments.end(), {"--owner", owners[i], "--yes"});
      ASSERT_EQ(on_tree(arguments).code, 0);
    }
    const std::string part = physical("docs", "d2.kdc") + "_\\html\\page";
    make_folder(part);
    write_file(part + "\\1", std::string(77, 'p'));
    make_folder(storage() + "\\user\\anna");
    write_file(storage() + "\\user\\anna\\stray", "no index names it");
    write_file(storage() + "\\docs\\stray.txt", "where only folders are");
  }

  std::string file() const { return scratch().path("report.html"); }
  std::vector<Tag> report(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"report", "--html", shell_path(file()), "--yes"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const outcome result = on_tree(arguments);
    EXPECT_EQ(result.code, 0) << result.err;
    std::vector<Tag> tags;
    EXPECT_EQ(read_page(read_file(file()), tags), "");
    return tags;
  }

  static std::vector<Tag> rows(const std::vector<Tag>& tags, const std::string& table) {
    std::vector<Tag> found;
    for (const Tag& tag : tags) {
      const auto at = tag.attributes.find("data-table");
      if (at != tag.attributes.end() && at->second == table) found.push_back(tag);
    }
    return found;
  }
  static void expect_sum(const Tag& tag, const Json& sum) {
    EXPECT_EQ(tag.attributes.at("data-files"), sum.at("files").dump());
    EXPECT_EQ(tag.attributes.at("data-bytes"), sum.at("bytes").dump());
  }

  std::int64_t m_now = 0;
};

TEST_F(ClientReport, HasTheFiguresOfStats) {
  fill();
  const std::vector<Tag> tags = report();
  for (const char* const by : {"area", "owner", "ext", "age"}) {
    const Json stats = json({"stats", "--by", by}).at(0);
    const std::vector<Tag> found = rows(tags, by);
    ASSERT_EQ(found.size(), stats.at("groups").size()) << by;
    for (std::size_t i = 0; i < found.size(); ++i) {
      EXPECT_EQ(found[i].attributes.at("data-name"), escaped(stats.at("groups")[i].at("name")));
      expect_sum(found[i], stats.at("groups")[i]);
    }
  }
  const Json stats = json({"stats"}).at(0);
  int totals = 0;
  for (const Tag& tag : tags) {
    if (!tag.attributes.contains("data-total")) continue;
    const std::string name = tag.attributes.at("data-total");
    expect_sum(tag, name == "all" ? stats : stats.at(name));
    ++totals;
  }
  EXPECT_EQ(totals, 5);
}

TEST_F(ClientReport, HasTheCurveAndTheFindings) {
  fill();
  const std::vector<Tag> tags = report({"--target-size", "2K"});
  const Json curve = json({"clean", "--what-if", "--target-size", "2K"}).back();
  const std::vector<Tag> limits = rows(tags, "limit");
  ASSERT_EQ(limits.size(), curve.at("points").size());
  for (std::size_t i = 0; i < limits.size(); ++i) {
    const Json& point = curve.at("points")[i];
    EXPECT_EQ(limits[i].attributes.at("data-name"), point.at("limit").get<std::string>());
    for (const char* const figure : {"bytes", "versions", "documents"})
      EXPECT_EQ(limits[i].attributes.at(std::string("data-") + figure), point.at(figure).dump());
  }
  EXPECT_EQ(rows(tags, "owner-limits").size(), 3U);
  const std::string page = read_file(file());
  EXPECT_NE(page.find("to reach 2.0 KiB the limit is"), std::string::npos);
  const Json codes = json({"check"}, 4).back().at("codes");
  const std::vector<Tag> findings = rows(tags, "finding");
  ASSERT_EQ(findings.size(), codes.size());
  for (const Tag& finding : findings) {
    EXPECT_EQ(finding.attributes.at("data-count"),
              codes.at(finding.attributes.at("data-name")).dump());
  }
  EXPECT_NE(page.find("stray.txt"), std::string::npos);
}

TEST_F(ClientReport, NeedsNothingButItself) {
  fill();
  const std::vector<Tag> tags = report();
  const std::string page = read_file(file());
  for (const char* const part :
       {"http:", "https:", "//", "url(", "@import", "javascript:", "file:"})
    EXPECT_EQ(page.find(part), std::string::npos) << part;
  bool has_policy = false;
  for (const Tag& tag : tags) {
    for (const char* const name :
         {"script", "link", "img", "iframe", "object", "embed", "image", "use"})
      EXPECT_NE(tag.name, name);
    for (const auto& [name, value] : tag.attributes) {
      EXPECT_FALSE(name.starts_with("on") || name == "src" || name == "srcset") << name;
      EXPECT_TRUE(name != "href" || value.starts_with('#')) << value;
      has_policy |= value.starts_with("default-src 'none'");
    }
  }
  EXPECT_TRUE(has_policy);
}

TEST_F(ClientReport, CanBeWalkedByKeyboard) {
  fill();
  const std::vector<Tag> tags = report();
  std::vector<std::string> ids;
  std::vector<std::string> stops;
  for (std::size_t i = 0; i < tags.size(); ++i) {
    if (tags[i].attributes.contains("id")) ids.push_back(tags[i].attributes.at("id"));
    if (tags[i].name == "a") stops.push_back(tags[i].attributes.at("href"));
    if (tags[i].name != "g" || !tags[i].attributes.contains("tabindex")) continue;
    stops.push_back("g");
    EXPECT_FALSE(tags[i].attributes.at("aria-label").empty());
    EXPECT_EQ(tags[i + 1].name, "title");
  }
  ASSERT_GT(stops.size(), 25U);
  EXPECT_EQ(stops[0], "#content");
  for (const std::string& stop : stops) {
    if (stop == "g") continue;
    EXPECT_EQ(std::count(ids.begin(), ids.end(), stop.substr(1)), 1) << stop;
  }
  EXPECT_EQ(
      std::count_if(tags.begin(), tags.end(), [](const Tag& tag) { return tag.name == "h1"; }), 1);
  EXPECT_EQ(
      std::count_if(tags.begin(), tags.end(), [](const Tag& tag) { return tag.name == "h2"; }), 4);
}

TEST_F(ClientReport, StaysSmallHoweverLargeTheTree) {
  for (int owner = 0; owner < 70; ++owner) {
    const std::string folder = storage() + "\\user\\owner" + std::to_string(owner);
    make_folder(folder);
    for (int i = 0; i < 12; ++i)
      write_file(folder + "\\f.e" + std::to_string((owner * 12 + i) % 90),
                 std::string(static_cast<std::size_t>(10 + i), 'x'));
  }
  const std::vector<Tag> tags = report();
  EXPECT_LT(read_file(file()).size(), 100'000U);
  for (const char* const by : {"owner", "ext"}) {
    const Json stats = json({"stats", "--by", by}).at(0);
    EXPECT_EQ(rows(tags, by).size(), 20U);
    const std::vector<Tag> others = rows(tags, std::string(by) + "-others");
    ASSERT_EQ(others.size(), 1U);
    EXPECT_EQ(others[0].attributes.at("data-name"), stats.at("other_groups").dump());
    expect_sum(others[0], stats.at("others"));
  }
}

TEST_F(ClientReport, ShowsATreeWithNothingInIt) {
  const std::vector<Tag> tags = report();
  EXPECT_EQ(rows(tags, "limit").size(), json({"clean", "--what-if"}, 3).back().at("points").size());
  EXPECT_NE(read_file(file()).find("The check found nothing"), std::string::npos);
}

TEST_F(ClientReport, KeepsToAScope) {
  fill();
  const std::vector<Tag> tags = report({"--owner", "bert"});
  ASSERT_EQ(rows(tags, "owner").size(), 1U);
  expect_sum(rows(tags, "owner")[0], json({"stats", "--owner", "bert"}).at(0));
  EXPECT_NE(read_file(file()).find("the owner bert"), std::string::npos);
  report({"--area", "list"});
  EXPECT_NE(read_file(file()).find("has no versions"), std::string::npos);
}

TEST_F(ClientReport, ChangesNothingAndAsksBeforeItOverwrites) {
  fill();
  const std::string before = tree();
  EXPECT_EQ(on_tree({"report"}).code, 2);
  EXPECT_EQ(on_tree({"report", "--html", shell_path(storage() + "\\docs\\r.html")}).code, 12);
  EXPECT_EQ(on_tree({"report", "--html", shell_path(scratch().path("in"))}).code, 12);
  EXPECT_EQ(json({"report", "--html", shell_path(file()), "-n"}).at(0).at("dry_run"), true);
  EXPECT_FALSE(file_exists(file()));
  const Json line = json({"report", "--html", shell_path(file())}).at(0);
  EXPECT_EQ(line.at("schema"), "stgctl.report/1");
  EXPECT_EQ(line.at("bytes"), json({"stats"}).at(0).at("bytes"));
  EXPECT_EQ(line.at("page_bytes"), read_file(file()).size());
  write_file(file(), "precious");
  EXPECT_EQ(on_tree({"report", "--html", shell_path(file())}).code, 12);
  EXPECT_EQ(read_file(file()), "precious");
  EXPECT_EQ(on_tree({"report", "--html", shell_path(file()), "--yes"}).code, 0);
  EXPECT_EQ(tree(), before);
}
