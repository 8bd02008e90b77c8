#include <algorithm>
#include <ctime>

#include "client/tests/stgctl/fixture.h"

class ClientClean : public Client {
 protected:
  ClientClean() {
    init();
    m_now = static_cast<std::int64_t>(std::time(nullptr));
  }
  /// A document that was changed a number of days ago.
  void aged(const std::string& name, const std::string& bytes, int days) {
    put(name, bytes, 0, m_now - days * 86'400 - 60);
  }

  std::int64_t m_now = 0;
};
class ClientSync : public ClientClean {};
class ClientMigrate : public ClientClean {};

TEST_F(ClientClean, RemovesWhatIsOlderThanTheLimitAndNothingElse) {
  aged("old.kdc", "12345", 40);
  aged("young.kdc", "123", 20);
  const std::string file = physical("docs", "old.kdc");
  make_folder(file + "_\\html");
  write_file(file + "_\\html\\part", "1234567");
  const std::string stray = file.substr(0, file.find_last_of("/\\")) + "\\notes.tmp";
  write_file(stray, "a stray file");
  const std::vector<Json> lines = json({"clean", "--older-than", "30d", "--yes"});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"removed old.kdc"});
  EXPECT_EQ(lines[0].at("by"), "mtime");
  EXPECT_EQ(lines[0].at("reason"), "age");
  EXPECT_EQ(lines[0].at("bytes"), 12);
  EXPECT_EQ(lines.back().at("bytes"), 12);
  EXPECT_EQ(lines.back().at("kept"), 1);
  EXPECT_FALSE(file_exists(file));
  EXPECT_FALSE(folder_exists(file + "_"));
  EXPECT_EQ(get("young.kdc"), "123");
  // The library's own sweep would remove it.
  EXPECT_EQ(read_file(stray), "a stray file");
}

TEST_F(ClientClean, PreviewsExactlyWhatItThenDoes) {
  for (int i = 0; i < 12; ++i)
    aged("d" + std::to_string(i) + ".kdc", std::string(100, 'x'), i * 10);
  const std::vector<std::vector<std::string>> limits = {
      {"--older-than", "65d"}, {"--max-size", "400"}, {"--older-than", "15d", "--max-size", "100"}};
  for (const std::vector<std::string>& limit : limits) {
    std::vector<std::string> command = {"clean"};
    command.insert(command.end(), limit.begin(), limit.end());
    std::vector<std::string> preview = command;
    preview.emplace_back("--dry-run");
    const std::string before = tree();
    const std::vector<Json> promised = json(preview);
    EXPECT_EQ(tree(), before);
    command.emplace_back("--yes");
    const std::vector<Json> done = json(command);
    EXPECT_EQ(actions(done), actions(promised));
    EXPECT_FALSE(actions(done).empty());
    EXPECT_EQ(done.back().at("bytes"), promised.back().at("bytes"));
    for (const std::string& action : actions(promised)) {
      EXPECT_EQ(physical("docs", action.substr(action.find(' ') + 1)), "(no file)");
    }
  }
}

TEST_F(ClientClean, RemovesTheOldestUntilTheRestIsSmallEnough) {
  aged("oldest.kdc", std::string(1000, 'x'), 3);
  aged("older.kdc", std::string(1000, 'x'), 2);
  aged("young.kdc", std::string(1000, 'x'), 1);
  const std::vector<Json> lines = json({"clean", "--max-size", "2K", "--yes"});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"removed oldest.kdc"});
  EXPECT_EQ(lines[0].at("reason"), "size");
  EXPECT_EQ(lines.back().at("kept_bytes"), 2000);
}

TEST_F(ClientClean, GoesByTheTimeOfTheLastAccessWhenTold) {
  aged("read.kdc", "x", 40);
  aged("forgotten.kdc", "x", 40);
  set_access_time(physical("docs", "read.kdc"), m_now);
  set_access_time(physical("docs", "forgotten.kdc"), m_now - 40 * 86'400);
  const std::vector<Json> lines =
      json({"clean", "--older-than", "30d", "--by", "atime", "--dry-run"});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"removed forgotten.kdc"});
  EXPECT_EQ(lines[0].at("by"), "atime");
  const std::string told = on_tree({"clean", "--older-than", "30d", "--by", "atime", "-n"}).out;
  EXPECT_TRUE(
      told.ends_with("1 would be removed, 1 B freed, 1 kept (age: last access); nothing was "
                     "changed\n"))
      << told;
}

TEST_F(ClientClean, TakesNoAgeWithoutAUnit) {
  aged("old.kdc", "x", 40);
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"clean", "--older-than", "30", "--yes"},
                                             {"find", "--older-than", "30"},
                                             {"find", "--newer-than", "30"},
                                             {"repair", "--plan", "x", "--keep", "30"}}) {
    const outcome result = on_tree(command);
    EXPECT_EQ(result.code, 2) << command[0];
    EXPECT_NE(result.err.find("'30' has no unit; use 30s"), std::string::npos) << result.err;
  }
  EXPECT_EQ(get("old.kdc"), "x");
}

TEST_F(ClientClean, IsRefusedWhereNobodyCanConfirm) {
  aged("old.kdc", "x", 40);
  const std::string before = tree();
  EXPECT_EQ(on_tree({"clean", "--older-than", "1d"}).code, 12);
  EXPECT_EQ(on_tree({"clean", "--yes"}).code, 2);
  const outcome none = on_tree({"clean", "--older-than", "90d", "--yes"});
  EXPECT_EQ(none.code, 3);
  EXPECT_EQ(messages(none), "stgctl: nothing to remove; 1 kept (age: last change)\n");
  EXPECT_EQ(on_tree({"clean", "--older-than", "1d", "--owner", "bert", "--yes"}).code, 3);
  EXPECT_EQ(on_tree({"clean", "--older-than", "1d", "--area", "user", "--yes"}).code, 3);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientSync, AdoptsFilesThatNoIndexNames) {
  const std::string folder = storage() + "\\user\\anna";
  make_folder(folder + "\\folder");
  write_file(folder + "\\notes.txt", "n");
  write_file(folder + "\\other.kdc", "o");
  const std::string before = tree();
  EXPECT_EQ(actions(json({"sync", "--dry-run"})).size(), 2U);
  EXPECT_EQ(on_tree({"sync"}).code, 12);
  EXPECT_EQ(tree(), before);
  const std::vector<Json> lines = json({"sync", "--yes"});
  EXPECT_EQ(lines.back().at("done"), 2);
  EXPECT_EQ(get("notes.txt", {"--area", "user"}), "n");
  EXPECT_EQ(get("other.kdc", {"--area", "user"}), "o");
  EXPECT_EQ(on_tree({"sync", "--yes"}).code, 3);
}

TEST_F(ClientSync, KeepsToTheAreaAndOwnerThatAreNamed) {
  for (const char* const place : {"\\user\\anna", "\\user\\bert", "\\mail\\anna"}) {
    make_folder(storage() + place);
    write_file(storage() + place + "\\f.txt", "x");
  }
  EXPECT_EQ(json({"sync", "--area", "user", "--owner", "anna", "--yes"}).back().at("done"), 1);
  EXPECT_TRUE(file_exists(storage() + "\\user\\anna\\index.dat"));
  EXPECT_FALSE(file_exists(storage() + "\\user\\bert\\index.dat"));
  EXPECT_FALSE(file_exists(storage() + "\\mail\\anna\\index.dat"));
}

TEST_F(ClientSync, OtherCommandsAdoptNothing) {
  const std::string folder = storage() + "\\user\\anna";
  make_folder(folder);
  write_file(folder + "\\Stranger.TXT", "s");
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  ASSERT_EQ(change({"put", source("x.txt", "x"), "--area", "user"}).code, 0);
  ASSERT_EQ(change({"mv", "x.txt", "y.txt", "--area", "user"}).code, 0);
  ASSERT_EQ(change({"rm", "y.txt", "--area", "user"}).code, 0);
  EXPECT_TRUE(file_exists(folder + "\\Stranger.TXT"));
  EXPECT_EQ(read_file(folder + "\\index.dat").find("tranger"), std::string::npos);
}

TEST_F(ClientMigrate, ConvertsAnInboxOnce) {
  const std::string folder = storage() + "\\mail\\anna";
  make_folder(folder);
  write_file(folder + "\\Q1%20Sales.kdb", "mail");
  write_file(folder + "\\plain.kdb", "plain");
  const std::string before = tree();
  const std::vector<Json> promised = json({"migrate", "inbox", "--owner", "anna", "--dry-run"});
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(on_tree({"migrate", "inbox", "--owner", "anna"}).code, 12);
  EXPECT_EQ(on_tree({"migrate", "inbox", "--owner", "bert", "--yes"}).code, 3);
  EXPECT_EQ(tree(), before);
  const std::vector<Json> done = json({"migrate", "inbox", "--owner", "anna", "--yes"});
  EXPECT_EQ(actions(done), actions(promised));
  EXPECT_EQ(actions(done)[0], "converted Q1%20Sales.kdb");
  // The adopted files and the marker are no converted names.
  EXPECT_EQ(done.back().at("done"), 1);
  EXPECT_EQ(done.back().at("adopted"), 2);
  EXPECT_EQ(done[0].at("new_name"), "Q1 Sales.kdb");
  EXPECT_EQ(get("Q1 Sales.kdb", {"--area", "mail"}), "mail");
  EXPECT_EQ(get("plain.kdb", {"--area", "mail"}), "plain");
  const std::string converted = tree();
  EXPECT_EQ(on_tree({"migrate", "inbox", "--owner", "anna", "--yes"}).code, 0);
  EXPECT_EQ(tree(), converted);
}

#if !defined(_WIN32)  // which makes other files of these names
TEST_F(ClientMigrate, SaysWhichNamesCannotBeConverted) {
  const std::string folder = storage() + "\\mail\\anna";
  make_folder(folder);
  for (const char* const name : {"a%2E%5Cb", "c%2Fd", "Q1%20Sales.kdb"})
    write_file(folder + "\\" + name, "mail");
  const std::vector<Json> promised = json({"migrate", "inbox", "--owner", "anna", "--dry-run"});
  const std::vector<Json> done = json({"migrate", "inbox", "--owner", "anna", "--yes"});
  EXPECT_EQ(actions(done), actions(promised));
  EXPECT_EQ(done.back().at("done"), 1);
  EXPECT_EQ(done.back().at("skipped"), 2);
  EXPECT_EQ(done[1].at("name"), "a%2E%5Cb");
  EXPECT_EQ(done[1].at("reason"),
            "it keeps its escaped name: no file can have the extension of the plain one");
  EXPECT_EQ(done[2].at("reason"),
            "it keeps its escaped name: an index cannot contain the plain one");
  EXPECT_EQ(get("a%2E%5Cb", {"--area", "mail"}), "mail");
}
#endif

// ---- what if -----------------------------------------------------------------------------------

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
  /// Documents of two owners. One has two versions and sub-parts.
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
  // Of v.kdf the younger version would stay.
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
  // Of 15,670 bytes the old v.kdf, and d9.kdc (with its sub-part) to d4.kdc must be removed; that
  // one is 165 days old.
  for (const char* const part :
       {"to reach 9.8 KiB the limit is 165 days (--older-than 165d)", "older than  30d", "anna",
        "bert", "15.3 KiB in 13 versions of 12 documents"})
    EXPECT_NE(shown.out.find(part), std::string::npos) << part << "\n" << shown.out;
  EXPECT_NE(
      on_tree({"clean", "--what-if", "--target-size", "1G"}).out.find("nothing must be removed"),
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
  EXPECT_NE(
      on_tree({"clean", "--what-if", "--target-size", "1"}).out.find("no age limit is enough"),
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
