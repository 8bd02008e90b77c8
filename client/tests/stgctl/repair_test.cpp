// repair, undo and the quarantine.
#include "client/tests/stgctl/repair_fixture.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/support/interrupted_save.h"
#include "vu_file.h"

/// A plan that is changed, as by a user who edits it.
using Plan = nlohmann::json;

class ClientRepair : public HarmedTree {};

TEST_F(ClientRepair, IsPlannedInAFileWithoutTouchingTheTree) {
  harm();
  const std::string before = tree();
  const std::vector<Json> promised = json({"repair", "--plan", plan(), "--dry-run"});
  EXPECT_FALSE(file_exists(plan()));
  const std::vector<Json> lines = json({"repair", "--plan", plan()});
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(lines.size(), promised.size());
  EXPECT_EQ(lines.front().at("schema"), "stgctl.repair/1");
  EXPECT_EQ(lines.back().at("done"), lines.size() - 1);
  const Json written = Json::parse(read_file(plan()));
  EXPECT_EQ(written.at("schema"), "stgctl.repair-plan/1");
  std::vector<std::string> kinds;
  for (const Json& repair : written.at("repairs")) {
    kinds.push_back(repair.at("repair").get<std::string>() + " " +
                    repair.at("code").get<std::string>());
  }
  std::sort(kinds.begin(), kinds.end());
  EXPECT_EQ(kinds, (std::vector<std::string>{
                       "quarantine file-without-line", "quarantine parts-without-document",
                       "remove-key-lines dangling-key-line", "remove-lines line-without-file",
                       "set-counter counter-behind"}));
  const outcome unasked = on_tree({"repair", "--plan", plan()});
  EXPECT_EQ(unasked.code, 12) << unasked.err;
  const outcome told = on_tree({"repair", "--plan", plan(), "--yes"});
  EXPECT_EQ(told.code, 0) << told.err;
  EXPECT_NE(told.out.find("planned  docs/anna"), std::string::npos) << told.out;
}

TEST_F(ClientRepair, WorksOnTheTextOfAnInterruptedSave) {
  const std::string harmed = m_healthy + "gone.kdc_0000000000/00000077\n";
  write_file(m_folder + "/index.dat", interrupted_save(m_healthy, harmed));
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_folder + "/index.dat"), m_healthy);
  // The quarantine keeps the text, not the bytes: these would look like an interrupted save.
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_folder + "/index.dat"), harmed);
  // An undo that was killed after its first flush must only complete the save.
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  write_file(m_folder + "/index.dat", interrupted_save(m_healthy, harmed));
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_folder + "/index.dat"), harmed);
}

TEST_F(ClientRepair, LeavesThePartsOfADocumentThatAFolderReplaced) {
  const std::string parts = m_folder + "/00000099.kdc_1";
  make_folder(parts);
  write_file(parts + "/part", "a part");
  const std::vector<std::string> asked = {"repair", "--plan", plan(), "--only",
                                          "parts-without-document"};
  EXPECT_EQ(json(asked).back().at("done"), 1);
  // Now an entry names its document, and a folder is in the place of the document.
  write_file(m_folder + "/index.dat", m_healthy + "z.kdc_0000000000/00000099\n");
  make_folder(m_folder + "/00000099.kdc");
  EXPECT_EQ(json({"repair", "--apply", plan(), "--yes"}).back().at("skipped"), 1);
  EXPECT_EQ(read_file(parts + "/part"), "a part");
  std::filesystem::remove(shell_path(plan()));
  EXPECT_EQ(on_tree(asked).code, 3);
  EXPECT_FALSE(file_exists(plan()));
}

TEST_F(ClientRepair, DoesWhatThePlanSaysAndUndoPutsItAllBack) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::string before = tree();
  const std::vector<Json> promised = json({"repair", "--apply", plan(), "--dry-run"});
  EXPECT_EQ(tree(), before);
  EXPECT_FALSE(folder_exists(quarantine()));
  EXPECT_EQ(on_tree({"repair", "--apply", plan()}).code, 12);
  EXPECT_EQ(tree(), before);
  const std::vector<Json> done = json({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(actions(done), actions(promised));
  EXPECT_EQ(done.back().at("done"), 5);
  EXPECT_EQ(done.back().at("number"), 1);
  EXPECT_EQ(read_file(m_folder + "/index.dat"), m_healthy);
  EXPECT_EQ(read_file(m_folder + "/index"), "00000001");
  EXPECT_EQ(read_file(m_keys), "known.txt=y\r\n");
  EXPECT_FALSE(file_exists(m_folder + "/stray.tmp"));
  EXPECT_FALSE(folder_exists(m_folder + "/00000099.kdc_"));
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
  EXPECT_EQ(get("a.kdc"), "bytes of a");
  // Repeated, it does nothing.
  const std::string repaired = tree();
  EXPECT_EQ(json({"repair", "--apply", plan(), "--yes"}).back().at("skipped"), 5);
  EXPECT_EQ(tree(), repaired);
  EXPECT_EQ(json({"quarantine", "list"}).size(), 1U);
  EXPECT_EQ(json({"quarantine", "list"})[0].at("state"), "applied");

  EXPECT_EQ(on_tree({"undo"}).code, 12);
  const std::vector<Json> preview = json({"undo", "--dry-run"});
  EXPECT_EQ(tree(), repaired);
  const std::vector<Json> undone = json({"undo", "--yes"});
  EXPECT_EQ(actions(undone), actions(preview));
  EXPECT_EQ(undone.back().at("done"), 5);
  EXPECT_EQ(files(), harmed);
  EXPECT_EQ(on_tree({"undo", "--yes"}).code, 3);
  EXPECT_EQ(json({"quarantine", "list"})[0].at("state"), "undone");
}

TEST_F(ClientRepair, DoesOnlyWhatIsLeftOfThePlanAndOfTheCodes) {
  harm();
  const std::vector<Json> one =
      json({"repair", "--plan", plan(), "--only", "file-without-line", "--only", "duplicate-key"});
  EXPECT_EQ(one.back().at("done"), 2);
  EXPECT_GT(one.back().at("left"), 3);
  Plan edited = Plan::parse(read_file(plan()));
  for (std::size_t i = 0; i < edited["repairs"].size(); ++i) {
    if (edited["repairs"][i]["repair"] == "remove-lines") edited["repairs"].erase(i);
  }
  write_file(plan(), edited.dump());
  const outcome result = on_tree({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("1 repaired"), std::string::npos) << result.out;
  EXPECT_FALSE(file_exists(m_folder + "/stray.tmp"));
  EXPECT_NE(read_file(m_folder + "/index.dat"), m_healthy);
}

TEST_F(ClientRepair, LeavesAloneWhatHasChangedSinceThePlanWasMade) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  write_file(m_folder + "/stray.tmp", "somebody went on writing");
  write_file(m_folder + "/00000099.kdc", "a document after all");
  write_file(m_folder + "/00000077.kdc", "its file is back");
  write_file(m_folder + "/index", "00000200");
  write_file(storage() + "\\user\\anna\\lost", "now a document");
  const std::vector<Json> done = json({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(done.back().at("skipped"), 3);
  EXPECT_EQ(done.back().at("done"), 2);
  EXPECT_EQ(read_file(m_folder + "/stray.tmp"), "somebody went on writing");
  EXPECT_TRUE(folder_exists(m_folder + "/00000099.kdc_"));
  EXPECT_EQ(read_file(m_folder + "/index"), "00000200");
  EXPECT_EQ(read_file(m_keys), "known.txt=y\r\nlost=z\t");
  EXPECT_EQ(read_file(m_folder + "/index.dat"), m_healthy + "gone.kdc_0000000000/00000077\n");
}

TEST_F(ClientRepair, SaysWhatIsInThePlaceOfAnIndex) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "line-without-file"}).code, 0);
  std::filesystem::rename(m_folder + "/index.dat", m_folder + "/moved");
  std::filesystem::create_directory(m_folder + "/index.dat");
  const outcome result = on_tree({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("index.dat: a folder is in its place"), std::string::npos)
      << result.err;
}

TEST_F(ClientRepair, RemovesNoKeyLineWithoutTheNamesOfTheIndex) {
  harm();
  const std::string keys = read_file(m_keys);
  const std::string index = storage() + "\\user\\anna\\index.dat";
  const std::string names = read_file(index);
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "dangling-key-line"}).code, 0);
  write_file(index, "");
  const outcome empty = on_tree({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(empty.code, 1) << empty.out;
  EXPECT_NE(empty.err.find("index.dat has no entries"), std::string::npos) << empty.err;
  std::filesystem::remove(shell_path(index));
  const outcome missing = on_tree({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(missing.code, 1) << missing.out;
  EXPECT_NE(missing.err.find("index.dat is missing"), std::string::npos) << missing.err;
  EXPECT_EQ(read_file(m_keys), keys);
  // Once the names are back, the same plan can be applied.
  write_file(index, names);
  EXPECT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_keys), "known.txt=y\r\n");
}

TEST_F(ClientRepair, ReadsTheNamesForKeyLinesUnderTheLockOfTheIndex) {
  harm();
  const std::string keys = read_file(m_keys);
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "dangling-key-line"}).code, 0);
  vu_file writer(storage() + "\\user\\anna", "index.dat");
  writer.open(vu_file::o_append);
  const outcome locked = on_tree({"repair", "--apply", plan(), "--yes", "--lock-timeout", "0.2"});
  EXPECT_EQ(locked.code, 11) << locked.err;
  EXPECT_NE(locked.err.find("index.dat is locked by"), std::string::npos) << locked.err;
  EXPECT_EQ(read_file(m_keys), keys);
  writer.close();
  EXPECT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
}

#if !defined(_WIN32)

TEST_F(ClientRepair, RemovesNoKeyLineWhenTheIndexCannotBeRead) {
  harm();
  const std::string before = read_file(m_keys);
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "dangling-key-line"}).code, 0);
  // One line names a document now.
  ASSERT_EQ(change({"put", source("gone.kdf", "stored since"), "--area", "user"}).code, 0);
  open_to_all();
  std::filesystem::permissions(native(storage() + "\\user\\anna\\index.dat"),
                               std::filesystem::perms::none);
  const outcome result = change_as_nobody({"repair", "--apply", plan()});
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_NE(result.err.find("index.dat cannot be read: Permission denied"), std::string::npos)
      << result.err;
  EXPECT_EQ(read_file(m_keys), before);
}

#endif

TEST_F(ClientRepair, IsUndoneBesideWhatWasWrittenSince) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  put("a.kdc", "newer bytes of a");
  const std::string entry = "zz.kdc_0000000000/00000050\n";
  write_file(m_folder + "/00000050.kdc", "written since");
  write_file(m_folder + "/index.dat", read_file(m_folder + "/index.dat") + entry);
  write_file(m_keys, read_file(m_keys) + "new=line\n");
  write_file(m_folder + "/stray.tmp", "another one of this name");
  const std::vector<Json> undone = json({"undo", "--yes"}, 5);
  EXPECT_EQ(undone.back().at("failed"), 1);
  const std::string index = read_file(m_folder + "/index.dat");
  EXPECT_NE(index.find(entry), std::string::npos);
  EXPECT_NE(index.find("gone.kdc_0000000000/00000077\n"), std::string::npos);
  EXPECT_EQ(read_file(m_keys), "known.txt=y\r\nnew=line\ngone.kdf=x\nlost=z\n");
  EXPECT_EQ(read_file(m_folder + "/stray.tmp"), "another one of this name");
  EXPECT_EQ(get("a.kdc"), "newer bytes of a");
  // Once the place is free, the rest returns.
  std::filesystem::remove(native(m_folder + "/stray.tmp"));
  EXPECT_EQ(on_tree({"undo", "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_folder + "/stray.tmp"), "a stray file");
}

TEST_F(ClientRepair, IsUndoneOnlyUntilTheQuarantineExpires) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes", "--keep", "0s"}).code, 0);
  const std::string repaired = tree();
  const outcome late = on_tree({"undo", "--yes"});
  EXPECT_EQ(late.code, 12);
  EXPECT_NE(late.err.find("expired"), std::string::npos) << late.err;
  EXPECT_EQ(on_tree({"quarantine", "expire"}).code, 12);
  EXPECT_EQ(json({"quarantine", "expire", "--dry-run"}).back().at("done"), 1);
  EXPECT_TRUE(folder_exists(quarantine() + "\\plan-0001"));
  EXPECT_EQ(on_tree({"quarantine", "expire", "--yes"}).code, 0);
  EXPECT_FALSE(folder_exists(quarantine() + "\\plan-0001"));
  EXPECT_EQ(on_tree({"quarantine", "expire", "--yes"}).code, 3);
  EXPECT_EQ(on_tree({"quarantine", "list"}).code, 3);
  EXPECT_EQ(tree(), repaired);
}

TEST_F(ClientRepair, RemovesWhatHasExpiredOnlyWhenItIsAskedTo) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "file-without-line"}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes", "--keep", "0s"}).code, 0);
  const outcome planned = on_tree({"repair", "--plan", plan(), "--yes"});
  EXPECT_NE(planned.out.find("1 older plans have expired"), std::string::npos) << planned.out;
  const outcome applied = on_tree({"repair", "--apply", plan(), "--yes", "--keep", "0s"});
  EXPECT_EQ(applied.code, 0) << applied.err;
  EXPECT_NE(applied.out.find("older plans have expired"), std::string::npos) << applied.out;
  EXPECT_TRUE(folder_exists(quarantine() + "\\plan-0001"));
  write_file(m_folder + "/stray.tmp", "another stray file");
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 0);
  const outcome asked = on_tree({"repair", "--apply", plan(), "--expire"});
  EXPECT_EQ(asked.code, 12);
  EXPECT_NE(asked.err.find("is deleted"), std::string::npos) << asked.err;
  const std::vector<Json> told = json({"repair", "--apply", plan(), "--yes", "--expire"});
  EXPECT_EQ(told.back().at("expired"), 2);
  EXPECT_FALSE(folder_exists(quarantine() + "\\plan-0001"));
  EXPECT_TRUE(folder_exists(quarantine() + "\\plan-0003"));
}

TEST_F(ClientRepair, TakesNoPlanThatLeadsOutOfTheTree) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const Plan good = Plan::parse(read_file(plan()));
  const std::string before = snapshot(root());
  const auto refused = [&](const Plan& bad) {
    write_file(plan(), bad.is_string() ? bad.get<std::string>() : bad.dump());
    const outcome result = on_tree({"repair", "--apply", plan(), "--yes"});
    EXPECT_EQ(result.code, 12) << bad.dump() << result.err;
    EXPECT_EQ(lines_of(result.err).size(), 1U) << result.err;
  };
  for (const char* const path : {"../outside", "docs/../../x", "/etc/passwd", "docs", "nowhere/x",
                                 "docs//x", "docs/anna/*", "docs/anna/index.dat/x", "", "C:/x"}) {
    Plan bad = good;
    bad["repairs"] = Plan::array({{{"repair", "quarantine"}, {"code", "x"}, {"path", path}}});
    refused(bad);
  }
  Plan bad = good;
  bad["repairs"][0]["repair"] = "format-disk";
  refused(bad);
  bad = good;
  bad["storage"] = "/somewhere/else";
  refused(bad);
  bad = good;
  bad["repairs"][0]["path"] = 7;
  refused(bad);
  bad = good;
  bad.erase("repairs");
  refused(bad);
  refused(Plan("{ not json"));
  refused(Plan("[]"));
  // An index, a document and a counter are not targets of other repairs.
  for (const char* const kind : {"remove-lines", "set-counter", "remove-key-lines", "quarantine"}) {
    for (const char* const name : {"index.dat", "index", "00000001.kdc"}) {
      const std::string fit = std::string(kind) == "remove-lines"  ? "index.dat"
                              : std::string(kind) == "set-counter" ? "index"
                                                                   : "00000001.kdc";
      if (fit == name) continue;
      bad = good;
      bad["repairs"] = Plan::array({{{"repair", kind},
                                     {"code", "x"},
                                     {"value", "00000001"},
                                     {"path", std::string("docs/anna/00000001/") + name}}});
      refused(bad);
    }
  }
  EXPECT_EQ(snapshot(root()), before);
  EXPECT_EQ(on_tree({"repair", "--apply", plan() + "-none", "--yes"}).code, 1);
  EXPECT_EQ(on_tree({"repair"}).code, 2);
  EXPECT_EQ(on_tree({"repair", "--plan", plan(), "--apply", plan()}).code, 2);
  EXPECT_EQ(on_tree({"repair", "--plan", plan(), "--only", "nonsense"}).code, 2);
  EXPECT_EQ(on_tree({"repair", "--plan", shell_path(storage() + "\\plan"), "--yes"}).code, 12);
  EXPECT_EQ(on_tree({"undo", "--yes", "--quarantine", shell_path(storage() + "\\docs\\q")}).code,
            12);
  EXPECT_EQ(snapshot(root()), before);
}

TEST_F(ClientRepair, FindsNothingToDoInATreeThatIsWhole) {
  const std::string before = snapshot(root());
  EXPECT_EQ(on_tree({"repair", "--plan", plan()}).code, 3);
  EXPECT_FALSE(file_exists(plan()));
  EXPECT_EQ(on_tree({"undo", "--yes"}).code, 3);
  EXPECT_EQ(snapshot(root()), before);
}

TEST_F(ClientRepair, IsNotProposedForATimestampThatItCannotMend) {
  write_file(m_folder + "/index.dat", m_healthy + "b.kdc_00000000x1/00000001\n");
  const Json summary = json({"check"}, 4).back();
  EXPECT_EQ(summary.at("codes").at("odd-timestamp"), 1);
  for (const Json& step : summary.at("next"))
    EXPECT_EQ(step.get<std::string>().find("stgctl repair"), std::string::npos) << step;
  EXPECT_EQ(on_tree({"repair", "--plan", plan()}).code, 3);
  EXPECT_EQ(on_tree({"get", "b.kdc", "--owner", "anna", "-o", "-"}).code, 3);
}

TEST_F(ClientRepair, WaitsForTheIndexAndGivesUpWhenTimeIsOver) {
  harm();
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--only", "line-without-file"}).code, 0);
  const std::string before = tree();
  vu_file reader(m_folder, "index.dat");
  reader.open(vu_file::o_read);
  EXPECT_EQ(on_tree({"repair", "--apply", plan(), "--yes", "--lock-timeout", "0.2"}).code, 11);
  reader.close();
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
}

// ---- never a document lost ---------------------------------------------------------------------

class ClientRepairKeeps : public Client {
 protected:
  static constexpr int kDocuments = 12;
  ClientRepairKeeps() {
    init();
    std::vector<std::string> arguments = {"put", "--area", "user"};
    for (int i = 0; i < kDocuments; ++i)
      arguments.push_back(source("n" + std::to_string(i) + ".kdc", "text " + std::to_string(i)));
    EXPECT_EQ(change(arguments).code, 0);
    m_index = storage() + "\\user\\anna\\index.dat";
    m_healthy = read_file(m_index);
  }
  std::string plan() const { return shell_path(scratch().path("in\\plan.json")); }
  void expect_all_served() {
    for (int i = 0; i < kDocuments; ++i) {
      EXPECT_EQ(get("n" + std::to_string(i) + ".kdc", {"--area", "user"}),
                "text " + std::to_string(i));
    }
  }
  std::string with_cr_lf() const {
    std::string text;
    for (const std::string& line : lines_of(m_healthy)) text += line + "\r\n";
    return text;
  }
  std::string m_index;
  std::string m_healthy;
};

TEST_F(ClientRepairKeeps, NamesThatADamagedTextStillTellsComeBack) {
  std::string glued = m_healthy;
  glued.erase(glued.find('\n'), 1);
  std::string wide = "\xFF\xFE";
  for (const char c : m_healthy) (wide += c) += '\0';
  // Readers ignore zeros after the last line feed.
  wide.pop_back();
  std::string zeros = m_healthy;
  zeros.insert(zeros.find('\n'), 600, '\0');
  for (const std::string& damaged : {with_cr_lf(), glued, wide, zeros}) {
    write_file(m_index, damaged);
    ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 0);
    const Json planned = Json::parse(read_file(plan()));
    for (const Json& repair : planned.at("repairs"))
      EXPECT_EQ(repair.at("repair"), "restore-lines") << repair;
    const outcome applied = on_tree({"repair", "--apply", plan(), "--yes"});
    EXPECT_EQ(applied.code, 0) << applied.err << applied.out;
    EXPECT_EQ(read_file(m_index), m_healthy);
    expect_all_served();
    ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
    EXPECT_EQ(read_file(m_index), damaged);
  }
}

TEST_F(ClientRepairKeeps, NamesAreNotMadeOfWhatStandsOnBothSidesOfZeros) {
  // A block that never reached the device: the halves of "n1" and "n9" together are the name of
  // neither.
  const std::size_t first = m_healthy.find("n1.kdc") + 2;
  const std::size_t last = m_healthy.find("n9.kdc") + 2;
  const std::string damaged =
      m_healthy.substr(0, first) + std::string(last - first, '\0') + m_healthy.substr(last);
  write_file(m_index, damaged);
  EXPECT_NE(on_tree({"check"}).out.find("malformed-line"), std::string::npos);
  const std::string before = tree();
  for (const char* const force : {"", "--force"}) {
    std::vector<std::string> command = {"repair", "--plan", plan(), "-n"};
    if (*force != '\0') command.emplace_back(force);
    const outcome planned = on_tree(command);
    EXPECT_EQ(planned.out.find("restore-lines"), std::string::npos) << planned.out;
    EXPECT_NE(planned.err.find("whose names may have been in damaged lines"), std::string::npos)
        << planned.err;
    EXPECT_EQ(planned.out.find("quarantine") == std::string::npos, *force == '\0') << planned.out;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientRepairKeeps, ZerosStayAsLongAsNamesAreLost) {
  // The line before the zeros lacks only its line feed; the line after it is lost.
  const std::size_t second = m_healthy.find('\n', m_healthy.find('\n') + 1);
  const std::size_t third = m_healthy.find('\n', second + 1);
  std::string damaged = m_healthy;
  damaged.replace(second, third - second, third - second, '\0');
  write_file(m_index, damaged);
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  EXPECT_NE(on_tree({"check"}).out.find(" zeros, "), std::string::npos) << on_tree({"check"}).out;
  const outcome again = on_tree({"repair", "--plan", plan(), "--yes"});
  EXPECT_EQ(again.code, 3) << again.out;
  EXPECT_NE(again.err.find("1 files whose names may have been"), std::string::npos) << again.err;
}

TEST_F(ClientRepairKeeps, ASnapshotsNamesComeBackWhereZerosHaveMadeAnother) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::size_t first = m_healthy.find("n1.kdc") + 2;
  const std::size_t last = m_healthy.find("n9.kdc") + 2;
  const std::string damaged =
      m_healthy.substr(0, first) + std::string(last - first, '\0') + m_healthy.substr(last);
  write_file(m_index, damaged);
  ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_index), m_healthy);
  write_file(m_index, damaged);
  ASSERT_EQ(on_tree({"index", "restore", "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_index), m_healthy);
  expect_all_served();
}

TEST_F(ClientRepairKeeps, NamesThatASnapshotKnowsComeBack) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  for (const std::string& damaged : {m_healthy.substr(0, m_healthy.size() / 3),
                                     std::string("rubbish without a line"), std::string()}) {
    write_file(m_index, damaged);
    // Later snapshots contain the loss.
    ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
    ASSERT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 0);
    EXPECT_EQ(Json::parse(read_file(plan())).at("repairs").at(0).at("lines").at(0).at("why"),
              "snapshot 1");
    ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
    expect_all_served();
  }
}

TEST_F(ClientRepairKeeps, MostOfAFolderIsTakenWithForceAlone) {
  write_file(m_index, " ");
  const std::string before = tree();
  const outcome spared = on_tree({"repair", "--plan", plan(), "--yes"});
  EXPECT_EQ(spared.code, 3) << spared.out;
  EXPECT_NE(spared.err.find("12 of 12 files would move to the quarantine"), std::string::npos)
      << spared.err;
  EXPECT_FALSE(file_exists(plan()));
  const outcome forced = on_tree({"repair", "--plan", plan(), "--force"});
  EXPECT_EQ(forced.code, 0) << forced.err;
  EXPECT_NE(forced.err.find("no program finds them until 'undo'"), std::string::npos);
  const outcome applied = on_tree({"repair", "--apply", plan(), "--yes"});
  EXPECT_EQ(applied.code, 0);
  EXPECT_NE(applied.err.find("no program finds them until 'undo'"), std::string::npos);
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  EXPECT_EQ(lines_of(tree()).size(), lines_of(before).size());
}

TEST_F(ClientRepairKeeps, FilesWhoseNamesDamagedLinesMayHaveHeldAreTakenWithForceAlone) {
  // Cut in the ninth of twelve lines; no snapshot, and the text contains no more.
  std::size_t cut = 0;
  for (int line = 0; line < 8; ++line) cut = m_healthy.find('\n', cut) + 1;
  write_file(m_index, m_healthy.substr(0, cut + 5));
  const std::string before = tree();
  for (int round = 0; round < 2; ++round) {
    const outcome spared = on_tree({"repair", "--plan", plan()});
    EXPECT_EQ(spared.code, 3) << spared.out;
    EXPECT_NE(spared.err.find("4 files whose names may have been in damaged lines"),
              std::string::npos)
        << spared.err;
  }
  EXPECT_EQ(tree(), before);
  EXPECT_NE(on_tree({"check"}).out.find(shell_path(m_index) + " (line 9): \"" +
                                        m_healthy.substr(cut, 5) + "\" contains no \"/\"\n"),
            std::string::npos)
      << on_tree({"check"}).out;
  // A file without a number is a plain orphan, as in any folder.
  write_file(storage() + "\\user\\anna\\stray.tmp", "x");
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const Json planned = Json::parse(read_file(plan()));
  EXPECT_EQ(planned.at("repairs").size(), 1U);
  for (const Json& each : planned.at("left")) {
    const bool is_line = each.at("code") == "malformed-line";
    EXPECT_EQ(each.at("path") == "user/anna/index.dat", is_line) << each;
    EXPECT_TRUE(each.at("remedy").get<std::string>().starts_with(
        is_line ? "names of files beside the index may have been in this line:"
                : "its name may have been in the damaged lines:"))
        << each;
  }
  const outcome forced = on_tree({"repair", "--plan", plan(), "--force", "--yes"});
  EXPECT_EQ(forced.code, 0) << forced.err;
  EXPECT_NE(forced.err.find("no program finds them until 'undo'"), std::string::npos);
}

TEST_F(ClientRepairKeeps, NamesOfFilesThatAreGoneStayWhenTheyAreMost) {
  for (int i = 0; i < kDocuments - 2; ++i)
    std::filesystem::remove(shell_path(physical("user", "n" + std::to_string(i) + ".kdc")));
  EXPECT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 3);
  EXPECT_EQ(read_file(m_index), m_healthy);
}

TEST_F(ClientRepairKeeps, KeyFilesThatProgramsWriteByPathAreLeftAlone) {
  write_file(storage() + "\\user\\anna\\colours.cfg", "red=1\nblue=2\n");
  write_file(storage() + "\\user\\anna\\attribut.txt", "n1.kdc=x\n");
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
  EXPECT_EQ(json({"check", "--strict"}, 4).back().at("codes").at("key-file-without-line"), 2);
  EXPECT_EQ(on_tree({"repair", "--plan", plan(), "--yes"}).code, 3);
}

#if !defined(_WIN32)  // where names are Unicode
TEST_F(ClientRepair, KeepsANameThatIsNoUtf8) {
  write_file(m_folder + "/bad\xff.tmp", "x");
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan(), "--yes"}).code, 0);
  EXPECT_FALSE(file_exists(m_folder + "/bad\xff.tmp"));
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  EXPECT_EQ(read_file(m_folder + "/bad\xff.tmp"), "x");
}
#endif
