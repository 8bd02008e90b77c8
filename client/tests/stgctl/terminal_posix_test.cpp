// Tests that need a terminal, signals, links, read-only files that root keeps, or names of any
// bytes: only on POSIX systems.
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "client/tests/stgctl/fixture.h"
#include "client/tests/stgctl/program.h"
#include "vu_file.h"

/// The client on its own pseudo-terminal, as a user has it. Both outputs arrive as one text.
class pseudo_terminal {
 public:
  static constexpr std::chrono::seconds kPatience{40};

  explicit pseudo_terminal(const std::vector<std::string>& arguments, int columns = 100);
  ~pseudo_terminal();
  pseudo_terminal(const pseudo_terminal&) = delete;
  pseudo_terminal& operator=(const pseudo_terminal&) = delete;

  /// Waits until the text contains something. @return false if the program ends or kPatience is
  /// over first.
  bool shows(const std::string& text);
  /// Types, control characters included ("\x03" is Ctrl-C).
  void type(const std::string& keys);
  /// Waits for the end. @return the exit code, 128 + a signal's number, -1 if it had to be killed.
  int wait();
  /// The text until now.
  const std::string& text() const { return m_text; }

 private:
  bool read_some(std::chrono::steady_clock::time_point end);

  ::pid_t m_process = -1;
  int m_terminal = -1;
  std::string m_text;
};

using Clock = std::chrono::steady_clock;

pseudo_terminal::pseudo_terminal(const std::vector<std::string>& arguments, int columns) {
  const std::string program = client_path();
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  ::winsize size = {};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = 25;
  m_process = ::forkpty(&m_terminal, nullptr, nullptr, &size);
  if (m_process < 0) throw std::runtime_error("test support: forkpty");
  if (m_process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::setenv("TERM", "xterm", 1);
    ::unsetenv("NO_COLOR");
    ::unsetenv("STG_ROOT");
    ::execv(program.c_str(), words.data());
    ::_exit(127);
  }
}

pseudo_terminal::~pseudo_terminal() {
  if (m_process > 0) {
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
  }
  ::close(m_terminal);
}

bool pseudo_terminal::read_some(Clock::time_point end) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  ::pollfd waiting = {m_terminal, POLLIN, 0};
  if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0) return false;
  std::array<char, 4096> buffer;
  const ::ssize_t count = ::read(m_terminal, buffer.data(), buffer.size());
  // The end of the other side is an error here.
  if (count <= 0) return false;
  m_text.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

bool pseudo_terminal::shows(const std::string& text) {
  const Clock::time_point end = Clock::now() + kPatience;
  while (m_text.find(text) == std::string::npos) {
    if (!read_some(end)) return false;
  }
  return true;
}

void pseudo_terminal::type(const std::string& keys) {
  if (::write(m_terminal, keys.data(), keys.size()) != static_cast<::ssize_t>(keys.size())) {
    throw std::runtime_error("test support: the terminal takes no keys");
  }
}

int pseudo_terminal::wait() {
  const Clock::time_point end = Clock::now() + kPatience;
  while (read_some(end)) {
  }
  const bool late = Clock::now() >= end;
  if (late) ::kill(m_process, SIGKILL);
  int status = 0;
  while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
  }
  m_process = -1;
  if (late) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class ClientOnATerminal : public Client {
 protected:
  ClientOnATerminal() { init(); }
  std::vector<std::string> line(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--owner", "anna", "--root", shell_path(root())});
    return arguments;
  }
};
class ClientInterrupted : public ClientOnATerminal {};
class ClientNames : public ClientOnATerminal {};
class ClientLinks : public ClientOnATerminal {};

TEST_F(ClientOnATerminal, AsksAndTakesYesForAnAnswer) {
  pseudo_terminal terminal(line({"put", source("a.kdc", "x")}));
  ASSERT_TRUE(terminal.shows("Store 1 file, 1 B? [y/N] ")) << terminal.text();
  terminal.type("y\n");
  EXPECT_EQ(terminal.wait(), 0) << terminal.text();
  EXPECT_EQ(get("a.kdc"), "x");
}

TEST_F(ClientOnATerminal, TakesEverythingElseForANo) {
  const std::string file = source("a.kdc", "x");
  const std::string before = tree();
  for (const char* const answer : {"n\n", "\n", "yesterday\n", "\x04"}) {
    pseudo_terminal terminal(line({"put", file}));
    ASSERT_TRUE(terminal.shows("[y/N]"));
    terminal.type(answer);
    EXPECT_EQ(terminal.wait(), 12) << terminal.text();
    EXPECT_NE(terminal.text().find("nothing was changed"), std::string::npos);
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientOnATerminal, ControlCAtTheQuestionChangesNothing) {
  const std::string file = source("a.kdc", "x");
  const std::string before = tree();
  pseudo_terminal terminal(line({"put", file}));
  ASSERT_TRUE(terminal.shows("[y/N]"));
  terminal.type("\x03");
  EXPECT_EQ(terminal.wait(), 130) << terminal.text();
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientOnATerminal, UsesColoursThereAndNowhereElse) {
  const std::string escape = "\x1b[32m";
  pseudo_terminal terminal(line({"put", source("a.kdc", "x"), "-n"}));
  EXPECT_EQ(terminal.wait(), 0);
  EXPECT_NE(terminal.text().find(escape), std::string::npos) << terminal.text();
  pseudo_terminal plain(line({"put", source("a.kdc", "x"), "-n", "--color", "never"}));
  EXPECT_EQ(plain.wait(), 0);
  EXPECT_EQ(plain.text().find('\x1b'), std::string::npos) << plain.text();
  pseudo_terminal json(line({"put", source("a.kdc", "x"), "-n", "--json"}));
  EXPECT_EQ(json.wait(), 0);
  EXPECT_EQ(json.text().find('\x1b'), std::string::npos) << json.text();
  EXPECT_EQ(on_tree({"put", source("a.kdc", "x"), "-n", "--owner", "anna"}).out.find('\x1b'),
            std::string::npos);
  EXPECT_NE(on_tree({"put", source("a.kdc", "x"), "-n", "--owner", "anna", "--color", "always"})
                .out.find(escape),
            std::string::npos);
}

TEST_F(ClientOnATerminal, ShowsABarWhenTheWorkTakesLong) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  source("a.kdc", "new");
  source("b.kdc", "new");
  source("c.kdc", "new");
  // The second of three steps blocks as long as this lock is held.
  vu_file index(path.substr(0, path.rfind('/')), "index.dat");
  index.open(vu_file::o_read);
  pseudo_terminal terminal(line({"put", shell_path(scratch().path("in")), "--replace", "--yes"}));
  ASSERT_TRUE(terminal.shows("waiting for")) << terminal.text();
  EXPECT_EQ(terminal.text().find("storing ["), std::string::npos) << "too early";
  index.close();
  EXPECT_EQ(terminal.wait(), 0) << terminal.text();
  EXPECT_NE(terminal.text().find("storing ["), std::string::npos) << terminal.text();
  EXPECT_EQ(get("c.kdc"), "new");
}

TEST_F(ClientOnATerminal, ShowsNoBarForQuickWorkNorWithoutATerminal) {
  pseudo_terminal quick(line({"put", source("a.kdc", "x"), "--yes"}));
  EXPECT_EQ(quick.wait(), 0);
  EXPECT_EQ(quick.text().find("storing ["), std::string::npos);
  pseudo_terminal never(line({"put", source("b.kdc", "x"), "--yes", "--progress", "never"}));
  EXPECT_EQ(never.wait(), 0);
  EXPECT_EQ(never.text().find("storing ["), std::string::npos);
  EXPECT_EQ(change({"put", source("c.kdc", "x")}).err, "");
  EXPECT_NE(change({"put", source("d.kdc", "x"), "--progress", "always"}).err.find("storing ["),
            std::string::npos);
}

TEST_F(ClientInterrupted, FinishesTheEntryAndTellsWhatWasDone) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  source("a.kdc", "new");
  source("b.kdc", "new");
  vu_file index(path.substr(0, path.rfind('/')), "index.dat");
  index.open(vu_file::o_read);
  running_program program(
      line({"put", shell_path(scratch().path("in")), "--replace", "--yes", "--json"}),
      {{"STG_ROOT", ""}});
  ASSERT_TRUE(program.complains("waiting for"));
  program.interrupt();
  const outcome result = program.wait();
  EXPECT_EQ(result.code, 130) << result.err;
  std::vector<Json> lines;
  for (const std::string& each : lines_of(result.out)) lines.push_back(Json::parse(each));
  EXPECT_EQ(actions(lines), std::vector<std::string>{"stored a.kdc"});
  EXPECT_EQ(lines.back().at("interrupted"), true);
  EXPECT_EQ(lines.back().at("done"), 1);
  index.close();
  // Every lock is free again.
  EXPECT_EQ(get("a.kdc", {"--lock-timeout", "0"}), "new");
  EXPECT_EQ(get("b.kdc", {"--lock-timeout", "0"}), "old");
}

TEST_F(ClientInterrupted, EndsAWaitForALock) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  vu_file index(path.substr(0, path.rfind('/')), "index.dat");
  index.open(vu_file::o_read);
  running_program program(line({"rm", "b.kdc", "--yes"}), {{"STG_ROOT", ""}});
  ASSERT_TRUE(program.complains("waiting for"));
  program.interrupt();
  EXPECT_EQ(program.wait().code, 130);
}

TEST_F(ClientInterrupted, TakesTheEndOfAServiceForCtrlC) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  vu_file index(path.substr(0, path.rfind('/')), "index.dat");
  index.open(vu_file::o_read);
  running_program program(line({"rm", "b.kdc", "--yes"}), {{"STG_ROOT", ""}});
  ASSERT_TRUE(program.complains("waiting for"));
  program.terminate();
  EXPECT_EQ(program.wait().code, 130);
  index.close();
  EXPECT_EQ(get("b.kdc"), "old");
}

TEST_F(ClientInterrupted, APutThatIsSaidAgainSkipsWhatItHadStored) {
  constexpr int kFiles = 150;
  put("f0.kdc", "old");
  for (int i = 0; i < kFiles; ++i) source("f" + std::to_string(i) + ".kdc", "five!");
  const std::string path = physical("docs", "f0.kdc");
  const std::vector<std::string> command =
      line({"put", shell_path(scratch().path("in")), "--replace", "--yes", "--json"});
  int stored = 0;
  using Stop = void (running_program::*)();
  for (const Stop stop : {&running_program::interrupt, &running_program::terminate}) {
    vu_file index(path.substr(0, path.rfind('/')), "index.dat");
    index.open(vu_file::o_read);
    running_program program(command, {{"STG_ROOT", ""}});
    ASSERT_TRUE(program.complains("waiting for"));
    (program.*stop)();
    const outcome result = program.wait();
    index.close();
    EXPECT_EQ(result.code, 130) << result.err;
    const Json summary = Json::parse(lines_of(result.out).back());
    const int done = summary.at("done").get<int>();
    EXPECT_EQ(summary.at("interrupted"), true);
    EXPECT_EQ(summary.at("bytes"), done * 5);
    stored += done;
  }
  EXPECT_GT(stored, 0);
  EXPECT_EQ(get("f0.kdc"), "old");
  const outcome again = run(command);
  EXPECT_EQ(again.code, 0) << again.err;
  const Json summary = Json::parse(lines_of(again.out).back());
  EXPECT_EQ(summary.at("done"), kFiles - stored);
  EXPECT_EQ(summary.at("skipped"), stored);
  EXPECT_EQ(get("f0.kdc"), "five!");
}

TEST_F(ClientInterrupted, NamesTheHolderOfALock) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  vu_file index(path.substr(0, path.rfind('/')), "index.dat");
  index.open(vu_file::o_read);
  const outcome result = change({"rm", "b.kdc", "--lock-timeout", "0.1"});
  EXPECT_EQ(result.code, 11);
  EXPECT_NE(result.err.find("process " + std::to_string(::getpid())), std::string::npos)
      << result.err;
}

TEST_F(ClientNames, MayBeAnyBytes) {
  const std::string name = "caf\xe9\x1b[31m.kdc";
  const std::vector<Json> lines = json({"put", source(name, "x"), "--owner", "\xff", "--yes"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].at("name"), "caf\xef\xbf\xbd\x1b[31m.kdc");
  EXPECT_EQ(lines[0].at("name_hex"), "636166e91b5b33316d2e6b6463");
  EXPECT_EQ(lines[0].at("owner_hex"), "ff");
  const outcome result = on_tree({"rm", name, "--owner", "\xff", "-n"});
  EXPECT_EQ(result.code, 0);
  // None of it reaches a terminal as an escape sequence.
  EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
  EXPECT_NE(result.out.find("caf\xef\xbf\xbd\xef\xbf\xbd[31m.kdc"), std::string::npos)
      << result.out;
  EXPECT_EQ(on_tree({"get", name, "--owner", "\xff", "-o", "-"}).out, "x");
}

TEST_F(ClientLinks, AreRefusedInTheTree) {
  const std::string outside = scratch().path("outside");
  make_folder(outside);
  write_file(outside + "\\precious", "p");
  std::filesystem::create_directory_symlink(shell_path(outside),
                                            shell_path(storage() + "\\user\\anna"));
  std::filesystem::create_directory_symlink(shell_path(outside),
                                            shell_path(storage() + "\\docs\\anna"));
  const std::string before = snapshot(outside);
  EXPECT_EQ(change({"put", source("a.kdc", "x")}).code, 1);
  EXPECT_EQ(change({"put", source("a.kdc", "x"), "--area", "user"}).code, 1);
  EXPECT_EQ(change({"profile", "set", "a=b"}).code, 12);
  EXPECT_EQ(on_tree({"user", "remove", "anna", "--yes"}).code, 12);
  EXPECT_EQ(on_tree({"user", "rename", "anna", "bert", "--yes"}).code, 12);
  EXPECT_NE(on_tree({"sync", "--yes"}).code, 0);
  EXPECT_EQ(snapshot(outside), before);
}

TEST_F(ClientLinks, LeadNoNewFileIntoTheTree) {
  put("a.kdc", "x");
  const std::string link = shell_path(scratch().path("link"));
  std::filesystem::create_directory_symlink(shell_path(storage() + "\\docs"), link);
  const std::string before = snapshot(storage());
  EXPECT_EQ(change({"report", "--html", link + "/report.html"}).code, 12);
  for (const char* const place : {"/export", "/export/", "/new/export", "/../export"})
    EXPECT_EQ(change({"export", link + place}).code, 12) << place;
  const std::string around = link.substr(0, link.rfind('/')) + "/new/../link/export";
  EXPECT_EQ(change({"export", around}).code, 12);
  EXPECT_EQ(change({"get", "a.kdc", "-o", link + "/copy"}).code, 12);
  EXPECT_EQ(change({"get", "a.kdc", "-o", link + "/../copy"}).code, 12);
  const std::string root_link = shell_path(scratch().path("root_link"));
  std::filesystem::create_directory_symlink(shell_path(root()), root_link);
  EXPECT_EQ(run({"doctor", "--root", root_link, "--try-locks", link}).code, 12);
  EXPECT_EQ(snapshot(storage()), before);
}

TEST_F(ClientLinks, AreNotPut) {
  source("a.kdc", "x");
  std::filesystem::create_symlink("/etc/passwd", shell_path(scratch().path("in\\link.kdc")));
  const std::vector<Json> lines =
      json({"put", shell_path(scratch().path("in")), "--owner", "anna", "--yes"}, 5);
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(physical("docs", "link.kdc"), "(no file)");
}

class ClientInPart : public ClientOnATerminal {};

TEST_F(ClientInPart, SaysWhichOwnersFoldersStayed) {
  for (const char* const place : {"\\user\\anna", "\\mail\\anna"}) {
    make_folder(storage() + place);
    write_file(storage() + place + "\\file", "x");
  }
  make_read_only(storage() + "\\user\\anna\\file");
  const std::vector<Json> lines = json({"user", "remove", "anna", "--yes"}, 5);
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(lines.back().at("failed"), 1);
  EXPECT_FALSE(folder_exists(storage() + "\\mail\\anna"));
  EXPECT_TRUE(file_exists(storage() + "\\user\\anna\\file"));
}

TEST_F(ClientInPart, SaysThatPartsOfADocumentStayed) {
  put("a.kdc", "x");
  put("b.kdc", "x");
  const std::string part = physical("docs", "a.kdc") + "_\\html";
  make_folder(part);
  write_file(part + "\\page", "x");
  make_read_only(part + "\\page");
  const outcome result = change({"rm", "--match", "*"});
  EXPECT_EQ(result.code, 5) << result.out;
  EXPECT_NE(result.err.find("parts"), std::string::npos) << result.err;
  EXPECT_EQ(physical("docs", "b.kdc"), "(no file)");
  EXPECT_TRUE(file_exists(part + "\\page"));
}

TEST_F(ClientNames, HaveTheirExtensionsInLowerCaseOnceTheyAreAdopted) {
  // Wine reports success for a rename that changes only letter case.
  const std::string folder = storage() + "\\user\\anna";
  make_folder(folder);
  write_file(folder + "\\Notes.TXT", "n");
  EXPECT_EQ(actions(json({"sync", "--yes"})), std::vector<std::string>{"adopted Notes.TXT"});
  EXPECT_EQ(get("Notes.txt", {"--area", "user"}), "n");
  EXPECT_EQ(on_tree({"sync", "--yes"}).code, 3);
}
