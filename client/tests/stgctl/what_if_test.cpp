#include <ctime>

#include "client/tests/stgctl/fixture.h"

class ClientWhatIf : public Client {
 protected:
  ClientWhatIf() {
    init();
    m_now = static_cast<std::int64_t>(std::time(nullptr));
  }
  void aged(const std::string& name, std::size_t size, int days, long stamp = 0,
            const std::string& owner = "anna") {
    const std::string file = source(name, std::string(size, 'x'), m_now - days * 86'400 - 600);
    ASSERT_EQ(
        on_tree({"put", file, "--timestamp", std::to_string(stamp), "--owner", owner, "--yes"})
            .code,
        0);
  }
  /// Documents of two owners, one of them with two versions and with parts.
  void fill() {
    for (int i = 0; i < 10; ++i) aged("d" + std::to_string(i) + ".kdc", 1000, 5 + i * 40);
    aged("v.kdf", 300, 500, 1);
    aged("v.kdf", 300, 2, 2);
    aged("b.kdc", 5000, 100, 0, "bert");
    const std::string part = physical("docs", "d9.kdc") + "_\\html\\page";
    make_folder(part);
    write_file(part + "\\1", std::string(70, 'p'));
  }

  std::int64_t m_now = 0;
};

TEST_F(ClientWhatIf, PromisesForEachLimitWhatCleaningThenDoes) {
  fill();
  const std::string before = tree();
  const std::vector<Json> lines = json({"clean", "--what-if"});
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].at("schema"), "stgctl.what-if/1");
  EXPECT_EQ(lines[0].at("owner"), "anna");
  EXPECT_EQ(lines[0].at("bytes"), 10'670);
  EXPECT_EQ(lines[1].at("owner"), "bert");
  EXPECT_EQ(lines[2].at("record"), "summary");
  EXPECT_EQ(lines[2].at("versions"), 13);
  EXPECT_EQ(lines[2].at("documents"), 12);
  const std::vector<std::vector<std::string>> scopes = {
      {"--owner", "anna"}, {"--owner", "bert"}, {}};
  for (std::size_t i = 0; i < scopes.size(); ++i) {
    ASSERT_GE(lines[i].at("points").size(), 10U);
    for (const Json& point : lines[i].at("points")) {
      std::vector<std::string> clean = {"clean", "--older-than", point.at("limit"), "--dry-run"};
      clean.insert(clean.end(), scopes[i].begin(), scopes[i].end());
      const std::uint64_t versions = point.at("versions");
      const std::vector<Json> plan = json(clean, versions == 0 ? 3 : 0);
      EXPECT_EQ(plan.back().at("done"), versions) << point;
      EXPECT_EQ(plan.back().value("bytes", 0), point.at("bytes")) << point;
      EXPECT_EQ(plan.back().at("kept_bytes"), point.at("kept_bytes")) << point;
    }
  }
  // Of v.kdf the younger version would be left.
  EXPECT_EQ(lines[0].at("points")[7].at("limit"), "1y");
  EXPECT_EQ(lines[0].at("points")[7].at("versions"), 2);
  EXPECT_EQ(lines[0].at("points")[7].at("documents"), 1);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientWhatIf, FindsTheLongestLimitThatReachesASize) {
  fill();
  const std::string before = tree();
  for (const std::uint64_t target : {12'000U, 10'000U, 8000U, 4000U, 1500U, 400U, 0U}) {
    const Json found =
        json({"clean", "--what-if", "--target-size", std::to_string(target)}).back().at("target");
    EXPECT_EQ(found.at("reached"), true);
    const auto kept_with = [&](const std::string& limit) {
      const outcome plan = on_tree({"clean", "--older-than", limit, "--dry-run", "--json"});
      return Json::parse(lines_of(plan.out).back()).at("kept_bytes").get<std::uint64_t>();
    };
    const std::string limit = found.at("limit");
    EXPECT_LE(kept_with(limit), target) << limit;
    EXPECT_EQ(kept_with(limit), found.at("kept_bytes"));
    const std::int64_t longer = found.at("limit_seconds").get<std::int64_t>() + 86'400;
    EXPECT_GT(kept_with(std::to_string(longer) + "s"), target) << limit;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientWhatIf, SaysItInASentence) {
  fill();
  const std::string before = tree();
  const outcome shown = on_tree({"clean", "--what-if", "--target-size", "10000"});
  EXPECT_EQ(shown.code, 0);
  // Of 15,670 bytes the old v.kdf, and d9.kdc (with its part) to d4.kdc have to go; that one is 165
  // days old.
  for (const char* const part :
       {"to reach 9.8 KiB the limit is 165 days (--older-than 165d)", "older than  30d", "anna",
        "bert", "15.3 KiB in 13 versions of 12 documents"})
    EXPECT_NE(shown.out.find(part), std::string::npos) << part << "\n" << shown.out;
  EXPECT_NE(on_tree({"clean", "--what-if", "--target-size", "1G"}).out.find("nothing has to go"),
            std::string::npos);
  EXPECT_EQ(
      json({"clean", "--what-if", "--target-size", "1G"}).back().at("target").contains("limit"),
      false);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientWhatIf, KnowsWhenNoLimitWillDo) {
  aged("tomorrow.kdc", 1000, -2);
  const Json found = json({"clean", "--what-if", "--target-size", "1"}).back().at("target");
  EXPECT_EQ(found.at("reached"), false);
  EXPECT_FALSE(found.contains("limit"));
  EXPECT_NE(on_tree({"clean", "--what-if", "--target-size", "1"}).out.find("no age limit will do"),
            std::string::npos);
}

TEST_F(ClientWhatIf, GoesByTheTimeOfTheLastAccessWhenTold) {
  aged("read.kdc", 10, 40);
  set_access_time(physical("docs", "read.kdc"), m_now - 86'400 * 3);
  const Json sums = json({"clean", "--what-if", "--by", "atime"}).back();
  EXPECT_EQ(sums.at("by"), "atime");
  EXPECT_EQ(sums.at("points")[0].at("versions"), 1);
  EXPECT_EQ(sums.at("points")[1].at("versions"), 0);
}

TEST_F(ClientWhatIf, KeepsToItsOptions) {
  fill();
  EXPECT_EQ(on_tree({"clean", "--what-if", "--older-than", "3d"}).code, 2);
  EXPECT_EQ(on_tree({"clean", "--what-if", "--max-size", "3G"}).code, 2);
  EXPECT_EQ(on_tree({"clean", "--target-size", "3G"}).code, 2);
  EXPECT_EQ(on_tree({"clean", "--what-if", "--target-size", "much"}).code, 2);
  EXPECT_EQ(on_tree({"clean", "--what-if", "--area", "list"}).code, 12);
  EXPECT_EQ(on_tree({"clean", "--what-if", "--area", "user"}).code, 3);
  EXPECT_EQ(on_tree({"clean", "--what-if", "--owner", "nobody"}).code, 3);
}
