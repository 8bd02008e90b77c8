#include <algorithm>

#include "client/tests/stgctl/fixture.h"
#include "vu_file.h"

namespace {

/// The codes of the findings, sorted.
std::vector<std::string> codes(const std::vector<Json>& lines) {
  std::vector<std::string> all;
  for (const Json& line : lines) {
    if (line.value("record", "") == "finding") all.push_back(line.at("code"));
  }
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace

class ClientMoving : public Client {
 protected:
  using Codes = std::vector<std::string>;

  ClientMoving() {
    init();
    make_folder(other_root());
  }
  std::string other_root() const { return scratch().path("other"); }
  std::string other_tree() const { return other_root() + "\\storage"; }
  std::string folder() const { return scratch().path("export"); }
  std::string file(const std::string& name) const { return folder() + "\\" + name; }

  /// Runs a command on the target tree.
  outcome on_other(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--root", shell_path(other_root())});
    return run(arguments);
  }
  std::vector<Json> json_on_other(std::vector<std::string> arguments, int code = 0) {
    arguments.emplace_back("--json");
    const outcome result = on_other(std::move(arguments));
    EXPECT_EQ(result.code, code) << result.err << result.out;
    std::vector<Json> lines;
    for (const std::string& line : lines_of(result.out)) lines.push_back(Json::parse(line));
    return lines;
  }
  void init_other() { ASSERT_EQ(on_other({"init", "--yes"}).code, 0); }

  /// A tree with something of each kind.
  void fill() {
    put("a.kdc", "first");
    put("v.kdf", "one", 1);
    put("v.kdf", "two", 2, 1'500'000'000);
    put("empty.kdc", "");
    const std::string document = physical("docs", "a.kdc");
    for (const char* const part : {"_2024\\html\\page\\1.htm", "_\\xls\\sheet"}) {
      const std::string path = document + part;
      make_folder(path.substr(0, path.find_last_of('\\')));
      write_file(path, std::string("part ") + part);
      set_modify_time(path, 1'650'000'000);
    }
    ASSERT_EQ(change({"put", source("notes.txt", "n"), "--area", "user"}).code, 0);
    ASSERT_EQ(change({"keys", "set", "attribut.txt", "notes.txt=1"}).code, 0);
    ASSERT_EQ(change({"keys", "set", "best.ctg", "notes.txt=1"}).code, 0);
    ASSERT_EQ(change({"profile", "set", "language=en"}).code, 0);
    ASSERT_EQ(change({"put", source("f4#f5#x#A%20B.kdb", "mail"), "--area", "mail"}).code, 0);
    for (const char* const path :
         {"\\list\\anna\\sub\\deep", "\\list\\anna\\sub.txt", "\\semlets\\s"}) {
      const std::string place = storage() + path;
      make_folder(place.substr(0, place.find_last_of('\\')));
      write_file(place, path);
      set_modify_time(place, 1'640'000'000);
    }
  }
  static constexpr int kItems = 14;

  void export_all() {
    const outcome result = on_tree({"export", shell_path(folder())});
    ASSERT_EQ(result.code, 0) << result.err;
  }
  outcome import_all(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"import", shell_path(folder()), "--yes"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return on_other(arguments);
  }
  std::vector<Json> compare(int code, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"compare", shell_path(folder())};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return json_on_other(arguments, code);
  }
};

class ClientExport : public ClientMoving {};
class ClientImport : public ClientMoving {};
class ClientCompare : public ClientMoving {};

TEST_F(ClientExport, WritesFilesUnderTheirLogicalNamesAndChangesNothing) {
  fill();
  const std::string before = tree();
  const std::vector<Json> lines = json({"export", shell_path(folder())});
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(read_file(file("docs\\anna\\0\\a.kdc")), "first");
  EXPECT_EQ(read_file(file("docs\\anna\\1\\v.kdf")), "one");
  EXPECT_EQ(read_file(file("docs\\anna\\2\\v.kdf")), "two");
  EXPECT_EQ(get_modify_time(file("docs\\anna\\2\\v.kdf")), 1'500'000'000);
  EXPECT_EQ(read_file(file("docs\\anna\\0.parts\\a.kdc\\_2024\\html\\page\\1.htm")),
            "part _2024\\html\\page\\1.htm");
  EXPECT_EQ(read_file(file("user\\anna\\0\\attribut.txt")), "notes.txt=1\n");
  EXPECT_EQ(read_file(file("user\\anna\\0\\profile.txt")), "language=en\n");
  EXPECT_EQ(read_file(file("mail\\anna\\0\\f4#f5#x#A%20B.kdb")), "mail");
  EXPECT_EQ(read_file(file("list\\anna\\sub\\deep")), "\\list\\anna\\sub\\deep");
  EXPECT_EQ(read_file(file("semlets\\s")), "\\semlets\\s");
  EXPECT_EQ(lines.size(), kItems + 1U);
  EXPECT_EQ(lines.back().at("versions"), 9);
  EXPECT_EQ(lines.back().at("parts"), 2);
  EXPECT_EQ(lines.back().at("files"), 3);
  EXPECT_EQ(lines.back().at("failed"), 0);
  EXPECT_EQ(lines.back().at("whole"), true);
  EXPECT_EQ(lines_of(read_file(file("manifest.jsonl"))).size(), kItems + 2U);
}

TEST_F(ClientExport, DescribesEachFileInTheManifest) {
  put("a.kdc", "first");
  export_all();
  const std::vector<std::string> lines = lines_of(read_file(file("manifest.jsonl")));
  ASSERT_EQ(lines.size(), 3U);
  const Json head = Json::parse(lines[0]);
  EXPECT_EQ(head.at("schema"), "stgctl.manifest/1");
  EXPECT_EQ(head.at("record"), "tree");
  EXPECT_EQ(head.at("layout"), "owner");
  const Json item = Json::parse(lines[1]);
  EXPECT_EQ(item.at("schema"), "stgctl.manifest/1");
  EXPECT_EQ(item.at("record"), "version");
  EXPECT_EQ(item.at("area"), "docs");
  EXPECT_EQ(item.at("owner"), "anna");
  EXPECT_EQ(item.at("name"), "a.kdc");
  EXPECT_EQ(item.at("timestamp"), 0);
  EXPECT_EQ(item.at("file"), "docs/anna/0/a.kdc");
  EXPECT_EQ(item.at("bytes"), 5);
  EXPECT_EQ(item.at("modified"), 1'600'000'000);
  EXPECT_EQ(item.at("xxh128").get<std::string>().size(), 32U);
  EXPECT_FALSE(item.contains("name_hex"));
  const Json end = Json::parse(lines[2]);
  EXPECT_EQ(end.at("record"), "end");
  EXPECT_EQ(end.at("versions"), 1);
  EXPECT_EQ(end.at("bytes"), 5);
}

TEST_F(ClientExport, PreviewsWithoutMakingAFolder) {
  fill();
  const std::string before = tree();
  const std::vector<Json> lines = json({"export", shell_path(folder()), "--dry-run"});
  EXPECT_EQ(lines.size(), kItems + 1U);
  EXPECT_EQ(lines.back().at("dry_run"), true);
  EXPECT_FALSE(folder_exists(folder()));
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientExport, NarrowsDownToAnAreaAndAnOwner) {
  fill();
  const std::vector<Json> lines =
      json({"export", shell_path(folder()), "--area", "user", "--owner", "anna"});
  EXPECT_EQ(lines.back().at("versions"), 4);
  EXPECT_EQ(lines.back().at("parts"), 0);
  EXPECT_FALSE(folder_exists(file("docs")));
  // Omitted items are not missing.
  EXPECT_EQ(json({"compare", shell_path(folder())}).back().at("equal"), 4);
  EXPECT_EQ(on_tree({"compare", shell_path(folder()), "--area", "docs"}).code, 3);
}

TEST_F(ClientExport, TellsWhatItLeavesOut) {
  put("a.kdc", "x");
  const std::string document = physical("docs", "a.kdc");
  const std::string place = document.substr(0, document.find_last_of("/\\"));
  write_file(place + "\\stray.tmp", "no index names it");
  make_folder(place + "\\99999999.kdc_\\html");
  const std::vector<Json> lines = json({"export", shell_path(folder())});
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(lines.back().at("skipped"), 2);
  EXPECT_EQ(json({"compare", shell_path(folder())}).back().at("left_out"), 2);
}

TEST_F(ClientExport, RefusesAFolderThatHoldsAnything) {
  put("a.kdc", "x");
  make_folder(folder());
  write_file(file("precious"), "p");
  EXPECT_EQ(on_tree({"export", shell_path(folder())}).code, 12);
  EXPECT_EQ(list_folder(folder()), std::vector<std::string>{"precious"});
  const std::string before = tree();
  EXPECT_EQ(on_tree({"export", shell_path(storage() + "\\docs\\e")}).code, 12);
  EXPECT_EQ(on_tree({"export", shell_path(file("precious"))}).code, 12);
  EXPECT_EQ(tree(), before);
  const std::string second = scratch().path("second");
  EXPECT_EQ(on_tree({"export", shell_path(second)}).code, 0);
  const outcome again = on_tree({"export", shell_path(second)});
  EXPECT_EQ(again.code, 12);
  EXPECT_NE(again.err.find("already contains an export"), std::string::npos) << again.err;
}

TEST_F(ClientExport, BeginsAnUnfinishedOneAnewWhenToldTo) {
  fill();
  make_folder(file("docs\\anna\\0"));
  write_file(file("docs\\anna\\0\\gone.kdc"), "of a document that is gone by now");
  write_file(file("manifest.jsonl.part"), "{}\n");
  EXPECT_EQ(on_tree({"export", shell_path(folder())}).code, 12);
  EXPECT_TRUE(file_exists(file("docs\\anna\\0\\gone.kdc")));
  EXPECT_EQ(on_tree({"export", shell_path(folder()), "--yes"}).code, 0);
  EXPECT_FALSE(file_exists(file("docs\\anna\\0\\gone.kdc")));
  EXPECT_FALSE(file_exists(file("manifest.jsonl.part")));
  EXPECT_EQ(json({"compare", shell_path(folder())}).back().at("equal"), kItems);
}

TEST_F(ClientImport, GivesATreeThatComparesEqual) {
  fill();
  export_all();
  init_other();
  const std::vector<Json> lines = json_on_other({"import", shell_path(folder()), "--yes"});
  EXPECT_EQ(lines.back().at("done"), kItems);
  EXPECT_EQ(lines.back().at("failed"), 0);
  EXPECT_EQ(compare(0).back().at("equal"), kItems);
  EXPECT_EQ(on_other({"check"}).code, 4);  // the empty document, as in the first tree
  EXPECT_EQ(on_tree({"check"}).code, 4);
  EXPECT_FALSE(file_exists(other_tree() + ".import"));
  // And in the other direction: the same manifest, byte for byte.
  const std::string back = scratch().path("back");
  EXPECT_EQ(on_other({"export", shell_path(back)}).code, 0);
  EXPECT_EQ(read_file(back + "\\manifest.jsonl"), read_file(file("manifest.jsonl")));
}

TEST_F(ClientImport, RestoresTimesThatTheExportHasLost) {
  put("a.kdc", "first", 0, 1'400'000'000);
  export_all();
  set_modify_time(file("docs\\anna\\0\\a.kdc"), 1'700'000'000);
  init_other();
  ASSERT_EQ(import_all().code, 0);
  EXPECT_EQ(compare(0).back().at("equal"), 1);
}

TEST_F(ClientImport, RestoresNoTimeWhileAnotherProcessHasTheDocumentOpen) {
  fill();
  export_all();
  const std::string document = physical("docs", "a.kdc");
  const std::string part = document + "_\\xls\\sheet";
  const std::string last = storage() + "\\semlets\\s";
  for (const std::string& path : {document, part}) {
    for (const std::string& each : {path, last}) set_modify_time(each, 1'300'000'000);
    const std::size_t name = path.find_last_of("/\\") + 1;
    vu_file open_elsewhere(path.substr(0, name - 1), path.substr(name));
    open_elsewhere.open(vu_file::o_read);
    const outcome result =
        on_tree({"import", shell_path(folder()), "--yes", "--lock-timeout", "0.2"});
    EXPECT_EQ(result.code, 5) << result.err;
    EXPECT_NE(result.err.find("its time is not restored"), std::string::npos) << result.err;
    EXPECT_EQ(get_modify_time(path), 1'300'000'000);
    // Only this item fails.
    EXPECT_EQ(result.err.find("its document"), std::string::npos) << result.err;
    EXPECT_EQ(get_modify_time(last), 1'640'000'000);
    open_elsewhere.close();
    EXPECT_EQ(json({"import", shell_path(folder()), "--yes"}).back().at("done"), 1);
    EXPECT_NE(get_modify_time(path), 1'300'000'000);
  }
}

TEST_F(ClientImport, PreviewsWithoutChangingAnything) {
  fill();
  export_all();
  init_other();
  const std::string before = snapshot(other_root());
  const std::vector<Json> promised = json_on_other({"import", shell_path(folder()), "-n"});
  EXPECT_EQ(snapshot(other_root()), before);
  EXPECT_EQ(on_other({"import", shell_path(folder())}).code, 12);
  EXPECT_EQ(snapshot(other_root()), before);
  const std::vector<Json> done = json_on_other({"import", shell_path(folder()), "--yes"});
  EXPECT_EQ(actions(done), actions(promised));
  EXPECT_EQ(actions(done).size(), static_cast<std::size_t>(kItems));
}

TEST_F(ClientImport, SkipsWhatIsThereAndKeepsWhatDiffers) {
  fill();
  export_all();
  init_other();
  ASSERT_EQ(import_all().code, 0);
  const std::string complete = snapshot(other_tree());
  const std::vector<Json> again = json_on_other({"import", shell_path(folder()), "--yes"});
  EXPECT_EQ(again.back().at("skipped"), kItems);
  EXPECT_EQ(snapshot(other_tree()), complete);
  ASSERT_EQ(
      on_other({"put", source("a.kdc", "mine"), "--owner", "anna", "--replace", "--yes"}).code, 0);
  write_file(other_tree() + "\\list\\anna\\sub.txt", "mine, too");
  const std::string before = snapshot(other_tree());
  const outcome kept = import_all();
  // The document, its sub-parts (they belong only to the exported document), and the list.
  EXPECT_EQ(kept.code, 1) << kept.out;
  EXPECT_NE(kept.err.find("--replace"), std::string::npos);
  EXPECT_EQ(snapshot(other_tree()), before);
  EXPECT_EQ(import_all({"--replace"}).code, 0);
  EXPECT_EQ(compare(0).back().at("equal"), kItems);
}

TEST_F(ClientImport, CompletesWhatAKilledOneHadBegun) {
  fill();
  export_all();
  init_other();
  ASSERT_EQ(import_all().code, 0);
  // A document that was truncated in the middle of its copy.
  std::string cut;
  for (const auto& each :
       std::filesystem::recursive_directory_iterator(native(other_tree() + "\\docs"))) {
    if (each.is_regular_file() && read_file(each.path().string()) == "two")
      cut = each.path().string();
  }
  ASSERT_FALSE(cut.empty());
  write_file(cut, "t");
  EXPECT_EQ(import_all().code, 1);
  EXPECT_EQ(read_file(cut), "t");
  // The journal has an unfinished line, too.
  write_file(other_tree() + ".import", "\n+docs/616e6e61/762e6b6466/2\n+docs/61");
  const std::vector<Json> preview = json_on_other({"import", shell_path(folder()), "-n"});
  EXPECT_EQ(preview.back().at("failed"), 0);
  const std::vector<Json> lines = json_on_other({"import", shell_path(folder()), "--yes"});
  const std::vector<std::string> all = actions(lines);
  EXPECT_EQ(std::count(all.begin(), all.end(), "completed v.kdf"), 1);
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(compare(0).back().at("equal"), kItems);
  EXPECT_FALSE(file_exists(other_tree() + ".import"));
}

TEST_F(ClientImport, StoresNothingThatTheManifestDoesNotVouchFor) {
  fill();
  export_all();
  init_other();
  write_file(file("docs\\anna\\1\\v.kdf"), "oh!");
  std::filesystem::remove(native(file("semlets\\s")));
  const std::vector<Json> lines = json_on_other({"import", shell_path(folder()), "--yes"}, 5);
  EXPECT_EQ(lines.back().at("failed"), 2);
  EXPECT_EQ(codes(compare(4)), (Codes{"not-in-tree", "not-in-tree"}));
  EXPECT_EQ(on_other({"get", "v.kdf", "--timestamp", "1", "--owner", "anna"}).code, 3);
}

TEST_F(ClientImport, RefusesAManifestThatIsDamaged) {
  fill();
  export_all();
  init_other();
  const std::string whole = read_file(file("manifest.jsonl"));
  const std::string before = snapshot(other_tree());
  const std::size_t at = whole.find("\"bytes\":5");
  const std::vector<std::pair<const char*, std::string>> damages = {
      {"cut", whole.substr(0, whole.size() / 2)},
      {"a line less", whole.substr(0, whole.find('\n') + 1) +
                          whole.substr(whole.find("\n", whole.find('\n') + 1) + 1)},
      {"no end", whole.substr(0, whole.rfind('\n', whole.size() - 2) + 1)},
      {"another number", whole.substr(0, at) + "\"bytes\":6" + whole.substr(at + 9)},
      {"more", whole + "{}\n"},
      {"nothing", ""},
      {"garbage", "\xff\xfe\n"}};
  for (const auto& [what, text] : damages) {
    write_file(file("manifest.jsonl"), text);
    const outcome result = import_all();
    EXPECT_EQ(result.code, 1) << what;
    EXPECT_NE(result.err.find("damaged"), std::string::npos) << what << ": " << result.err;
    EXPECT_EQ(on_other({"compare", shell_path(folder())}).code, 1) << what;
  }
  EXPECT_EQ(snapshot(other_tree()), before);
  EXPECT_EQ(on_other({"import", shell_path(scratch().path("in")), "--yes"}).code, 1);
}

TEST_F(ClientImport, LetsNoManifestLeadOutOfItsFolders) {
  put("a.kdc", "first");
  write_file(scratch().path("secret"), "first");
  make_folder(storage() + "\\list\\anna");
  write_file(storage() + "\\list\\anna\\l", "first");
  export_all();
  init_other();
  const std::string whole = read_file(file("manifest.jsonl"));
  const std::string before = snapshot(other_root());
  const std::vector<std::pair<std::string, std::string>> changes = {
      {"docs/anna/0/a.kdc", "../secret"},
      {"docs/anna/0/a.kdc", "docs/../../secret"},
      {"\"path\":\"l\"", "\"path\":\"../../../../l\""},
      {"\"path\":\"l\"", "\"path\":\"/tmp/l\""},
      {"\"owner\":\"anna\",\"path\"", "\"owner\":\"..\",\"path\""}};
  for (const auto& [from, to] : changes) {
    std::string text = whole;
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
    write_file(file("manifest.jsonl"), text);
    const outcome result = import_all();
    EXPECT_EQ(result.code, 1) << to;
    EXPECT_NE(result.err.find("damaged"), std::string::npos) << result.err;
  }
  EXPECT_EQ(snapshot(other_root()), before);
}

TEST_F(ClientImport, WantsATreeOfTheSameLayout) {
  put("a.kdc", "x");
  export_all();
  EXPECT_EQ(import_all().code, 10);
  ASSERT_EQ(on_other({"init", "--layout", "flat", "--yes"}).code, 0);
  EXPECT_EQ(import_all({"--layout", "flat"}).code, 12);
  EXPECT_EQ(on_other({"compare", shell_path(folder()), "--layout", "flat"}).code, 12);
}

TEST_F(ClientImport, MovesATreeWithoutOwnersToo) {
  const std::string flat = scratch().path("flat");
  make_folder(flat);
  const std::vector<std::string> where = {"--root", shell_path(flat), "--yes", "--layout", "flat"};
  const auto with = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), where.begin(), where.end());
    return run(arguments);
  };
  ASSERT_EQ(with({"init"}).code, 0);
  ASSERT_EQ(with({"put", source("a.kdc", "x")}).code, 0);
  ASSERT_EQ(with({"put", source("u.txt", "y"), "--area", "user"}).code, 0);
  ASSERT_EQ(with({"export", shell_path(folder())}).code, 0);
  EXPECT_EQ(read_file(file("docs\\0\\a.kdc")), "x");
  ASSERT_EQ(on_other({"init", "--layout", "flat", "--yes"}).code, 0);
  EXPECT_EQ(import_all({"--layout", "flat"}).code, 0);
  EXPECT_EQ(compare(0, {"--layout", "flat"}).back().at("equal"), 2);
}

TEST_F(ClientCompare, FindsEveryKindOfDifferenceAndChangesNothing) {
  fill();
  export_all();
  init_other();
  ASSERT_EQ(import_all().code, 0);
  ASSERT_EQ(on_other({"rm", "empty.kdc", "--owner", "anna", "--yes"}).code, 0);
  ASSERT_EQ(on_other({"put", source("new.kdc", "n"), "--owner", "anna", "--yes"}).code, 0);
  ASSERT_EQ(on_other({"put", source("notes.txt", "N"), "--area", "user", "--owner", "anna",
                      "--replace", "--yes"})
                .code,
            0);
  set_modify_time(other_tree() + "\\list\\anna\\sub.txt", 1'111'111'111);
  write_file(file("semlets\\s"), "damaged");
  const std::string before = snapshot(scratch().path());
  const std::vector<Json> lines = compare(4);
  EXPECT_EQ(codes(lines), (Codes{"bytes-differ", "export-damaged", "not-in-export", "not-in-tree",
                                 "time-differs"}));
  EXPECT_EQ(lines.back().at("record"), "summary");
  EXPECT_EQ(lines.back().at("equal"), kItems - 4);
  EXPECT_EQ(lines.back().at("codes").at("not-in-tree"), 1);
  const outcome text = on_other({"compare", shell_path(folder())});
  EXPECT_EQ(text.code, 4);
  for (const char* const part : {"not-in-tree", "empty.kdc@0", "5 findings", "time-differs"})
    EXPECT_NE(text.out.find(part), std::string::npos) << text.out;
  // Of equal size and time, so that only their bytes differ.
  EXPECT_EQ(codes(compare(4, {"--quick"})),
            (Codes{"export-damaged", "not-in-export", "not-in-tree", "time-differs"}));
  EXPECT_EQ(snapshot(scratch().path()), before);
}

TEST_F(ClientCompare, HasNothingToCompareInAnEmptyTree) {
  export_all();
  init_other();
  EXPECT_EQ(on_other({"compare", shell_path(folder())}).code, 3);
  EXPECT_EQ(import_all().code, 3);
}

TEST_F(ClientMoving, WhatAKilledImportHadBegunIsNobodysDocument) {
  fill();
  ASSERT_EQ(change({"rm", "empty.kdc"}).code, 0);
  const std::string list = storage() + "\\list\\anna\\deep";
  make_folder(list);
  write_file(list + "\\kept.lst", "kept");
  const std::string page = physical("docs", "a.kdc") + "_2024\\html\\page\\";
  const std::vector<std::string> left = {storage() + "\\list\\anna\\.stgctl-part",
                                         list + "\\.stgctl-part", page + ".stgctl-part"};
  for (const std::string& each : left) write_file(each, "half");
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"ls"}, {"find"}, {"sync", "-n"}, {"parts", "a.kdc"}})
    EXPECT_EQ(on_tree(command).out.find(".stgctl-part"), std::string::npos) << command[0];
  ASSERT_EQ(on_tree({"export", shell_path(folder())}).code, 0);
  EXPECT_EQ(snapshot(folder()).find(".stgctl-part"), std::string::npos);
  EXPECT_EQ(codes(json({"check"}, 4)), (Codes(left.size(), "unfinished-file")));
  const std::string plan = shell_path(scratch().path("plan.json"));
  ASSERT_EQ(on_tree({"repair", "--plan", plan, "--yes"}).code, 0);
  ASSERT_EQ(on_tree({"repair", "--apply", plan, "--yes"}).code, 0);
  for (const std::string& each : left) EXPECT_FALSE(file_exists(each)) << each;
  EXPECT_EQ(on_tree({"check"}).code, 0);
  EXPECT_EQ(read_file(list + "\\kept.lst"), "kept");
}
