#include "client/tests/stgctl/listed_commands.h"

#include <sstream>

#include "client/tests/stgctl/fixture.h"

namespace {

struct help_text {
  std::vector<std::string> commands;
  std::vector<listed_argument> arguments;
};

/// "  -o,--output FILE    The file to write": names, maybe a value, and the description far off.
listed_argument argument_of(const std::string& line) {
  std::istringstream words(line.substr(0, line.find("  ", 2)));
  listed_argument argument;
  words >> argument.name >> argument.value;
  const std::size_t option = argument.name.find("--");
  if (option != std::string::npos) argument.name.erase(0, option);
  return argument;
}

help_text read_help(const std::string& text) {
  help_text found;
  bool in_commands = false;
  for (const std::string& line : lines_of(text)) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == 0) {
      // Headings end with a colon.
      in_commands = line.back() == ':' && line != "Options:" && line != "Positionals:" &&
                    line != "The tree:" && line != "Output:" && line != "Work:";
    }
    if (begin != 2) continue;
    if (in_commands && line[2] != '-') {
      found.commands.push_back(line.substr(2, line.find(' ', 2) - 2));
    } else {
      found.arguments.push_back(argument_of(line));
    }
  }
  return found;
}

void collect(const help_of& help, const std::vector<std::string>& words,
             std::vector<listed_command>& all) {
  const help_text text = read_help(help(words));
  all.push_back({words, text.arguments});
  for (const std::string& name : text.commands) {
    std::vector<std::string> below = words;
    below.push_back(name);
    collect(help, below, all);
  }
}

}  // namespace

std::string listed_command::name() const {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<listed_command> listed_commands(const help_of& help) {
  std::vector<listed_command> all;
  collect(help, {}, all);
  return all;
}
