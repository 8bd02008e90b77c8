#include <cstdlib>
#include <filesystem>
#include <random>

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
  // The command line has priority over it.
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
                                                       {"init", "--trace-file", "traces"},
                                                       {"init", "--root", "a", "--storage", "b"},
                                                       {"put"},
                                                       {"get"},
                                                       {"clean", "--older-than", "old"},
                                                       {"stats", "--top", "-1"},
                                                       {"stats", "--top", "18446744073709551616"},
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

// ---- easy: names as they are printed, help, hints, silence where it is due ---------------------

class ClientEasy : public Client {
 protected:
  ClientEasy() {
    init();
    put("sales.kdf", "first", 1);
    put("sales.kdf", "second", 2);
  }
};

TEST_F(ClientEasy, TakesNamesAsItPrintsThem) {
  const std::string name = "docs/anna/sales.kdf@1";
  EXPECT_EQ(on_tree({"cat", name}).out, "first");
  EXPECT_EQ(on_tree({"get", name, "-o", "-"}).out, "first");
  EXPECT_EQ(on_tree({"which", name}).out, shell_path(physical("docs", "sales.kdf")) + "\n");
  EXPECT_EQ(lines_of(on_tree({"versions", "docs/anna/sales.kdf"}).out).size(), 2U);
  EXPECT_EQ(on_tree({"explain", name}).code, 0);
  EXPECT_EQ(on_tree({"mv", name, "docs/anna/plan.kdf@7", "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"get", "docs/anna/plan.kdf@7", "-o", "-"}).out, "first");
  EXPECT_EQ(on_tree({"rm", "docs/anna/plan.kdf@7", "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"ls", "plan.kdf"}).code, 3);
  // A contradiction to the options is reported.
  EXPECT_EQ(on_tree({"cat", "docs/anna/sales.kdf@2", "--owner", "bert"}).code, 2);
  EXPECT_EQ(on_tree({"cat", "docs/anna/sales.kdf@2", "--timestamp", "1"}).code, 2);
}

TEST_F(ClientEasy, SaysInOneLineThatNothingMatches) {
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"ls", "none*"},
           {"find", "--name", "none"},
           {"versions", "none"},
           {"which", "none"},
           {"cat", "none", "--owner", "anna"},
           {"rm", "none", "--owner", "anna", "--yes"},
           {"mv", "none", "new", "--owner", "anna", "--yes"},
           {"keys", "show", "none", "--owner", "anna"},
           {"index", "dump", "--owner", "none"},
           {"index", "diff", "1"},
           {"user", "remove", "none", "--yes"},
           {"export", shell_path(scratch().path("out")), "--owner", "none"},
           {"undo", "--yes"},
           {"quarantine", "list"}}) {
    const outcome result = on_tree(command);
    EXPECT_EQ(result.code, 3) << command[0];
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(lines_of(result.err).size(), 1U) << command[0] << result.err;
  }
  EXPECT_NE(on_tree({"quarantine", "list"}).err.find("there is no plan in"), std::string::npos);
  EXPECT_FALSE(folder_exists(scratch().path("out")));
}

TEST_F(ClientEasy, TakesNoMistypedOwnerForSound) {
  for (const std::string command : {"check", "stats", "ls", "index lint", "sync", "user list"}) {
    const auto with_owner = [&](const std::string& owner) {
      std::vector<std::string> words = {command.substr(0, command.find(' '))};
      if (words[0] != command) words.push_back(command.substr(words[0].size() + 1));
      words.insert(words.end(), {"--owner", owner});
      return on_tree(words);
    };
    EXPECT_EQ(with_owner("anna").code, command == "sync" ? 3 : 0) << command;
    const outcome result = with_owner("anan");
    EXPECT_EQ(result.code, 3) << command << result.out;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(messages(result), "stgctl: there is no owner 'anan' in any area\n") << command;
    EXPECT_EQ(messages(with_owner("user/anna")), "stgctl: there is no owner 'anna' in user\n")
        << command;
  }
}

TEST_F(ClientEasy, SaysWhereItFoundNothing) {
  const auto told = [&](const std::vector<std::string>& command, const std::string& text) {
    const outcome result = on_tree(command);
    EXPECT_EQ(result.code, 3) << command[0];
    EXPECT_EQ(messages(result), "stgctl: " + text + "\n");
  };
  told({"ls", "--layout", "flat"}, "no entry matches (all areas of a tree without owners)");
  told({"versions", "none"}, "no entry matches 'none' (all areas and owners)");
  told({"which", "none", "--area", "docs"}, "no entry matches 'none' (docs, all owners)");
  told({"parts", "none", "--owner", "anna"}, "no entry matches 'none' (all areas of anna)");
  told({"parts", "sales.kdf"}, "sales.kdf has no such sub-parts");
  told({"cat", "docs/anna/none"}, "no entry matches 'none' (docs/anna)");
  told({"get", "none", "--owner", "anna"},
       "docs/anna has no none; 'stgctl find --name none' searches everywhere");
  told({"get", "docs/anna/sales.kdf@7"},
       "docs/anna has no sales.kdf@7; 'stgctl find --name sales.kdf' searches everywhere");
  told({"mv", "none", "new", "--owner", "anna", "--yes"},
       "docs/anna has no none; 'stgctl find --name none' searches everywhere");
}

TEST_F(ClientEasy, HelpsWithACommand) {
  EXPECT_EQ(run({"help", "put"}).out, run({"put", "--help"}).out);
  EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
  EXPECT_EQ(run({"help", "index", "restore"}).out, run({"index", "restore", "--help"}).out);
  EXPECT_EQ(run({"help", "help"}).out, run({"--help"}).out);
  EXPECT_EQ(run({"--root", "x", "help", "--json", "explain"}).out, run({"explain", "--help"}).out);
  EXPECT_EQ(run({"-V"}).out, run({"--version"}).out);
}

TEST_F(ClientEasy, HasNoHelpForAnUnknownCommand) {
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"nope"}, {"index", "nope"}, {"--json", "nope"}}) {
    std::vector<std::string> help = command;
    help.insert(help.begin(), "help");
    const outcome result = run(help);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("there is no command 'nope'"), std::string::npos) << result.err;
    EXPECT_EQ(result.err, run(command).err);
  }
}

TEST_F(ClientEasy, ListsFamiliesThatLookAndChangeUnderTheirOwnHeading) {
  const std::string help = run({"--help"}).out;
  const std::size_t begin = help.find("\nInspect and change:\n");
  ASSERT_NE(begin, std::string::npos) << help;
  const std::string heading = help.substr(begin, help.find("\n\n", begin) - begin);
  for (const char* const family : {"keys", "profile", "index", "user", "quarantine"})
    EXPECT_NE(heading.find("\n  " + std::string(family) + " "), std::string::npos) << heading;
  EXPECT_EQ(lines_of(heading).size(), 7U) << heading;
}

TEST_F(ClientEasy, OffersOnlyWhatACommandDoes) {
  EXPECT_EQ(run({"user", "list", "--help"}).out.find("--dry-run"), std::string::npos);
  EXPECT_EQ(run({"quarantine", "list", "--help"}).out.find("--dry-run"), std::string::npos);
  const std::string snapshot = run({"index", "snapshot", "--help"}).out;
  EXPECT_NE(snapshot.find("--dry-run"), std::string::npos);
  EXPECT_EQ(snapshot.find("--yes"), std::string::npos) << snapshot;
}

TEST_F(ClientEasy, ExplainsANameBetweenAnyOptions) {
  const std::string tree = shell_path(root());
  const outcome whole =
      run({"explain", "read", "sales.kdf", "--timestamp", "2", "--owner", "anna", "--root", tree});
  ASSERT_EQ(whole.code, 0) << whole.err;
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"--root", tree, "explain", "sales.kdf", "--owner", "anna", "--timestamp", "2"},
           {"--root", tree, "explain", "--owner", "anna", "sales.kdf", "--timestamp", "2"},
           {"explain", "--timestamp", "2", "--root=" + tree, "sales.kdf", "--owner", "anna"},
           {"--owner=anna", "explain", "--timestamp=2", "--root", tree, "--", "sales.kdf"}}) {
    const outcome result = run(command);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, whole.out);
  }
  const outcome too_early = run({"--no-lock", "explain", "sales.kdf"});
  EXPECT_EQ(too_early.code, 2);
  EXPECT_NE(too_early.err.find("'stgctl explain read --no-lock'"), std::string::npos)
      << too_early.err;
  // The name of a subcommand is a document's name only after the subcommand.
  EXPECT_EQ(on_tree({"explain", "--owner", "anna", "read", "read"}).code, 3);
  EXPECT_EQ(on_tree({"explain", "write", "sales.kdf", "--owner", "anna"}).code, 0);
}

TEST_F(ClientEasy, GuessesWhatWasMeant) {
  const auto told = [&](const std::vector<std::string>& command, const std::string& text) {
    const outcome result = run(command);
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    EXPECT_EQ(lines_of(result.err).size(), 1U) << result.err;
  };
  told({"chekc"}, "did you mean 'check'?");
  told({"index", "restroe"}, "did you mean 'restore'?");
  told({"quarantine", "expire", "--keep", "3d"},
       "not expected: --keep 3d; see 'stgctl quarantine expire --help'");
  told({"put", "x", "--repalce"}, "did you mean '--replace'?; see 'stgctl put --help'");
  // Options of a command follow it.
  told({"--yes", "init"},
       "not expected: --yes; '--yes' follows the command: 'stgctl init --yes'; see 'stgctl init "
       "--help'");
  told({"-n", "put", "x"}, "'-n' follows the command: 'stgctl put -n'");
  told({"keys", "--yes", "set", "f", "a=b"},
       "'--yes' follows the command: 'stgctl keys set --yes'");
  told({"--yes", "init", "--", "--yes"}, "'--yes' follows the command: 'stgctl init --yes'");
  // After "--" nothing is an option.
  told({"init", "--", "--yes"},
       "not expected: --yes; '--yes' is an option only before '--'; see 'stgctl init --help'");
  told({"init", "--", "-y"}, "not expected: -y; '-y' is an option only before '--'; see");
  told({"init", "--", "--yess"}, "not expected: --yess; see 'stgctl init --help'");
  told({"index", "restore", "--at"}, "'stgctl index restore --help'");
  EXPECT_EQ(run({"nothing-like-it"}).err.find("did you mean"), std::string::npos);
}

TEST_F(ClientEasy, ExplainsANameAndSaysWhatWouldHaveWorked) {
  const outcome other_owner = on_tree({"explain", "Sales.kdf", "--owner", "bert"});
  EXPECT_EQ(other_owner.code, 3);
  EXPECT_TRUE(
      other_owner.out.ends_with("use instead: stgctl get 'docs/anna/sales.kdf@1'\n"
                                "use instead: stgctl get 'docs/anna/sales.kdf@2'\n"))
      << other_owner.out;
  const std::vector<Json> lines =
      json({"explain", "sales.kdf", "--owner", "anna", "--timestamp", "7"}, 3);
  EXPECT_EQ(lines.at(0).at("instead").size(), 2U);
  EXPECT_EQ(json({"explain", "docs/anna/sales.kdf@1"}).at(0).at("instead").size(), 0U);
}

TEST_F(ClientEasy, MakesNoFoldersForAReport) {
  const std::string place = scratch().path("none\\report.html");
  EXPECT_EQ(on_tree({"report", "--html", shell_path(place), "--yes"}).code, 12);
  EXPECT_FALSE(folder_exists(scratch().path("none")));
}

TEST_F(ClientEasy, TellsOfAPlanThatIsNoneInItsOwnWords) {
  const std::string plan = source("plan.json", "{ not json");
  const outcome result = on_tree({"repair", "--apply", plan, "--yes"});
  EXPECT_EQ(result.code, 12);
  EXPECT_NE(result.err.find("it does not contain \"schema\""), std::string::npos) << result.err;
  EXPECT_EQ(result.err.find("json.exception"), std::string::npos) << result.err;
  // Nor does a text exhaust the stack that is nested very deeply.
  constexpr std::size_t kDepth = 1'000'000;
  write_file(plan, std::string(kDepth, '[') + std::string(kDepth, ']'));
  EXPECT_EQ(on_tree({"repair", "--apply", plan, "--yes"}).code, 12);
  write_file(plan, std::string(kDepth, '['));
  EXPECT_EQ(on_tree({"repair", "--apply", plan, "--yes"}).code, 12);
}

#if !defined(_WIN32)

TEST_F(ClientEasy, CompletesOwnersAndNamesInBash) {
  put("plan two.kdc", "third");
  const std::string told = shell_path(scratch().path("told"));
  const std::string script = shell_path(scratch().path("completion"));
  write_file(script, run({"completion", "bash"}).out);
  // The words as bash splits them, the last one being completed, and their line.
  const auto completed = [&](const std::string& words, const std::string& line) {
    const std::string folder = client_path().substr(0, client_path().rfind('/'));
    const std::string command = "PATH='" + folder + "':$PATH STG_ROOT='" + shell_path(root()) +
                                "' bash -c 'source \"" + script + "\"; COMP_WORDS=(" + words +
                                "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + "COMP_LINE=\"" +
                                line + "\"; COMP_POINT=${#COMP_LINE}; COMP_WORDBREAKS=\" @:=\"; " +
                                "_stgctl; printf \"%s|\" \"${COMPREPLY[@]}\"' >'" + told + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return read_file(told);
  };
  const auto same = [&](const std::string& line) { return completed(line, line); };
  EXPECT_EQ(same("stgctl ls --owner an"), "anna|");
  EXPECT_EQ(completed("stgctl ls --owner = an", "stgctl ls --owner=an"), "anna|");
  EXPECT_EQ(same("stgctl user remove an"), "anna|");
  EXPECT_EQ(same("stgctl get docs/anna/s"), "docs/anna/sales.kdf@1|docs/anna/sales.kdf@2|");
  EXPECT_EQ(same("stgctl explain write docs/anna/plan"), "docs/anna/plan two.kdc@0|");
  EXPECT_EQ(same("stgctl put --as docs/anna/sales.kdf"),
            "docs/anna/sales.kdf@1|docs/anna/sales.kdf@2|");
  // Bash splits words at "@", and replaces only the part after it.
  EXPECT_EQ(completed("stgctl cat docs/anna/sales.kdf @ 2", "stgctl cat docs/anna/sales.kdf@2"),
            "2|");
  EXPECT_EQ(same("stgctl get --out"), "--output|");
  EXPECT_EQ(same("stgctl ls --layout f"), "flat|");
  // A folder's name is one word, even with blanks and with characters of a pattern.
  const std::string exports = shell_path(scratch().path("exports"));
  for (const std::string name : {"my export", "our [e]*"}) make_folder(exports + "/" + name);
  EXPECT_EQ(same("stgctl export " + exports + "/my"), exports + "/my export|");
  EXPECT_EQ(same("stgctl export " + exports + "/our"), exports + "/our [e]*|");
}

TEST_F(ClientEasy, IsSilentWhenItsReaderGoes) {
  const std::string told = shell_path(scratch().path("told"));
  const std::string command = "(sleep 0.3; '" + client_path() + "' ls --root '" +
                              shell_path(root()) + "'; echo code $?) 2>'" + told + "' | :";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(read_file(told).find("standard output"), std::string::npos) << read_file(told);
  EXPECT_EQ(read_file(told).find("stgctl"), std::string::npos) << read_file(told);
}

#endif

// ---- any tree ----------------------------------------------------------------------------------

class ClientGarbage : public Client {};

TEST_F(ClientGarbage, SurvivesAnyTreeAndChangesNothingInDryRuns) {
  std::mt19937 random(20240501);
  const auto bytes = [&](std::size_t count) {
    // Characters with a meaning in an index, and some others.
    const std::string alphabet = "a/_0123456789\n\n//.\\*?=\t\r% kdcindex";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      text += random() % 8 == 0 ? static_cast<char>(random() % 256)
                                : alphabet[random() % alphabet.size()];
    }
    return text;
  };
  init();
  for (const char* const place :
       {"\\user\\anna", "\\mail\\anna", "\\docs\\anna\\00000001", "\\docs\\anna\\4294967291"}) {
    make_folder(storage() + place);
    write_file(storage() + place + "\\index.dat", bytes(3000));
    write_file(storage() + place + "\\index", bytes(20));
    write_file(storage() + place + "\\00000001.kdc", bytes(10));
    write_file(storage() + place + "\\A.KDC", bytes(10));
  }
  write_file(storage() + "\\docs\\stray", "x");
  write_file(storage() + "\\user\\anna\\attribut.txt", bytes(500));
  make_folder(storage() + "\\docs\\anna\\no bucket");
  const std::string before = tree();
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"put", source("a.kdc", "x"), "-n"},
                                             {"get", "a.kdc", "-n"},
                                             {"rm", "--match", "*", "-n"},
                                             {"rm", "--match", "*", "--area", "user", "-n"},
                                             {"mv", "A.KDC", "b.kdc", "-n"},
                                             {"keys", "set", "attribut.txt", "a=b", "-n"},
                                             {"clean", "--max-size", "1", "-n"},
                                             {"sync", "-n"},
                                             {"migrate", "inbox", "-n"},
                                             {"user", "list"},
                                             {"user", "remove", "anna", "-n"}}) {
    std::vector<std::string> arguments = command;
    if (command[0] != "user") arguments.insert(arguments.end(), {"--owner", "anna"});
    arguments.emplace_back("--json");
    const outcome result = on_tree(arguments);
    EXPECT_TRUE(result.code == 0 || result.code == 1 || result.code == 3 || result.code == 5 ||
                result.code == 12)
        << command[0] << " " << result.code << ": " << result.err;
    for (const std::string& line : lines_of(result.out)) {
      EXPECT_TRUE(Json::accept(line)) << command[0] << ": " << line;
    }
    EXPECT_EQ(tree(), before) << command[0];
  }
}
