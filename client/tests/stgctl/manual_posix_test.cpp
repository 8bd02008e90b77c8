// The manual pages and the completion script against the program itself. Both need programs of
// POSIX systems.
#include <array>
#include <cstdio>
#include <memory>

#include "client/tests/stgctl/fixture.h"

class ClientManual : public Client {};
class ClientShell : public Client {};

namespace {

/// The output of a shell command.
std::string output_of(const std::string& command) {
  std::string text;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "re"),
                                                             ::pclose);
  std::array<char, 4096> buffer;
  for (std::size_t count = 0;
       (count = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0;) {
    text.append(buffer.data(), count);
  }
  return text;
}

/// The text of a page without roff's notation for hyphens and fonts.
std::string plain(const std::string& page) {
  std::string text;
  for (std::size_t i = 0; i < page.size(); ++i) {
    if (page.compare(i, 2, "\\f") == 0) {
      i += 2;
    } else if (page[i] != '\\') {
      text += page[i];
    }
  }
  return text;
}

std::string manual(const std::string& name) {
  return read_file(std::string(VU_TEST_SOURCE_DIR) + "\\docs\\man\\" + name);
}

}  // namespace

TEST_F(ClientManual, IsWhatTheProgramWrites) {
  EXPECT_EQ(manual("stgctl.1"), run({"manual"}).out)
      << "write it anew: stgctl manual > docs/man/stgctl.1";
}

TEST_F(ClientManual, HasEveryCommandAndOptionOfTheHelp) {
  const std::string page = plain(manual("stgctl.1"));
  std::size_t options = 0;
  const auto check_options = [&](const std::vector<std::string>& command) {
    std::vector<std::string> arguments = command;
    arguments.emplace_back("--help");
    std::vector<std::string> below;
    for (const std::string& line : lines_of(run(arguments).out)) {
      if (line.size() < 3 || !line.starts_with("  ") || line[2] == ' ') continue;
      const std::string word = line.substr(2, line.find(' ', 2) - 2);
      if (word[0] != '-') {
        below.push_back(word);
        continue;
      }
      for (std::size_t at = 0; at != std::string::npos;) {
        const std::size_t comma = word.find(',', at);
        const std::string option = word.substr(at, comma - at);
        at = comma == std::string::npos ? comma : comma + 1;
        EXPECT_TRUE(page.find(option) != std::string::npos) << line;
        ++options;
      }
    }
    return below;
  };
  std::size_t commands = 0;
  const std::string help = run({"--help"}).out;
  check_options({});
  std::string heading;
  for (const std::string& line : lines_of(help)) {
    if (!line.empty() && line[0] != ' ') heading = line;
    const bool is_command = line.size() > 2 && line.starts_with("  ") && line[2] != ' ' &&
                            line[2] != '-' && heading.ends_with(':');
    if (!is_command) continue;
    const std::string name = line.substr(2, line.find(' ', 2) - 2);
    const std::vector<std::string> below = check_options({name});
    const bool is_family = run({name, "--help"}).out.find("SUBCOMMAND") != std::string::npos;
    if (!is_family) {
      EXPECT_NE(page.find(".SS " + name + "\n"), std::string::npos) << name;
      ++commands;
      continue;
    }
    for (const std::string& each : below) {
      check_options({name, each});
      EXPECT_NE(page.find(".SS " + name + " " + each + "\n"), std::string::npos)
          << name << " " << each;
      ++commands;
    }
  }
  EXPECT_GE(commands, 15U);
  EXPECT_GE(options, 60U);
}

TEST_F(ClientManual, PagesAreThere) {
  EXPECT_NE(manual("stgctl-index.5").find(".TH STGCTL-INDEX 5"), std::string::npos);
  EXPECT_NE(manual("stgctl-tree.7").find(".TH STGCTL-TREE 7"), std::string::npos);
}

TEST_F(ClientShell, BashCompletesCommandsOptionsAndValues) {
  const std::string program = client_path();
  const std::string folder = program.substr(0, program.rfind('/'));
  const auto complete = [&](const std::string& line, int current) {
    const std::string script =
        "PATH=\"" + folder + "\":$PATH; source <(stgctl completion bash); COMP_WORDS=(" + line +
        "); COMP_LINE=\"" + line +
        "\"; COMP_POINT=${#COMP_LINE}; COMP_CWORD=" + std::to_string(current) +
        "; _stgctl; echo ${COMPREPLY[*]}";
    return output_of("bash -c '" + script + "' 2>&1");
  };
  EXPECT_EQ(complete("stgctl pu", 1), "put\n");
  EXPECT_EQ(complete("stgctl keys un", 2), "unset\n");
  EXPECT_EQ(complete("stgctl --json keys set --dr", 4), "--dry-run\n");
  EXPECT_EQ(complete("stgctl put --color a", 3), "auto always\n");
  EXPECT_EQ(complete("stgctl clean --by ", 3), "mtime atime\n");
  EXPECT_EQ(complete("stgctl completion ", 2), "bash zsh fish powershell\n");
  EXPECT_EQ(complete("stgctl ls --root /us", 3), "/usr\n");
}

TEST_F(ClientShell, FishCompletesCommandsOptionsAndValues) {
  if (output_of("command -v fish").empty()) GTEST_SKIP() << "fish is not installed";
  const std::string program = client_path();
  const std::string folder = program.substr(0, program.rfind('/'));
  const auto complete = [&](const std::string& line) {
    return output_of("PATH=\"" + folder +
                     "\":$PATH fish -N -c 'stgctl completion fish | source; complete -C \"" + line +
                     "\"' 2>&1");
  };
  EXPECT_EQ(complete("stgctl pu"), "put\tStore files, or whole folders, as documents\n");
  EXPECT_EQ(complete("stgctl put --color a"), "always\nauto\n");
  EXPECT_EQ(complete("stgctl put --color=a"), "--color=always\n--color=auto\n");
  EXPECT_EQ(complete("stgctl ls --root /us"), "/usr/\tDirectory\n");
  EXPECT_EQ(complete("stgctl ls --lock-timeout "), "");
}

TEST_F(ClientShell, ScriptsAreWellFormedWhereTheirShellIsHere) {
  const std::string program = "\"" + client_path() + "\"";
  // Every shell accepts an empty script.
  for (const char* const shell : {"bash", "zsh", "fish"})
    EXPECT_NE(output_of(program + " completion " + shell), "") << shell;
  EXPECT_EQ(output_of(program + " completion bash | bash -n 2>&1"), "");
  for (const char* const shell : {"zsh", "fish"}) {
    if (output_of(std::string("command -v ") + shell).empty()) continue;
    EXPECT_EQ(output_of(program + " completion " + shell + " | " + shell + " -n 2>&1"), "")
        << shell;
  }
}
