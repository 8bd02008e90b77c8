#include "client/tests/stgctl/fixture.h"

class ClientInit : public Client {};
class ClientUsage : public Client {};

TEST_F(ClientInit, MakesATreeBelowAnExistingRoot) {
  const outcome result = on_tree({"init", "--yes"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("6 made"), std::string::npos) << result.out;
  EXPECT_EQ(list_folder(storage()),
            (std::vector<std::string>{"docs", "list", "mail", "semlets", "user"}));
}

TEST_F(ClientInit, TellsAsJsonWhatItMade) {
  const std::vector<Json> lines = json({"init", "--yes"});
  ASSERT_EQ(lines.size(), 7U);
  for (const Json& line : lines) EXPECT_EQ(line.at("schema"), "stgctl.init/1");
  EXPECT_EQ(lines[0].at("record"), "entry");
  EXPECT_EQ(lines[0].at("action"), "made");
  EXPECT_EQ(lines[0].at("path"), shell_path(storage()));
  EXPECT_EQ(lines[6].at("record"), "summary");
  EXPECT_EQ(lines[6].at("done"), 6);
  EXPECT_EQ(lines[6].at("dry_run"), false);
  EXPECT_EQ(lines[6].at("interrupted"), false);
}

TEST_F(ClientInit, MakesNothingInADryRun) {
  const outcome result = on_tree({"init", "--dry-run"});
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.out.find("would be made"), std::string::npos);
  EXPECT_EQ(list_folder(root()), std::vector<std::string>{});
}

TEST_F(ClientInit, IsRefusedWhereNobodyCanConfirm) {
  const outcome result = on_tree({"init"});
  EXPECT_EQ(result.code, 12);
  EXPECT_NE(result.err.find("--yes"), std::string::npos) << result.err;
  EXPECT_EQ(list_folder(root()), std::vector<std::string>{});
}

TEST_F(ClientInit, LeavesATreeAloneThatIsThere) {
  init();
  const std::string before = tree();
  const outcome result = on_tree({"init", "--yes"});
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.out.find("already"), std::string::npos);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientInit, FailsWithoutItsRoot) {
  const outcome result = run({"init", "--yes", "--root", shell_path(scratch().path("missing"))});
  EXPECT_EQ(result.code, 1);
  EXPECT_FALSE(folder_exists(scratch().path("missing")));
}

TEST_F(ClientInit, RefusesAFileInTheWay) {
  write_file(root() + "\\storage", "x");
  EXPECT_EQ(on_tree({"init", "--yes"}).code, 12);
  EXPECT_EQ(read_file(root() + "\\storage"), "x");
}

TEST_F(ClientInit, MakesAStorageFolderOfAnotherName) {
  const std::string folder = scratch().path("archive");
  const outcome made = run({"init", "--yes", "--storage", shell_path(folder)});
  EXPECT_EQ(made.code, 0) << made.err;
  EXPECT_TRUE(folder_exists(folder + "\\docs"));
  const std::string file = source("a.kdc", "text");
  const outcome put =
      run({"put", file, "--owner", "anna", "--yes", "--storage", shell_path(folder)});
  EXPECT_EQ(put.code, 0) << put.err;
  EXPECT_TRUE(folder_exists(folder + "\\docs\\anna"));
}

TEST_F(ClientUsage, NoOtherCommandMakesATree) {
  const std::vector<std::vector<std::string>> commands = {{"put", source("a.kdc", "x")},
                                                          {"get", "a.kdc"},
                                                          {"rm", "a.kdc"},
                                                          {"mv", "a.kdc", "b.kdc"},
                                                          {"keys", "set", "f", "a=b"},
                                                          {"keys", "unset", "f", "a"},
                                                          {"profile", "set", "a=b"},
                                                          {"user", "list"},
                                                          {"user", "rename", "anna", "berta"},
                                                          {"user", "remove", "anna"},
                                                          {"clean", "--older-than", "1d"},
                                                          {"migrate", "inbox"},
                                                          {"sync"}};
  for (std::vector<std::string> command : commands) {
    const std::string name = command[0];
    command.insert(command.end(), {"--owner", "anna"});
    if (name != "user" || command[1] != "list") command.emplace_back("--yes");
    const outcome result = on_tree(command);
    EXPECT_EQ(result.code, 10) << name << ": " << result.err;
    EXPECT_NE(result.err.find("init"), std::string::npos) << name << ": " << result.err;
    EXPECT_EQ(list_folder(root()), std::vector<std::string>{}) << name;
  }
}

TEST_F(ClientUsage, TakesTheRootFromTheEnvironment) {
  const Environment environment = {{"STG_ROOT", shell_path(root())}};
  EXPECT_EQ(run({"init", "--yes"}, environment).code, 0);
  EXPECT_TRUE(folder_exists(storage()));
  EXPECT_EQ(run({"user", "list"}).code, 10);
  // The command line counts before it.
  EXPECT_EQ(run({"user", "list", "--root", shell_path(scratch().path("in"))}, environment).code,
            10);
}

TEST_F(ClientUsage, AnswersAWrongCommandLineWithTwo) {
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"frobnicate"},
                                                       {"keys"},
                                                       {"init", "--frobnicate"},
                                                       {"init", "--color", "blue"},
                                                       {"init", "--lock-timeout", "soon"},
                                                       {"init", "--trace", "xxl"},
                                                       {"init", "--root", "a", "--storage", "b"},
                                                       {"put"},
                                                       {"get"},
                                                       {"clean", "--older-than", "old"},
                                                       {"put", "a", "--timestamp", "-1"},
                                                       {"put", "a", "--timestamp", "2147483648"},
                                                       {"completion", "csh"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const outcome result = run(arguments);
    const std::string line = arguments.empty() ? "" : arguments.front() + " " + arguments.back();
    EXPECT_EQ(result.code, 2) << line << result.err;
    EXPECT_EQ(result.out, "") << line;
    EXPECT_EQ(lines_of(result.err).size(), 1U) << line << result.err;
  }
}

TEST_F(ClientUsage, HelpAndVersionAreResults) {
  for (const char* const question : {"--help", "--version"}) {
    const outcome result = run({question});
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.out.find("stgctl"), std::string::npos);
    EXPECT_EQ(result.err, "");
  }
  EXPECT_NE(run({"keys", "set", "--help"}).out.find("--dry-run"), std::string::npos);
}

TEST_F(ClientUsage, TracesTheLibraryToAFile) {
  const std::string log = scratch().path("trace.log");
  EXPECT_EQ(on_tree({"init", "--yes", "--trace", "m", "--trace-file", shell_path(log)}).code, 0);
  EXPECT_NE(read_file(log).find("s_storagePath"), std::string::npos);
  const std::string unreachable = scratch().path("none\\trace.log");
  EXPECT_EQ(run({"init", "--yes", "--storage", shell_path(scratch().path("other")), "--trace", "m",
                 "--trace-file", shell_path(unreachable)})
                .code,
            1);
}
