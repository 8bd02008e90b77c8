// What makes the client easy: names as they are printed, help, hints, silence where it is due.
#include <cstdlib>
#include <filesystem>

#include "client/tests/stgctl/fixture.h"

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
  // What contradicts the options is told.
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
  EXPECT_NE(on_tree({"quarantine", "list"}).err.find("no plan is kept in"), std::string::npos);
  EXPECT_FALSE(folder_exists(scratch().path("out")));
}

TEST_F(ClientEasy, TakesNoMistypedOwnerForSound) {
  for (const char* const command : {"check", "stats"}) {
    EXPECT_EQ(on_tree({command, "--owner", "anna"}).code, 0);
    const outcome result = on_tree({command, "--owner", "anan"});
    EXPECT_EQ(result.code, 3) << command << result.out;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(lines_of(result.err).size(), 1U) << result.err;
  }
}

TEST_F(ClientEasy, HelpsWithACommand) {
  EXPECT_EQ(run({"help", "put"}).out, run({"put", "--help"}).out);
  EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
  EXPECT_EQ(run({"help", "index", "restore"}).out, run({"index", "restore", "--help"}).out);
  EXPECT_EQ(run({"-V"}).out, run({"--version"}).out);
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
       "not expected: --keep 3d; 'stgctl quarantine expire --help' tells more");
  told({"put", "x", "--repalce"}, "did you mean '--replace'?; 'stgctl put --help' tells more");
  told({"index", "restore", "--at"}, "'stgctl index restore --help' tells more");
  EXPECT_EQ(run({"nothing-like-it"}).err.find("did you mean"), std::string::npos);
}

TEST_F(ClientEasy, ExplainsANameAndSaysWhatWouldHaveWorked) {
  const outcome other_owner = on_tree({"explain", "Sales.kdf", "--owner", "bert"});
  EXPECT_EQ(other_owner.code, 3);
  EXPECT_TRUE(
      other_owner.out.ends_with("this works: stgctl get 'docs/anna/sales.kdf@1'\n"
                                "this works: stgctl get 'docs/anna/sales.kdf@2'\n"))
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
  EXPECT_NE(result.err.find("it does not say \"schema\""), std::string::npos) << result.err;
  EXPECT_EQ(result.err.find("json.exception"), std::string::npos) << result.err;
}

#if !defined(_WIN32)

TEST_F(ClientEasy, CompletesOwnersAndNamesInBash) {
  put("plan two.kdc", "third");
  const std::string told = shell_path(scratch().path("told"));
  const std::string script = shell_path(scratch().path("completion"));
  write_file(script, run({"completion", "bash"}).out);
  // The words as bash breaks them, the last one being completed, and the line that they are of.
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
  // Bash breaks words at "@", and replaces what follows it alone.
  EXPECT_EQ(completed("stgctl cat docs/anna/sales.kdf @ 2", "stgctl cat docs/anna/sales.kdf@2"),
            "2|");
  EXPECT_EQ(same("stgctl get --out"), "--output|");
  EXPECT_EQ(same("stgctl ls --layout f"), "flat|");
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
