// The checker of the kill suites itself: a folder as an operation may leave it raises no complaint,
// and each kind of damage raises the right one.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "lab/reliability/kill_model.h"
#include "lab/reliability/reliability.h"
#include "tests/support/scratch.h"

namespace reliability {
namespace {

/// A folder with three entries and a category file, and an operation that was killed in it.
struct Scene {
  scratch_folder scratch;
  Model model;
  Operation killed;

  Scene() {
    model.counter = 4;
    add("a.kdb", 1, "00000001", "text of a");
    add("b.kdb", 1, "00000002", "text of b");
    add("c", 1, "00000003", "text of c");
    add(kCategory, 0, "00000004", "a.kdb=1\nb.kdb=1\n");
    set_index(index_text_of(model.lines()));
    set_counter("00000004");
  }
  void add(const std::string& name, long stamp, const std::string& stored,
           const std::string& content) {
    const std::string key = key_for(name, stamp);
    model.entries[key] = {stored, content};
    put(file_of(key, stored), content);
  }
  void put(const std::string& file, const std::string& content) {
    write_file(scratch.path(file), content);
  }
  void drop(const std::string& file) { std::filesystem::remove(native(scratch.path(file))); }
  void set_index(const std::string& text) { put("index.dat", text); }
  void set_counter(const std::string& text) { put("index", text); }
  /// The index with one line more, or one less (an empty name).
  void set_line(const std::string& key, const std::string& stored) {
    Lines lines = read_index(read_file(scratch.path("index.dat")), look_at(scratch.path()).files);
    lines.erase(key);
    if (!stored.empty()) lines[key] = stored;
    set_index(index_text_of(lines));
  }
};

struct Case {
  const char* name;
  const char* complaint;  ///< part of one; empty when there must be none
  std::function<void(Scene&)> arrange;
};

Operation operation(Kind kind, const std::string& name, long stamp) {
  Operation result;
  result.kind = kind;
  result.name = name;
  result.stamp = stamp;
  return result;
}
Operation creation() { return operation(Kind::kCreate, "n.kdb", 7); }
Operation removal() { return operation(Kind::kRemove, "a.kdb", 1); }
Operation forgetting() { return operation(Kind::kForget, "a.kdb", 1); }
Operation writing() {
  Operation result = operation(Kind::kWrite, "a.kdb", 1);
  result.text_id = 5;
  result.text_size = 50;
  return result;
}
Operation renaming(const std::string& to) {
  Operation result = operation(Kind::kRename, "a.kdb", 1);
  result.new_name = to;
  result.new_stamp = 1;
  return result;
}
Operation cleaning() {
  Operation result = operation(Kind::kClean, "", 0);
  result.out_of_date = {"00000001.kdb", "00000003"};
  return result;
}

std::vector<Case> allowed() {
  return {
      {"nothing happened", "", [](Scene& s) { s.killed = creation(); }},
      {"a create after its file", "",
       [](Scene& s) {
         s.killed = creation();
         s.set_counter("00000005");
         s.put("00000005.kdb", "");
       }},
      {"a create that was complete", "",
       [](Scene& s) {
         s.killed = creation();
         s.set_counter("00000005");
         s.put("00000005.kdb", "");
         s.set_line("n.kdb_0000000007", "00000005");
       }},
      {"a removal after its file, the line still there", "",
       [](Scene& s) {
         s.killed = removal();
         s.drop("00000001.kdb");
       }},
      {"a document cut short", "",
       [](Scene& s) {
         s.killed = writing();
         s.put("00000001.kdb", text_number(5, 20));
       }},
      {"a rename after its copy", "",
       [](Scene& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text");
       }},
      {"a rename after its save", "",
       [](Scene& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.set_line("a.kdb_0000000001", "");
         s.set_line("b.kdb_0000000001", "00000005");
       }},
      {"a clean in the middle", "",
       [](Scene& s) {
         s.killed = cleaning();
         s.drop("00000001.kdb");
       }},
      {"a save that left a second copy behind the first", "",
       [](Scene& s) {
         s.killed = creation();
         const std::string text = read_file(s.scratch.path("index.dat"));
         s.set_index(text + "   \n" + text.substr(0, 30));
       }},
  };
}

std::vector<Case> harm_to_the_index() {
  return {
      {"an empty index", "index.dat is empty", [](Scene& s) { s.set_index(""); }},
      {"an index that is gone", "index.dat is gone", [](Scene& s) { s.drop("index.dat"); }},
      {"a line lost", "lost: b.kdb", [](Scene& s) { s.set_line("b.kdb_0000000001", ""); }},
      {"a line cut at its end", "lost: list.ctg",
       [](Scene& s) {
         const std::string text = read_file(s.scratch.path("index.dat"));
         s.set_index(text.substr(0, text.size() - 5));
       }},
      {"a line redirected", "redirected: b.kdb",
       [](Scene& s) { s.set_line("b.kdb_0000000001", "00000001"); }},
      {"a line glued from two", "invented: a.kdb_000000000b.kdb_0000000001",
       [](Scene& s) {
         s.set_index(
             "a.kdb_0000000001/00000001\na.kdb_000000000b.kdb_0000000001/00000002\n"
             "b.kdb_0000000001/00000002\nc_0000000001/00000003\n"
             "list.ctg_0000000000/00000004\n");
       }},
      {"a line without a name", "invented: x.kdb_0000000001",
       [](Scene& s) {
         s.set_line("x.kdb_0000000001", ""),
             s.set_index(read_file(s.scratch.path("index.dat")) + "x.kdb_0000000001/\n");
       }},
      {"a counter that went back", "went back", [](Scene& s) { s.set_counter("00000003"); }},
      {"a counter that is empty", "the counter reads", [](Scene& s) { s.set_counter(""); }},
      {"a counter that jumped", "jumped",
       [](Scene& s) {
         s.killed = creation();
         s.set_counter("00000006");
       }},
      {"a number drawn twice", "leads to 00000002",
       [](Scene& s) {
         s.killed = creation();
         s.set_line("n.kdb_0000000007", "00000002");
       }},
      {"a new entry with a number that is not drawn", "not drawn",
       [](Scene& s) {
         s.killed = creation();
         s.put("00000005.kdb", "");
         s.set_line("n.kdb_0000000007", "00000005");
       }},
  };
}

std::vector<Case> harm_to_files() {
  return {
      {"other bytes in an untouched document", "bytes of b.kdb",
       [](Scene& s) { s.put("00000002.kdb", "text of x"); }},
      {"an untouched document gone", "lost: b.kdb", [](Scene& s) { s.drop("00000002.kdb"); }},
      {"foreign bytes in a written document", "neither its old bytes",
       [](Scene& s) {
         s.killed = writing();
         s.put("00000001.kdb", text_number(6, 20));
       }},
      {"a line that went before its file", "lost: a.kdb",
       [](Scene& s) {
         s.killed = removal();
         s.set_line("a.kdb_0000000001", "");
       }},
      {"a category line that went before the entry", "went before the entry",
       [](Scene& s) {
         s.killed = forgetting();
         s.put("00000004.ctg", "b.kdb=1\n");
       }},
      {"a renamed file gone without its bytes", "bytes of a.kdb_0000000001 are gone",
       [](Scene& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text");
         s.drop("00000001.kdb");
         s.set_line("a.kdb_0000000001", "");
         s.set_line("n.kdb_0000000001", "00000005");
       }},
      {"a renamed file gone before the new line is there", "lost: a.kdb",
       [](Scene& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.drop("00000001.kdb");
       }},
      {"a replaced file gone before the new line is there", "lost: b.kdb",
       [](Scene& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.drop("00000002.kdb");
       }},
      {"a rename that left both", "both there",
       [](Scene& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.set_line("n.kdb_0000000001", "00000005");
       }},
      {"a clean that took too much", "lost: b.kdb",
       [](Scene& s) {
         s.killed = cleaning();
         s.drop("00000002.kdb");
       }},
      {"a file from nowhere", "nobody made: 00000009.kdb",
       [](Scene& s) { s.put("00000009.kdb", ""); }},
  };
}

void checkers(Run& run) {
  std::uint64_t complaints = 0;
  for (const auto& cases : {allowed(), harm_to_the_index(), harm_to_files()}) {
    for (const Case& each : cases) {
      Scene scene;
      scene.killed.kind = Kind::kPlainRewrite;
      each.arrange(scene);
      const Findings found =
          check(scene.model, &scene.killed, scene.scratch.path(), Depth::kEveryByte);
      std::string all;
      for (const std::string& wrong : found.wrong) all += wrong + "; ";
      const std::string wanted = each.complaint;
      if (wanted.empty() ? !all.empty() : all.find(wanted) == std::string::npos) {
        run.fail(std::string(each.name) + ": \"" + wanted + "\" expected, found \"" + all + "\"");
      }
      if (!wanted.empty()) ++complaints;
      run.counted(1);
    }
  }
  run.figure("kinds of harm that are told apart", complaints);
}
REGISTER_SUITE(checkers, "checkers", "the checker of the kill suites sees every kind of harm",
               "cases", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
