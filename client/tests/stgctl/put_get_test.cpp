#include <algorithm>
#include <filesystem>

#include "client/tests/stgctl/fixture.h"

class ClientPut : public Client {
 protected:
  ClientPut() { init(); }
};
class ClientGet : public ClientPut {};

TEST_F(ClientPut, StoresAFileWithItsBytesAndItsTime) {
  const outcome result = change({"put", source("sales.kdc", "figures", 1'234'567'890)});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("stored  docs/anna/sales.kdc"), std::string::npos) << result.out;
  EXPECT_EQ(get("sales.kdc"), "figures");
  EXPECT_EQ(get_modify_time(physical("docs", "sales.kdc")), 1'234'567'890);
}

TEST_F(ClientPut, StoresAWholeFolder) {
  source("a.kdc", "1");
  make_folder(scratch().path("in\\below"));
  source("below\\b.kdc", "22");
  source("below\\c d.txt", "333");
  const std::vector<Json> lines =
      json({"put", shell_path(scratch().path("in")), "--owner", "anna", "--yes"});
  EXPECT_EQ(actions(lines),
            (std::vector<std::string>{"stored a.kdc", "stored b.kdc", "stored c d.txt"}));
  EXPECT_EQ(lines.back().at("done"), 3);
  EXPECT_EQ(lines.back().at("bytes"), 6);
  EXPECT_EQ(get("c d.txt"), "333");
}

TEST_F(ClientPut, ChangesNothingInADryRun) {
  put("a.kdc", "old");
  const std::string before = tree();
  const std::vector<Json> lines = json({"put", source("a.kdc", "new"), source("b.kdc", "x"),
                                        "--replace", "--owner", "anna", "--dry-run"});
  EXPECT_EQ(actions(lines), (std::vector<std::string>{"replaced a.kdc", "stored b.kdc"}));
  EXPECT_EQ(lines.back().at("dry_run"), true);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPut, KeepsAVersionThatExistsUnlessToldToReplaceIt) {
  put("a.kdc", "old");
  const std::string before = tree();
  const outcome kept = change({"put", source("a.kdc", "new")});
  EXPECT_EQ(kept.code, 1);
  EXPECT_NE(kept.err.find("--replace"), std::string::npos);
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(change({"put", source("a.kdc", "new"), "--replace"}).code, 0);
  EXPECT_EQ(get("a.kdc"), "new");
}

TEST_F(ClientPut, DropsThePartsOfWhatItReplaces) {
  put("a.kdc", "old");
  const std::string file = physical("docs", "a.kdc");
  for (const char* const stamp : {"_", "_2024"}) {
    make_folder(file + stamp + "\\html\\page");
    write_file(file + stamp + "\\html\\page\\1", "made from the old one");
  }
  // Older than its sub-parts, which would look up to date.
  put("a.kdc", "new", 0, 1'000'000'000);
  EXPECT_EQ(get("a.kdc"), "new");
  EXPECT_FALSE(folder_exists(file + "_"));
  EXPECT_FALSE(folder_exists(file + "_2024"));
}

TEST_F(ClientPut, DropsPartsAlsoIfAStampContinuesAnotherOne) {
  put("a.kdc", "old");
  const std::string file = physical("docs", "a.kdc");
  for (const char* const stamp : {"_s", "_s_t"}) make_folder(file + stamp + "\\html\\page");
  put("a.kdc", "new");
  EXPECT_FALSE(folder_exists(file + "_s"));
  // The folder of the other stamp is not its document.
  EXPECT_FALSE(folder_exists(file + "_s_t"));
}

TEST_F(ClientPut, LeavesKeyLinesOfWhatItReplaces) {
  const std::string file = source("b.txt", "x");
  ASSERT_EQ(change({"put", file, "--area", "user"}).code, 0);
  ASSERT_EQ(change({"keys", "set", "k.ctg", "ab.txt=1", "b.txt=2"}).code, 0);
  ASSERT_EQ(change({"put", file, "--area", "user", "--replace"}).code, 0);
  EXPECT_EQ(get("k.ctg", {"--area", "user"}), "ab.txt=1\nb.txt=2\n");
}

TEST_F(ClientPut, SaysHowToStoreTwoFilesOfOneName) {
  make_folder(scratch().path("in\\d"));
  make_folder(scratch().path("in\\d\\e"));
  source("d\\a.kdc", "one");
  const std::string other = source("d\\e\\a.kdc", "other");
  const std::string folder = shell_path(scratch().path("in\\d"));
  const outcome walked = change({"put", folder, "-n"});
  EXPECT_EQ(walked.code, 5);
  EXPECT_NE(messages(walked).find("a.kdc; use --keep-paths\n"), std::string::npos) << walked.err;
  EXPECT_EQ(change({"put", folder, "-n", "--keep-paths"}).code, 0);
  // --keep-paths does not change the name of a file that is named itself.
  const outcome named = change({"put", folder, other, "-n", "--keep-paths"});
  EXPECT_EQ(named.code, 5);
  EXPECT_NE(messages(named).find("a.kdc; store it alone with --as NAME\n"), std::string::npos)
      << named.err;
}

TEST_F(ClientPut, KeepsVersionsApart) {
  put("v.kdf", "first", 1);
  put("v.kdf", "second", 2);
  EXPECT_EQ(get("v.kdf", {"--timestamp", "1"}), "first");
  EXPECT_EQ(get("v.kdf"), "second");
  EXPECT_EQ(change({"put", source("t.kdf", "third", 1'500'000'000), "--timestamp", "mtime"}).code,
            0);
  EXPECT_EQ(get("t.kdf", {"--timestamp", "1500000000"}), "third");
}

TEST_F(ClientPut, WarnsOfStampsThatReadersDoNotLookFor) {
  const outcome result = change({"put", source("v.kdc", "x"), "--timestamp", "5"});
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.err.find("warning"), std::string::npos);
  EXPECT_EQ(change({"put", source("v.kdf", "x"), "--timestamp", "5"}).err, "");
}

TEST_F(ClientPut, SaysWhatWasDoneInPart) {
  const std::vector<Json> lines =
      json({"put", source("a.kdc", "x"), shell_path(scratch().path("missing.kdc")), "--owner",
            "anna", "--yes"},
           5);
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(lines.back().at("failed"), 1);
  EXPECT_EQ(get("a.kdc"), "x");
}

TEST_F(ClientPut, RefusesNamesThatLeadTheLibraryAstray) {
  const std::string file = source("a.kdc", "x");
  const std::string before = tree();
  for (const char* const name :
       {"index.dat", "index", "..", ".", "..\\x.kdc", "x/y.kdc", "a*.kdc", "a?.kdc", "a\nb.kdc"}) {
    const outcome result = change({"put", file, "--as", name});
    EXPECT_EQ(result.code, 12) << name;
    EXPECT_NE(result.err.find("is not allowed"), std::string::npos) << result.err;
    EXPECT_EQ(on_tree({"put", file, "--owner", name, "--yes"}).code, 12) << name;
    EXPECT_EQ(on_tree({"get", name, "--owner", "anna"}).code, 12) << name;
    EXPECT_EQ(change({"rm", name}).code, 12) << name;
    EXPECT_EQ(change({"mv", name, "b.kdc"}).code, 12) << name;
    EXPECT_EQ(change({"keys", "set", name, "a=b"}).code, 12) << name;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPut, RefusesAnEmptyOwner) {
  const std::string before = tree();
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"put", source("a.kdc", "x")},
                                             {"rm", "a.kdc"},
                                             {"get", "a.kdc"},
                                             {"profile", "set", "a=b"}}) {
    std::vector<std::string> arguments = command;
    arguments.emplace_back("--yes");
    EXPECT_EQ(on_tree(arguments).code, 12) << command[0];
    arguments.insert(arguments.end(), {"--owner", ""});
    EXPECT_EQ(on_tree(arguments).code, 12) << command[0];
  }
  EXPECT_EQ(on_tree({"user", "remove", "", "--yes"}).code, 12);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPut, RefusesANameThatAFileOfTheFolderBears) {
  put("a.kdc", "the document");
  const std::string file = physical("docs", "a.kdc");
  // Another document of the same folder, under the file name of the first one.
  const std::string folder = file.substr(0, file.find_last_of("/\\"));
  write_file(folder + "\\a.kdc", "a stranger");
  const std::string before = tree();
  const outcome result = change({"put", source("a.kdc", "new"), "--replace"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("sync"), std::string::npos) << result.err;
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPut, PutsIntoOtherAreas) {
  EXPECT_EQ(change({"put", source("notes.txt", "n"), "--area", "user"}).code, 0);
  EXPECT_TRUE(folder_exists(storage() + "\\user\\anna"));
  EXPECT_EQ(get("notes.txt", {"--area", "user"}), "n");
  EXPECT_EQ(change({"put", source("notes.txt", "n"), "--area", "semlets"}).code, 12);
}

TEST_F(ClientPut, PutsIntoATreeWithoutOwners) {
  const std::string flat = scratch().path("flat");
  make_folder(flat);
  const std::vector<std::string> where = {"--root", shell_path(flat), "--yes"};
  const auto run_flat = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), where.begin(), where.end());
    return run(arguments);
  };
  EXPECT_EQ(run_flat({"init", "--layout", "flat"}).code, 0);
  EXPECT_EQ(run_flat({"put", source("a.txt", "x"), "--area", "user", "--layout", "flat"}).code, 0);
  EXPECT_TRUE(file_exists(flat + "\\storage\\user\\index.dat"));
  // From now on the folders of the tree show its layout.
  EXPECT_EQ(run_flat({"put", source("b.txt", "y"), "--area", "user"}).code, 0);
  EXPECT_EQ(run_flat({"rm", "a.txt", "--area", "user"}).code, 0);
  const outcome got = run_flat({"get", "b.txt", "--area", "user", "--output", "-"});
  EXPECT_EQ(got.out, "y") << got.err;
  EXPECT_EQ(run_flat({"get", "a.txt", "--area", "user"}).code, 3);
  EXPECT_EQ(run_flat({"user", "remove", "anna"}).code, 12);
}

TEST_F(ClientGet, WritesAFileWithTheDocumentsTime) {
  put("a.kdc", "text", 0, 1'300'000'000);
  const std::string before = tree();
  const std::string target = scratch().path("got.kdc");
  const std::vector<Json> lines =
      json({"get", "a.kdc", "--owner", "anna", "-o", shell_path(target)});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"got a.kdc"});
  EXPECT_EQ(lines[0].at("bytes"), 4);
  EXPECT_EQ(read_file(target), "text");
  EXPECT_EQ(get_modify_time(target), 1'300'000'000);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientGet, AsksBeforeItOverwrites) {
  put("a.kdc", "text");
  const std::string target = scratch().path("got.kdc");
  write_file(target, "precious");
  EXPECT_EQ(on_tree({"get", "a.kdc", "--owner", "anna", "-o", shell_path(target)}).code, 12);
  EXPECT_EQ(read_file(target), "precious");
  EXPECT_EQ(change({"get", "a.kdc", "-o", shell_path(target)}).code, 0);
  EXPECT_EQ(read_file(target), "text");
}

TEST_F(ClientGet, FindsNothingWithThree) {
  put("a.kdc", "text");
  const std::string before = tree();
  EXPECT_EQ(on_tree({"get", "b.kdc", "--owner", "anna"}).code, 3);
  EXPECT_EQ(on_tree({"get", "a.kdc", "--owner", "bert"}).code, 3);
  EXPECT_EQ(on_tree({"get", "a.kdc", "--owner", "anna", "--timestamp", "7"}).code, 3);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientGet, NamesTheReasonOfTheSystem) {
  put("a.kdc", "text");
  const outcome result = change({"get", "a.kdc", "-o", shell_path(scratch().path("none\\x"))});
  EXPECT_EQ(result.code, 1);
#if !defined(_WIN32)
  EXPECT_NE(result.err.find("/none/x cannot be written (No such file or directory)"),
            std::string::npos)
      << result.err;
#endif
  EXPECT_FALSE(folder_exists(scratch().path("none")));
}

TEST_F(ClientGet, RefusesAPlaceInsideTheTree) {
  put("a.kdc", "text");
  const std::string before = tree();
  EXPECT_EQ(change({"get", "a.kdc", "-o", shell_path(storage() + "\\docs\\x")}).code, 12);
  EXPECT_EQ(change({"put", shell_path(physical("docs", "a.kdc")), "--as", "b.kdc"}).code, 1);
  EXPECT_EQ(tree(), before);
}

// ---- rm and mv ---------------------------------------------------------------------------------

class ClientRm : public Client {
 protected:
  ClientRm() { init(); }
  static std::string folder_of(const std::string& path) {
    return path.substr(0, path.find_last_of("/\\"));
  }
};
class ClientMv : public ClientRm {};

TEST_F(ClientRm, RemovesADocumentWithItsParts) {
  put("a.kdc", "text");
  put("b.kdc", "other");
  const std::string file = physical("docs", "a.kdc");
  make_folder(file + "_\\html\\page");
  write_file(file + "_\\html\\page\\1", "x");
  make_folder(file + "_2024");
  // Neither of these belongs to it.
  make_folder(file + "x");
  const std::vector<Json> lines = json({"rm", "a.kdc", "--owner", "anna", "--yes"});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"removed a.kdc"});
  EXPECT_EQ(lines[0].at("part_folders"), 2);
  EXPECT_FALSE(file_exists(file));
  EXPECT_FALSE(folder_exists(file + "_"));
  EXPECT_FALSE(folder_exists(file + "_2024"));
  EXPECT_TRUE(folder_exists(file + "x"));
  EXPECT_EQ(physical("docs", "a.kdc"), "(no file)");
  EXPECT_EQ(get("b.kdc"), "other");
}

TEST_F(ClientRm, LeavesThePartsOfADocumentWithALongerName) {
  const std::string folder = storage() + "\\user\\anna";
  make_folder(folder + "\\a_b.kdc_");
  write_file(folder + "\\a", "1");
  write_file(folder + "\\a_b.kdc", "2");
  ASSERT_EQ(change({"sync", "--area", "user"}).code, 0);
  ASSERT_EQ(change({"rm", "a", "--area", "user"}).code, 0);
  EXPECT_FALSE(file_exists(folder + "\\a"));
  EXPECT_TRUE(folder_exists(folder + "\\a_b.kdc_"));
}

TEST_F(ClientRm, ChangesNothingInADryRun) {
  put("a.kdc", "text");
  const std::string before = tree();
  const outcome result = on_tree({"rm", "a.kdc", "--owner", "anna", "-n"});
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.out.find("would be removed"), std::string::npos);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientRm, WantsToKnowWhichOfSeveralVersions) {
  put("v.kdf", "1", 1);
  put("v.kdf", "2", 2);
  put("v.kdf", "3", 3);
  EXPECT_EQ(change({"rm", "v.kdf"}).code, 12);
  EXPECT_EQ(change({"rm", "v.kdf", "--timestamp", "2"}).code, 0);
  EXPECT_EQ(get("v.kdf", {"--timestamp", "1"}), "1");
  EXPECT_EQ(change({"rm", "v.kdf", "--timestamp", "2"}).code, 3);
  EXPECT_EQ(change({"rm", "v.kdf", "--all-versions"}).code, 0);
  EXPECT_EQ(physical("docs", "v.kdf"), "(no file)");
}

TEST_F(ClientRm, RemovesWhatMatchesAPattern) {
  put("a1.kdc", "1");
  put("a2.kdc", "2");
  put("b1.kdc", "3");
  const outcome result = change({"rm", "--match", "a?.kdc"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(physical("docs", "a1.kdc"), "(no file)");
  EXPECT_EQ(physical("docs", "a2.kdc"), "(no file)");
  EXPECT_EQ(get("b1.kdc"), "3");
  EXPECT_EQ(change({"rm", "--match", "c*"}).code, 3);
  EXPECT_EQ(change({"rm"}).code, 2);
}

TEST_F(ClientRm, RemovesTheKeyLinesThatNameTheDocument) {
  ASSERT_EQ(change({"put", source("a.txt", "x"), "--area", "user"}).code, 0);
  ASSERT_EQ(change({"keys", "set", "attribut.txt", "a.txt=1", "b.txt=2"}).code, 0);
  ASSERT_EQ(change({"rm", "a.txt", "--area", "user"}).code, 0);
  EXPECT_EQ(get("attribut.txt", {"--area", "user"}), "b.txt=2\n");
}

TEST_F(ClientRm, LeavesKeyLinesWhereTheLibraryWouldCutAnotherOne) {
  ASSERT_EQ(change({"put", source("b.txt", "x"), "--area", "user"}).code, 0);
  ASSERT_EQ(change({"keys", "set", "attribut.txt", "ab.txt=1", "b.txt=2"}).code, 0);
  const outcome result = change({"rm", "b.txt", "--area", "user"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.err.find("attribut.txt"), std::string::npos);
  EXPECT_EQ(get("attribut.txt", {"--area", "user"}), "ab.txt=1\nb.txt=2\n");
}

#if !defined(_WIN32)

TEST_F(ClientRm, LeavesAnUnknownEntryAndSaysRemoved) {
  put("a.kdc", "text");
  const std::string file = physical("docs", "a.kdc");
  const std::string index = folder_of(file) + "/index.dat";
  const std::string unknown = "a.kdc_0000000000/elsewhere\\x\n";
  write_file(index, read_file(index) + unknown);
  make_folder(folder_of(file) + "/elsewhere");
  open_to_all();
  std::filesystem::permissions(folder_of(file) + "/elsewhere", std::filesystem::perms::none);
  const outcome result = change_as_nobody({"rm", "a.kdc"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("removed  docs/anna/a.kdc"), std::string::npos) << result.out;
  EXPECT_FALSE(file_exists(file));
  EXPECT_EQ(read_file(index), unknown);
}

TEST_F(ClientRm, SaysThatTheTreeMayNotBeRead) {
  open_to_all();
  std::filesystem::permissions(shell_path(root()), std::filesystem::perms::none);
  const outcome result = change_as_nobody({"rm", "a.kdc"});
  std::filesystem::permissions(shell_path(root()), std::filesystem::perms::all);
  EXPECT_EQ(result.code, 10) << result.out;
  EXPECT_NE(result.err.find("storage cannot be read: Permission denied"), std::string::npos)
      << result.err;
}

#endif

TEST_F(ClientRm, LeavesASecondLineWithAnotherFile) {
  put("a.kdc", "text");
  const std::string file = physical("docs", "a.kdc");
  const std::string index = folder_of(file) + "/index.dat";
  const std::string second = "a.kdc_0000000000/00000099\n";
  write_file(index, read_file(index) + second);
  write_file(folder_of(file) + "/00000099.kdc", "another text");
  const outcome result = change({"rm", "a.kdc"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_FALSE(file_exists(file));
  EXPECT_EQ(read_file(index), second);
}

TEST_F(ClientMv, RenamesWithinAFolder) {
  ASSERT_EQ(change({"put", source("a.txt", "x", 1'111'111'111), "--area", "user"}).code, 0);
  const std::vector<Json> lines =
      json({"mv", "a.txt", "b.txt", "--area", "user", "--owner", "anna", "--yes"});
  EXPECT_EQ(lines[0].at("action"), "moved");
  EXPECT_EQ(lines[0].at("name"), "a.txt");
  EXPECT_EQ(lines[0].at("new_name"), "b.txt");
  EXPECT_EQ(get("b.txt", {"--area", "user"}), "x");
  EXPECT_EQ(physical("user", "a.txt"), "(no file)");
  EXPECT_EQ(get_modify_time(physical("user", "b.txt")), 1'111'111'111);
}

TEST_F(ClientMv, TakesADocumentToTheFolderOfItsNewName) {
  put("a.kdc", "text", 0, 1'111'111'111);
  const std::string old_file = physical("docs", "a.kdc");
  make_folder(old_file + "_\\html");
  ASSERT_EQ(change({"mv", "a.kdc", "something else.kdc"}).code, 0);
  EXPECT_EQ(get("something else.kdc"), "text");
  const std::string new_file = physical("docs", "something else.kdc");
  EXPECT_NE(folder_of(new_file), folder_of(old_file));
  EXPECT_EQ(get_modify_time(new_file), 1'111'111'111);
  EXPECT_FALSE(file_exists(old_file));
  EXPECT_FALSE(folder_exists(old_file + "_"));
}

TEST_F(ClientMv, GivesAVersionAnotherStamp) {
  put("v.kdf", "1", 1);
  ASSERT_EQ(change({"mv", "v.kdf", "v.kdf", "--new-timestamp", "9"}).code, 0);
  EXPECT_EQ(get("v.kdf", {"--timestamp", "9"}), "1");
  EXPECT_EQ(on_tree({"get", "v.kdf", "--timestamp", "1", "--owner", "anna"}).code, 3);
  EXPECT_EQ(change({"mv", "v.kdf", "v.kdf"}).code, 12);
}

TEST_F(ClientMv, ReplacesOnlyWhenTold) {
  put("a.kdc", "a");
  put("b.kdc", "b");
  const std::string before = tree();
  EXPECT_EQ(change({"mv", "a.kdc", "b.kdc"}).code, 12);
  EXPECT_EQ(change({"mv", "x.kdc", "b.kdc"}).code, 3);
  EXPECT_EQ(on_tree({"mv", "a.kdc", "b.kdc", "--replace", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"mv", "a.kdc", "b.kdc", "--replace", "--owner", "anna"}).code, 12);
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(change({"mv", "a.kdc", "b.kdc", "--replace"}).code, 0);
  EXPECT_EQ(get("b.kdc"), "a");
}
