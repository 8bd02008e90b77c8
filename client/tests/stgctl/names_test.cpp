// index snapshot, log, diff and restore.
#include <algorithm>
#include <filesystem>

#include "client/tests/stgctl/fixture.h"
#include "vu_file.h"

class ClientNames : public Client {
 protected:
  ClientNames() {
    init();
    put("Sales report.kdf", "sales", 42);
    put("LOUD.KDC", "loud");
    put("other.kdc", "other");
  }
  std::string names() const { return root() + "\\storage.names"; }

  /// The index in the folder of a document.
  std::string index_of(const std::string& name) const {
    const std::string file = physical("docs", name);
    return file.substr(0, file.find_last_of("/\\")) + "/index.dat";
  }

  /// Empties every index, and adopts all files.
  void lose_all_names() {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(native(storage()))) {
      if (entry.path().filename() == "index.dat") write_file(entry.path().string(), "");
    }
    ASSERT_EQ(on_tree({"sync", "--yes"}).code, 0);
  }
};

TEST_F(ClientNames, AreSavedOutsideOfTheTreeWithoutTouchingIt) {
  const std::string before = tree();
  const std::vector<Json> lines = json({"index", "snapshot"});
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].at("schema"), "stgctl.index-snapshot/1");
  EXPECT_EQ(lines[0].at("number"), 1);
  EXPECT_EQ(lines[0].at("entries"), 3);
  EXPECT_EQ(lines[0].at("added"), lines[0].at("folders"));
  EXPECT_EQ(lines[0].at("written").get<std::size_t>() + 16, read_file(names()).size());
  EXPECT_EQ(tree(), before);
  const outcome told = on_tree({"index", "snapshot"});
  EXPECT_EQ(told.code, 0) << told.err;
  EXPECT_NE(told.out.find("snapshot 2: 3 entries"), std::string::npos) << told.out;
  EXPECT_NE(told.out.find("0 changed, 0 new, 0 removed"), std::string::npos) << told.out;
}

TEST_F(ClientNames, AreNotSavedInADryRun) {
  const std::string before = snapshot(root());
  const std::vector<Json> lines = json({"index", "snapshot", "--dry-run"});
  EXPECT_EQ(lines[0].at("dry_run"), true);
  EXPECT_EQ(lines[0].at("entries"), 3);
  EXPECT_EQ(snapshot(root()), before);
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string saved = snapshot(root());
  EXPECT_EQ(json({"index", "snapshot", "-n"})[0].at("number"), 2);
  EXPECT_EQ(snapshot(root()), saved);
}

TEST_F(ClientNames, AreListedSnapshotBySnapshot) {
  EXPECT_EQ(on_tree({"index", "log"}).code, 3);
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  put("more.kdc", "more");
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::vector<Json> lines = json({"index", "log"});
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].at("entries"), 3);
  EXPECT_EQ(lines[1].at("entries"), 4);
  EXPECT_EQ(lines[2].at("record"), "summary");
  EXPECT_EQ(lines[2].at("torn_bytes"), 0);
  const std::string folder = std::filesystem::path(index_of("more.kdc")).parent_path().string();
  const std::vector<Json> changes = json({"index", "log", "--folder", folder});
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].at("number"), 2);
  EXPECT_EQ(changes[0].at("entries"), 1);
  EXPECT_EQ(on_tree({"index", "log", "--owner", "nobody"}).code, 3);
  // Only Windows finds a folder in another letter case.
  const std::string bucket = folder.substr(folder.find_last_of("/\\") + 1);
#if defined(_WIN32)
  EXPECT_EQ(json({"index", "log", "--folder", "DOCS/Anna/" + bucket}).size(), 2U);
  EXPECT_EQ(json({"index", "log", "--owner", "Anna"}).size(),
            json({"index", "log", "--owner", "anna"}).size());
#else
  EXPECT_EQ(on_tree({"index", "log", "--folder", "DOCS/Anna/" + bucket}).code, 3);
  EXPECT_EQ(on_tree({"index", "log", "--owner", "Anna"}).code, 3);
#endif
  const outcome told = on_tree({"index", "log"});
  EXPECT_NE(told.out.find("2 snapshots"), std::string::npos) << told.out;
  // Saved names outlive their tree.
  std::filesystem::remove_all(native(storage()));
  EXPECT_EQ(json({"index", "log"}).size(), 3U);
}

TEST_F(ClientNames, AreComparedWithEachOtherAndWithTheTree) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  put("more.kdc", "more");
  ASSERT_EQ(change({"rm", "other.kdc"}).code, 0);
  const std::string before = snapshot(root());
  std::vector<Json> lines = json({"index", "diff", "1"});
  EXPECT_EQ(lines.back().at("added"), 1);
  EXPECT_EQ(lines.back().at("removed"), 1);
  EXPECT_EQ(lines.back().at("moved"), 0);
  std::vector<std::string> told;
  for (const Json& line : lines) {
    if (line.at("record") == "name")
      told.push_back(line.at("change").get<std::string>() + " " +
                     line.at("name").get<std::string>());
  }
  std::sort(told.begin(), told.end());
  EXPECT_EQ(told, (std::vector<std::string>{"added more.kdc", "removed other.kdc"}));
  EXPECT_EQ(snapshot(root()), before);
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  lines = json({"index", "diff", "latest", "1"});
  EXPECT_EQ(lines.back().at("before").at("number"), 2);
  EXPECT_EQ(lines.back().at("added"), 1);
  EXPECT_EQ(json({"index", "diff", "2", "now"}).size(), 1U);
  EXPECT_EQ(json({"index", "diff", "1", "2", "--owner", "bert"}).size(), 1U);
  const outcome text = on_tree({"index", "diff", "1", "2"});
  EXPECT_NE(text.out.find("+ docs/anna/more.kdc@0"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("- docs/anna/other.kdc@0"), std::string::npos) << text.out;
  EXPECT_EQ(on_tree({"index", "diff", "now", "now"}).code, 2);
  EXPECT_EQ(on_tree({"index", "diff", "yesterday"}).code, 2);
  EXPECT_EQ(on_tree({"index", "diff", "9"}).code, 3);
  EXPECT_EQ(on_tree({"index", "diff", "2001-01-01"}).code, 3);
}

TEST_F(ClientNames, ComeBackAfterAllIndexesWereEmptiedAndTheFilesAdopted) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string before = tree();
  lose_all_names();
  ASSERT_EQ(get("Sales report.kdf").find("sales"), std::string::npos);
  const std::string lost = tree();
  const std::vector<Json> promised = json({"index", "restore", "--dry-run"});
  EXPECT_EQ(tree(), lost);
  const outcome unasked = on_tree({"index", "restore"});
  EXPECT_EQ(unasked.code, 12) << unasked.err;
  EXPECT_EQ(tree(), lost);
  const std::vector<Json> done = json({"index", "restore", "--yes"});
  EXPECT_EQ(actions(done), actions(promised));
  // The removed entries of the three adopted files are not restored names.
  EXPECT_EQ(done.back().at("done"), 3);
  EXPECT_EQ(done.back().at("dropped"), 3);
  EXPECT_EQ(get("Sales report.kdf"), "sales");
  EXPECT_EQ(get("LOUD.KDC"), "loud");
  EXPECT_EQ(get("other.kdc"), "other");
  const outcome again = on_tree({"index", "restore", "--yes"});
  EXPECT_EQ(again.code, 3) << again.err;
  const auto without_indexes = [](const std::string& text) {
    std::string rest;
    for (const std::string& line : lines_of(text)) {
      // Folders have new times, because files in them were renamed.
      if (line.find("/index.dat kind") == std::string::npos &&
          line.find(" size ") != std::string::npos)
        rest += line + "\n";
    }
    return rest;
  };
  EXPECT_EQ(without_indexes(tree()), without_indexes(before));
  EXPECT_EQ(json({"index", "diff", "1"}).size(), 1U);
}

TEST_F(ClientNames, ComeBackFromAnEarlierSnapshotAndWhereTold) {
  put("bert's.kdc", "b");
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  lose_all_names();
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  EXPECT_EQ(on_tree({"index", "restore", "--yes"}).code, 3);
  EXPECT_EQ(on_tree({"index", "restore", "--at", "1", "--owner", "bert", "--yes"}).code, 3);
  const std::vector<Json> all = json({"index", "restore", "--at", "1", "--dry-run"});
  std::string folder;
  for (const Json& line : all) {
    if (line.value("name", "") == "other.kdc") folder = line.at("folder").get<std::string>();
  }
  const std::vector<Json> done =
      json({"index", "restore", "--at", "1", "--folder", folder, "--yes"});
  EXPECT_EQ(get("other.kdc"), "other");
  EXPECT_NE(get("Sales report.kdf"), "sales");
  EXPECT_EQ(done.back().at("snapshot"), 1);
  EXPECT_EQ(on_tree({"index", "restore", "--at", "1", "--folder", "docs/anna", "--yes"}).code, 3);
  EXPECT_EQ(on_tree({"index", "restore", "--at", "now", "--yes"}).code, 2);
}

TEST_F(ClientNames, ComeBackOnlyWhereTheIndexIsFree) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string index = index_of("other.kdc");
  write_file(index, " ");
  vu_file reader(std::filesystem::path(index).parent_path().string(), "index.dat");
  reader.open(vu_file::o_read);
  const outcome result = on_tree({"index", "restore", "--yes", "--lock-timeout", "0.2"});
  EXPECT_EQ(result.code, 11) << result.err;
  reader.close();
  EXPECT_EQ(read_file(index), " ");
  EXPECT_EQ(on_tree({"index", "restore", "--yes"}).code, 0);
  EXPECT_EQ(get("other.kdc"), "other");
}

TEST_F(ClientNames, OfALockedIndexStandAsTheyWere) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string index = index_of("other.kdc");
  vu_file writer(std::filesystem::path(index).parent_path().string(), "index.dat");
  writer.open(vu_file::o_append);
  EXPECT_EQ(json({"index", "snapshot", "--lock-timeout", "0.1"}, 11)[0].at("unread"), 1);
  writer.close();
  EXPECT_EQ(json({"index", "log"})[1].at("entries"), 3);
  EXPECT_EQ(json({"index", "diff", "1", "2"}).size(), 1U);
}

TEST_F(ClientNames, HaveAFileThatIsRefusedWhereItDoesNotBelong) {
  const std::string inside = shell_path(storage() + "\\docs\\names");
  EXPECT_EQ(on_tree({"index", "snapshot", "--names", inside}).code, 12);
  EXPECT_FALSE(file_exists(storage() + "\\docs\\names"));
  const std::string other = shell_path(scratch().path("in\\other"));
  write_file(other, "something else");
  EXPECT_EQ(on_tree({"index", "snapshot", "--names", other}).code, 12);
  EXPECT_EQ(on_tree({"index", "log", "--names", other}).code, 12);
  EXPECT_EQ(read_file(other), "something else");
  EXPECT_EQ(on_tree({"index", "snapshot", "--owner", "anna"}).code, 2);
  const std::string chosen = shell_path(scratch().path("in\\names"));
  EXPECT_EQ(on_tree({"index", "snapshot", "--names", chosen}).code, 0);
  EXPECT_EQ(json({"index", "log", "--names", chosen}).size(), 2U);
  EXPECT_FALSE(file_exists(names()));
  // The names of another tree are not appended to these.
  const std::string elsewhere = scratch().path("elsewhere");
  make_folder(elsewhere);
  ASSERT_EQ(run({"init", "--yes", "--root", shell_path(elsewhere)}).code, 0);
  EXPECT_EQ(run({"index", "snapshot", "--names", chosen, "--root", shell_path(elsewhere)}).code,
            12);
  EXPECT_EQ(run({"index", "snapshot", "--root", shell_path(scratch().path("none"))}).code, 10);
}

TEST_F(ClientNames, StandWhenTheFileEndsInTheMiddleOfASnapshot) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  write_file(names(), read_file(names()) + "torn");
  EXPECT_EQ(json({"index", "log"}).back().at("torn_bytes"), 4);
  const outcome next = on_tree({"index", "snapshot"});
  EXPECT_EQ(next.code, 0);
  EXPECT_NE(next.err.find("4 bytes"), std::string::npos) << next.err;
  EXPECT_EQ(json({"index", "log"}).back().at("torn_bytes"), 0);
  EXPECT_EQ(json({"index", "log"}).size(), 3U);
}
