#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "client/tests/stgctl/repair_fixture.h"
#include "tests/support/real_kernel.h"

/// explain and check.
class ClientExplain : public Client {
 protected:
  Json explain(std::vector<std::string> arguments, int code) {
    arguments.insert(arguments.begin(), "explain");
    arguments.insert(arguments.end(), {"--owner", "anna"});
    const std::string before = tree();
    const std::vector<Json> lines = json(arguments, code);
    EXPECT_EQ(tree(), before);
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines.at(0).at("schema"), "stgctl.explain/1");
    return lines.at(0);
  }
  static std::string first_no(const Json& told) {
    return told.at("first_no").is_null() ? "" : told.at("first_no").get<std::string>();
  }
};

class ClientCheck : public Client {
 protected:
  /// The codes of all findings, sorted. Checks the totals in the last line.
  std::vector<std::string> codes(const std::vector<std::string>& more, int code) {
    std::vector<std::string> arguments = {"check"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const std::string before = tree();
    const std::vector<Json> lines = json(arguments, code);
    EXPECT_EQ(tree(), before);
    std::vector<std::string> found;
    for (const Json& line : lines) {
      EXPECT_EQ(line.at("schema"), "stgctl.check/1");
      if (line.at("record") == "finding") found.push_back(line.at("code"));
    }
    EXPECT_EQ(lines.back().at("record"), "summary");
    const std::size_t counted = lines.back().at("errors").get<std::size_t>() +
                                lines.back().at("warnings").get<std::size_t>() +
                                lines.back().at("infos").get<std::size_t>();
    EXPECT_EQ(found.size(), counted);
    std::sort(found.begin(), found.end());
    return found;
  }
};

using Codes = std::vector<std::string>;

TEST_F(ClientExplain, TellsWhyADocumentIsServed) {
  init();
  put("sales.kdc", "x", 0, 1'600'000'000);
  const Json told = explain({"read", "sales.kdc", "--timestamp", "1600000000"}, 0);
  EXPECT_EQ(told.at("succeeds"), true);
  EXPECT_EQ(told.at("path"), shell_path(physical("docs", "sales.kdc")));
  EXPECT_EQ(first_no(told), "");
}

TEST_F(ClientExplain, NamesTheFirstStepThatSaysNo) {
  init();
  EXPECT_EQ(first_no(explain({"read", "sales.kdc"}, 3)), "owner-folder");
  put("sales.kdc", "x", 0, 1'600'000'000);
  EXPECT_EQ(first_no(explain({"read", "other.kdc"}, 3)), "bucket-folder");
  EXPECT_EQ(first_no(explain({"read", "sales.kdc", "--timestamp", "1600000001"}, 3)), "age");
  std::filesystem::remove(native(physical("docs", "sales.kdc")));
  EXPECT_EQ(first_no(explain({"read", "sales.kdc"}, 3)), "index-line");
}

TEST_F(ClientExplain, GivesEveryStepItsValues) {
  init();
  put("sales.kdc", "x", 0, 1'600'000'000);
  const Json told = explain({"read", "sales.kdc"}, 0);
  std::set<std::string> steps;
  for (const Json& step : told.at("steps")) {
    steps.insert(step.at("step").get<std::string>());
    if (step.at("step") == "bucket-folder") {
      EXPECT_EQ(step.at("values").at("bucket"), "00000055");
    }
    if (step.at("step") == "index-line") {
      EXPECT_EQ(step.at("values").at("physical"), "00000001");
    }
  }
  for (const char* name : {"entry", "area-folder", "owner-folder", "bucket-folder", "lookup-rule",
                           "plain-name", "index", "index-line", "file", "file-time", "age", "open"})
    EXPECT_EQ(steps.count(name), 1U) << name;
  const outcome text = on_tree({"explain", "read", "sales.kdc", "--owner", "anna"});
  EXPECT_NE(text.out.find("would be served"), std::string::npos) << text.out;
}

TEST_F(ClientExplain, FollowsAWriting) {
  init();
  EXPECT_EQ(explain({"write", "sales.kdc"}, 0).at("succeeds"), true);
  put("sales.kdc", "x", 0);
  EXPECT_EQ(first_no(explain({"write", "sales.kdc", "--keep"}, 3)), "replace");
  EXPECT_EQ(first_no(explain({"write", "sales.kdc"}, 0)), "");
}

TEST_F(ClientExplain, FollowsAPart) {
  init();
  put("sales.kdc", "x", 0, 1'600'000'000);
  const std::vector<std::string> part = {"part",    "sales.kdc", "--rendition",
                                         "html@p1", "--part",    "page"};
  EXPECT_EQ(explain(part, 3).at("code"), 2);
  const std::string root = physical("docs", "sales.kdc") + "_";
  make_folder(root + "\\html\\p1");
  write_file(root + "\\html\\p1\\page", "x");
  set_modify_time(root + "\\html\\p1\\page", 1'600'000'000);
  EXPECT_EQ(explain(part, 0).at("code"), 0);
  make_folder(root + "\\html\\preload");
  write_file(root + "\\html\\preload\\page", "x");
  EXPECT_EQ(explain(part, 0).at("code"), 1);
}

TEST_F(ClientCheck, IsSilentAboutWhatTheClientItselfHasMade) {
  init();
  put("sales.kdc", "x", 0);
  put("daily.kdf", "x", 10);
  ASSERT_EQ(change({"put", source("profile.txt", "a=1\n"), "--area", "user"}).code, 0);
  EXPECT_EQ(codes({}, 0), Codes{});
  EXPECT_EQ(codes({"--strict"}, 0), Codes{});
  EXPECT_NE(on_tree({"check"}).out.find("nothing found"), std::string::npos);
}

TEST_F(ClientCheck, FindsProblemsAndSaysSoByItsExitCode) {
  init();
  put("sales.kdc", "", 0);
  put("other.kdc", "x", 0);
  std::filesystem::remove(native(physical("docs", "other.kdc")));
  EXPECT_EQ(codes({"--quick"}, 4), Codes{"line-without-file"});
  EXPECT_EQ(codes({"--full"}, 4), (Codes{"empty-document", "line-without-file"}));
  EXPECT_EQ(codes({"--quick", "--area", "mail"}, 0), Codes{});
  const outcome text = on_tree({"check"});
  EXPECT_EQ(text.code, 4);
  EXPECT_NE(text.out.find("warning line-without-file  "), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("(line 1)"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("0 errors, 2 warnings, 0 infos"), std::string::npos) << text.out;
}

TEST_F(ClientCheck, TakesInformationForAProblemOnlyWhenItIsStrict) {
  init();
  write_file(storage() + "\\docs\\readme", "x");
  EXPECT_EQ(codes({}, 0), Codes{"stray-item"});
  EXPECT_EQ(codes({"--strict"}, 4), Codes{"stray-item"});
}

TEST_F(ClientCheck, TakesALimitForPaths) {
  init();
  put("sales.kdc", "x", 0);
  const Codes found = codes({"--path-limit", "40"}, 4);
  ASSERT_FALSE(found.empty());
  for (const std::string& code : found) EXPECT_EQ(code, "path-near-limit");
}

/// A text of the program as the guide prints it: names of files and commands as code.
std::string in_markdown(const std::string& text) {
  const std::string commands = std::regex_replace(text, std::regex("'(stgctl [a-z ]+)'"), "`$1`");
  return std::regex_replace(commands, std::regex(R"(index\.dat|attribut\.txt)"), "`$&`");
}

TEST_F(ClientCheck, ListsItsCodesWithTheTextsOfTheGuide) {
  std::vector<Json> kinds;
  for (const std::string& line : lines_of(run({"check", "--codes", "--json"}).out))
    kinds.push_back(Json::parse(line));
  ASSERT_GE(kinds.size(), 25U);
  const std::string guide = read_file(std::string(VU_TEST_SOURCE_DIR) + "/docs/stgctl.md");
  const auto text_of = [](const Json& kind, const char* field) {
    return kind.at(field).get<std::string>();
  };
  for (const Json& kind : kinds) {
    const std::string row = "| `" + text_of(kind, "code") + "` | " + text_of(kind, "severity") +
                            " | " + in_markdown(text_of(kind, "meaning")) + " | " +
                            in_markdown(text_of(kind, "remedy")) + " |\n";
    EXPECT_NE(guide.find(row), std::string::npos) << row;
  }
}

TEST_F(ClientCheck, NamesCommandsThatExistInItsRemedies) {
  std::set<std::string> commands;
  const std::regex quoted("'stgctl ([a-z]+)");
  const std::string codes = run({"check", "--codes"}).out;
  for (auto at = std::sregex_iterator(codes.begin(), codes.end(), quoted);
       at != std::sregex_iterator(); ++at)
    commands.insert((*at)[1]);
  EXPECT_GE(commands.size(), 8U);
  for (const std::string& command : commands)
    EXPECT_EQ(run({command, "--help"}).code, 0) << command;
}

TEST_F(ClientCheck, HasARemedyForTwoEntriesWithOnePhysicalName) {
  init();
  const std::vector<std::string> names = {"user/anna/b.txt", "user/anna/c.txt"};
  const auto store = [&](const std::string& name, const std::string& bytes) {
    const std::string file = source("in.txt", bytes);
    const outcome stored = on_tree({"put", file, "--as", name, "--yes"});
    EXPECT_EQ(stored.code, 0) << stored.err;
  };
  for (const std::string& name : names) store(name, "shared");
  const auto has_finding = [&] {
    return on_tree({"check"}).out.find("duplicate-physical-name") != std::string::npos;
  };
  write_file(storage() + "\\user\\anna\\index.dat",
             "b.txt_0000000000/00000001\nc.txt_0000000000/00000001\n");
  ASSERT_TRUE(has_finding());
  // The remedy: get the file, remove both entries, store both documents.
  for (const std::string& name : names) EXPECT_EQ(on_tree({"cat", name}).out, "shared");
  EXPECT_EQ(on_tree({"rm", names[0], names[1], "--yes"}).code, 0);
  for (const std::string& name : names) store(name, "bytes of " + name);
  EXPECT_FALSE(has_finding());
  for (const std::string& name : names) EXPECT_EQ(on_tree({"cat", name}).out, "bytes of " + name);
}

TEST_F(ClientCheck, NamesTheIndexAndTheKeyOfAFindingAboutAKey) {
  init();
  make_folder(storage() + "\\user\\anna");
  write_file(storage() + "\\user\\anna\\00000001.txt", "x");
  write_file(storage() + "\\user\\anna\\00000002.txt", "x");
  write_file(storage() + "\\user\\anna\\index.dat",
             "a.txt_0000000000/00000001\na.txt_0000000000/00000002\n"
             "b.txt_0000000000/00000001\nc.txt_00000000x1/00000002\n");
  struct Expected {
    std::string code;
    std::size_t line;
    std::string key;
    std::string detail;
  };
  const std::vector<Expected> all = {
      {"duplicate-key", 2, "a.txt_0000000000", "physical name \"00000002\", same key as line 1"},
      {"duplicate-physical-name", 3, "b.txt_0000000000",
       "physical name \"00000001\" in lines 1 and 3"},
      {"odd-timestamp", 4, "c.txt_00000000x1", "file \"00000002.txt\""}};
  const std::vector<Json> findings = json({"check", "--area", "user"}, 4);
  const std::string text = on_tree({"check", "--area", "user"}).out;
  const std::string index = shell_path(storage() + "\\user\\anna\\index.dat");
  for (const Expected& each : all) {
    const auto found = std::ranges::find_if(findings, [&](const Json& finding) {
      return finding.at("record") == "finding" && finding.at("code") == each.code;
    });
    ASSERT_NE(found, findings.end()) << each.code;
    const std::string detail = "key \"" + each.key + "\", " + each.detail;
    EXPECT_EQ(found->at("name"), "index.dat");
    EXPECT_EQ(found->at("line"), each.line);
    EXPECT_EQ(found->at("key"), each.key);
    EXPECT_EQ(found->at("detail"), detail);
    EXPECT_FALSE(found->contains("timestamp"));
    const std::string line =
        each.code + "  " + index + " (line " + std::to_string(each.line) + "): " + detail;
    EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
  }
}

TEST_F(ClientCheck, RefusesQuickAndFullTogether) {
  EXPECT_EQ(on_tree({"check", "--quick", "--full"}).code, 2);
}

// ---- what is not served, and what to do next ---------------------------------------------------

class ClientCheckLoss : public Client {
 protected:
  ClientCheckLoss() {
    init();
    for (int i = 0; i < kDocuments; ++i)
      EXPECT_EQ(change({"put", source("n" + std::to_string(i) + ".kdc", "x"), "--as", "n.kdf",
                        "--timestamp", std::to_string(i)})
                    .code,
                0);
    m_file = physical("docs", "n.kdf");
    m_folder = m_file.substr(0, m_file.find_last_of("/\\"));
    m_name = "docs/anna/" + m_folder.substr(m_folder.find_last_of("/\\") + 1);
  }
  /// The codes of the errors, and the summary.
  Json check(std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"check"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return json(arguments, 4).back();
  }
  static constexpr int kDocuments = 15;
  std::string m_file;
  std::string m_folder;
  std::string m_name;
};

TEST_F(ClientCheckLoss, ADocumentReplacedByAFolderIsAnError) {
  std::filesystem::remove(shell_path(m_file));
  std::filesystem::create_directory(shell_path(m_file));
  const Json summary = check();
  EXPECT_EQ(summary.at("codes").at("document-replaced"), 1);
  EXPECT_EQ(summary.at("unserved"), 1);
}

TEST_F(ClientCheckLoss, AFolderReplacedByAFileIsAnErrorWithWhatItHeld) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  std::filesystem::remove_all(shell_path(m_folder));
  write_file(m_folder, "in its place");
  const Json summary = check();
  EXPECT_EQ(summary.at("codes").at("folder-replaced"), 1);
  EXPECT_EQ(summary.at("unserved"), kDocuments);
  EXPECT_NE(on_tree({"check"}).out.find("15 documents are not served (snapshot 1)"),
            std::string::npos);
}

TEST_F(ClientCheckLoss, AnOwnersFolderReplacedByAFileIsAnErrorWithWhatItHeld) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  std::filesystem::remove_all(shell_path(storage() + "\\docs\\anna"));
  write_file(storage() + "\\docs\\anna", "in its place");
  const Json summary = check();
  EXPECT_EQ(summary.at("codes").dump(), R"({"folder-replaced":1})");
  EXPECT_EQ(summary.at("errors"), 1);
  EXPECT_EQ(summary.at("unserved"), kDocuments);
}

TEST_F(ClientCheckLoss, AnEmptyIndexWithoutASnapshotSaysHowManyAreNotServed) {
  write_file(m_folder + "\\index.dat", "");
  EXPECT_EQ(check().at("unserved"), kDocuments);
}

TEST_F(ClientCheckLoss, AnAreaThatIsMissingIsAnErrorWithWhatItHeld) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  std::filesystem::remove_all(shell_path(storage() + "\\docs"));
  const Json summary = check();
  EXPECT_EQ(summary.at("codes").at("missing-area"), 1);
  EXPECT_EQ(summary.at("unserved"), kDocuments);
}

TEST_F(ClientCheckLoss, WhatCannotBeWrittenIsAnError) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  namespace fs = std::filesystem;
  constexpr auto kWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  fs::permissions(shell_path(m_folder + "\\index.dat"), kWrite, fs::perm_options::remove);
  EXPECT_EQ(check().at("codes").dump(), R"({"not-writable":1})");
  fs::permissions(shell_path(m_folder + "\\index.dat"), kWrite, fs::perm_options::add);
  fs::permissions(shell_path(m_folder + "\\index"), kWrite, fs::perm_options::remove);
  EXPECT_EQ(check().at("codes").dump(), R"({"counter-unusable":1})");
  // The other two commands that must report it before they promise anything.
  EXPECT_EQ(on_tree({"explain", "write", "n.kdf", "--owner", "anna"}).code, 3);
  EXPECT_EQ(on_tree({"put", source("n", "x"), "--as", "n.kdf", "--timestamp", "99", "--owner",
                     "anna", "--dry-run"})
                .code,
            1);
  fs::permissions(shell_path(m_folder + "\\index"), kWrite, fs::perm_options::add);
}

TEST_F(ClientCheckLoss, EndsWithSumsAndTheNextCommand) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  write_file(m_folder + "\\index.dat", "");
  const outcome found = on_tree({"check"});
  EXPECT_EQ(found.code, 4);
  const std::vector<std::string> lines = lines_of(found.out);
  ASSERT_EQ(lines.size(), 1U + 10 + 1 + 1 + 2 + 1) << found.out;
  EXPECT_TRUE(lines[0].starts_with("error   empty-index")) << found.out;
  EXPECT_TRUE(lines[11].ends_with("and 5 more (--all)")) << found.out;
  EXPECT_EQ(lines[13], "    15  file-without-line  " + m_name);
  EXPECT_EQ(lines[15], "next: " + m_name +
                           ": 15 names lost, snapshot 1 has them: stgctl index restore --at 1 "
                           "--folder " +
                           m_name);
  EXPECT_EQ(lines_of(on_tree({"check", "--all"}).out).size(), 1U + 15 + 1 + 2 + 1);
  EXPECT_EQ(check().at("next").size(), 1U);
  EXPECT_EQ(check().at("unserved"), kDocuments);
  ASSERT_EQ(on_tree({"index", "restore", "--at", "1", "--folder", m_name, "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"check"}).code, 0);
}

TEST_F(ClientCheckLoss, NamesComeBackInOtherFoldersThanTheOneThatCannotBeWritten) {
  put("other.kdc", "o");
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string other =
      std::filesystem::path(physical("docs", "other.kdc")).parent_path().string();
  ASSERT_NE(other, std::filesystem::path(m_file).parent_path().string());
  write_file(other + "/index.dat", " ");
  std::filesystem::remove(shell_path(m_folder + "\\index.dat"));
  std::filesystem::create_directory(shell_path(m_folder + "\\index.dat"));
  const outcome result = on_tree({"index", "restore", "--yes"});
  EXPECT_EQ(result.code, 5) << result.err;
  EXPECT_NE(result.err.find("stgctl index restore --folder " + m_name), std::string::npos)
      << result.err;
  EXPECT_EQ(get("other.kdc"), "o");
}

// ---- what check calls repairable, repair repairs -----------------------------------------------

class ClientCheckAndRepair : public HarmedTree {
 protected:
  using Codes = std::set<std::string>;

  /// The codes that a check of the tree reports.
  Codes found() {
    Codes codes;
    for (const Json& line : lines_of_check()) {
      if (line.at("record") == "finding") codes.insert(line.at("code").get<std::string>());
    }
    return codes;
  }
  /// The kinds of findings whose remedy is a repair.
  Codes repairable() {
    Codes codes = {"line-without-file"};
    for (const Json& kind : json({"check", "--codes"})) {
      if (kind.at("remedy").get<std::string>().find("stgctl repair") != std::string::npos)
        codes.insert(kind.at("code").get<std::string>());
    }
    // The user removes it first, and a repair creates it again.
    codes.erase("counter-unusable");
    return codes;
  }
  std::vector<Json> lines_of_check() {
    const outcome result = on_tree({"check", "--json"});
    std::vector<Json> lines;
    for (const std::string& line : lines_of(result.out)) lines.push_back(Json::parse(line));
    return lines;
  }
  /// Writes a plan and applies it. @return what was left, as "CODE NAME: REMEDY".
  std::vector<std::string> repair() {
    const outcome planned = on_tree({"repair", "--plan", plan(), "--yes", "--force"});
    EXPECT_EQ(planned.code, 0) << planned.err;
    const Json written = Json::parse(read_file(plan()));
    const outcome applied = on_tree({"repair", "--apply", plan(), "--yes"});
    EXPECT_EQ(applied.code, 0) << applied.err << applied.out;
    EXPECT_EQ(applied.out.find("skipped"), std::string::npos) << applied.out;
    std::vector<std::string> left;
    for (const Json& each : written.at("left")) {
      const std::string path = each.at("path").get<std::string>();
      left.push_back(each.at("code").get<std::string>() + " " + path.substr(path.rfind('/') + 1) +
                     ": " + each.at("remedy").get<std::string>());
    }
    return left;
  }
};

TEST_F(ClientCheckAndRepair, EveryRepairableKindIsGoneAfterARepair) {
  harm();
  write_file(m_folder + "/.stgctl-part", "unfinished");
  put("other.kdc", "o");
  put("b.kdc", "b");
  const auto folder_of = [&](const char* name) {
    return std::filesystem::path(physical("docs", name)).parent_path().string();
  };
  ASSERT_NE(folder_of("b.kdc"), m_folder);
  write_file(folder_of("b.kdc") + "/index", "-1");
  ASSERT_EQ(change({"put", source("first.ctg", "lost.txt=1\n"), "--area", "user"}).code, 0);
  const Codes wanted = repairable();
  const Codes before = found();
  for (const std::string& code : wanted) EXPECT_TRUE(before.contains(code)) << code;
  EXPECT_EQ(repair(), std::vector<std::string>());
  EXPECT_EQ(found(), Codes());
}

TEST_F(ClientCheckAndRepair, ACounterIsSetBeyondANumberWhoseFileIsReplaced) {
  const std::string file = physical("docs", "a.kdc");
  std::filesystem::remove(shell_path(file));
  std::filesystem::create_directory(shell_path(file));
  write_file(m_folder + "/index", "00000000");
  ASSERT_TRUE(found().contains("counter-behind"));
  EXPECT_EQ(repair().size(), 1U);
  EXPECT_EQ(found(), (Codes{"document-replaced", "stray-item"}));
}

TEST_F(ClientCheckAndRepair, AnIndexThatCannotBeReadStaysWithAllThatItMayName) {
  write_file(m_folder + "/index", "00000000");
  make_folder(m_folder + "/00000099.kdc_");
  write_file(m_folder + "/.stgctl-part", "unfinished");
  std::filesystem::remove(shell_path(m_folder + "/index.dat"));
  std::filesystem::create_directory(shell_path(m_folder + "/index.dat"));
  ASSERT_TRUE(found().contains("parts-without-document"));
  const std::string remedy = ": its index cannot be read; mend that first, then write another plan";
  const std::vector<std::string> left = repair();
  for (const char* const what :
       {"parts-without-document 00000099.kdc_", "unfinished-file .stgctl-part"})
    EXPECT_EQ(std::ranges::count(left, what + remedy), 1) << what;
  EXPECT_TRUE(folder_exists(m_folder + "/00000099.kdc_"));
}

TEST_F(ClientCheckAndRepair, AnIndexThatCannotBeWrittenStays) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  write_file(m_folder + "/index.dat", m_healthy + "gone.kdc_0000000000/00000077\n");
  write_file(m_folder + "/stray.tmp", "x");
  write_file(m_folder + "/index", "00000000");
  make_read_only(m_folder + "/index.dat");
  const std::vector<Json> lines = lines_of_check();
  EXPECT_NE(lines.back().at("next").dump().find("not-writable"), std::string::npos) << lines.back();
  const std::vector<std::string> left = repair();
  ASSERT_EQ(left.size(), 3U);
  for (const std::string& each : left) {
    const bool is_told =
        each.find("/index.dat cannot be written: it is read-only; mend that") != std::string::npos;
    EXPECT_EQ(is_told, !each.starts_with("not-writable")) << each;
  }
  EXPECT_EQ(read_file(m_folder + "/index"), "00000001");
  make_writable(m_folder + "/index.dat");
}

#if !defined(_WIN32)  // where a name contains none of these
TEST_F(ClientCheckAndRepair, APlanHasNoNameThatItsApplicationRefuses) {
  write_file(m_folder + "/plain.tmp", "x");
  for (const std::string name : {"star*.tmp", "line\nfeed.tmp", "what?.tmp"})
    std::ofstream(shell_path(m_folder) + "/" + name) << "x";
  const std::vector<std::string> left = repair();
  ASSERT_EQ(left.size(), 3U);
  for (const std::string& each : left) EXPECT_NE(each.find(": rename it first"), std::string::npos);
  EXPECT_FALSE(file_exists(m_folder + "/plain.tmp"));
  const Json next = lines_of_check().back().at("next");
  ASSERT_EQ(next.size(), 3U) << next;
  for (const Json& step : next)
    EXPECT_NE(step.get<std::string>().find(": rename it, or move it away: it contains a "),
              std::string::npos)
        << step;
}
#endif
