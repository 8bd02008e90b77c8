#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "index/mail_root.h"
#include "platform/os/os.h"
#include "tests/support/host_services.h"
#include "tests/support/index_peer.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// The initialisation and the getters. Initialisation by every operation, and by several threads:
// storage_guard_test.cpp. Folders of owners: storage_folders_test.cpp.

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
using vu_host::trace_level;
namespace faults = os::faults;

constexpr std::int32_t kInitialised = 1234;

// The values at program start; the tests change them.
const std::int32_t g_marker_at_start = Peer::init_done();
const bool g_use_domain_at_start = Peer::use_domain();
const bool g_switch_at_start = stg_index_test_peer::synchronizes();

const Texts kAreas = {"docs", "list", "mail", "semlets", "user"};

TEST_F(StorageRoots, AreUninitialisedWhenTheLibraryIsLoaded) {
  EXPECT_EQ(g_marker_at_start, 0);
  EXPECT_TRUE(g_use_domain_at_start);
  EXPECT_TRUE(g_switch_at_start);
}

TEST_F(StorageRoots, LieBelowTheFolderStorageOfTheGivenRoot) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(Peer::init_done(), kInitialised);
  const std::string root = dir.path() + "\\storage";
  EXPECT_EQ(vu_storage::getStoragePath(), root);
  EXPECT_EQ(vu_storage::getCorpPath(), root + "\\docs");
  EXPECT_EQ(vu_storage::getSemletPath(), root + "\\semlets");
  EXPECT_EQ(vu_storage::getUserPath(), root + "\\user");
  EXPECT_EQ(vu_storage::getListPath(), root + "\\list");
  EXPECT_EQ(vu_storage::getMailPath(), root + "\\mail");
  EXPECT_EQ(list_folder(dir.path("storage")), kAreas);
  EXPECT_TRUE(temp.calls().empty());
}

TEST_F(StorageRoots, HaveTheirConfigurationFolderInTheBinaryFolderWithoutMakingIt) {
  config.set_binary_folder(dir.path("b\xC3\xADn"));
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  // The path is UTF-8 on every platform.
  EXPECT_EQ(vu_storage::getConfigDirPath(), dir.path("b\xC3\xADn") + "\\config");
  EXPECT_EQ(config.questions(), 1);
  EXPECT_FALSE(folder_exists(dir.path("b\xC3\xADn")));
}

TEST_F(StorageRoots, TakeTheRootAsItIs) {
  make_folder(dir.path("root"));
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path("root\\"), true, false));
  EXPECT_EQ(Peer::storage_path(), dir.path("root") + "\\\\storage");
  EXPECT_EQ(list_folder(dir.path("root\\storage")), kAreas);
}

TEST_F(StorageRoots, KeepTheDomainSwitch) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), false, false));
  EXPECT_FALSE(Peer::use_domain());
  Peer::reset();
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_TRUE(Peer::use_domain());
}

TEST_F(StorageRoots, HandTheSynchronisationSwitchToTheIndex) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_FALSE(stg_index_test_peer::synchronizes());
  Peer::reset();
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, true));
  EXPECT_TRUE(stg_index_test_peer::synchronizes());
}

TEST_F(StorageRoots, SetTheSynchronisationSwitchBeforeTheyCountAsInitialised) {
  int seen = 0;
  const auto watch = faults::before(
      faults::Call::create_directory,
      [&] {
        ++seen;
        EXPECT_EQ(Peer::init_done(), 0);
        EXPECT_FALSE(stg_index_test_peer::synchronizes());
      },
      1, faults::Times::kLasting);
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(seen, 6);
}

TEST_F(StorageRoots, AreTracedUnderTheirLabels) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(facade(trace_level::m), Texts{"ztVuStorage:s_storagePath:" + dir.path() + "\\storage"});
  const Texts labels = sink.scopes();
  EXPECT_EQ(labels.front(), "ztVuStorage:initRootStorage");
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "ztVuStorage:initPath"), 1);
  sink.clear();
  vu_storage::getCorpPath();
  const Texts later = sink.scopes();
  EXPECT_EQ(std::count(later.begin(), later.end(), "ztVuStorage:checkInit"), 1);
}

TEST_F(StorageRoots, LeaveFoldersAloneThatExist) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  Peer::reset();
  faults::reset();
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(faults::calls(faults::Call::create_directory), 0U);
}

TEST_F(StorageRoots, RefuseASecondInitialisation) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  sink.clear();
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path("other"), false, true));

  EXPECT_EQ(Peer::storage_path(), dir.path() + "\\storage");
  EXPECT_EQ(Peer::corp_path(), dir.path() + "\\storage\\docs");
  EXPECT_TRUE(Peer::use_domain());
  EXPECT_FALSE(stg_index_test_peer::synchronizes());
  EXPECT_FALSE(file_exists(dir.path("other")));
  EXPECT_EQ(sink.messages(), Texts{"root storage already initialized"});
}

TEST_F(StorageRoots, RefuseASecondInitialisationWithTheLineOfTheTrace) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  sink.clear();
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));

  std::string text;
  for (const traced& each : sink.all()) {
    if (each.kind != traced::kind_t::event) continue;
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(each.event, trace_event::error);
    EXPECT_EQ(each.source, "vu_storage");
    EXPECT_GT(each.line, 0);
    text = each.text;
    EXPECT_EQ(text, "**ERROR:ztVuStorage:root storage already initialized [vu_storage;" +
                        std::to_string(each.line) + "]");
  }
  ASSERT_EQ(components.records().size(), 2U);
  const fake_components::record_t refused = {text, {4, 0, 0}};
  EXPECT_EQ(components.records().back(), refused);
}

TEST_F(StorageRoots, EnterTheirFolderIntoTheLogHistory) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  const fake_components::record_t stated = {"ztVuStorage:s_storagePath:" + dir.path() + "\\storage",
                                            {1, 4, 0}};
  EXPECT_EQ(components.records(), std::vector<fake_components::record_t>{stated});
  EXPECT_EQ(components.requests(), Texts{"CLSID_ZTLogHistory IID_ILogHistory"});

  Peer::reset();
  vu_storage::getCorpPath();
  const fake_components::record_t own = {"ztVuStorage:s_storagePath:" + dir.path("server"),
                                         {1, 4, 0}};
  ASSERT_EQ(components.records().size(), 2U);
  EXPECT_EQ(components.records().back(), own);
  // The component is created for each record and released.
  EXPECT_EQ(components.creations(), 2);
  EXPECT_EQ(components.releases(), 2);
}

TEST_F(StorageRoots, EnterNothingWhenRecordingIsOff) {
  components.set_enabled(false);
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_TRUE(components.records().empty());
  EXPECT_EQ(components.questions(), (std::vector<std::tuple<int, int, int>>{{1, 4, 0}, {4, 0, 0}}));
}

TEST_F(StorageRoots, NeedNoLogHistory) {
  components.set_available(false);
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(components.requests().size(), 2U);
  EXPECT_TRUE(components.records().empty());
}

TEST_F(StorageRoots, EnterTheLogHistoryEvenWithoutATraceSink) {
  sink.want_everything(false);
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(components.records().size(), 2U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

/// The first use of a tree warns once if locks do not separate programs.
TEST_F(StorageRoots, WarnWhereLocksDoNotBelongToHandles) {
  const auto fault =
      faults::fail(faults::Call::locks_belong_to_handles, {}, 1, faults::Times::kLasting);
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(Peer::init_done(), kInitialised);
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"ztVuStorage:the locks of this SMB mount do not keep two programs apart, see "
                  "docs/network-shares.md:" +
                  dir.path("storage")});
}

TEST_F(StorageRoots, DoNotWarnOnAnOrdinaryDisk) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(facade(trace_event::warning), Texts{});
}

TEST_F(StorageRoots, AreInTheServerTemporaryFolderWithoutInitialisation) {
  EXPECT_EQ(vu_storage::getStoragePath(), dir.path("server"));
  EXPECT_EQ(Peer::corp_path(), dir.path("server") + "\\docs");
  EXPECT_EQ(list_folder(dir.path("server")), kAreas);
  EXPECT_EQ(temp.calls(), (Texts{"initialise MY_PROCESS MY_COMP", "server_folder"}));
  EXPECT_EQ(facade(trace_level::m), Texts{"ztVuStorage:s_storagePath:" + dir.path("server")});

  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), false, false));
  EXPECT_EQ(Peer::storage_path(), dir.path("server"));
}

TEST_F(StorageRoots, KeepBothSwitchesWhenAnOperationInitialises) {
  Peer::set_use_domain(false);
  STGIndex::setSynchronizeMode(false);
  Peer::checkInit();
  EXPECT_EQ(Peer::init_done(), kInitialised);
  EXPECT_FALSE(Peer::use_domain());
  EXPECT_FALSE(stg_index_test_peer::synchronizes());

  Peer::reset();
  Peer::checkInit();
  EXPECT_TRUE(Peer::use_domain());
  EXPECT_TRUE(stg_index_test_peer::synchronizes());
}

TEST_F(StorageRoots, LoseOneTrailingBackslashOfTheServerTemporaryFolder) {
  for (const auto& [given, kept] : {std::pair<std::string, std::string>{"server", "server"},
                                    {"server\\", "server"},
                                    {"server\\\\", "server\\"},
                                    {"server/", "server/"}}) {
    Peer::reset();
    temp.set_server_folder(dir.path(given));
    Peer::checkInit();
    EXPECT_EQ(Peer::storage_path(), dir.path(kept)) << given;
  }
}

TEST_F(StorageRoots, AreRelativeToNothingWhenThereIsNoServerTemporaryFolder) {
  temp.set_server_folder("");
  const auto none =
      faults::fail(faults::Call::create_directory, kRefused, 1, faults::Times::kLasting);
  Peer::checkInit();
  EXPECT_EQ(Peer::storage_path(), "");
  EXPECT_EQ(Peer::corp_path(), "\\docs");
}

TEST_F(StorageRoots, TakeTheServerTemporaryFolderInTheNarrowEncoding) {
  const std::string name = "s\xC3\xA9rver";
  make_folder(dir.path(name));
  temp.set_server_folder(dir.path(name));
  Peer::checkInit();
#if defined(_WIN32)
  // In the code page of the process.
  EXPECT_EQ(Peer::storage_path(), os::sys::to_narrow(ucs2string(vu_utf8string(dir.path(name)))));
#else
  EXPECT_EQ(Peer::storage_path(), dir.path(name));
#endif
  EXPECT_EQ(list_folder(dir.path(name)), kAreas);
}

TEST_F(StorageRoots, CountAsInitialisedWithTheOneMarkerAlone) {
  for (const std::int32_t marker : {0, 1, -1, 1233, 1235, -1234}) {
    Peer::reset();
    Peer::set_init_done(marker);
    Peer::checkInit();
    EXPECT_EQ(Peer::init_done(), kInitialised);
    EXPECT_EQ(Peer::storage_path(), dir.path("server")) << marker;
  }
  Peer::reset();
  Peer::set_init_done(kInitialised);
  Peer::checkInit();
  EXPECT_EQ(Peer::storage_path(), "");
}

TEST_F(StorageRoots, CountAsInitialisedWhenAFolderCouldNotBeMade) {
  // The root is missing, and only one folder level is created.
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path("missing"), true, false));
  EXPECT_EQ(Peer::init_done(), kInitialised);
  EXPECT_EQ(vu_storage::getCorpPath(), dir.path("missing") + "\\storage\\docs");
  EXPECT_FALSE(file_exists(dir.path("missing")));
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(StorageRoots, AreMadeInAFixedOrderUntilOneRaises) {
  const Texts in_order = {"", "\\docs", "\\semlets", "\\user", "\\list", "\\mail"};
  for (std::size_t nth = 1; nth <= in_order.size(); ++nth) {
    SCOPED_TRACE(nth);
    const scratch_folder root;
    Peer::reset();
    sink.clear();
    const auto raised =
        faults::throw_from(faults::Call::create_directory, vu_file_except("no more", 0), nth);
    EXPECT_TRUE(vu_storage::initRootStorage(root.path(), false, false));
    EXPECT_EQ(raised.hits(), 1U);
    for (std::size_t i = 0; i < in_order.size(); ++i)
      EXPECT_EQ(folder_exists(root.path("storage") + in_order[i]), i + 1 < nth) << in_order[i];

    EXPECT_EQ(facade(trace_event::error), Texts{"Error in vu_storage initRootStorage : no more"});
    EXPECT_EQ(Peer::init_done(), 0);
    EXPECT_EQ(Peer::mail_path(), root.path("storage") + "\\mail");
    EXPECT_EQ(Peer::config_dir_path(), dir.path("bin") + "\\config");
    EXPECT_FALSE(stg_index_test_peer::synchronizes());
  }
}

TEST_F(StorageRoots, StayUninitialisedAfterAnyOtherException) {
  {
    const auto raised =
        faults::throw_from(faults::Call::create_directory, std::runtime_error("odd"), 3);
    EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), false, false));
    EXPECT_EQ(raised.hits(), 1U);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"Cannot\tcreate storage dir"});
  EXPECT_EQ(Peer::init_done(), 0);
  EXPECT_EQ(Peer::corp_path(), dir.path() + "\\storage\\docs");

  // The next operation initialises again, with the default root and the same switches.
  EXPECT_EQ(vu_storage::getCorpPath(), dir.path("server") + "\\docs");
  EXPECT_EQ(Peer::init_done(), kInitialised);
  EXPECT_FALSE(Peer::use_domain());
  EXPECT_FALSE(stg_index_test_peer::synchronizes());
}

TEST_F(StorageRoots, StayUninitialisedWhenAnOperationCannotMakeThem) {
  const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"), 1,
                                         faults::Times::kLasting);
  EXPECT_EQ(vu_storage::getUserPath(), dir.path("server") + "\\user");
  EXPECT_EQ(Peer::init_done(), 0);
  EXPECT_EQ(vu_storage::getUserPath(), dir.path("server") + "\\user");
  EXPECT_EQ(facade(trace_event::error), (Texts{"Error in vu_storage initRootStorage : full",
                                               "Error in vu_storage initRootStorage : full"}));
  // An explicit root is accepted after the failures.
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
}

TEST_F(StorageRoots, StayUninitialisedWhenTheBinaryFolderIsNotKnown) {
  failing_configuration failing;
  vu_host::install({&sink, &failing, &temp, &components});
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  EXPECT_EQ(Peer::init_done(), 0);
  EXPECT_EQ(facade(trace_event::error), Texts{"Cannot\tcreate storage dir"});
  EXPECT_EQ(Peer::config_dir_path(), "");
  EXPECT_FALSE(file_exists(dir.path("storage")));
}

TEST_F(StorageRoots, KnowTheirAreasBeforeTheConfigurationIsRead) {
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path(), true, false));
  const std::string known = Peer::config_dir_path();
  Peer::set_init_done(0);
  failing_configuration failing;
  vu_host::install({&sink, &failing, &temp, &components});
  const std::string root = dir.path("other\\storage");
  EXPECT_TRUE(vu_storage::initRootStorage(dir.path("other"), false, false));
  EXPECT_EQ(Peer::storage_path(), root);
  EXPECT_EQ(Peer::corp_path(), root + "\\docs");
  EXPECT_EQ(Peer::semlet_path(), root + "\\semlets");
  EXPECT_EQ(Peer::user_path(), root + "\\user");
  EXPECT_EQ(Peer::list_path(), root + "\\list");
  EXPECT_EQ(Peer::mail_path(), root + "\\mail");
  EXPECT_FALSE(Peer::use_domain());
  EXPECT_EQ(Peer::config_dir_path(), known);
}

TEST_F(StorageRoots, TakeAnotherRootThanTheOneThatAFailedAttemptNamed) {
  {
    const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"));
    EXPECT_TRUE(vu_storage::initRootStorage(dir.path("no"), true, false));
  }
  // Both results are true, although an operation in between uses the server's folder.
  EXPECT_EQ(vu_storage::getStoragePath(), dir.path("server"));
  EXPECT_FALSE(vu_storage::initRootStorage(dir.path(), true, false));
}

/// Records the state when the new root is traced, before anything is published.
class NotingSink final : public vu_host::trace_sink {
 public:
  bool wants(trace_level level) const noexcept override { return level == trace_level::m; }
  bool wants(trace_event) const noexcept override { return false; }
  void scope_begin(const vu_host::trace_site&, trace_level, std::string_view) noexcept override {}
  void scope_end(const vu_host::trace_site&, trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site&, std::string_view) noexcept override {}
  void record(const vu_host::trace_site&, trace_level, std::string_view) noexcept override {
    use_domain = Peer::use_domain();
    user_path = Peer::user_path();
  }
  void event(const vu_host::trace_site&, trace_event, std::string_view) noexcept override {}

  bool use_domain = true;
  std::string user_path;
};

TEST_F(StorageRoots, TakeTheSwitchAndThePathsOfARetryTogether) {
  failing_configuration failing;
  NotingSink noting;
  vu_host::install({&noting, &failing, &temp, &components});
  vu_storage::initRootStorage(dir.path("shared"), false, false);
  const std::string before = Peer::user_path();
  vu_storage::initRootStorage(dir.path("apart"), true, false);
  EXPECT_FALSE(noting.use_domain);
  EXPECT_EQ(noting.user_path, before);
  EXPECT_TRUE(Peer::use_domain());
  EXPECT_EQ(Peer::user_path(), dir.path("apart\\storage\\user"));
  vu_host::install({&sink, &config, &temp, &components});
}

/// Published roots are never freed, and each operation tries again.
TEST_F(StorageRoots, OfARetryAreThoseOfTheFailedAttemptIfTheyAreEqual) {
  failing_configuration failing;
  vu_host::install({&sink, &failing, &temp, &components});
  const std::string& before = vu_storage::getStoragePath();
  EXPECT_EQ(&vu_storage::getStoragePath(), &before);
  EXPECT_EQ(Peer::init_done(), 0);
  vu_host::install({&sink, &config, &temp, &components});
}

TEST_F(StorageRoots, AreInitialisedByAnObject) {
  const vu_storage facade;
  EXPECT_EQ(Peer::storage_path(), dir.path("server"));
  sink.clear();
  const vu_storage another;
  const Texts labels = sink.scopes();
  EXPECT_EQ(std::count(labels.begin(), labels.end(), "ztVuStorage:checkInit"), 0);
}

TEST_F(StorageRoots, AreNotCopiedWithAnObject) {
  vu_storage facade;
  const vu_storage another;
  const std::string before = Peer::storage_path();
  EXPECT_EQ(&(facade = another), &facade);
  EXPECT_EQ(Peer::storage_path(), before);
}

TEST_F(StorageRoots, KeepAStampWithoutBeingInitialised) {
  vu_storage::setTdcTimeStamp("17");
  EXPECT_EQ(Peer::init_done(), 0);
  EXPECT_EQ(Peer::tdc_time_stamp(), "17");
  EXPECT_EQ(vu_storage::getTdcTimeStamp(), "17");
  EXPECT_EQ(Peer::init_done(), kInitialised);
  vu_storage::setTdcTimeStamp("");
  EXPECT_EQ(vu_storage::getTdcTimeStamp(), "");
}

TEST_F(StorageRoots, AreReturnedByReferenceToTheSameStrings) {
  EXPECT_EQ(&vu_storage::getStoragePath(), &vu_storage::getStoragePath());
  EXPECT_EQ(&vu_storage::getTdcTimeStamp(), &vu_storage::getTdcTimeStamp());
}

TEST_F(StorageRoots, GiveTheIndexTheMailFolderOnceInitialised) {
  EXPECT_EQ(initialised_mail_root(), dir.path("server") + "\\mail");
  EXPECT_EQ(Peer::init_done(), kInitialised);
}

}  // namespace
