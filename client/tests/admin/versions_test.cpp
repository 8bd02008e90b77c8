// Entering and removing versions, beside others who store or use the same names.
#include <array>

#include "client/admin/versions.h"
#include "client/tests/admin/tree_fixture.h"
#include "stg_index.h"
#include "vu_file.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

using admin::Area;
using admin::NewVersion;
using admin::NewVersions;
using admin::OldVersion;
using Fate = NewVersion::Fate;

class AdminNewVersions : public AdminTree {
 protected:
  NewVersion version(const std::string& name, const std::string& bytes = "ours") {
    const std::string source = m_sources.path(name);
    write_file(source, bytes);
    NewVersion made;
    made.source = system_form(source);
    made.logical = name;
    return made;
  }
  admin::DocumentFolder place(const std::string& name, Area area = Area::kUser) const {
    return admin::folder_for(tree(), area, "anna", name);
  }
  std::string path(const std::string& name) const {
    return admin::sys::join(place(name).path, name);
  }
  /// The content that the library serves for a name in the user area; empty if it finds nothing.
  std::string served(const std::string& name) const {
    std::string physical;
    if (!STGIndex::exists(place(name).path, name, 0, physical)) return {};
    return read_file(admin::sys::join(place(name).path, physical));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& each : std::filesystem::directory_iterator(place("x").path))
      all.push_back(each.path().filename().string());
    std::sort(all.begin(), all.end());
    return all;
  }
  static admin::sys::Locking at_once() {
    admin::sys::Locking locking;
    locking.time_out = std::chrono::milliseconds(0);
    return locking;
  }
  scratch_folder m_sources;
};

TEST_F(AdminNewVersions, AreServedByTheLibraryAndLeaveNoOtherFiles) {
  std::vector<NewVersion> all = {version("b.kdc", "1"), version("a.kdc", "22"), version("c", "3")};
  {
    NewVersions work(place("x"), {});
    for (NewVersion& each : all) ASSERT_TRUE(work.stage(each)) << each.reason;
    NewVersions::enter({&work});
  }
  for (const NewVersion& each : all) EXPECT_EQ(each.fate, Fate::kStored) << each.reason;
  EXPECT_EQ(served("a.kdc"), "22");
  EXPECT_EQ(served("b.kdc"), "1");
  EXPECT_EQ(served("c"), "3");
  EXPECT_EQ(names(), (std::vector<std::string>{"00000001.kdc", "00000002.kdc", "00000003", "index",
                                               "index.dat"}));
  EXPECT_EQ(read_file(path("index.dat")),
            "a.kdc_0000000000/00000002\nb.kdc_0000000000/00000001\nc_0000000000/00000003\n");
  EXPECT_EQ(read_file(path("index")), "00000003");
  EXPECT_EQ(codes(), Codes{});
  // The library continues with the next number.
  EXPECT_EQ(STGIndex::create(place("x").path, "d.kdc", 0), "00000004.kdc");
}

TEST_F(AdminNewVersions, LeaveADocumentThatAnotherProgramHasStored) {
  NewVersion mine = version("a.kdc");
  NewVersion other = version("b.kdc");
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(mine));
    ASSERT_TRUE(work.stage(other));
    add(Area::kUser, "anna", "a.kdc", 0, "of the host");
    NewVersions::enter({&work});
  }
  EXPECT_EQ(mine.fate, Fate::kMeanwhile);
  EXPECT_EQ(mine.reason, "another program has stored it");
  EXPECT_EQ(other.fate, Fate::kStored);
  EXPECT_EQ(served("a.kdc"), "of the host");
  EXPECT_EQ(served("b.kdc"), "ours");
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminNewVersions, TakeNoNumberFromAnUnusableCounter) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string counter = path("index");
  std::filesystem::remove(counter);
  std::filesystem::create_directory(counter);
  const auto before = snapshot(system_form(storage()));
  NewVersion one = version("b.kdc");
  NewVersion two = version("c.kdc");
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(one));
    ASSERT_TRUE(work.stage(two));
    NewVersions::enter({&work});
  }
  for (const NewVersion* each : {&one, &two}) {
    EXPECT_EQ(each->fate, Fate::kFailed);
    EXPECT_NE(each->reason.find("the counter"), std::string::npos) << each->reason;
    EXPECT_NE(each->reason.find("a folder is in its place"), std::string::npos);
  }
  EXPECT_EQ(served("a.kdc"), "old");
  EXPECT_EQ(served("b.kdc"), "");
  auto after = snapshot(system_form(storage()));
  after[place("x").path] = before.at(place("x").path);  // its time
  EXPECT_EQ(difference(before, after), "");
}

TEST_F(AdminNewVersions, LeaveAnIndexAloneThatHasLostItsNames) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  write_file(path("index.dat"), "");
  NewVersion one = version("b.kdc");
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(one));
  NewVersions::enter({&work});
  EXPECT_EQ(one.fate, Fate::kFailed);
  EXPECT_NE(one.reason.find("has lost its entries"), std::string::npos) << one.reason;
  EXPECT_EQ(read_file(path("index.dat")), "");
}

TEST_F(AdminNewVersions, UseAnIndexThatAKilledProcessHadJustCreated) {
  std::filesystem::create_directories(place("x").path);
  write_file(path("index.dat"), "");
  NewVersion one = version("b.kdc");
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(one));
  NewVersions::enter({&work});
  EXPECT_EQ(one.fate, Fate::kStored) << one.reason;
  EXPECT_EQ(served("b.kdc"), "ours");
}

TEST_F(AdminNewVersions, AddNothingToAnIndexThatIsDamaged) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string damaged = read_file(path("index.dat")) + "zzz";
  write_file(path("index.dat"), damaged);
  NewVersion one = version("b.kdc");
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(one));
  NewVersions::enter({&work});
  EXPECT_EQ(one.fate, Fate::kFailed);
  EXPECT_NE(one.reason.find("is damaged in line 2"), std::string::npos) << one.reason;
  EXPECT_EQ(read_file(path("index.dat")), damaged);
}

TEST_F(AdminNewVersions, KeepDanglingEntries) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string lines = read_file(path("index.dat"));
  write_file(path("index.dat"), lines + "gone.kdc_0000000000/00000077\n");
  NewVersion one = version("gone.kdc", "anew");
  NewVersion two = version("z.kdc");
  write_file(path("index.dat"),
             lines + "gone.kdc_0000000000/00000077\n" + "lost.kdc_0000000000/00000078\n");
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(one));
    ASSERT_TRUE(work.stage(two));
    NewVersions::enter({&work});
  }
  EXPECT_EQ(read_file(path("index.dat")),
            lines +
                "gone.kdc_0000000000/00000002\nlost.kdc_0000000000/00000078\n"
                "z.kdc_0000000000/00000003\n");
  EXPECT_EQ(served("gone.kdc"), "anew");
}

#if !defined(_WIN32)

TEST_F(AdminNewVersions, KeepAnUnknownEntryBesideOneWithoutItsFileInTheirOrder) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  namespace fs = std::filesystem;
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string lines = read_file(path("index.dat"));
  // A file with only the physical name makes a line valid, but readers do not open it.
  write_file(path("00000007"), "no reader opens it");
  const std::string unknown = "z.kdc_0000000000/elsewhere\\x\n";
  fs::create_directory(path("elsewhere"));
  for (const bool unknown_first : {false, true}) {
    const auto text = [&](const std::string& stored) {
      const std::string entry = "z.kdc_0000000000/" + stored + "\n";
      return lines + (unknown_first ? unknown + entry : entry + unknown);
    };
    write_file(path("index.dat"), text("00000007"));
    NewVersion one = version("z.kdc", "anew");
    for (const fs::path& each :
         {fs::path(place("x").path), fs::path(path("index.dat")), fs::path(path("index")),
          fs::path(system_form(root())), fs::path(one.source).parent_path()})
      fs::permissions(each, fs::perms::all);
    fs::permissions(path("elsewhere"), fs::perms::none);
    ASSERT_EQ(seteuid(65534), 0);
    {
      NewVersions work(place("x"), {});
      if (work.stage(one)) NewVersions::enter({&work});
    }
    const std::string found = served("z.kdc");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(one.fate, Fate::kStored) << one.reason;
    EXPECT_EQ(found, "anew");
    EXPECT_EQ(read_file(path("index.dat")), text(unknown_first ? "00000009" : "00000008"));
  }
}

#endif

TEST_F(AdminNewVersions, GiveUpALockedIndexAfterTheTimeOut) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  NewVersion one = version("b.kdc");
  {
    NewVersions work(place("x"), at_once());
    ASSERT_TRUE(work.stage(one));
    vu_file index(place("x").path, "index.dat");
    index.open(vu_file::o_read);
    NewVersions::enter({&work});
    index.close();
  }
  EXPECT_EQ(one.fate, Fate::kLocked);
  EXPECT_EQ(one.reason, path("index.dat"));
  EXPECT_EQ(served("b.kdc"), "");
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminNewVersions, ReplaceTheFileWithoutChangingTheIndex) {
  const std::string old = add(Area::kUser, "anna", "a.kdc", 0, "the old one");
  const std::string lines = read_file(path("index.dat"));
  NewVersion version = this->version("a.kdc", "new");
  version.replaces = std::filesystem::path(old).filename().string();
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(version)) << version.reason;
    EXPECT_EQ(served("a.kdc"), "the old one");
    NewVersions::enter({&work});
  }
  EXPECT_EQ(version.fate, Fate::kStored) << version.reason;
  EXPECT_EQ(served("a.kdc"), "new");
  EXPECT_EQ(read_file(path("index.dat")), lines);
  EXPECT_EQ(names(), (std::vector<std::string>{"00000001.kdc", "index", "index.dat"}));
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminNewVersions, ReplaceNothingThatAnotherProgramHasChanged) {
  const std::string old = add(Area::kUser, "anna", "a.kdc", 0, "the old one");
  add(Area::kUser, "anna", "b.kdc", 0, "b");
  NewVersion removed = version("a.kdc", "new");
  removed.replaces = std::filesystem::path(old).filename().string();
  NewVersion other = version("b.kdc", "new");
  other.replaces = removed.replaces;
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(removed));
  ASSERT_TRUE(work.stage(other));
  STGIndex::remove(place("x").path, "a.kdc", 0);
  NewVersions::enter({&work});
  EXPECT_EQ(removed.fate, Fate::kMeanwhile);
  EXPECT_EQ(removed.reason, "another program has removed it");
  EXPECT_EQ(other.fate, Fate::kMeanwhile);
  EXPECT_EQ(served("a.kdc"), "");
  EXPECT_EQ(served("b.kdc"), "b");
}

TEST_F(AdminNewVersions, LeaveAnOpenFileToBeWrittenInPlace) {
  const std::string old = add(Area::kUser, "anna", "a.kdc", 0, "the old one");
  NewVersion version = this->version("a.kdc", "new");
  version.replaces = std::filesystem::path(old).filename().string();
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(version));
  vu_file reader(place("x").path, version.replaces);
  reader.open(vu_file::o_read);
  NewVersions::enter({&work});
  EXPECT_EQ(version.fate, Fate::kInPlace);
  reader.close();
  EXPECT_EQ(served("a.kdc"), "the old one");
}

TEST_F(AdminNewVersions, RemoveTheCopiesOfAKilledProcess) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string left = path(std::string(admin::StagingFolder::kName) + "1");
  std::filesystem::create_directory(left);
  write_file(admin::sys::join(left, "lock"), "");
  write_file(admin::sys::join(left, "1"), "half a co");
  NewVersion one = version("b.kdc");
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(one));
    NewVersions::enter({&work});
  }
  EXPECT_EQ(one.fate, Fate::kStored);
  EXPECT_FALSE(std::filesystem::exists(left));
}

TEST_F(AdminNewVersions, RemoveTheFolderOfAProcessKilledBeforeItsLock) {
  add(Area::kUser, "anna", "a.kdc", 0, "old");
  const std::string left = path(std::string(admin::StagingFolder::kName) + "1");
  const std::string foreign = path(std::string(admin::StagingFolder::kName) + "of-mine");
  std::filesystem::create_directory(left);
  std::filesystem::create_directory(foreign);
  write_file(admin::sys::join(foreign, "1"), "no lock stands beside it");
  NewVersion one = version("b.kdc");
  NewVersions work(place("x"), {});
  ASSERT_TRUE(work.stage(one));
  // The stale folder was removed, and the new one has its number and a lock file.
  EXPECT_TRUE(std::filesystem::exists(admin::sys::join(left, "lock")));
  EXPECT_TRUE(std::filesystem::exists(admin::sys::join(foreign, "1")));
}

TEST_F(AdminNewVersions, LeaveTheCopiesOfARunningProcess) {
  NewVersion first = version("a.kdc");
  NewVersion second = version("b.kdc");
  {
    NewVersions work(place("x"), {});
    ASSERT_TRUE(work.stage(first));
    NewVersions beside(place("x"), {});
    ASSERT_TRUE(beside.stage(second));
    NewVersions::enter({&work});
    NewVersions::enter({&beside});
  }
  EXPECT_EQ(served("a.kdc"), "ours");
  EXPECT_EQ(served("b.kdc"), "ours");
  for (const std::string& name : names())
    EXPECT_FALSE(name.starts_with(admin::StagingFolder::kName)) << name;
}

TEST_F(AdminNewVersions, GiveTheSystemsTextForAnUnreadableSource) {
  NewVersion one = version("b.kdc");
  one.source += ".gone";
  NewVersions work(place("x"), {});
  EXPECT_FALSE(work.stage(one));
  EXPECT_EQ(one.fate, Fate::kFailed);
  EXPECT_NE(one.reason.find(one.source), std::string::npos) << one.reason;
}

// ---- removing versions that were moved elsewhere ------------------------------------------------

class AdminOldVersions : public AdminTree {
 protected:
  admin::DocumentFolder place() const {
    return admin::folder_for(tree(), Area::kUser, "anna", "x");
  }
  std::string path(const std::string& name) const { return admin::sys::join(place().path, name); }
  /// Stores a version. @return the version to remove, with its present content.
  OldVersion stored(const std::string& name, const std::string& owner = "anna") const {
    const std::string file = add(Area::kUser, owner, name, 0, "bytes of " + name);
    OldVersion version;
    version.logical = name;
    version.file = std::filesystem::path(file).filename().string();
    const std::string copy = admin::sys::join(tree().storage, owner + ".copy of " + name);
    write_file(copy, "bytes of " + name);
    version.is_same = [copy](admin::LockedFile& locked) { return locked.is_equal_to(copy); };
    return version;
  }
  void remove(const std::vector<OldVersion*>& versions) const {
    admin::sys::Locking at_once;
    at_once.time_out = std::chrono::milliseconds(0);
    admin::remove_old_versions({{place(), versions}}, at_once);
  }
};

TEST_F(AdminOldVersions, AreRemovedTogetherAndLeaveTheOthers) {
  OldVersion a = stored("a.kdc");
  stored("b.kdc");
  OldVersion c = stored("c.kdc");
  remove({&a, &c});
  EXPECT_EQ(a.fate, OldVersion::Fate::kRemoved) << a.reason;
  EXPECT_EQ(c.fate, OldVersion::Fate::kRemoved) << c.reason;
  EXPECT_EQ(read_file(path("index.dat")), "b.kdc_0000000000/00000002\n");
  EXPECT_FALSE(std::filesystem::exists(path("00000001.kdc")));
  EXPECT_FALSE(std::filesystem::exists(path("00000003.kdc")));
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminOldVersions, LeaveABlankInAnIndexWithoutEntries) {
  OldVersion a = stored("a.kdc");
  remove({&a});
  EXPECT_EQ(a.fate, OldVersion::Fate::kRemoved);
  EXPECT_EQ(read_file(path("index.dat")), " ");
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminOldVersions, StayWhenAnotherProgramHasChangedThem) {
  OldVersion longer = stored("a.kdc");
  OldVersion gone = stored("b.kdc");
  write_file(path(longer.file), "written meanwhile");
  STGIndex::remove(place().path, "b.kdc", 0);
  remove({&longer, &gone});
  EXPECT_EQ(longer.fate, OldVersion::Fate::kMeanwhile);
  EXPECT_NE(longer.reason.find("another program has changed it"), std::string::npos)
      << longer.reason;
  EXPECT_EQ(gone.fate, OldVersion::Fate::kMeanwhile);
  EXPECT_EQ(read_file(path(longer.file)), "written meanwhile");
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, StayWhenRewrittenWithTheSameSizeAndTime) {
  OldVersion a = stored("a.kdc");
  const std::int64_t time = get_modify_time(path(a.file));
  write_file(path(a.file), "BYTES of a.kdc");
  set_modify_time(path(a.file), time);
  remove({&a});
  EXPECT_EQ(a.fate, OldVersion::Fate::kMeanwhile);
  EXPECT_EQ(read_file(path(a.file)), "BYTES of a.kdc");
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, StayWhileTheyAreOpen) {
  OldVersion a = stored("a.kdc");
  vu_file reader(place().path, a.file);
  reader.open(vu_file::o_read);
  remove({&a});
  EXPECT_EQ(a.fate, OldVersion::Fate::kInUse);
  EXPECT_NE(a.reason.find("another process has locked it"), std::string::npos) << a.reason;
  reader.close();
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, KeepAFileThatAnotherEntryNames) {
  OldVersion a = stored("a.kdc");
  write_file(path("index.dat"), "a.kdc_0000000000/00000001\nb.kdc_0000000000/00000001\n");
  remove({&a});
  EXPECT_EQ(a.fate, OldVersion::Fate::kRemoved);
  EXPECT_EQ(read_file(path("index.dat")), "b.kdc_0000000000/00000001\n");
  EXPECT_EQ(read_file(path(a.file)), "bytes of a.kdc");
}

TEST_F(AdminOldVersions, LeaveWhatTheLibraryLeavesOfAKeyWithTwoLines) {
  struct Case {
    std::vector<const char*> before;  ///< physical names of the lines
    const char* removed;              ///< that of the entry
    std::string after;
  };
  const std::string key = "a.kdc_0000000000/";
  const std::array<Case, 5> cases = {{
      {{"00000001", "00000002"}, "00000001", key + "00000002\n"},
      {{"00000001", "00000001"}, "00000001", " "},
      {{"00000001", "00000077"}, "00000001", " "},
      {{"00000077", "00000002", "00000001"}, "00000002", key + "00000001\n"},
      {{"00000002", "00000002", "00000001"}, "00000002", key + "00000001\n"},
  }};
  for (const Case& each : cases) {
    std::string text;
    for (const char* const stored : each.before) text += key + stored + "\n";
    SCOPED_TRACE(text);
    const auto fill = [&](const std::string& folder) {
      std::filesystem::remove_all(folder);
      std::filesystem::create_directories(folder);
      for (const char* const file : {"00000001.kdc", "00000002.kdc"})
        write_file(admin::sys::join(folder, file), file);
      write_file(admin::sys::join(folder, "index.dat"), text);
    };
    const auto seen = [](const std::string& folder) {
      std::string all = read_file(admin::sys::join(folder, "index.dat"));
      for (const char* const file : {"00000001.kdc", "00000002.kdc"})
        if (file_exists(admin::sys::join(folder, file))) all += file;
      return all;
    };
    fill(place().path);
    OldVersion version;
    version.logical = "a.kdc";
    version.file = std::string(each.removed) + ".kdc";
    version.is_same = [](admin::LockedFile&) { return true; };
    remove({&version});
    EXPECT_EQ(version.fate, OldVersion::Fate::kRemoved) << version.reason;
    EXPECT_EQ(read_file(path("index.dat")), each.after);
    EXPECT_FALSE(file_exists(path(version.file)));

    const std::string beside = folder(Area::kUser, "bert", "x");
    fill(beside);
    STGIndex::remove(beside, "a.kdc", 0);
    EXPECT_EQ(seen(place().path), seen(beside));
  }
}

TEST_F(AdminOldVersions, WaitNoLongerThanTheTimeOut) {
  OldVersion a = stored("a.kdc");
  vu_file index(place().path, "index.dat");
  index.open(vu_file::o_read);
  remove({&a});
  index.close();
  EXPECT_EQ(a.fate, OldVersion::Fate::kLocked);
  EXPECT_EQ(a.reason, path("index.dat"));
  EXPECT_TRUE(std::filesystem::exists(path(a.file)));
}

TEST_F(AdminOldVersions, AreRemovedFromManyFoldersAndRequestNoLockAfterARefusedOne) {
  std::vector<OldVersion> gone;
  std::vector<admin::OldVersions> folders;
  const std::array owners = {"a", "b", "c", "d", "e", "f", "locked", "z"};
  for (const char* const owner : owners) gone.push_back(stored("x.kdc", owner));
  for (std::size_t i = 0; i < gone.size(); ++i)
    folders.push_back({admin::folder_for(tree(), Area::kUser, owners[i], "x"), {&gone[i]}});
  const std::string locked = folders[6].folder.path;
  vu_file index(locked, "index.dat");
  index.open(vu_file::o_read);
  admin::sys::Locking at_once;
  at_once.time_out = std::chrono::milliseconds(0);
  admin::remove_old_versions(folders, at_once);
  index.close();
  for (std::size_t i = 0; i < gone.size(); ++i) {
    const bool is_removed = i < 6;
    EXPECT_EQ(gone[i].fate, is_removed ? OldVersion::Fate::kRemoved
                            : i == 6   ? OldVersion::Fate::kLocked
                                       : OldVersion::Fate::kPending);
    const std::string lines = read_file(admin::sys::join(folders[i].folder.path, "index.dat"));
    EXPECT_EQ(lines, is_removed ? " " : "x.kdc_0000000000/00000001\n");
  }
}
