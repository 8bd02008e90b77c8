// What the storage requests from its host: folders, their order, and the log history. The storage
// is initialised once per process, so each case runs in a separate helper process.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/host_services.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_host.h"
#include "vu_path.h"
#include "vu_storage.h"

using vu_host::trace_event;
using vu_host::trace_level;

namespace {

using Arguments = std::vector<std::string>;

std::string text_of(const std::tuple<int, int, int>& numbers) {
  return std::to_string(std::get<0>(numbers)) + " " + std::to_string(std::get<1>(numbers)) + " " +
         std::to_string(std::get<2>(numbers));
}

/// A text without the line number between its last ";" and "]".
std::string without_line(const std::string& text) {
  const std::size_t semicolon = text.rfind(';');
  const std::size_t bracket = text.rfind(']');
  if (semicolon == std::string::npos || bracket == std::string::npos || bracket < semicolon + 2) {
    return text + " (no line number)";
  }
  const std::string line = text.substr(semicolon + 1, bracket - semicolon - 1);
  if (line.find_first_not_of("0123456789") != std::string::npos) return text + " (no line number)";
  return text.substr(0, semicolon + 1) + text.substr(bracket);
}

void say_history(const fake_components& components) {
  for (const auto& [text, numbers] : components.records()) {
    say(text_of(numbers) + " " + without_line(text));
  }
  say("requests " + std::to_string(components.requests().size()) + " creations " +
      std::to_string(components.creations()) + " releases " +
      std::to_string(components.releases()));
}

/// args: the server folder that the host names.
int initialise_by_a_getter(const Arguments& args) {
  fake_temporary_files temp(args.at(0));
  fake_configuration config("C:\\product\\bin");
  fake_components components;
  vu_host::services services;
  services.temp = &temp;
  services.config = &config;
  services.components = &components;
  const recording_sink sink(services);
  say(vu_storage::getStoragePath());
  say(vu_storage::getConfigDirPath());
  for (const std::string& each : temp.calls()) say(each);
  say("asked for the binary folder " + std::to_string(config.questions()));
  say_history(components);
  for (const std::string& each : sink.records(trace_level::m)) {
    if (each.find("ztVuStorage:") == 0) say("traced " + each);
  }
  return 0;
}
REGISTER_ROLE(initialise_by_a_getter, initialise_by_a_getter)

/// args: a root; "enabled", "disabled", "none" for a factory without the component, "no factory".
int initialise_twice(const Arguments& args) {
  fake_temporary_files temp("C:\\not wanted");
  fake_components components;
  components.set_enabled(args.at(1) != "disabled");
  components.set_available(args.at(1) != "none");
  vu_host::services services;
  services.temp = &temp;
  if (args.at(1) != "no factory") services.components = &components;
  const recording_sink sink(services);
  say(vu_storage::initRootStorage(args.at(0), true, false) ? "first true" : "first false");
  const std::string first = vu_storage::getStoragePath();
  say(vu_storage::initRootStorage("C:\\elsewhere", false, true) ? "second true" : "second false");
  say(vu_storage::getStoragePath() == first ? "kept" : "changed");
  say("calls for temporary files " + std::to_string(temp.calls().size()));
  for (const std::string& each : sink.events(trace_event::error))
    say("error " + without_line(each));
  for (const std::string& each : sink.messages()) say("message " + each);
  say_history(components);
  return 0;
}
REGISTER_ROLE(initialise_twice, initialise_twice)

int say_storage_path(const Arguments&) {
  say(vu_storage::getStoragePath());
  say(vu_storage::getConfigDirPath());
  return 0;
}
REGISTER_ROLE(say_storage_path, say_storage_path)

int say_temporary_root(const Arguments&) {
  std::string folder = "to be replaced";
  getTempRootPath(folder);
  say(folder);
  return 0;
}
REGISTER_ROLE(say_temporary_root, say_temporary_root)

constexpr char kRefusal[] = "**ERROR:ztVuStorage:root storage already initialized [vu_storage;]";

}  // namespace

TEST(HostOfTheStorage, ReturnsTheServerFolderAfterTheHelperWasInitialised) {
  const scratch_folder folder;
  const std::string root = folder.path("server");
  child_process child("initialise_by_a_getter", {root});
  EXPECT_TRUE(child.hears(root)) << "no \"storage\" level below it";
  EXPECT_TRUE(child.hears("C:\\product\\bin\\config"));
  EXPECT_TRUE(child.hears("initialise MY_PROCESS MY_COMP"));
  EXPECT_TRUE(child.hears("server_folder"));
  EXPECT_TRUE(child.hears("asked for the binary folder 1"))
      << "once, although there were two getters";
  EXPECT_TRUE(child.hears("1 4 0 ztVuStorage:s_storagePath:" + root + " (no line number)"));
  EXPECT_TRUE(child.hears("requests 1 creations 1 releases 1"));
  EXPECT_TRUE(child.hears("traced ztVuStorage:s_storagePath:" + root));
  EXPECT_EQ(child.next_line(), std::nullopt);
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(list_folder(root), (Arguments{"docs", "list", "mail", "semlets", "user"}));
}

TEST(HostOfTheStorage, MayNameTheServerFolderWithOneTrailingBackslash) {
  const scratch_folder folder;
  const std::string root = folder.path("server");
  child_process child("initialise_by_a_getter", {root + "\\"});
  EXPECT_TRUE(child.hears(root));
  EXPECT_EQ(list_folder(folder.path()), Arguments{"server"});
  while (child.next_line()) {
  }
  EXPECT_EQ(child.wait(), 0);
}

TEST(HostOfTheStorage, IsReplacedByEnvironmentVariables) {
  const scratch_folder folder;
  const std::string root = folder.path("by variable");
  child_process child("say_storage_path", {},
                      {{"VU_STORAGE_SERVER_TEMP", root}, {"VU_STORAGE_BINARY_DIR", "C:\\bin"}});
  EXPECT_TRUE(child.hears(root));
  EXPECT_TRUE(child.hears("C:\\bin\\config"));
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(folder_exists(root + "\\docs"));
}

TEST(HostOfTheStorage, GetsTheRootAndTheRefusalOfASecondOneInItsLogHistory) {
  const scratch_folder folder;
  child_process child("initialise_twice", {folder.path(), "enabled"});
  EXPECT_TRUE(child.hears("first true"));
  EXPECT_TRUE(child.hears("second false"));
  EXPECT_TRUE(child.hears("kept"));
  EXPECT_TRUE(child.hears("calls for temporary files 0"));
  EXPECT_TRUE(child.hears(std::string("error ") + kRefusal));
  EXPECT_TRUE(child.hears("message root storage already initialized"));
  EXPECT_TRUE(child.hears("1 4 0 ztVuStorage:s_storagePath:" + folder.path("storage") +
                          " (no line number)"));
  EXPECT_TRUE(child.hears(std::string("4 0 0 ") + kRefusal));
  EXPECT_TRUE(child.hears("requests 2 creations 2 releases 2")) << "looked up for each record";
  EXPECT_EQ(child.wait(), 0);
}

TEST(HostOfTheStorage, GetsNoRecordsThatItsSettingsDoNotWant) {
  const scratch_folder folder;
  child_process child("initialise_twice", {folder.path(), "disabled"});
  EXPECT_TRUE(child.hears("first true"));
  EXPECT_TRUE(child.hears("second false"));
  EXPECT_TRUE(child.hears("kept"));
  EXPECT_TRUE(child.hears("calls for temporary files 0"));
  EXPECT_TRUE(child.hears(std::string("error ") + kRefusal)) << "the trace is another matter";
  EXPECT_TRUE(child.hears("message root storage already initialized"));
  EXPECT_TRUE(child.hears("requests 2 creations 2 releases 2"));
  EXPECT_EQ(child.wait(), 0);
}

TEST(HostOfTheStorage, MayHaveNoLogHistory) {
  const scratch_folder folder;
  for (const char* const how : {"none", "no factory"}) {
    make_folder(folder.path(how));
    child_process child("initialise_twice", {folder.path(how), how});
    EXPECT_TRUE(child.hears("first true")) << how;
    EXPECT_TRUE(child.hears("second false")) << how;
    EXPECT_TRUE(child.hears("kept")) << how;
    EXPECT_TRUE(child.hears("calls for temporary files 0")) << how;
    EXPECT_TRUE(child.hears(std::string("error ") + kRefusal)) << how;
    EXPECT_TRUE(child.hears("message root storage already initialized")) << how;
    EXPECT_TRUE(child.hears(std::string("requests ") + (how == std::string("none") ? "2" : "0") +
                            " creations 0 releases 0"));
    EXPECT_EQ(child.wait(), 0);
  }
}

TEST(HostOfTheStorage, NamesTheFrameworksTemporaryFolder) {
  fake_temporary_files temp("", "C:\\framework");
  vu_host::services services;
  services.temp = &temp;
  vu_host::install(services);
  std::string folder = "to be replaced";
  getTempRootPath(folder);
  EXPECT_EQ(folder, "C:\\framework");
  temp.set_framework_root_folder("C:\\framework\\");
  getTempRootPath(folder);
  EXPECT_EQ(folder, "C:\\framework") << "less one backslash";
  temp.set_framework_root_folder("C:\\framework\\\\");
  getTempRootPath(folder);
  EXPECT_EQ(folder, "C:\\framework\\") << "less one only";
  temp.set_framework_root_folder("");
  getTempRootPath(folder);
  EXPECT_EQ(folder, "");
  vu_host::install({});
}

TEST(HostOfTheStorage, LeavesTheFrameworksTemporaryFolderToTheEnvironmentAndTheSystem) {
  child_process by_variable("say_temporary_root", {}, {{"VU_STORAGE_FRAMEWORK_TEMP", "C:\\fw\\"}});
  EXPECT_TRUE(by_variable.hears("C:\\fw"));
  child_process by_default("say_temporary_root", {}, {{"VU_STORAGE_FRAMEWORK_TEMP", ""}});
  EXPECT_TRUE(by_default.hears(system_temporary_folder()));
}

// The ready-made sinks of vu_host.h.

namespace {

constexpr vu_host::trace_site kSite = {"vu_file", 1, "signature"};

}  // namespace

TEST(ReadySink, TakesNothingUntilAMemberIsOverridden) {
  const vu_host::sink nothing;
  EXPECT_FALSE(nothing.wants(vu_host::trace_level::xs));
  EXPECT_FALSE(nothing.wants(vu_host::trace_event::error));
}

TEST(ReadySink, KeepsTheLastProblemOfEachThreadWithoutItsLineEnd) {
  vu_host::problem_sink problems(false);
  EXPECT_FALSE(problems.wants(vu_host::trace_level::xs));
  EXPECT_FALSE(problems.wants(vu_host::trace_event::success));
  EXPECT_TRUE(problems.wants(vu_host::trace_event::warning));
  EXPECT_TRUE(problems.wants(vu_host::trace_event::error));
  problems.event(kSite, vu_host::trace_event::warning, "first");
  problems.event(kSite, vu_host::trace_event::error, "disk full\r\n");
  EXPECT_EQ(vu_host::problem_sink::last(), "disk full");
  std::string elsewhere = "not asked";
  std::thread([&] { elsewhere = vu_host::problem_sink::last(); }).join();
  EXPECT_EQ(elsewhere, "");
  vu_host::problem_sink::clear();
  EXPECT_EQ(vu_host::problem_sink::last(), "");
}

TEST(ReadySink, WritesProblemsToTheErrorOutput) {
  vu_host::problem_sink problems;
  testing::internal::CaptureStderr();
  problems.event(kSite, vu_host::trace_event::warning, "one\n");
  problems.event(kSite, vu_host::trace_event::error, "two");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "warning: one\nerror: two\n");
}
