// The two file handles: their names, opening, closing and copying.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using base = vu_file_base;
using vu_host::trace_event;
using list = std::vector<std::string>;

}  // namespace

FILE_HANDLE_TESTS(VuFileName);

TYPED_TEST(VuFileName, IsEmptyByDefault) {
  const typename TypeParam::file file;
  EXPECT_EQ(this->path_of(file), "\\");
  EXPECT_FALSE(file.is_open());
  EXPECT_FALSE(file.is_locked());
}

TYPED_TEST(VuFileName, IsJoinedWithOneBackslash) {
  const auto file = this->named("name");
  EXPECT_EQ(this->path_of(file), this->m_dir.path() + "\\name");
  EXPECT_EQ(TypeParam::to_bytes(file.getPath().getParentPathName()), this->m_dir.path());
  EXPECT_EQ(TypeParam::to_bytes(file.getPath().getRelativePathName()), "name");
}

TYPED_TEST(VuFileName, OfAFullPathIsCutAtTheLastBackslash) {
  const typename TypeParam::file file(TypeParam::to_text("C:\\one/two\\three"));
  EXPECT_EQ(TypeParam::to_bytes(file.getPath().getParentPathName()), "C:\\one/two");
  EXPECT_EQ(TypeParam::to_bytes(file.getPath().getRelativePathName()), "three");
}

TYPED_TEST(VuFileName, OfAPathWithoutABackslashStaysAndIsTracedAsAnError) {
  auto file = this->named("name");
  recording_sink sink;
  file.setPath(TypeParam::to_text("a/b"));
  EXPECT_EQ(sink.events(trace_event::error), list{std::string(TypeParam::kInvalidPath) + "a/b"});
  EXPECT_EQ(this->path_of(file), this->m_dir.path("name"));

  const typename TypeParam::file fresh(TypeParam::to_text("word"));
  EXPECT_EQ(this->path_of(fresh), "\\");
}

TYPED_TEST(VuFileName, OfAnOpenHandleStaysAndIsTracedAsAnError) {
  auto file = this->named("name");
  file.open(base::o_write);
  recording_sink sink;
  file.setPath(TypeParam::to_text("a\\b"));
  EXPECT_EQ(sink.events(trace_event::error), list{"cannot change file name when it is opened"});
  EXPECT_EQ(this->path_of(file), this->m_dir.path("name"));
}

TYPED_TEST(VuFileName, CanBeSetAgainOnceTheHandleIsClosed) {
  auto file = this->named("name");
  file.open(base::o_write);
  file.close();
  recording_sink sink;
  file.setPath(TypeParam::to_text("a\\b"));
  EXPECT_EQ(this->path_of(file), "a\\b");
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

FILE_HANDLE_TESTS(VuFileOpen);

TYPED_TEST(VuFileOpen, OfAMissingFileForReadingThrowsAfterAWarning) {
  auto file = this->named("missing");
  recording_sink sink;
  EXPECT_EQ(thrown_text([&] { file.open(base::o_read); }), "throw exception on open");
  EXPECT_FALSE(file.is_open());
  const list warnings = sink.events(trace_event::warning);
  ASSERT_EQ(warnings.size(), 2U);
  EXPECT_EQ(warnings[0], "open o_read : " + this->m_dir.path("missing"));
  EXPECT_EQ(warnings[1].rfind("Error message :", 0), 0U) << warnings[1];
  EXPECT_EQ(warnings[1].substr(warnings[1].size() - 2), "\r\n");
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  EXPECT_FALSE(file_exists(this->m_dir.path("missing")));
}

TYPED_TEST(VuFileOpen, OfAMissingFolderForWritingThrowsAfterAnErrorThatSaysRead) {
  for (const auto mode : kWritingModes) {
    typename TypeParam::file file(TypeParam::to_text(this->m_dir.path("no\\folder")),
                                  TypeParam::to_text("name"));
    recording_sink sink;
    EXPECT_EQ(thrown_text([&] { file.open(mode); }), "throw exception on open") << mode;
    const list errors = sink.events(trace_event::error);
    ASSERT_EQ(errors.size(), 2U) << mode;
    EXPECT_EQ(errors[0], "open o_read : " + this->m_dir.path("no\\folder\\name"));
    EXPECT_EQ(errors[1].rfind("Error message :", 0), 0U) << errors[1];
    EXPECT_EQ(sink.count(trace_event::warning), 0U);
  }
}

TYPED_TEST(VuFileOpen, OfAFolderThrows) {
  make_folder(this->m_dir.path("folder"));
  for (const auto mode : kAllModes) {
    auto file = this->named("folder");
    EXPECT_EQ(thrown_text([&] { file.open(mode); }), "throw exception on open") << mode;
  }
}

TYPED_TEST(VuFileOpen, OfAMissingFileForWritingMakesIt) {
  for (const auto mode : kWritingModes) {
    const std::string name = "new" + std::to_string(mode);
    auto file = this->named(name);
    file.open(mode);
    EXPECT_TRUE(file.is_open());
    EXPECT_TRUE(file.is_locked());
    file.close();
    EXPECT_EQ(read_file(this->m_dir.path(name)), "");
  }
}

TYPED_TEST(VuFileOpen, WithNamesTakesThem) {
  write_file(this->m_dir.path("f"), "text");
  typename TypeParam::file file;
  file.open(TypeParam::to_text(this->m_dir.path()), TypeParam::to_text("f"), base::o_read);
  EXPECT_EQ(this->path_of(file), this->m_dir.path("f"));
  std::string text;
  EXPECT_EQ(file.read(text, 0), 4);
}

TYPED_TEST(VuFileOpen, WithAnEmptyNameDoesNothingAtAll) {
  const std::pair<std::string, std::string> rows[] = {
      {"", "name"}, {this->m_dir.path(), ""}, {"", ""}};
  for (const auto& [folder, name] : rows) {
    typename TypeParam::file file(TypeParam::to_text("kept"), TypeParam::to_text("too"));
    recording_sink sink;
    file.open(TypeParam::to_text(folder), TypeParam::to_text(name), base::o_write);
    EXPECT_FALSE(file.is_open());
    EXPECT_EQ(this->path_of(file), "kept\\too");
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
    EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
    std::string text;
    EXPECT_EQ(thrown_text([&] { file.read(text, 0); }), TypeParam::kWrongRead);
  }
}

TYPED_TEST(VuFileOpen, WithAnUnknownModeTracesItAndThrows) {
  write_file(this->m_dir.path("f"), "text");
  const auto unknown = static_cast<base::type_access>(7);
  auto file = this->named("f");
  recording_sink sink;
  EXPECT_EQ(thrown_text([&] { file.open(unknown); }), "throw exception on open");
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 3U);
  EXPECT_EQ(errors[0], " unknown open mode while opening file : " + this->m_dir.path("f"));
  EXPECT_EQ(errors[1], "open o_read : " + this->m_dir.path("f"));
  EXPECT_EQ(errors[2].rfind("Error message :", 0), 0U) << errors[2];
  EXPECT_FALSE(file.is_open());
}

TYPED_TEST(VuFileOpen, OfAnOpenHandleClosesAndReopensItWithAnError) {
  write_file(this->m_dir.path("f"), "text");
  auto file = this->named("f");
  file.open(base::o_write);
  recording_sink sink;
  file.open(base::o_read);
  EXPECT_EQ(sink.events(trace_event::error),
            (list{"file is already opened, it will be closed and reopened !!!",
                  " path = " + this->m_dir.path("f")}));
  std::string text;
  EXPECT_EQ(file.read(text, 0), 4);
  // The first handle is closed, and its exclusive lock released.
  auto other = this->named("f");
  bool lock_failed = true;
  EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
  EXPECT_FALSE(lock_failed);
}

TYPED_TEST(VuFileOpen, ByTryOpenOfAMissingFileSaysFalseWithoutATrace) {
  auto file = this->named("missing");
  recording_sink sink;
  for (const bool before : {false, true}) {
    bool lock_failed = before;
    EXPECT_FALSE(file.try_open(base::o_read, lock_failed, false));
    EXPECT_EQ(lock_failed, before);
  }
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TYPED_TEST(VuFileOpen, ByTryOpenWithAnUnknownModeSaysFalseAfterAnError) {
  auto file = this->named("f");
  recording_sink sink;
  bool lock_failed = true;
  EXPECT_FALSE(file.try_open(static_cast<base::type_access>(0), lock_failed, true));
  EXPECT_TRUE(lock_failed);
  EXPECT_EQ(sink.events(trace_event::error),
            list{" unknown open mode while opening file : " + this->m_dir.path("f")});
  EXPECT_FALSE(file_exists(this->m_dir.path("f")));
}

TYPED_TEST(VuFileOpen, ThatFailedLeavesItsModeBehind) {
  auto file = this->named("missing");
  std::string text;
  EXPECT_EQ(thrown_text([&] { file.read(text, 1); }), TypeParam::kWrongRead);
  EXPECT_EQ(thrown_text([&] { file.open(base::o_read); }), "throw exception on open");
  // The mode now allows reading; only the file is missing.
  EXPECT_EQ(thrown_text([&] { file.read(text, 1); }), "throw exception on read");
  EXPECT_EQ(thrown_text([&] { file.write("x"); }), TypeParam::kWrongWrite);
}

TYPED_TEST(VuFileOpen, ReachesAFileBesideAnotherOfTheSameBeginning) {
  write_file(this->m_dir.path("name"), "short");
  write_file(this->m_dir.path("name.txt"), "longer");
  auto file = this->named("name");
  file.open(base::o_read);
  std::string text;
  file.read(text, 0);
  EXPECT_EQ(text, "short");
}

TYPED_TEST(VuFileOpen, TracesAScopeThatNamesTheOperation) {
  recording_sink sink;
  auto file = this->named("f");
  sink.clear();
  file.open(base::o_write);
  const std::vector<traced> all = sink.all();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all[0].kind, traced::kind_t::scope);
  EXPECT_EQ(all[0].level, vu_host::trace_level::xl);
  EXPECT_EQ(all[0].source, "vu_file");
  EXPECT_EQ(all[0].text, "");
  EXPECT_GT(all[0].line, 0);
  EXPECT_NE(all[0].signature.find(std::string(TypeParam::kClass) + "::open"), std::string::npos)
      << all[0].signature;
}

TYPED_TEST(VuFileOpen, TracesItsFailureUnderTheSameName) {
  auto file = this->named("missing");
  recording_sink sink;
  EXPECT_NE(thrown_text([&] { file.open(base::o_read); }), "(nothing thrown)");
  bool seen = false;
  for (const traced& each : sink.all()) {
    if (each.kind != traced::kind_t::event) continue;
    seen = true;
    EXPECT_EQ(each.source, "vu_file");
    EXPECT_NE(each.signature.find(std::string(TypeParam::kClass) + "::open"), std::string::npos)
        << each.signature;
  }
  EXPECT_TRUE(seen);
}

FILE_HANDLE_TESTS(VuFileClose);

TYPED_TEST(VuFileClose, OfAClosedHandleDoesNothing) {
  auto file = this->named("f");
  recording_sink sink;
  file.close();
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileClose, GivesTheLockBack) {
  for (const auto mode : kAllModes) {
    write_file(this->m_dir.path("f"), "");
    auto first = this->named("f");
    first.open(mode);
    EXPECT_TRUE(first.is_locked());
    first.close();
    EXPECT_FALSE(first.is_open());
    EXPECT_FALSE(first.is_locked());
    auto second = this->named("f");
    bool lock_failed = true;
    EXPECT_TRUE(second.try_open(base::o_write, lock_failed, true));
    EXPECT_FALSE(lock_failed) << mode;
  }
}

TYPED_TEST(VuFileClose, HappensInTheDestructor) {
  {
    auto file = this->named("f");
    file.open(base::o_write);
    file.write("text");
  }
  auto other = this->named("f");
  bool lock_failed = true;
  EXPECT_TRUE(other.try_open(base::o_write, lock_failed, true));
  EXPECT_FALSE(lock_failed);
  EXPECT_EQ(read_file(this->m_dir.path("f")), "text");
}

TYPED_TEST(VuFileClose, AllowsTheHandleToBeOpenedAgain) {
  auto file = this->named("f");
  file.open(base::o_write);
  file.write("text");
  file.close();
  file.open(base::o_read);
  std::string text;
  EXPECT_EQ(file.read(text, 0), 4);
}

FILE_HANDLE_TESTS(VuFileCopy);

TYPED_TEST(VuFileCopy, SharesTheOpenFile) {
  {
    // For its first error text the system may open a file. Let that happen now, so that this file
    // does not get the number of a handle that the test closes.
    const recording_sink sink;
    auto missing = this->named("missing");
    EXPECT_EQ(thrown_text([&] { missing.open(base::o_read); }), "throw exception on open");
  }
  write_file(this->m_dir.path("f"), "0123456789");
  auto first = this->named("f");
  first.open(base::o_read);
  auto second = first;
  EXPECT_TRUE(second.is_open());
  EXPECT_TRUE(second.is_locked());
  EXPECT_EQ(this->path_of(second), this->path_of(first));
  std::string text;
  first.read(text, 4);
  second.read(text, 4);
  EXPECT_EQ(text, "4567") << "one file, one position";

  first.close();
  EXPECT_FALSE(first.is_open());
  EXPECT_TRUE(second.is_open()) << "it does not know";
  EXPECT_EQ(thrown_text([&] { second.read(text, 4); }), "throw exception on read");
  recording_sink sink;
  second.close();
  EXPECT_FALSE(second.is_open());
  const list errors = sink.events(trace_event::error);
  ASSERT_GE(errors.size(), 2U);
  EXPECT_EQ(errors[0], "Can't unlock file : " + this->m_dir.path("f"));
#if defined(_WIN32)
  // The system may have reused the number for a file of error texts. Then that file is closed,
  // without an error.
  if (errors.size() == 2) return;
#endif
  ASSERT_EQ(errors.size(), 4U);
  EXPECT_EQ(errors[2], "close file : " + this->m_dir.path("f"));
}

TYPED_TEST(VuFileCopy, ByAssignmentSharesTheOpenFile) {
  write_file(this->m_dir.path("f"), "0123456789");
  typename TypeParam::file second;
  {
    auto first = this->named("f");
    first.open(base::o_read);
    second = first;
  }
  EXPECT_TRUE(second.is_open());
  EXPECT_EQ(this->path_of(second), this->m_dir.path("f"));
  std::string text;
  EXPECT_EQ(thrown_text([&] { second.read(text, 4); }), "throw exception on read");
}

TYPED_TEST(VuFileCopy, OfAClosedHandleIsAHandleOfItsOwn) {
  write_file(this->m_dir.path("f"), "text");
  const auto first = this->named("f");
  auto second = first;
  second.open(base::o_read);
  EXPECT_TRUE(second.is_open());
  EXPECT_FALSE(first.is_open());
}

// The whole-file lock of an open handle, between handles of one process and between processes.

namespace {

using base = vu_file_base;

base::type_access mode_of(const std::string& number) {
  return static_cast<base::type_access>(std::stoul(number));
}

/// args: a file; a mode. Keeps the file open until the parent says something.
int hold_a_file(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  bool lock_failed = true;
  const bool opened = file.try_open(mode_of(args.at(1)), lock_failed, true);
  say(opened && !lock_failed ? "holding" : "not holding");
  hear();
  return 0;
}
REGISTER_ROLE(hold_a_file, hold_a_file)

/// Opens a file, waits if necessary, and says so.
template <class Spelling>
int open_a_file(const std::vector<std::string>& args) {
  say("opening");
  typename Spelling::file file(Spelling::to_text(args.at(0)));
  file.open(mode_of(args.at(1)));
  say(file.is_locked() ? "locked" : "not locked");
  return 0;
}
REGISTER_ROLE(open_a_file_vu_file, open_a_file<narrow_spelling>)
REGISTER_ROLE(open_a_file_vu_fileutf8, open_a_file<utf8_spelling>)

template <class Spelling>
class VuFileLock : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  VuFileLock() { write_file(path(), "text"); }

  std::string path() const { return m_dir.path("f"); }
  file_type handle() const { return file_type(Spelling::to_text(path())); }

  scratch_folder m_dir;
};
TYPED_TEST_SUITE(VuFileLock, file_spellings, spelling_names);

}  // namespace

TYPED_TEST(VuFileLock, IsSharedByReadersAndExclusiveOtherwise) {
  for (const auto held : kAllModes) {
    auto holder = this->handle();
    holder.open(held);
    ASSERT_TRUE(holder.is_locked());
    for (const auto asked : kAllModes) {
      auto other = this->handle();
      bool lock_failed = false;
      EXPECT_TRUE(other.try_open(asked, lock_failed, true)) << "opened all the same";
      const bool compatible = held == base::o_read && asked == base::o_read;
      EXPECT_EQ(lock_failed, !compatible) << held << " " << asked;
      EXPECT_EQ(other.is_locked(), compatible);
      EXPECT_TRUE(other.is_open());
    }
    EXPECT_TRUE(holder.is_locked()) << "the others went, its own lock stayed";
  }
}

TYPED_TEST(VuFileLock, IsNotLostWhenAnotherHandleOfTheProcessCloses) {
  auto holder = this->handle();
  holder.open(base::o_write);
  {
    auto passing = this->handle();
    bool lock_failed = false;
    passing.try_open(base::o_read, lock_failed, true);
    EXPECT_TRUE(lock_failed);
  }
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
  EXPECT_TRUE(lock_failed);
}

TYPED_TEST(VuFileLock, ThatIsRefusedIsNeitherTracedNorThrown) {
  auto holder = this->handle();
  holder.open(base::o_write);
  auto other = this->handle();
  recording_sink sink;
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_append, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  other.close();
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U) << "nothing was locked, nothing is unlocked";
}

TYPED_TEST(VuFileLock, ThatIsRefusedKeepsTruncateFromEmptyingTheFile) {
  auto holder = this->handle();
  holder.open(base::o_read);
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_truncate, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  other.close();
  holder.close();
  EXPECT_EQ(read_file(this->path()), "text");
}

TYPED_TEST(VuFileLock, OfASecondProcessIsRefusedAtOnceWhenAskedNotToWait) {
  child_process holder("hold_a_file", {this->path(), std::to_string(base::o_write)});
  ASSERT_TRUE(holder.hears("holding"));
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  EXPECT_FALSE(other.is_locked());
}

TYPED_TEST(VuFileLock, OfASecondProcessIsWaitedForWithoutLimit) {
  const std::string role = std::string("open_a_file_") + TypeParam::kClass;
  for (const auto mode : kAllModes) {
    auto holder = this->handle();
    holder.open(base::o_write);
    child_process waiting(role, {this->path(), std::to_string(mode)});
    ASSERT_TRUE(waiting.hears("opening"));
    EXPECT_TRUE(waiting.stays_silent()) << mode;
    holder.close();
    EXPECT_TRUE(waiting.hears("locked")) << mode;
    EXPECT_EQ(waiting.wait(), 0);
  }
}

TYPED_TEST(VuFileLock, EndsWithTheProcessThatHoldsIt) {
  child_process holder("hold_a_file", {this->path(), std::to_string(base::o_append)});
  ASSERT_TRUE(holder.hears("holding"));
  holder.kill();
  ASSERT_EQ(holder.wait(), child_process::kKilled);
  auto other = this->handle();
  other.open(base::o_write);
  EXPECT_TRUE(other.is_locked());
}
