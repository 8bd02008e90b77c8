#include <set>
#include <sstream>

#include "tests/stgctl/fixture.h"

class ClientCompletion : public Client {
 protected:
  /// The commands and long options that a help text lists.
  struct Listed {
    std::vector<std::string> commands;
    std::vector<std::string> options;
  };
  Listed listed(std::vector<std::string> command) {
    command.emplace_back("--help");
    Listed found;
    bool in_commands = false;
    for (const std::string& line : lines_of(run(command).out)) {
      const std::size_t begin = line.find_first_not_of(' ');
      if (begin == std::string::npos) continue;
      if (begin == 0) {
        // Headings end with a colon.
        in_commands = line.back() == ':' && line != "Options:" && line != "Positionals:" &&
                      line != "The tree:" && line != "Output:" && line != "Work:";
        continue;
      }
      if (begin != 2) continue;
      std::istringstream words(line);
      std::string word;
      words >> word;
      if (in_commands && word[0] != '-') found.commands.push_back(word);
      const std::size_t option = word.find("--");
      if (option != std::string::npos) found.options.push_back(word.substr(option));
    }
    return found;
  }

  /// Every command of the program.
  std::vector<std::vector<std::string>> all_commands() {
    std::vector<std::vector<std::string>> all;
    for (const std::string& name : listed({}).commands) {
      const std::vector<std::string> below = listed({name}).commands;
      if (below.empty()) all.push_back({name});
      for (const std::string& each : below) all.push_back({name, each});
    }
    return all;
  }
};

TEST_F(ClientCompletion, KnowsEveryCommandAndOptionInEveryShell) {
  const std::vector<std::vector<std::string>> commands = all_commands();
  ASSERT_GE(commands.size(), 15U);
  std::set<std::string> words;
  for (const std::vector<std::string>& command : commands) {
    words.insert(command.begin(), command.end());
    for (const std::string& option : listed(command).options) words.insert(option);
  }
  for (const std::string& option : listed({}).options) words.insert(option);
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

TEST_F(ClientCompletion, ComesAsJsonToo) {
  const outcome result = run({"completion", "bash", "--json"});
  EXPECT_EQ(Json::parse(result.out).at("shell"), "bash");
}
