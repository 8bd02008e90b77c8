// Properties of every command: shells complete it, and names have one form.
#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "client/tests/stgctl/fixture.h"

namespace {

/// An option or a positional in a help text.
struct listed_argument {
  std::string name;   ///< "--as", or the name of a positional
  std::string value;  ///< "NAME", "WORD:{auto,always,never}"; empty for a flag
};

/// A command in the help texts.
struct listed_command {
  std::vector<std::string> words;  ///< {"keys", "show"}; empty for the program itself
  std::vector<listed_argument> arguments;

  std::string name() const {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
  }
};

/// Parses the help text of a command.
using help_of = std::function<std::string(const std::vector<std::string>& command)>;

struct help_text {
  std::vector<std::string> commands;
  std::vector<listed_argument> arguments;
};

/// "  -o,--output FILE    The file to write": names, maybe a value, and the description in its
/// column.
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

/// Every command of the program, the program itself first. So the checks include future commands.
std::vector<listed_command> listed_commands(const help_of& help) {
  std::vector<listed_command> all;
  collect(help, {}, all);
  return all;
}

}  // namespace

class ClientCompletion : public Client {
 protected:
  std::vector<listed_command> all_commands() {
    return listed_commands([&](std::vector<std::string> command) {
      command.emplace_back("--help");
      return run(command).out;
    });
  }

  /// What "complete" prints for the words and a last one: a kind, then the proposals.
  std::vector<std::string> completed(std::vector<std::string> words, const std::string& last) {
    words.insert(words.begin(), {"complete", "--"});
    words.push_back(last);
    return lines_of(run(words).out);
  }
  std::string kind_at(const std::vector<std::string>& words, const std::string& last) {
    return completed(words, last).at(0);
  }
  std::vector<std::string> proposals(const std::vector<std::string>& words,
                                     const std::string& last) {
    std::vector<std::string> lines = completed(words, last);
    lines.erase(lines.begin());
    return lines;
  }
};

TEST_F(ClientCompletion, ProposesEveryCommandAndOptionAtItsPlace) {
  const std::vector<listed_command> commands = all_commands();
  ASSERT_GE(commands.size(), 30U);
  std::size_t count = 0;
  for (const listed_command& command : commands) {
    const std::vector<std::string> proposed = proposals(command.words, "-");
    const std::set<std::string> options(proposed.begin(), proposed.end());
    EXPECT_TRUE(options.contains("--root")) << command.name();
    EXPECT_EQ(options.contains("--version"), command.words.empty()) << command.name();
    for (const listed_argument& argument : command.arguments) {
      if (!argument.name.starts_with("--")) continue;
      ++count;
      EXPECT_TRUE(options.contains(argument.name)) << command.name() << " " << argument.name;
    }
    if (command.words.empty()) continue;
    std::vector<std::string> above = command.words;
    above.pop_back();
    const std::string& last = command.words.back();
    const std::vector<std::string> begun = proposals(above, last.substr(0, 1));
    EXPECT_EQ(std::count(begun.begin(), begun.end(), last), 1) << command.name();
  }
  EXPECT_GE(count, 100U);
}

TEST_F(ClientCompletion, SaysInItsFirstLinesHowItIsLoaded) {
  const std::map<std::string, std::string> begins = {
      {"bash",
       "# bash completion for stgctl; load it with: source <(stgctl completion bash)\n"
       "_stgctl() {\n"},
      {"zsh",
       "#compdef stgctl\n"
       "# zsh completion for stgctl; write it to a folder of $fpath as _stgctl\n"
       "_stgctl() {\n"},
      {"fish",
       "# fish completion for stgctl; load it with: stgctl completion fish | source\n"
       "function __stgctl_found\n"},
      {"powershell",
       "# PowerShell completion for stgctl; load it with: stgctl completion "
       "powershell | Out-String | Invoke-Expression\n"
       "Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {\n"}};
  for (const auto& [shell, begin] : begins) {
    const std::string script = run({"completion", shell}).out;
    EXPECT_TRUE(script.starts_with(begin)) << script.substr(0, begin.size() + 40);
    EXPECT_NE(script.find("stgctl complete "), std::string::npos) << shell;
  }
}

TEST_F(ClientCompletion, KnowsWhatKindOfValueIsTakenWhere) {
  const std::map<std::string, std::string> kinds = {
      {"OWNER", "owners"},  {"NAME", "names"},  {"NEW-NAME", "names"}, {"ENTRY", "names"},
      {"PATTERN", "names"}, {"DIR", "folders"}, {"FILE", "files"},     {"SOURCE", "files"}};
  std::size_t count = 0;
  for (const listed_command& command : all_commands()) {
    bool is_first = true;
    for (const listed_argument& argument : command.arguments) {
      const auto kind = kinds.find(argument.value);
      if (kind == kinds.end()) continue;
      ++count;
      std::vector<std::string> words = command.words;
      if (argument.name.starts_with("--")) {
        words.push_back(argument.name);
      } else if (!std::exchange(is_first, false)) {
        continue;
      }
      EXPECT_EQ(kind_at(words, ""), kind->second) << command.name() << " " << argument.name;
    }
  }
  EXPECT_GE(count, 40U);
  EXPECT_EQ(kind_at({"ls", "--lock-timeout"}, ""), "value");
  EXPECT_EQ(kind_at({"ls", "--layout"}, ""), "words");
  EXPECT_EQ(proposals({"ls"}, "--layout=f"), std::vector<std::string>{"--layout=flat"});
  EXPECT_EQ(proposals({"completion"}, ""),
            (std::vector<std::string>{"bash", "zsh", "fish", "powershell"}));
  // An option, in a place that takes a name.
  EXPECT_EQ(proposals({"get"}, "--out"), std::vector<std::string>{"--output"});
}

TEST_F(ClientCompletion, AddsDescriptionsForFish) {
  EXPECT_EQ(run({"complete", "--described", "--", "pu"}).out,
            "words\nput\tStore files, or whole folders, as documents\n");
  EXPECT_EQ(run({"complete", "--described", "--", "put", "--repl"}).out,
            "words\n--replace\tReplace versions that exist\n");
  // Windows shells drop an empty argument.
  EXPECT_EQ(run({"complete", "--new-word", "--", "completion"}).out,
            "words\nbash\nzsh\nfish\npowershell\n");
}

TEST_F(ClientCompletion, ListsWhatBeginsSo) {
  init();
  put("sales.kdf", "1", 1);
  put("sales.kdf", "2", 2);
  put("plan two.kdc", "3");
  ASSERT_EQ(
      on_tree({"put", source("a.txt", "x"), "--owner", "andrea", "--area", "user", "--yes"}).code,
      0);
  const auto listed = [&](std::vector<std::string> words, const std::string& last) {
    words.insert(words.end(), {"--root", shell_path(root())});
    std::string text;
    for (const std::string& each : proposals(words, last)) text += each + " ";
    return text;
  };
  EXPECT_EQ(listed({"user", "remove"}, ""), "andrea anna ");
  EXPECT_EQ(listed({"user", "remove"}, "ann"), "anna ");
  EXPECT_EQ(listed({"ls", "--area", "user"}, "--owner="), "--owner=andrea ");
  EXPECT_EQ(listed({"ls", "--area=user"}, "--owner=a"), "--owner=andrea ");
  EXPECT_EQ(listed({"get"}, "docs/anna/s"), "docs/anna/sales.kdf@1 docs/anna/sales.kdf@2 ");
  EXPECT_EQ(listed({"get"}, "docs/anna/plan"), "docs/anna/plan two.kdc@0 ");
  EXPECT_EQ(listed({"get"}, "u"), "user/andrea/a.txt@0 ");
  // A plain name, for use with --owner.
  EXPECT_EQ(listed({"get", "--owner", "anna"}, "sa"), "sales.kdf ");
  EXPECT_EQ(listed({"get"}, "none"), "");
}

TEST_F(ClientCompletion, ComesAsJsonToo) {
  const outcome result = run({"completion", "bash", "--json"});
  EXPECT_EQ(Json::parse(result.out).at("shell"), "bash");
}

// ---- one form of names: whatever prints a version, and whatever takes a name -------------------

class ClientPrintedNames : public Client {
 protected:
  ClientPrintedNames() {
    init();
    put("sales.kdf", "first", 1);
    put("sales.kdf", "second", 2);
    put("page.kdc", "text");
    const std::string page = physical("docs", "page.kdc");
    make_folder(page + "_\\html\\page");
    write_file(page + "_\\html\\page\\1", "part");
    EXPECT_EQ(change({"keys", "set", "attribut.txt", "a=1"}).code, 0);
    EXPECT_EQ(change({"profile", "set", "b=2"}).code, 0);
    EXPECT_EQ(change({"put", source("note.txt", "note"), "--area", "user"}).code, 0);
  }

  static constexpr const char* kSales = "docs/anna/sales.kdf@1";
  static constexpr const char* kPage = "docs/anna/page.kdc@0";
  static constexpr const char* kNote = "user/anna/note.txt@0";
  static constexpr const char* kKeys = "user/anna/attribut.txt@0";
  static constexpr const char* kProfile = "user/anna/profile.txt@0";
};

namespace {

/// All matches of that form in a text.
std::set<std::string> versions_in(const std::string& text) {
  static const std::regex kVersion("(docs|user|mail)/[a-z]+/[a-z.]+@[0-9]+");
  std::set<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), kVersion), end; at != end; ++at)
    found.insert(at->str());
  return found;
}

}  // namespace

TEST_F(ClientPrintedNames, AreTakenWhereverANameIs) {
  // How to fill each place for a name, and what the answer contains.
  struct Use {
    std::vector<std::string> command;
    std::string answer;
  };
  const std::map<std::string, Use> uses = {
      {"ls pattern", {{"ls", kSales}, kSales}},
      {"find pattern", {{"find", kSales}, kSales}},
      {"find --name", {{"find", "--name", kSales}, kSales}},
      {"versions entry", {{"versions", kSales}, kSales}},
      {"which entry", {{"which", kSales}, "00000001.kdf"}},
      {"cat entry", {{"cat", kSales}, "first"}},
      {"parts entry", {{"parts", kPage}, kPage}},
      {"keys show name", {{"keys", "show", kKeys}, "a=1"}},
      {"keys set file", {{"keys", "set", kKeys, "c=3", "-n"}, kKeys}},
      {"keys unset file", {{"keys", "unset", kKeys, "a", "-n"}, kKeys}},
      {"profile show name", {{"profile", "show", kProfile}, "b=2"}},
      {"profile set --file", {{"profile", "set", "--file", kProfile, "c=3", "-n"}, kProfile}},
      {"explain read entry", {{"explain", "read", kSales}, "would be served"}},
      {"explain write entry", {{"explain", "write", kSales}, "would be written"}},
      {"explain part entry",
       {{"explain", "part", kPage, "--rendition", "html@page", "--part", "1"}, "would be served"}},
      {"put --as",
       {{"put", source("x", "x"), "--as", "docs/anna/new.kdf@7", "-n"}, "docs/anna/new.kdf@7"}},
      {"get name", {{"get", kSales, "-o", "-"}, "first"}},
      {"rm name", {{"rm", kSales, kNote, "-n"}, "2 would be removed"}},
      {"rm --match", {{"rm", "--match", "docs/anna/s*@1", "-n"}, kSales}},
      {"mv name", {{"mv", kSales, "plan.kdf", "-n"}, kSales}},
      {"mv new-name", {{"mv", kSales, "docs/bert/plan.kdf@9", "-n"}, "docs/bert/plan.kdf@9"}},
      {"mv --match", {{"mv", "--match", "docs/anna/s*@1", "--to", "t*", "-n"}, kSales}},
      {"mv --to",
       {{"mv", "--match", kSales, "--to", "docs/bert/t.kdf@9", "-n"}, "docs/bert/t.kdf@9"}},
  };
  std::set<std::string> places;
  for (const listed_command& command : listed_commands([&](std::vector<std::string> words) {
         words.emplace_back("--help");
         return run(words).out;
       })) {
    for (const listed_argument& argument : command.arguments) {
      static const std::set<std::string> kNames = {"NAME", "NEW-NAME", "ENTRY", "PATTERN"};
      if (kNames.contains(argument.value)) places.insert(command.name() + " " + argument.name);
    }
  }
  const std::string before = tree();
  for (const std::string& place : places) {
    ASSERT_TRUE(uses.contains(place)) << "nothing shows that '" << place << "' takes that form";
    const Use& use = uses.at(place);
    const outcome result = on_tree(use.command);
    EXPECT_EQ(result.code, 0) << place << ": " << result.err << result.out;
    EXPECT_NE(result.out.find(use.answer), std::string::npos) << place << ": " << result.out;
  }
  EXPECT_EQ(places.size(), uses.size());
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPrintedNames, AreAllThatIsPrinted) {
  const std::string exported = shell_path(scratch().path("export"));
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string page = physical("docs", "page.kdc");
  const std::vector<std::vector<std::string>> commands = {
      {"ls"},
      {"find", "--older-than", "1s"},
      {"versions", "sales.kdf"},
      {"which", shell_path(page)},
      {"parts", "page.kdc"},
      {"explain", "sales.kdf", "--owner", "nobody"},
      {"put", source("sales.kdf", "first"), "--owner", "anna", "--timestamp", "1", "-n"},
      {"get", "sales.kdf", "--owner", "anna", "-n"},
      {"rm", "--match", "*", "--owner", "anna", "-n"},
      {"mv", "page.kdc", "other.kdc", "--owner", "anna", "-n"},
      {"keys", "set", "attribut.txt", "c=3", "--owner", "anna", "-n"},
      {"profile", "set", "c=3", "--owner", "anna", "-n"},
      {"clean", "--older-than", "1s", "--owner", "anna", "-n"},
      {"export", exported},
      {"import", exported, "-n"},
  };
  for (const std::vector<std::string>& command : commands) {
    const outcome result = on_tree(command);
    const std::set<std::string> versions = versions_in(result.out + result.err);
    EXPECT_FALSE(versions.empty()) << command[0] << ": " << result.out << result.err;
    for (const std::string& version : versions) {
      // The result of a plan does not exist yet.
      const bool is_planned = version == "docs/anna/other.kdc@0";
      EXPECT_EQ(on_tree({"versions", version}).code, is_planned ? 3 : 0) << command[0] << version;
    }
  }
  // What only an index knows of a lost document.
  std::filesystem::remove(native(page));
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"check", "--all"}, {"ls", "--missing"}, {"compare", exported}}) {
    const outcome result = on_tree(command);
    EXPECT_TRUE(versions_in(result.out).contains(kPage)) << command[0] << result.out << result.err;
  }
  ASSERT_EQ(on_tree({"rm", kNote, "--yes"}).code, 0);
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"index", "diff", "1"}, {"import", exported, "-n"}}) {
    const outcome result = on_tree(command);
    EXPECT_TRUE(versions_in(result.out).contains(kNote)) << command[0] << result.out << result.err;
  }
}

TEST_F(ClientPrintedNames, NeverLeadToAnotherVersionThanTheySay) {
  put("plain.kdf", "kept");
  // A number that is not a timestamp. Ignored, it would select version 0.
  for (const char* const name :
       {"docs/anna/plain.kdf@99999999999", "docs/anna/plain.kdf@2147483648"}) {
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"rm", name, "--yes"}, {"mv", name, "other.kdf", "--yes"}, {"cat", name}}) {
      const outcome result = on_tree(command);
      EXPECT_EQ(result.code, 2) << command[0] << result.out;
      EXPECT_NE(result.err.find("is not a timestamp"), std::string::npos) << result.err;
    }
  }
  EXPECT_EQ(get("plain.kdf"), "kept");
  EXPECT_EQ(on_tree({"keys", "show", "user/anna/attribut.txt@5"}).code, 2);
  EXPECT_EQ(on_tree({"profile", "show", "docs/anna/profile.txt@0"}).code, 2);
  EXPECT_EQ(on_tree({"explain", "part", kNote, "--rendition", "html@x", "--part", "1"}).code, 2);
  EXPECT_EQ(on_tree({"rm", kSales, "--owner", "bert", "--yes"}).code, 2);
  EXPECT_EQ(on_tree({"rm", kSales, "--timestamp", "2", "--yes"}).code, 2);
  EXPECT_EQ(on_tree({"put", source("x", "x"), "--as", "docs/anna/x@-5", "--yes"}).code, 2);
}

TEST_F(ClientPrintedNames, OfSeveralVersionsEachStandsForItself) {
  ASSERT_EQ(
      on_tree({"put", source("b.txt", "b"), "--owner", "bert", "--area", "user", "--yes"}).code, 0);
  const std::vector<Json> lines =
      json({"rm", kSales, "docs/anna/sales.kdf@2", "user/bert/b.txt@0", kSales, "--yes"});
  EXPECT_EQ(actions(lines),
            (std::vector<std::string>{"removed sales.kdf", "removed sales.kdf", "removed b.txt"}));
  EXPECT_EQ(on_tree({"ls", "sales.kdf"}).code, 3);
  EXPECT_EQ(on_tree({"cat", kPage}).out, "text");
}

TEST_F(ClientPrintedNames, MayHoldABlankAnAtAndAStampBelowZero) {
  ASSERT_EQ(change({"put", source("x", "odd"), "--as", "my plan@3"}).code, 0);
  const std::string printed = "docs/anna/my plan@3@0";
  EXPECT_TRUE(on_tree({"ls", "my*"}).out.starts_with(printed + "  "));
  EXPECT_EQ(on_tree({"cat", printed}).out, "odd");
  // Other programs may have stored it.
  const std::string folder = storage() + "\\user\\anna";
  write_file(folder + "\\n.kdc", "below");
  write_file(folder + "\\index.dat", read_file(folder + "\\index.dat") + "z.kdc_-000000005/n\n");
  EXPECT_NE(on_tree({"ls", "z.kdc"}).out.find("user/anna/z.kdc@-5"), std::string::npos);
  EXPECT_EQ(on_tree({"cat", "user/anna/z.kdc@-5"}).out, "below");
}

TEST_F(ClientPrintedNames, AnOwnerMayBeNamedWithItsArea) {
  EXPECT_EQ(on_tree({"ls", "--owner", "user/anna"}).out,
            on_tree({"ls", "--area", "user", "--owner", "anna"}).out);
  EXPECT_NE(on_tree({"ls", "--owner", "user/anna"}).out.find(kNote), std::string::npos);
  EXPECT_EQ(on_tree({"cat", "note.txt", "--owner", "user/anna", "--area", "user"}).out, "note");
  EXPECT_EQ(on_tree({"put", source("new.txt", "x"), "--owner", "user/anna", "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"cat", "user/anna/new.txt@0"}).out, "x");
  const outcome other = on_tree({"ls", "--owner", "user/anna", "--area", "docs"});
  EXPECT_EQ(other.code, 2);
  EXPECT_NE(other.err.find("another area"), std::string::npos) << other.err;
}

TEST_F(ClientPrintedNames, HaveNoOwnerInATreeWithoutThem) {
  const std::string other = shell_path(scratch().path("flat"));
  make_folder(scratch().path("flat"));
  ASSERT_EQ(run({"init", "--layout", "flat", "--yes", "--root", other}).code, 0);
  ASSERT_EQ(
      run({"put", source("a.kdc", "flat"), "--root", other, "--layout", "flat", "--yes"}).code, 0);
  EXPECT_TRUE(run({"ls", "--root", other}).out.starts_with("docs/a.kdc@0  "));
  EXPECT_EQ(run({"cat", "docs/a.kdc@0", "--root", other}).out, "flat");
  EXPECT_EQ(run({"rm", "docs/a.kdc@0", "--root", other, "--yes"}).code, 0);
}
