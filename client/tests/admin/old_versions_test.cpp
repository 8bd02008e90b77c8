// Removing versions that are stored elsewhere by now, beside others who use them.
#include "client/admin/old_versions.h"

#include <array>

#include "client/tests/admin/tree_fixture.h"
#include "stg_index.h"
#include "vu_file.h"

using admin::Area;
using admin::OldVersion;
using Fate = OldVersion::Fate;

class AdminOldVersions : public AdminTree {
 protected:
  admin::DocumentFolder place() const {
    return admin::folder_for(tree(), Area::kUser, "anna", "x");
  }
  std::string path(const std::string& name) const { return admin::sys::join(place().path, name); }
  /// Stores a version. @return it as it is looked at.
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

TEST_F(AdminOldVersions, GoTogetherAndLeaveTheOthers) {
  OldVersion a = stored("a.kdc");
  stored("b.kdc");
  OldVersion c = stored("c.kdc");
  remove({&a, &c});
  EXPECT_EQ(a.fate, Fate::kRemoved) << a.reason;
  EXPECT_EQ(c.fate, Fate::kRemoved) << c.reason;
  EXPECT_EQ(read_file(path("index.dat")), "b.kdc_0000000000/00000002\n");
  EXPECT_FALSE(std::filesystem::exists(path("00000001.kdc")));
  EXPECT_FALSE(std::filesystem::exists(path("00000003.kdc")));
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminOldVersions, LeaveABlankWhereNothingIsLeft) {
  OldVersion a = stored("a.kdc");
  remove({&a});
  EXPECT_EQ(a.fate, Fate::kRemoved);
  EXPECT_EQ(read_file(path("index.dat")), " ");
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminOldVersions, StayWhenSomebodyHasChangedThemMeanwhile) {
  OldVersion longer = stored("a.kdc");
  OldVersion gone = stored("b.kdc");
  write_file(path(longer.file), "written meanwhile");
  STGIndex::remove(place().path, "b.kdc", 0);
  remove({&longer, &gone});
  EXPECT_EQ(longer.fate, Fate::kMeanwhile);
  EXPECT_NE(longer.reason.find("changed it meanwhile"), std::string::npos) << longer.reason;
  EXPECT_EQ(gone.fate, Fate::kMeanwhile);
  EXPECT_EQ(read_file(path(longer.file)), "written meanwhile");
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, StayWhenTheyWereWrittenAnewWithTheSizeAndTimeThatTheyHad) {
  OldVersion a = stored("a.kdc");
  const std::int64_t time = get_modify_time(path(a.file));
  write_file(path(a.file), "BYTES of a.kdc");
  set_modify_time(path(a.file), time);
  remove({&a});
  EXPECT_EQ(a.fate, Fate::kMeanwhile);
  EXPECT_EQ(read_file(path(a.file)), "BYTES of a.kdc");
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, StayWhileSomebodyHasThemOpen) {
  OldVersion a = stored("a.kdc");
  vu_file reader(place().path, a.file);
  reader.open(vu_file::o_read);
  remove({&a});
  EXPECT_EQ(a.fate, Fate::kInUse);
  EXPECT_NE(a.reason.find("it is locked elsewhere"), std::string::npos) << a.reason;
  reader.close();
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000000/00000001\n");
}

TEST_F(AdminOldVersions, KeepTheFileThatAnotherEntryHasAsWell) {
  OldVersion a = stored("a.kdc");
  write_file(path("index.dat"), "a.kdc_0000000000/00000001\nb.kdc_0000000000/00000001\n");
  remove({&a});
  EXPECT_EQ(a.fate, Fate::kRemoved);
  EXPECT_EQ(read_file(path("index.dat")), "b.kdc_0000000000/00000001\n");
  EXPECT_EQ(read_file(path(a.file)), "bytes of a.kdc");
}

TEST_F(AdminOldVersions, WaitForNobodyLongerThanTheySay) {
  OldVersion a = stored("a.kdc");
  vu_file index(place().path, "index.dat");
  index.open(vu_file::o_read);
  remove({&a});
  index.close();
  EXPECT_EQ(a.fate, Fate::kLocked);
  EXPECT_EQ(a.reason, path("index.dat"));
  EXPECT_TRUE(std::filesystem::exists(path(a.file)));
}

TEST_F(AdminOldVersions, GoFromManyFoldersTogetherAndAskForNoLockAfterOneThatWasRefused) {
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
    EXPECT_EQ(gone[i].fate, is_removed ? Fate::kRemoved : i == 6 ? Fate::kLocked : Fate::kPending);
    const std::string lines = read_file(admin::sys::join(folders[i].folder.path, "index.dat"));
    EXPECT_EQ(lines, is_removed ? " " : "x.kdc_0000000000/00000001\n");
  }
}
