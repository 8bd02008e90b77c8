#include <set>

#include "client/tests/stgctl/fixture.h"
#include "client/tests/stgctl/listed_commands.h"

class ClientCompletion : public Client {
 protected:
  std::vector<listed_command> all_commands() {
    return listed_commands([&](std::vector<std::string> command) {
      command.emplace_back("--help");
      return run(command).out;
    });
  }
};

TEST_F(ClientCompletion, KnowsEveryCommandAndOptionInEveryShell) {
  const std::vector<listed_command> commands = all_commands();
  ASSERT_GE(commands.size(), 30U);
  std::set<std::string> words;
  for (const listed_command& command : commands) {
    words.insert(command.words.begin(), command.words.end());
    for (const listed_argument& argument : command.arguments) {
      if (argument.name.starts_with("--")) words.insert(argument.name);
    }
  }
  ASSERT_TRUE(words.contains("--dry-run"));
  ASSERT_TRUE(words.contains("--root"));
  for (const char* const shell : {"bash", "zsh", "fish", "powershell"}) {
    const outcome result = run({"completion", shell});
    EXPECT_EQ(result.code, 0);
    for (const std::string& word : words) {
      // fish names options without their hyphens.
      const bool fish = std::string(shell) == "fish" && word.starts_with("--");
      const std::string wanted = fish ? "-l " + word.substr(2) : word;
      EXPECT_NE(result.out.find(wanted), std::string::npos) << shell << ": " << word;
    }
  }
}

TEST_F(ClientCompletion, SaysInItsFirstLinesHowItIsLoaded) {
  const std::map<std::string, std::string> begins = {
      {"bash",
       "# bash completion for stgctl; load it with: source <(stgctl completion bash)\n"
       "_stgctl_tree() {\n"},
      {"zsh",
       "#compdef stgctl\n"
       "# zsh completion for stgctl; write it to a folder of $fpath as _stgctl\n"
       "_stgctl_found() {\n"},
      {"fish",
       "# fish completion for stgctl; load it with: stgctl completion fish | source\n"
       "function __stgctl_at\n"},
      {"powershell",
       "# PowerShell completion for stgctl; load it with: stgctl completion "
       "powershell | Out-String | Invoke-Expression\n"
       "Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {\n"}};
  for (const auto& [shell, begin] : begins) {
    const std::string script = run({"completion", shell}).out;
    EXPECT_TRUE(script.starts_with(begin)) << script.substr(0, begin.size() + 40);
    // Every place for the program's own words is filled.
    for (const char* const place :
         {"%PLACES%", "%VALUES%", "%ASKED%", "%PATHS%", "%LINES%", "%OWNERS%", "%NAMES%"})
      EXPECT_EQ(script.find(place), std::string::npos) << shell << place;
  }
}

TEST_F(ClientCompletion, AsksForOwnersAndNamesWhereverOneIsTaken) {
  const auto kind = [](const listed_argument& argument) -> std::string {
    if (argument.value == "OWNER") return "owners";
    const std::set<std::string> names = {"NAME", "NEW-NAME", "ENTRY", "PATTERN"};
    return names.contains(argument.value) ? "names" : "";
  };
  std::map<std::string, std::string> scripts;
  for (const char* const shell : {"bash", "zsh", "fish", "powershell"})
    scripts[shell] = run({"completion", shell}).out;
  const auto expect = [&](const std::string& shell, const std::string& text) {
    EXPECT_NE(scripts[shell].find(text), std::string::npos) << shell << ": " << text;
  };
  std::size_t count = 0;
  for (const listed_command& command : all_commands()) {
    const std::string place = command.words.empty() ? "*" : command.name();
    for (const listed_argument& argument : command.arguments) {
      const std::string what = kind(argument);
      if (what.empty()) continue;
      ++count;
      const std::string quoted = "'" + place + "'";
      if (argument.name.starts_with("--")) {
        const std::string key =
            place == "*" ? "*'|" + argument.name + "')" : "'" + place + "|" + argument.name + "')";
        expect("bash", key + " _stgctl_found " + what);
        expect("zsh", key + " _stgctl_found " + what);
        expect("fish", " -l " + argument.name.substr(2) + " -r -f -a '(__stgctl_found " + what);
        expect("powershell", "'" + place + "|" + argument.name + "' = '" + what + "'");
      } else {
        expect("fish", "\"__stgctl_at " + quoted + "\" -f -a '(__stgctl_found " + what + ")'");
        expect("powershell", quoted + " = '" + what + "'");
      }
    }
  }
  EXPECT_GE(count, 20U);
}

TEST_F(ClientCompletion, ListsWhatBeginsSo) {
  init();
  put("sales.kdf", "1", 1);
  put("sales.kdf", "2", 2);
  put("plan two.kdc", "3");
  ASSERT_EQ(
      on_tree({"put", source("a.txt", "x"), "--owner", "andrea", "--area", "user", "--yes"}).code,
      0);
  const auto listed = [&](const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"complete"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return on_tree(command).out;
  };
  EXPECT_EQ(listed({"owners"}), "andrea\nanna\n");
  EXPECT_EQ(listed({"owners", "ann"}), "anna\n");
  EXPECT_EQ(listed({"owners", "--area", "user"}), "andrea\n");
  EXPECT_EQ(listed({"names", "docs/anna/s"}), "docs/anna/sales.kdf@1\ndocs/anna/sales.kdf@2\n");
  EXPECT_EQ(listed({"names", "docs/anna/plan"}), "docs/anna/plan two.kdc@0\n");
  EXPECT_EQ(listed({"names", "u"}), "user/andrea/a.txt@0\n");
  // A name by itself, for whoever says --owner.
  EXPECT_EQ(listed({"names", "sa", "--owner", "anna"}), "sales.kdf\n");
  EXPECT_EQ(listed({"names", "none"}), "");
}

TEST_F(ClientCompletion, ComesAsJsonToo) {
  const outcome result = run({"completion", "bash", "--json"});
  EXPECT_EQ(Json::parse(result.out).at("shell"), "bash");
}
