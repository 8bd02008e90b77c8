// The current services: those of the host, or defaults that the environment can change. Also the
// log history.

#include "platform/host/host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using Texts = std::vector<std::string>;
using Numbers = std::vector<std::tuple<int, int, int>>;
using Records = std::vector<fake_components::record_t>;

/// Sets an environment variable for a scope; empty removes it.
class variable {
 public:
  variable(const char* name, const std::string& value) : m_name(name) {
    if (const char* const old = std::getenv(name)) m_old = old;
    set(value);
  }
  ~variable() { set(m_old); }
  variable(const variable&) = delete;
  variable& operator=(const variable&) = delete;

 private:
  void set(const std::string& value) const {
#if defined(_WIN32)
    ::_putenv_s(m_name, value.c_str());  // an empty value removes it
#else
    if (value.empty()) {
      ::unsetenv(m_name);
    } else {
      ::setenv(m_name, value.c_str(), 1);
    }
#endif
  }

  const char* m_name;
  std::string m_old;
};

std::string text_of(const ucs2string& text) { return vu_utf8string(text).str(); }

class HostServices : public testing::Test {
 protected:
  ~HostServices() override { vu_host::install({}); }

  static void install(vu_host::configuration* config, vu_host::temporary_files* temp,
                      vu_host::component_factory* components) {
    vu_host::services services;
    services.config = config;
    services.temp = temp;
    services.components = components;
    vu_host::install(services);
  }

 private:
  // Hides the variables of the test environment.
  const variable m_binary{"VU_STORAGE_BINARY_DIR", ""};
  const variable m_server{"VU_STORAGE_SERVER_TEMP", ""};
  const variable m_framework{"VU_STORAGE_FRAMEWORK_TEMP", ""};
};

}  // namespace

TEST_F(HostServices, TakeTheRunningProgramsFolderForTheBinaryFolder) {
  ucs2string expected;
  ASSERT_TRUE(os::program_folder(expected).ok());
  const std::string folder = text_of(host::config().binary_folder());
  EXPECT_EQ(folder, text_of(expected));
  EXPECT_TRUE(folder_exists(folder));
  ASSERT_FALSE(folder.empty());
  EXPECT_NE(folder.back(), '\\');
  EXPECT_NE(folder.back(), '/');
}

TEST_F(HostServices, TakeTheSystemsTemporaryFolder) {
  const std::string framework = text_of(host::temp().framework_root_folder());
  EXPECT_EQ(framework, system_temporary_folder());
  EXPECT_EQ(text_of(host::temp().server_folder()), framework + "\\vu_storage");
}

TEST_F(HostServices, TakeFoldersFromTheEnvironment) {
  const variable binary("VU_STORAGE_BINARY_DIR", "C:\\product\\bin");
  const variable server("VU_STORAGE_SERVER_TEMP", "C:\\temp\\server");
  const variable framework("VU_STORAGE_FRAMEWORK_TEMP", "C:\\temp\\framework\\");
  EXPECT_EQ(text_of(host::config().binary_folder()), "C:\\product\\bin");
  EXPECT_EQ(text_of(host::temp().server_folder()), "C:\\temp\\server");
  EXPECT_EQ(text_of(host::temp().framework_root_folder()), "C:\\temp\\framework\\") << "as it is";
}

TEST_F(HostServices, ReadTheEnvironmentEveryTime) {
  const variable first("VU_STORAGE_SERVER_TEMP", "C:\\one");
  EXPECT_EQ(text_of(host::temp().server_folder()), "C:\\one");
  const variable second("VU_STORAGE_SERVER_TEMP", "C:\\two");
  EXPECT_EQ(text_of(host::temp().server_folder()), "C:\\two");
}

TEST_F(HostServices, TakeAVariableBeyondTheCodePage) {
  const std::string name = "VU_STORAGE_BINARY_DIR";
#if defined(_WIN32)
  ::_wputenv_s(L"VU_STORAGE_BINARY_DIR", L"C:\\Gr\u00F6\u00DFe\\\u8868");
#else
  ::setenv(name.c_str(),
           "C:\\Gr\xC3\xB6\xC3\x9F"
           "e\\\xE8\xA1\xA8",
           1);
#endif
  EXPECT_EQ(text_of(host::config().binary_folder()),
            "C:\\Gr\xC3\xB6\xC3\x9F"
            "e\\\xE8\xA1\xA8");
  const variable none(name.c_str(), "");
}

#if !defined(_WIN32)
TEST_F(HostServices, IgnoreAVariableThatIsNotUtf8) {
  const std::string without = text_of(host::config().binary_folder());
  const variable binary("VU_STORAGE_BINARY_DIR", "C:\\caf\xE9");
  EXPECT_EQ(text_of(host::config().binary_folder()), without);
}
#endif

TEST_F(HostServices, LetTheDefaultHelperBeInitialised) {
  const std::string before = text_of(host::temp().server_folder());
  host::temp().initialise("MY_PROCESS", "MY_COMP");
  EXPECT_EQ(text_of(host::temp().server_folder()), before);
}

TEST_F(HostServices, AreReplacedByTheHosts) {
  const variable binary("VU_STORAGE_BINARY_DIR", "C:\\from the environment");
  const variable server("VU_STORAGE_SERVER_TEMP", "C:\\from the environment");
  fake_configuration config("C:\\host\\bin");
  fake_temporary_files temp("C:\\host\\server", "C:\\host\\framework");
  install(&config, &temp, nullptr);
  EXPECT_EQ(&host::config(), &config);
  EXPECT_EQ(&host::temp(), &temp);
  EXPECT_EQ(text_of(host::config().binary_folder()), "C:\\host\\bin");
  EXPECT_EQ(text_of(host::temp().server_folder()), "C:\\host\\server");
  EXPECT_EQ(text_of(host::temp().framework_root_folder()), "C:\\host\\framework");
}

TEST_F(HostServices, ReplaceEachOtherOneByOne) {
  fake_configuration config("C:\\host\\bin");
  install(&config, nullptr, nullptr);
  EXPECT_EQ(&host::config(), &config);
  const variable server("VU_STORAGE_SERVER_TEMP", "C:\\default");
  EXPECT_EQ(text_of(host::temp().server_folder()), "C:\\default");
}

TEST_F(HostServices, AreAllReplacedByALaterInstallation) {
  fake_configuration first("C:\\first");
  fake_configuration second("C:\\second");
  fake_temporary_files temp("C:\\server");
  fake_components components;
  install(&first, &temp, &components);
  install(&second, nullptr, nullptr);
  EXPECT_EQ(text_of(host::config().binary_folder()), "C:\\second");
  EXPECT_NE(&host::temp(), &temp);
  host::record_history("text", 1, 2, 3);
  EXPECT_EQ(components.requests(), Texts{});
}

TEST_F(HostServices, FallBackToTheDefaultsWhenNothingIsInstalled) {
  const std::string by_default = text_of(host::config().binary_folder());
  fake_configuration config("C:\\host\\bin");
  install(&config, nullptr, nullptr);
  vu_host::install({});
  EXPECT_EQ(text_of(host::config().binary_folder()), by_default);
}

TEST_F(HostServices, IncludeTheTraceSink) {
  EXPECT_EQ(trace::sink(), nullptr);
  {
    const recording_sink sink;
    EXPECT_EQ(trace::sink(), &sink);
  }
  EXPECT_EQ(trace::sink(), nullptr);
}

TEST_F(HostServices, RecordInTheLogHistory) {
  fake_components components;
  install(nullptr, nullptr, &components);
  host::record_history("a text", 1, 4, 0);
  EXPECT_EQ(components.requests(), Texts{"CLSID_ZTLogHistory IID_ILogHistory"});
  EXPECT_EQ(components.questions(), (Numbers{{1, 4, 0}}));
  EXPECT_EQ(components.records(), (Records{{"a text", {1, 4, 0}}}));
  EXPECT_EQ(components.releases(), 1);
}

TEST_F(HostServices, LookUpTheLogHistoryForEachRecord) {
  fake_components components;
  install(nullptr, nullptr, &components);
  host::record_history("one", 1, 4, 0);
  components.set_available(false);
  host::record_history("two", 1, 4, 0);
  components.set_available(true);
  host::record_history("three", 4, 0, 0);
  EXPECT_EQ(components.requests().size(), 3U);
  EXPECT_EQ(components.creations(), 2);
  EXPECT_EQ(components.releases(), 2) << "each one that was created goes back";
  EXPECT_EQ(components.records(), (Records{{"one", {1, 4, 0}}, {"three", {4, 0, 0}}}));
}

TEST_F(HostServices, RecordNothingThatTheSettingsDoNotWant) {
  fake_components components;
  components.set_enabled(false);
  install(nullptr, nullptr, &components);
  host::record_history("a text", 4, 0, 0);
  EXPECT_EQ(components.questions(), (Numbers{{4, 0, 0}}));
  EXPECT_EQ(components.records(), Records{});
  EXPECT_EQ(components.releases(), 1) << "it goes back all the same";
}

TEST_F(HostServices, RecordNothingWithoutTheComponent) {
  fake_components components;
  components.set_available(false);
  install(nullptr, nullptr, &components);
  host::record_history("a text", 4, 0, 0);
  EXPECT_EQ(components.requests().size(), 1U);
  EXPECT_EQ(components.questions(), Numbers{});
  EXPECT_EQ(components.records(), Records{});
  EXPECT_EQ(components.releases(), 0);
}

TEST_F(HostServices, RecordNothingWithoutAFactory) {
  fake_components components;
  install(nullptr, nullptr, &components);
  host::record_history("kept", 1, 4, 0);
  install(nullptr, nullptr, nullptr);
  host::record_history("lost", 1, 4, 0);
  EXPECT_EQ(components.records(), (Records{{"kept", {1, 4, 0}}}));
}
