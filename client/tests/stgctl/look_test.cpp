#include <algorithm>
#include <cctype>
#include <filesystem>

#include "client/tests/stgctl/fixture.h"
#include "vu_file.h"

/// The reading commands, on a small tree. They print what exists, as text and as JSON, and change
/// nothing.
class ClientLook : public Client {
 protected:
  /// A tree with two versions of a .kdf document, one document of another owner, a profile and a
  /// stray file.
  void make_tree() {
    init();
    put("sales.kdc", "sales", 0);
    put("daily.kdf", "first", 10);
    put("daily.kdf", "second one", 20);
    ASSERT_EQ(on_tree({"put", source("sales.kdc", "of bert"), "--owner", "bert", "--yes"}).code, 0);
    ASSERT_EQ(change({"put", source("profile.txt", "a=1\nnone\nb=2=3\n"), "--area", "user"}).code,
              0);
    write_file(folder_of("user") + "\\loose.txt", "loose");
  }

  std::string folder_of(const std::string& area) const {
    return storage() + "\\" + area + "\\anna";
  }

  /// The text output of a command. Checks the exit code, and that the tree does not change.
  std::string look(const std::vector<std::string>& arguments, int code = 0) {
    const std::string before = tree();
    const outcome result = on_tree(arguments);
    EXPECT_EQ(result.code, code) << result.out << result.err;
    EXPECT_EQ(tree(), before);
    return result.out;
  }

  /// The JSON lines of a command. Checks their schema.
  std::vector<Json> look_json(const std::vector<std::string>& arguments, const std::string& schema,
                              int code = 0) {
    const std::string before = tree();
    const std::vector<Json> lines = json(arguments, code);
    EXPECT_EQ(tree(), before);
    for (const Json& line : lines) EXPECT_EQ(line.at("schema"), schema);
    return lines;
  }

  static std::vector<std::string> sorted(const std::string& text) {
    std::vector<std::string> lines = lines_of(text);
    std::sort(lines.begin(), lines.end());
    return lines;
  }
  static std::vector<std::string> names(const std::vector<Json>& lines) {
    std::vector<std::string> all;
    for (const Json& line : lines)
      all.push_back(line.at("owner").get<std::string>() + ":" + line.at("name").get<std::string>() +
                    "@" + std::to_string(line.at("timestamp").get<int>()));
    std::sort(all.begin(), all.end());
    return all;
  }
};

using Lines = std::vector<std::string>;

// ---- ls and find -------------------------------------------------------------------------------

TEST_F(ClientLook, ListsEveryEntryWithItsFile) {
  make_tree();
  EXPECT_EQ(sorted(look({"ls"})),
            (Lines{"docs/anna/daily.kdf@10  00000001.kdf", "docs/anna/daily.kdf@20  00000002.kdf",
                   "docs/anna/sales.kdc@0  00000001.kdc", "docs/bert/sales.kdc@0  00000001.kdc",
                   "user/anna/loose.txt@0  loose.txt  (orphan)",
                   "user/anna/profile.txt@0  00000001.txt"}));
}

TEST_F(ClientLook, ListsEntriesAsJson) {
  make_tree();
  const std::vector<Json> lines =
      look_json({"ls", "-l", "--area", "docs", "--owner", "bert"}, "stgctl.ls/1");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].at("area"), "docs");
  EXPECT_EQ(lines[0].at("owner"), "bert");
  EXPECT_EQ(lines[0].at("name"), "sales.kdc");
  EXPECT_EQ(lines[0].at("timestamp"), 0);
  EXPECT_EQ(lines[0].at("state"), "indexed");
  EXPECT_EQ(lines[0].at("physical"), "00000001");
  EXPECT_EQ(lines[0].at("file"), "00000001.kdc");
  EXPECT_EQ(lines[0].at("bytes"), 7);
  EXPECT_EQ(lines[0].at("modified"), 1'600'000'000);
}

TEST_F(ClientLook, ListsLinesWithoutTheirFileOnRequest) {
  make_tree();
  std::filesystem::remove(native(physical("user", "profile.txt")));
  EXPECT_EQ(look({"ls", "--area", "user"}).find("profile"), std::string::npos);
  EXPECT_NE(look({"ls", "--area", "user", "--missing"}).find("(dangling)"), std::string::npos);
}

TEST_F(ClientLook, FindsByNameStateSizeAndAge) {
  make_tree();
  EXPECT_EQ(names(look_json({"find", "d*.kd?"}, "stgctl.find/1")),
            (Lines{"anna:daily.kdf@10", "anna:daily.kdf@20"}));
  EXPECT_EQ(names(look_json({"find", "--timestamp", "20"}, "stgctl.find/1")),
            Lines{"anna:daily.kdf@20"});
  EXPECT_EQ(names(look_json({"find", "--name", "sales.kdc"}, "stgctl.find/1")).size(), 2U);
  EXPECT_EQ(names(look_json({"find", "--ext", ".txt"}, "stgctl.find/1")).size(), 2U);
  EXPECT_EQ(names(look_json({"find", "--state", "unindexed"}, "stgctl.find/1")),
            Lines{"anna:loose.txt@0"});
  EXPECT_EQ(names(look_json({"find", "--min-size", "10"}, "stgctl.find/1")).size(), 2U);
  EXPECT_EQ(names(look_json({"find", "--max-size", "5", "--ext", "kdc"}, "stgctl.find/1")),
            Lines{"anna:sales.kdc@0"});
  EXPECT_EQ(names(look_json({"find", "--newer-than", "1h"}, "stgctl.find/1")),
            Lines{"anna:loose.txt@0"});
  EXPECT_EQ(look_json({"find", "--older-than", "1d"}, "stgctl.find/1").size(), 5U);
}

TEST_F(ClientLook, SaysWhenNothingMatches) {
  make_tree();
  EXPECT_EQ(look({"ls", "nothing*"}, 3), "");
  EXPECT_EQ(look({"find", "--owner", "nobody"}, 3), "");
  look({"versions", "none.kdc"}, 3);
  look({"cat", "none.kdc"}, 3);
  look({"which", "none.kdc"}, 3);
  look({"parts", "sales.kdc"}, 3);
  look({"keys", "show", "none.txt", "--owner", "anna"}, 3);
  const outcome no_owner = on_tree({"keys", "show", "profile.txt"});
  EXPECT_EQ(no_owner.code, 3);
  EXPECT_TRUE(messages(no_owner).ends_with("; use --owner NAME\n")) << no_owner.err;
  look({"profile", "show", "--owner", "bert"}, 3);
}

TEST_F(ClientLook, RefusesWhatItDoesNotUnderstand) {
  make_tree();
  look({"find", "--min-size", "large"}, 2);
  look({"find", "--older-than", "long"}, 2);
  look({"stats", "--by", "colour"}, 2);
  look({"cat", "sales.kdc"}, 12);
  look({"cat", "sales.kdc", "--owner", "bert", "--json"}, 2);
  look({"parts", "sales.kdc", "--area", "mail"}, 2);
  look({"keys", "show", "x", "--area", "list"}, 2);
  look({"profile", "show"}, 2);
  look({"explain", "part", "sales.kdc"}, 2);
}

TEST_F(ClientLook, SaysWhenThereIsNoTree) {
  for (const Lines& command : {Lines{"ls"}, Lines{"status"}, Lines{"stats"}, Lines{"check"},
                               Lines{"doctor"}, Lines{"locks"}, Lines{"index", "dump"},
                               Lines{"explain", "read", "a"}, Lines{"versions", "a"}}) {
    EXPECT_EQ(on_tree(command).code, 10) << command[0];
  }
  EXPECT_EQ(list_folder(root()), Lines{});
}

// ---- one document ------------------------------------------------------------------------------

TEST_F(ClientLook, ListsTheVersionsOfADocument) {
  make_tree();
  const std::vector<Json> lines = look_json({"versions", "daily.kdf"}, "stgctl.versions/1");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].at("timestamp"), 10);
  EXPECT_EQ(lines[0].at("bytes"), 5);
  EXPECT_EQ(lines[0].at("served"), true);
  EXPECT_EQ(lines[1].at("timestamp"), 20);
  EXPECT_NE(look({"versions", "sales.kdc"}).find("docs/bert/sales.kdc@0"), std::string::npos);
}

TEST_F(ClientLook, MarksVersionsThatNoReadingFinds) {
  init();
  put("sales.kdc", "x", 7);
  EXPECT_NE(look({"versions", "sales.kdc"}).find("(never read)"), std::string::npos);
  EXPECT_EQ(look_json({"versions", "sales.kdc"}, "stgctl.versions/1")[0].at("served"), false);
}

TEST_F(ClientLook, TellsTheFileOfAnEntryAndTheEntryOfAFile) {
  make_tree();
  const std::string path = lines_of(look({"which", "sales.kdc", "--owner", "anna"})).at(0);
  EXPECT_EQ(path, shell_path(storage() + "\\docs\\anna\\00000055\\00000001.kdc"));
  EXPECT_EQ(look({"which", path}), "docs/anna/sales.kdc@0\n");
  make_folder(path + "_\\html\\p1");
  write_file(path + "_\\html\\p1\\page", "x");
  EXPECT_EQ(look({"which", shell_path(path + "_\\html\\p1\\page")}), "docs/anna/sales.kdc@0\n");
  // Of two files whose names precede an underscore, the longer one has the sub-parts.
  const std::string bucket = storage() + "\\docs\\anna\\00000055\\";
  for (const char* file : {"plain", "plain_a"}) write_file(bucket + file, "x");
  make_folder(bucket + "plain_a_s");
  EXPECT_EQ(look({"which", shell_path(bucket + "plain_a_s")}), "docs/anna/plain_a@0  (orphan)\n");
#if defined(_WIN32)
  // The system finds the files in any letter case.
  const auto in_capitals = [](std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
  };
  EXPECT_EQ(look({"which", in_capitals(path)}), "docs/ANNA/sales.kdc@0\n");
  EXPECT_EQ(look({"which", in_capitals(path + "_\\html\\p1\\page")}), "docs/ANNA/sales.kdc@0\n");
  EXPECT_EQ(look({"which", "DOCS\\anna\\00000055\\00000001.KDC"}), "docs/anna/sales.kdc@0\n");
#endif
  const std::vector<Json> back = look_json({"which", path}, "stgctl.which/1");
  EXPECT_EQ(back.at(0).at("direction"), "logical");
  EXPECT_EQ(look_json({"which", "sales.kdc"}, "stgctl.which/1").size(), 2U);
  look({"which", shell_path(root() + "\\elsewhere")}, 3);
}

TEST_F(ClientLook, WritesADocumentAsItIs) {
  make_tree();
  EXPECT_EQ(look({"cat", "sales.kdc", "--owner", "bert"}), "of bert");
  EXPECT_EQ(look({"cat", "daily.kdf", "--timestamp", "20"}), "second one");
}

TEST_F(ClientLook, ListsPartsWithTheirDecisions) {
  make_tree();
  const std::string document = physical("docs", "sales.kdc");
  make_folder(document + "_\\html\\p1");
  write_file(document + "_\\html\\p1\\page", "x");
  set_modify_time(document + "_\\html\\p1\\page", 1'500'000'000);
  const std::vector<Json> lines = look_json({"parts", "sales.kdc", "--why"}, "stgctl.parts/1");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].at("rendition"), "html@p1");
  EXPECT_EQ(lines[0].at("part"), "page");
  EXPECT_EQ(lines[0].at("decision"), "regenerate");
  EXPECT_EQ(lines[0].at("code"), 2);
  EXPECT_EQ(lines[0].at("part_modified"), 1'500'000'000);
  EXPECT_NE(lines[0].at("why").get<std::string>().find("newer than the part"), std::string::npos);
  EXPECT_NE(look({"parts", "sales.kdc"}).find("html@p1  page"), std::string::npos);
  look({"parts", "sales.kdc", "--stamp", "2024"}, 3);
}

TEST_F(ClientLook, ShowsKeyFilesAndProfiles) {
  make_tree();
  EXPECT_EQ(look({"keys", "show", "profile.txt", "--owner", "anna"}), "a=1\nb=2=3\n");
  EXPECT_EQ(look({"profile", "show", "--owner", "anna"}), "a=1\nb=2=3\n");
  const Json shown = look_json({"profile", "show", "--owner", "anna"}, "stgctl.profile/1").at(0);
  EXPECT_EQ(shown.at("passed_over"), 1);
  EXPECT_EQ(shown.at("lines").at(1).at("name"), "b");
  EXPECT_EQ(shown.at("lines").at(1).at("value"), "2=3");
  EXPECT_EQ(look_json({"keys", "show", "profile.txt", "--owner", "anna"}, "stgctl.keys/1").size(),
            1U);
  make_folder(scratch().path("config"));
  write_file(scratch().path("config\\master.txt"), "m=1\n");
  EXPECT_EQ(look({"profile", "show", "--config", shell_path(scratch().path("config"))}), "m=1\n");
}

// ---- the tree ----------------------------------------------------------------------------------

TEST_F(ClientLook, ShowsATreeAtAGlance) {
  make_tree();
  const Json status = look_json({"status"}, "stgctl.status/1").at(0);
  EXPECT_EQ(status.at("layout"), "owner");
  EXPECT_EQ(status.at("areas").at(0).at("area"), "docs");
  EXPECT_EQ(status.at("areas").at(0).at("owners"), 2);
  EXPECT_EQ(status.at("areas").at(0).at("folders"), 3);
  EXPECT_EQ(status.at("areas").at(0).at("indexes"), 3);
  EXPECT_NE(look({"status"}).find("with owners"), std::string::npos);
}

TEST_F(ClientLook, AddsUpByEveryGroup) {
  make_tree();
  for (const char* by : {"area", "owner", "ext", "age", "folder"}) {
    const Json stats = look_json({"stats", "--by", by}, "stgctl.stats/1").at(0);
    EXPECT_EQ(stats.at("by"), by);
    EXPECT_EQ(stats.at("documents").at("files"), 6);
    std::uint64_t files = stats.at("others").at("files");
    std::uint64_t bytes = stats.at("others").at("bytes");
    for (const Json& group : stats.at("groups")) {
      files += group.at("files").get<std::uint64_t>();
      bytes += group.at("bytes").get<std::uint64_t>();
    }
    EXPECT_EQ(files, stats.at("files").get<std::uint64_t>());
    EXPECT_EQ(bytes, stats.at("bytes").get<std::uint64_t>());
  }
  const Json top = look_json({"stats", "--by", "ext", "--top", "1"}, "stgctl.stats/1").at(0);
  EXPECT_EQ(top.at("groups").size(), 1U);
  EXPECT_GE(top.at("other_groups"), 3);
  // Bars of block characters.
  EXPECT_NE(look({"stats"}).find("\xE2\x96\x88"), std::string::npos);
}

TEST_F(ClientLook, ShowsTheLinesOfAnIndex) {
  make_tree();
  const std::string index = folder_of("user") + "\\index.dat";
  write_file(index, read_file(index) + "zz.txt_0000000000/00000009\nnonsense\n");
  const std::vector<Json> dump =
      look_json({"index", "dump", "--area", "user"}, "stgctl.index-dump/1");
  ASSERT_EQ(dump.size(), 4U);
  EXPECT_EQ(dump[0].at("record"), "index");
  EXPECT_EQ(dump[0].at("state"), "read");
  EXPECT_EQ(dump[1].at("verdict"), "entry");
  EXPECT_EQ(dump[2].at("verdict"), "no-file");
  EXPECT_EQ(dump[2].at("line"), 2);
  EXPECT_EQ(dump[3].at("verdict"), "no-separator");
  const std::string lint = look({"index", "lint", shell_path(folder_of("user"))}, 4);
  EXPECT_EQ(lines_of(lint).size(), 2U);
  EXPECT_NE(lint.find("index.dat:2: zz.txt"), std::string::npos) << lint;
  EXPECT_EQ(look({"index", "lint", "--area", "docs"}), "");
  EXPECT_EQ(look_json({"index", "lint", "--area", "user"}, "stgctl.index-lint/1", 4).size(), 3U);
  look({"index", "dump", shell_path(root())}, 3);
}

TEST_F(ClientLook, ShowsWhatTheTreeStandsOn) {
  make_tree();
  const Json doctor = look_json({"doctor"}, "stgctl.doctor/1").at(0);
  EXPECT_EQ(doctor.at("locks"), "exclude");
  EXPECT_FALSE(doctor.at("file_system").get<std::string>().empty());
  EXPECT_NE(look({"doctor"}).find(" bytes\nlocks "), std::string::npos) << look({"doctor"});
  look({"doctor", "--try-locks", shell_path(storage() + "\\docs")}, 12);
  const outcome beside = on_tree({"doctor", "--try-locks", shell_path(root())});
  EXPECT_EQ(beside.code, 0) << beside.err;
  EXPECT_EQ(list_folder(root()), Lines{"storage"});
}

#if !defined(_WIN32)  // where the system names the folder
TEST_F(ClientLook, TriesLocksInTheFolderForTemporaryFiles) {
  make_tree();
  const std::string folder = shell_path(scratch().path("t\xff"));
  const Environment odd = {{"TMPDIR", folder}};
  const outcome missing = on_tree({"doctor"}, odd);
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(missing.err,
            "stgctl: the folder for temporary files is not a folder; name another folder by "
            "--try-locks\n");
  std::filesystem::create_directory(folder);
  const outcome there = on_tree({"doctor", "--json"}, odd);
  EXPECT_EQ(there.code, 0) << there.err;
  EXPECT_TRUE(Json::parse(there.out).contains("locks_tried_in_hex")) << there.out;
}
#endif

TEST_F(ClientLook, TriesWhetherAFolderCanBeShared) {
  make_tree();
  make_folder(scratch().path("share"));
  make_folder(scratch().path("another"));
  const std::string share = shell_path(scratch().path("share"));
  const std::vector<Json> both =
      look_json({"doctor", "--shared", share, "--peer", share}, "stgctl.doctor-shared/1");
  ASSERT_EQ(both.size(), 11U);
  EXPECT_EQ(both[0].at("check"), "same-folder");
  EXPECT_EQ(both[0].at("holds"), "yes");
  EXPECT_EQ(both.back().at("record"), "summary");
  EXPECT_EQ(both.back().at("missing"), 0);
  EXPECT_EQ(both.back().at("not_tried"), 0);
  // A folder outside needs no tree.
  const outcome alone = run({"doctor", "--shared", share});
  EXPECT_EQ(alone.code, 0) << alone.err;
  EXPECT_NE(alone.out.find("names-at-once"), std::string::npos) << alone.out;
  EXPECT_NE(alone.err.find("were not tested"), std::string::npos) << alone.err;
  const std::string text =
      look({"doctor", "--shared", share, "--peer", shell_path(scratch().path("another"))}, 4);
  EXPECT_NE(text.find("MISSING"), std::string::npos) << text;
  EXPECT_NE(text.find("remedy"), std::string::npos) << text;
  look({"doctor", "--shared", shell_path(storage() + "\\docs")}, 12);
  look({"doctor", "--peer", share}, 2);
  look({"doctor", "--shared", share, "--try-locks", share}, 2);
  EXPECT_EQ(list_folder(scratch().path("share")), Lines{});
}

// ---- locks -------------------------------------------------------------------------------------

TEST_F(ClientLook, TellsWhoHoldsALock) {
  make_tree();
  const std::vector<Json> free = look_json({"locks"}, "stgctl.locks/1");
  ASSERT_EQ(free.size(), 1U);
  EXPECT_EQ(free[0].at("record"), "summary");
  vu_file writer(folder_of("user"), "index.dat");
  writer.open(vu_file::o_append);
  const std::vector<Json> held = json({"locks"});
#if defined(_WIN32)
  EXPECT_EQ(held.at(0).at("known"), "none");
#else
  ASSERT_EQ(held.size(), 2U);
  EXPECT_EQ(held[0].at("lock"), "exclusive");
  EXPECT_EQ(held[0].at("path"), shell_path(folder_of("user") + "\\index.dat"));
#endif
}

TEST_F(ClientLook, GivesUpALockedIndexInTime) {
  make_tree();
  vu_file writer(folder_of("user"), "index.dat");
  writer.open(vu_file::o_append);
  for (const Lines& command :
       {Lines{"ls"}, Lines{"index", "dump"}, Lines{"explain", "read", "x", "--area", "user"},
        Lines{"keys", "show", "profile.txt"}, Lines{"versions", "profile.txt"}}) {
    Lines arguments = command;
    arguments.insert(arguments.end(), {"--lock-timeout", "0.1", "--owner", "anna"});
    EXPECT_EQ(on_tree(arguments).code, 11) << command[0];
  }
  for (const Lines& command :
       {Lines{"ls"}, Lines{"versions", "profile.txt"}, Lines{"keys", "show", "profile.txt"},
        Lines{"get", "profile.txt", "-n"}, Lines{"clean", "--older-than", "1d", "-n"},
        Lines{"keys", "set", "profile.txt", "a=b", "--yes"}, Lines{"index", "snapshot"}}) {
    Lines arguments = command;
    arguments.insert(arguments.end(), {"--lock-timeout", "0.1"});
    if (command[0] != "index") arguments.insert(arguments.end(), {"--owner", "user/anna"});
    const outcome result = on_tree(arguments);
    EXPECT_EQ(result.code, 11) << command[0];
#if defined(_WIN32)
    const char* const advice = "; --lock-timeout sets how long to wait\n";
#else
    const char* const advice =
        "; 'stgctl locks' names the holder, --lock-timeout sets how long to wait\n";
#endif
    EXPECT_NE(messages(result).find(advice), std::string::npos) << command[0] << result.err;
  }
  EXPECT_EQ(on_tree({"check", "--lock-timeout", "0.1"}).code, 4);
#if !defined(_WIN32)
  EXPECT_EQ(on_tree({"ls", "--no-lock"}).code, 0);
  const std::string page = shell_path(scratch().path("page.html"));
  const outcome report = on_tree(
      {"report", "--html", page, "--area", "user", "--lock-timeout", "0.1", "--no-lock", "--yes"});
  EXPECT_EQ(report.code, 0) << report.err;
  EXPECT_EQ(read_file(page).find("could not be calculated"), std::string::npos);
#endif
}

#if !defined(_WIN32)

TEST_F(ClientLook, ShowsNamesOfAnyBytes) {
  init();
  make_folder(folder_of("user"));
  write_file(folder_of("user") + "\\a\xE4\x1B.txt", "x");
  write_file(folder_of("user") + "\\index.dat", "a\xE4\x1B.txt_0000000000/a\xE4\x1B.txt\n");
  EXPECT_EQ(look({"ls"}),
            "user/anna/a\xEF\xBF\xBD\xEF\xBF\xBD.txt@0  a\xEF\xBF\xBD\xEF\xBF\xBD.txt\n");
  const Json line = look_json({"ls"}, "stgctl.ls/1").at(0);
  EXPECT_EQ(line.at("name_hex"), "61e41b2e747874");
  EXPECT_EQ(look({"cat", "a\xE4\x1B.txt"}), "x");
}

#endif
