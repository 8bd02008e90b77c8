#include <gtest/gtest.h>
#if defined(__linux__)
#include <sys/resource.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "stg_index.h"
#include "tests/support/scratch.h"

// Required: before the layer, whose calls it records.
#include "tests/support/called.h"

#include "vu/storage.hpp"

// The C++17 layer. All cases of a process share one storage; each has other owners.

namespace {

using namespace std::chrono_literals;

vu::store& storage() {
  static const scratch_folder root;
  static vu::store store(native(root.path()) / "made" / "here", vu::make_root | vu::no_adoption);
  return store;
}

vu::key user_key(const char* owner, const char* name, std::int64_t version = 0) {
  return {vu::area::user, owner, name, version};
}

/// The code of the exception of a call; VU_DONE without an exception.
template <class Call>
vu_status code_of(Call call) {
  try {
    call();
    return VU_DONE;
  } catch (const vu::error& error) {
    EXPECT_STRNE(error.what(), "");
    return error.code();
  }
}

}  // namespace

TEST(CppStore, IsOpenedOnceAndJoinedLater) {
  EXPECT_EQ(storage().how_started(), vu::store::start::initialised);
  vu::store second;
  EXPECT_EQ(second.how_started(), vu::store::start::joined);
  const std::filesystem::path folder = second.folder();
  EXPECT_TRUE(std::filesystem::is_directory(folder)) << folder;
  EXPECT_EQ(second.folder(vu::area::mail), folder / "mail");
  EXPECT_EQ(code_of([] { vu::store("/no/such/folder/at/all"); }), VU_NO_TREE);
  vu::store moved = std::move(second);
  EXPECT_FALSE(moved.exists(user_key("nobody", "a")));
  EXPECT_EQ(code_of([&] { (void)second.exists(user_key("nobody", "a")); }), VU_BAD_HANDLE);
}

TEST(CppStore, PutsReadsAndReplaces) {
  const vu::key where{vu::area::docs, "put", "a.kdf", 7};
  EXPECT_FALSE(storage().read(where).has_value());
  const std::string bytes("zero\0byte", 9);
  EXPECT_EQ(storage().put(where, bytes), vu::stored::at_once);
  EXPECT_EQ(storage().read(where), bytes);
  EXPECT_EQ(storage().put(where, "other", vu::if_there::keep), vu::stored::not_stored);
  EXPECT_EQ(storage().read(where), bytes);
  EXPECT_EQ(storage().put_in_place(where, "other"), vu::stored::in_place);
  EXPECT_EQ(storage().read(where), "other");
  EXPECT_EQ(storage().put(where, ""), vu::stored::at_once);
  EXPECT_EQ(storage().read(where), "");
}

TEST(CppStore, ReportsTheReasonInAnError) {
  try {
    storage().put({vu::area::docs, "..", "a.kdf", 1}, "x");
    FAIL() << "the guard let it pass";
  } catch (const vu::error& error) {
    EXPECT_EQ(error.code(), VU_REFUSED);
    EXPECT_EQ(error.path(), "..");
    EXPECT_EQ(error.text(), "the owner is refused: it is the folder itself or its parent");
    EXPECT_EQ(error.system_code(), 0);
    EXPECT_NE(std::string(error.what()).find("vu_put: "), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("[VU_REFUSED]"), std::string::npos);
  }
}

TEST(CppStore, DescribesRenamesAndRemoves) {
  const vu::key where = user_key("describe", "a.txt", 3);
  EXPECT_FALSE(storage().describe(where).has_value());
  storage().put(where, "12345");
  const auto info = storage().describe({vu::area::user, "describe", "a.txt", vu::latest});
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->size, 5);
  EXPECT_EQ(info->version, 3);
  EXPECT_LT(info->age(), 1h);
  EXPECT_GE(info->age(), -1s);
  EXPECT_TRUE(std::filesystem::exists(storage().file_path(where)));
  const vu::key other = user_key("describe", "b.txt", 4);
  EXPECT_TRUE(storage().rename(where, other));
  EXPECT_EQ(storage().latest_version(other), 4);
  EXPECT_FALSE(storage().latest_version(where).has_value());
  storage().put(where, "new");
  EXPECT_FALSE(storage().rename(where, other));
  EXPECT_TRUE(storage().rename(where, other, vu::if_there::replace));
  EXPECT_EQ(storage().read(other), "new");
  EXPECT_TRUE(storage().remove(other));
  EXPECT_FALSE(storage().remove(other));
  EXPECT_EQ(code_of([&] { (void)storage().file_path(other); }), VU_NOTHING_MATCHED);
}

TEST(CppStore, CopiesFilesInAndOut) {
  const scratch_folder outside;
  const std::filesystem::path in = native(outside.path("in"));
  const std::filesystem::path out = native(outside.path("out"));
  write_file(outside.path("in"), "bytes");
  const vu::key where{vu::area::mail, "copies", "a", 1};
  EXPECT_EQ(storage().copy_in(where, in), vu::stored::at_once);
  EXPECT_EQ(storage().copy_in(where, in, vu::if_there::keep), vu::stored::not_stored);
  EXPECT_TRUE(storage().copy_out(where, out));
  EXPECT_FALSE(storage().copy_out(where, out, vu::if_there::keep));
  EXPECT_EQ(read_file(outside.path("out")), "bytes");
  EXPECT_EQ(code_of([&] { storage().copy_in(where, out / "missing"); }), VU_NOTHING_MATCHED);
}

TEST(CppFile, MovesReadsWritesAndClosesItself) {
  static_assert(!std::is_copy_constructible_v<vu::file> &&
                std::is_nothrow_move_assignable_v<vu::file>);
  const vu::key where{vu::area::docs, "files", "a.kdf", 1};
  EXPECT_FALSE(storage().open(where));
  {
    vu::file file = storage().create(where);
    ASSERT_TRUE(file);
    vu::file moved = std::move(file);
    EXPECT_FALSE(file);
    moved.write("0123456789");
    moved.seek(2);
    moved.write("xy");
    EXPECT_EQ(moved.size(), 10);
    EXPECT_EQ(code_of([&] { (void)moved.read(); }), VU_USAGE);
    moved.close();
    EXPECT_FALSE(moved);
    moved.close();
    EXPECT_EQ(code_of([&] { moved.write("x"); }), VU_BAD_HANDLE);
  }
  EXPECT_FALSE(storage().create(where));
  {
    // This call would wait for ever for a file that was not closed.
    vu::file file = storage().create(where, vu::if_there::replace);
    file.write(std::string(200'000, 'a'));
  }
  vu::file reader = storage().open(where);
  EXPECT_EQ(reader.read().size(), 200'000U);
  EXPECT_EQ(reader.read(), "");
  vu::store hurried(std::filesystem::path(storage().folder().parent_path()), vu::no_adoption, 0ms);
  EXPECT_EQ(code_of([&] { (void)hurried.create(where, vu::if_there::replace); }), VU_LOCK_TIMEOUT);
  EXPECT_TRUE(hurried.open(where));
}

TEST(CppFile, AFileThatIsInUseStaysOpen) {
  const auto where = user_key("files", "busy", 1);
  storage().put(where, "x");
  vu::file file = storage().open(where);
  std::atomic<bool> is_over = false;
  vu_status closed = VU_DONE;
  {
    const vu::trace_listener listener([&](const vu::trace&) {
      if (is_over.exchange(true)) return;
      std::thread([&] { closed = code_of([&] { file.close(); }); }).join();
    });
    EXPECT_EQ(file.read(), "x");
  }
  EXPECT_EQ(closed, VU_BUSY);
  EXPECT_TRUE(file);
  file.close();
  EXPECT_FALSE(file);
  EXPECT_TRUE(storage().create(where, vu::if_there::replace));
}

TEST(CppFile, PartsAndServedDocuments) {
  const vu::key where{vu::area::docs, "parts", "a.kdf", 1};
  EXPECT_EQ(code_of([&] { (void)storage().open_part(where, "html@a", "1"); }), VU_NOTHING_MATCHED);
  storage().put(where, "document");
  EXPECT_FALSE(storage().open_part(where, "html@a", "1"));
  storage().create_part(where, "html@a", "1").write("part");
  EXPECT_EQ(storage().open_part(where, "html@a", "1").read(), "part");
  EXPECT_EQ(storage().open_served(where).read(), "document");
  const vu::key page{vu::area::docs, "parts", "page.kdc", 0};
  storage().put(page, "page");
  EXPECT_EQ(code_of([] {
              (void)storage().open_served({vu::area::docs, "parts", "page.kdc", 2147483647});
            }),
            VU_OUTDATED);
}

TEST(CppLists, AreRangesOfKeys) {
  const std::vector<vu::key> keys = {user_key("ranges", "a", 2), user_key("ranges", "a", 10),
                                     user_key("ranges", "b", 1)};
  for (const vu::key& one : keys) storage().put(one, "1234");
  const std::vector<vu::entry> all = storage().documents(vu::area::user, "ranges", true);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_TRUE(std::equal(all.begin(), all.end(), keys.begin()));
  EXPECT_EQ(all[0].info->size, 4);
  EXPECT_FALSE(storage().documents(vu::area::user, "ranges")[0].info.has_value());
  const std::vector<vu::entry> versions = storage().versions(keys[0]);
  ASSERT_EQ(versions.size(), 2U);
  EXPECT_EQ(versions[1].version, 10);
  const std::vector<std::string> owners = storage().owners(vu::area::user);
  EXPECT_EQ(std::count(owners.begin(), owners.end(), "ranges"), 1);
  int seen = 0;
  EXPECT_FALSE(storage().each_document(vu::area::user, "ranges",
                                       [&](const vu::entry&) { return ++seen < 2; }));
  EXPECT_EQ(seen, 2);
}

#if defined(__linux__)
/// Leaves one descriptor: an index can be opened, but then its folder cannot be listed.
class OneDescriptor {
 public:
  OneDescriptor() {
    ::getrlimit(RLIMIT_NOFILE, &m_before);
    const ::rlimit few = {256, m_before.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    for (int next = ::dup(0); next != -1; next = ::dup(0)) m_used.push_back(next);
    ::close(m_used.back());
    m_used.pop_back();
  }
  ~OneDescriptor() {
    for (const int each : m_used) ::close(each);
    ::setrlimit(RLIMIT_NOFILE, &m_before);
  }
  OneDescriptor(const OneDescriptor&) = delete;
  OneDescriptor& operator=(const OneDescriptor&) = delete;

 private:
  ::rlimit m_before{};
  std::vector<int> m_used;
};

/// How many names are in the error of a call for which only one descriptor is left.
template <class List>
std::size_t listed_in_error(List list) {
  std::exception_ptr raised;
  try {
    const OneDescriptor left;
    list();
  } catch (...) {
    raised = std::current_exception();
  }
  // Required: after the end of OneDescriptor. UndefinedBehaviorSanitizer needs descriptors to check
  // the type of the error.
  if (!raised) return 0;
  try {
    std::rethrow_exception(raised);
  } catch (const vu::partly_listed& error) {
    EXPECT_EQ(error.code(), VU_PARTLY_DONE);
    EXPECT_EQ(error.text(), "the folder cannot be listed, so its orphans are not adopted");
    return error.entries().size();
  }
  return 0;
}

TEST(CppLists, AreInTheErrorIfAFolderCannotBeListed) {
  const vu::key one = user_key("partly", "a", 2);
  storage().put(one, "x");
  storage().put(user_key("partly", "b", 1), "x");
  STGIndex::setSynchronizeMode(true);
  // UndefinedBehaviorSanitizer needs descriptors to check an object of a type for the first time.
  EXPECT_TRUE(vu::partly_listed(vu::error::last(), {}).entries().empty());
  EXPECT_EQ(listed_in_error([] { storage().documents(vu::area::user, "partly"); }), 2U);
  EXPECT_EQ(listed_in_error([&] { storage().versions(one); }), 1U);
  const auto all = [] {
    storage().outdated(vu::area::user, "partly", 0s, vu::cleaning::everything);
  };
  EXPECT_EQ(listed_in_error(all), 2U);
  STGIndex::setSynchronizeMode(false);
  EXPECT_EQ(storage().documents(vu::area::user, "partly").size(), 2U);
}
#endif

TEST(CppLists, AnExceptionOfTheVisitorComesBack) {
  storage().put(user_key("raises", "a", 2), "x");
  EXPECT_THROW(
      storage().each_document(vu::area::user, "raises",
                              [](const vu::entry&) -> bool { throw std::logic_error("x"); }),
      std::logic_error);
  EXPECT_EQ(storage().documents(vu::area::user, "raises").size(), 1U);
}

TEST(CppKeys, AreSetReadAndRemoved) {
  const vu::key file = user_key("keys", "settings.txt");
  EXPECT_FALSE(storage().key_value(file, "a").has_value());
  EXPECT_TRUE(storage().keys(file).empty());
  const std::string longer(5000, 'v');
  storage().set_key(file, "a", longer);
  storage().set_key(file, "b", "2");
  EXPECT_EQ(storage().key_value(file, "a"), longer);
  EXPECT_EQ(storage().keys(file).size(), 2U);
  EXPECT_EQ(storage().keys(file)[1], std::make_pair(std::string("b"), std::string("2")));
  EXPECT_TRUE(storage().remove_key(file, "a"));
  EXPECT_FALSE(storage().remove_key(file, "a"));
  EXPECT_FALSE(storage().profile_value("keys", "lang").has_value());
  storage().set_profile("keys", "lang", "de");
  EXPECT_EQ(storage().profile_value("keys", "lang"), "de");
  EXPECT_EQ(storage().profile("keys").size(), 1U);
  EXPECT_TRUE(storage().remove_profile("keys", "lang"));
}

TEST(CppKeys, AProfileMayHaveAnotherFileAndNoOwner) {
  storage().set_profile("profiles", "lang", "fr", "other.txt");
  EXPECT_EQ(storage().profile_value("profiles", "lang", "other.txt"), "fr");
  EXPECT_FALSE(storage().profile_value("profiles", "lang").has_value());
  EXPECT_EQ(storage().profile("profiles", "other.txt").size(), 1U);
  EXPECT_TRUE(storage().remove_profile("profiles", "lang", "other.txt"));
  // The configuration folder of this program does not exist.
  EXPECT_TRUE(storage().profile(vu::nobody).empty());
  EXPECT_FALSE(storage().profile_value(vu::nobody, "lang").has_value());
  EXPECT_EQ(code_of([] { storage().set_profile(vu::nobody, "lang", "de"); }), VU_FAILED);
  EXPECT_FALSE(storage().remove_profile(vu::nobody, "lang"));
}

TEST(CppStore, ReadsIntoMemoryOfTheCaller) {
  const vu::key where = user_key("read-into", "a.txt", 1);
  char buffer[10] = {};
  EXPECT_FALSE(storage().read(where, buffer, sizeof buffer).has_value());
  storage().put(where, "12345");
  EXPECT_EQ(storage().read(where, nullptr, 0), 5U);
  EXPECT_EQ(storage().read(where, buffer, sizeof buffer), 5U);
  EXPECT_STREQ(buffer, "12345");
  EXPECT_EQ(code_of([&] { (void)storage().read(where, buffer, 4); }), VU_TOO_SHORT);
}

TEST(CppStore, ReturnsTheLibrarysVersion) {
  EXPECT_EQ(vu::version_number(), VU_VERSION_NUMBER);
  EXPECT_EQ(vu::version().front(), '0' + VU_VERSION_MAJOR);
}

TEST(CppTraces, ReachTheListenerWhileItExists) {
  const vu::key where = user_key("traces", "a.txt", 1);
  int scopes = 0;
  int others = 0;
  const auto tell = [&](const vu::trace& one) {
    EXPECT_FALSE(one.source.empty());
    EXPECT_FALSE(one.signature.empty());
    EXPECT_GT(one.line, 0);
    ++(one.kind == VU_KIND_SCOPE_BEGIN ? scopes : others);
    throw std::logic_error("nobody hears it");
  };
  {
    const vu::trace_listener listener(tell);
    storage().put(where, "x");
  }
  EXPECT_GT(scopes, 0);
  EXPECT_GT(others, 0);
  const int before = scopes + others;
  storage().put(where, "y");
  EXPECT_EQ(scopes + others, before);
  {
    const vu::trace_listener listener(tell, -1);
    storage().put(where, "z");
  }
  EXPECT_EQ(code_of([&] { const vu::trace_listener none(tell, 9); }), VU_USAGE);
}

TEST(CppUpkeep, CleaningTakesFlagsAndEveryOwner) {
  for (const char* const owner : {"clean-a", "clean-b"})
    storage().put({vu::area::mail, owner, "a", 1}, "x");
  EXPECT_EQ(code_of([] { storage().clean(vu::area::mail, vu::nobody, 0s); }), VU_REFUSED);
  EXPECT_TRUE(storage().outdated(vu::area::mail, vu::nobody, 24h, vu::cleaning::by_access).empty());
  EXPECT_EQ(storage().outdated(vu::area::mail, "clean-a", 0s, vu::cleaning::everything).size(), 1U);
  EXPECT_GE(storage().outdated(vu::area::mail, vu::nobody, 0s, vu::cleaning::everything).size(),
            2U);
  EXPECT_EQ(storage().clean(vu::area::mail, "clean-a", 0s,
                            vu::cleaning::everything | vu::cleaning::by_access),
            1);
  EXPECT_TRUE(storage().documents(vu::area::mail, "clean-a").empty());
  EXPECT_EQ(storage().documents(vu::area::mail, "clean-b").size(), 1U);
}

TEST(CppUpkeep, AMailFolderIsConverted) {
  const std::filesystem::path folder = storage().folder(vu::area::mail) / "converted";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "A%20B.kdb") << "mail";
  STGIndex::setSynchronizeMode(true);
  EXPECT_TRUE(storage().migrate_inbox("converted"));
  STGIndex::setSynchronizeMode(false);
  EXPECT_EQ(storage().read({vu::area::mail, "converted", "A B.kdb", 0}), "mail");
}

TEST(CppUpkeep, OwnersAndCleaning) {
  EXPECT_FALSE(storage().remove_owner("upkeep"));
  const scratch_folder outside;
  write_file(outside.path("old"), "x");
  set_modify_time(outside.path("old"), 1'500'000'000);
  storage().copy_in(user_key("upkeep", "old", 1), native(outside.path("old")));
  storage().put(user_key("upkeep", "new", 1), "x");
  EXPECT_EQ(storage().outdated(vu::area::user, "upkeep", 24h).size(), 1U);
  EXPECT_EQ(storage().clean(vu::area::user, "upkeep", 24h), 1);
  EXPECT_EQ(storage().documents(vu::area::user, "upkeep").size(), 1U);
  EXPECT_TRUE(storage().rename_owner("upkeep", "upkeep-2"));
  EXPECT_TRUE(storage().exists(user_key("upkeep-2", "new", 1)));
  EXPECT_FALSE(storage().migrate_inbox("upkeep-2"));
  EXPECT_TRUE(storage().remove_owner("upkeep-2"));
}

TEST(CppPaths, AreTheSystemsOwn) {
  EXPECT_EQ(vu::native_path("a\\b"), std::filesystem::path("a") / "b");
  const std::string name = "gr\xC3\xBC\xC3\x9F";
  EXPECT_EQ(vu::utf8_of(vu::path_of(name)), name);
}
