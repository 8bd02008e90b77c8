// Tests of the test support. Example: a scratch folder that is not fresh could make another case
// pass for the wrong reason.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scratch.h"

namespace {

using namespace std::chrono_literals;

int echo(const std::vector<std::string>& args) {
  for (const std::string& each : args) say(each);
  while (const std::optional<std::string> line = hear()) say("heard " + *line);
  return 7;
}
REGISTER_ROLE(echo, echo)

int show_variable(const std::vector<std::string>& args) {
  const char* const value = std::getenv(args.at(0).c_str());
  say(value != nullptr ? std::string("[") + value + "]" : "none");
  return 0;
}
REGISTER_ROLE(show_variable, show_variable)

int sleep_for_ever(const std::vector<std::string>&) {
  say("ready");
  while (true) std::this_thread::sleep_for(1s);
}
REGISTER_ROLE(sleep_for_ever, sleep_for_ever)

int throw_something(const std::vector<std::string>&) { throw 1; }
REGISTER_ROLE(throw_something, throw_something)

}  // namespace

TEST(HelperProcess, TakesArgumentsAsTheyAre) {
  const std::vector<std::string> args = {"plain", "two words", "",         "a\"b",
                                         "c\\",   "d\\\"e",    "f\\\\ g\\"};
  child_process child("echo", args);
  for (const std::string& each : args) EXPECT_TRUE(child.hears(each));
  child.close_input();
  EXPECT_EQ(child.wait(), 7);
}

TEST(HelperProcess, TalksLineByLineAndEndsWithItsExitCode) {
  child_process child("echo");
  EXPECT_TRUE(child.tell("one"));
  EXPECT_TRUE(child.hears("heard one"));
  EXPECT_TRUE(child.tell(""));
  EXPECT_TRUE(child.hears("heard "));
  EXPECT_TRUE(child.stays_silent());
  EXPECT_EQ(child.wait(0ms), std::nullopt);
  child.close_input();
  EXPECT_FALSE(child.tell("too late"));
  EXPECT_EQ(child.wait(), 7);
  EXPECT_EQ(child.wait(), 7) << "the exit code can be asked for again";
  EXPECT_EQ(child.next_line(), std::nullopt);
}

TEST(HelperProcess, KeepsALineThatCameTooEarly) {
  child_process child("echo", {"early", "late"});
  EXPECT_FALSE(child.stays_silent(child_process::kPatience)) << "it says something at once";
  EXPECT_TRUE(child.hears("early"));
  EXPECT_TRUE(child.hears("late"));
}

TEST(HelperProcess, GetsAndLosesEnvironmentVariables) {
  child_process set("show_variable", {"VU_TEST_VARIABLE"}, {{"VU_TEST_VARIABLE", "a value"}});
  EXPECT_TRUE(set.hears("[a value]"));
  EXPECT_EQ(set.wait(), 0);
  child_process removed("show_variable", {"PATH"}, {{"PATH", ""}});
  EXPECT_TRUE(removed.hears("none"));
  EXPECT_EQ(removed.wait(), 0);
}

TEST(HelperProcess, CanBeKilled) {
  child_process child("sleep_for_ever");
  ASSERT_TRUE(child.hears("ready"));
  child.kill();
  EXPECT_EQ(child.wait(), child_process::kKilled);
  EXPECT_FALSE(child.tell("anybody there?"));
}

TEST(HelperProcess, FailsOnAnUnknownRoleAndOnAnException) {
  EXPECT_EQ(child_process("no_such_role").wait(), 2);
  EXPECT_EQ(child_process("throw_something").wait(), 3);
}

TEST(HelperProcess, IsEndedByItsAlarm) {
  child_process child("sleep_for_ever", {}, {{"VU_TEST_ALARM", "1"}});
  EXPECT_TRUE(child.hears("ready"));
  EXPECT_EQ(child.wait(), test_alarm::kExitCode);
}

#if !defined(_WIN32)
TEST(HelperProcess, CanBeStoppedAndResumed) {
  child_process child("echo");
  child.stop();
  EXPECT_TRUE(child.tell("one"));
  EXPECT_TRUE(child.stays_silent());
  child.resume();
  EXPECT_TRUE(child.hears("heard one"));
}
#endif

TEST(ScratchFolder, IsFreshAndGoesWithEverythingInIt) {
  std::string first_path;
  {
    const scratch_folder first;
    const scratch_folder second;
    first_path = first.path();
    EXPECT_NE(first.path(), second.path());
    EXPECT_TRUE(list_folder(first.path()).empty());
    write_file(first.path("file"), "bytes");
    make_folder(first.path("a\\b/c"));
    write_file(first.path("a\\b\\c\\deep"), "");
    make_read_only(first.path("a\\b\\c\\deep"));
    make_read_only(first.path("file"));
#if !defined(_WIN32)
    std::ofstream(native(first.path()) / "back\\slash").put('x');
#endif
    EXPECT_FALSE(is_writable(first.path("file")));
    EXPECT_EQ(list_folder(first.path()).front(), "a");
    EXPECT_EQ(list_folder(first.path()).back(), "file");
  }
  EXPECT_FALSE(folder_exists(first_path));
}

TEST(ScratchFolder, DistinguishesExactNames) {
  const scratch_folder folder;
  write_file(folder.path("Report.KDB"), "");
  EXPECT_TRUE(file_exists(folder.path("Report.KDB")));
  EXPECT_TRUE(file_exists(folder.path()));
  EXPECT_FALSE(file_exists(folder.path("report.kdb")));
  EXPECT_FALSE(file_exists(folder.path("Report.*")));
  EXPECT_FALSE(file_exists(folder.path("Report.KDB.")));
  EXPECT_FALSE(file_exists(folder.path("none\\Report.KDB")));
}

TEST(ScratchFolder, KeepsBytesAndTimes) {
  const scratch_folder folder;
  const std::string path = folder.path("times");
  const std::string bytes("\r\n\0\x1a\xff", 5);
  write_file(path, bytes);
  EXPECT_EQ(read_file(path), bytes);
  set_modify_time(path, 1'000'000'000);
  EXPECT_EQ(get_modify_time(path), 1'000'000'000);
  set_access_time(path, 1'100'000'000);
  EXPECT_EQ(get_modify_time(path), 1'000'000'000);
  EXPECT_THROW(read_file(folder.path("none")), std::filesystem::filesystem_error);
}

TEST(ScratchFolder, ReachesFilesBeyondTheClassicLimit) {
  const scratch_folder folder;
  std::string deep = folder.path();
  for (int level = 0; level < 12; ++level) {
    deep += "\\" + std::string(40, static_cast<char>('a' + level));
    make_folder(deep);
  }
  const std::string name = "\xe5\x90\x8d.txt";  // one Chinese character
  write_file(deep + "\\" + name, "deep");
  EXPECT_EQ(read_file(deep + "\\" + name), "deep");
  EXPECT_EQ(list_folder(deep), (std::vector<std::string>{name}));
  EXPECT_TRUE(file_exists(deep + "\\" + name));
  set_modify_time(deep + "\\" + name, 1'000'000'000);
  EXPECT_EQ(get_modify_time(deep + "\\" + name), 1'000'000'000);
}
