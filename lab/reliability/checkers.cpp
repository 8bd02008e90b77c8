// Tests the checker of the kill suites. It accepts a folder in each state that an operation may
// leave, and reports each kind of corruption with the right complaint.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "lab/reliability/kills.h"
#include "lab/reliability/reliability.h"
#include "tests/support/scratch.h"

namespace reliability {
namespace {

/// A folder with three entries and a category file, and the killed operation.
struct Scenario {
  scratch_folder scratch;
  Model model;
  Operation killed;

  Scenario() {
    model.counter = 4;
    add("a.kdb", 1, "00000001", "text of a");
    add("b.kdb", 1, "00000002", "text of b");
    add("c", 1, "00000003", "text of c");
    add(kCategory, 0, "00000004", "a.kdb=1\nb.kdb=1\n");
    set_index(reader::index_text_of(model.lines()));
    set_counter("00000004");
  }
  void add(const std::string& name, long stamp, const std::string& stored,
           const std::string& content) {
    const std::string key = reader::key_for(name, stamp);
    model.entries[key] = {stored, content};
    put(reader::file_of(key, stored), content);
  }
  void put(const std::string& file, const std::string& content) {
    write_file(scratch.path(file), content);
  }
  void drop(const std::string& file) { std::filesystem::remove(native(scratch.path(file))); }
  void set_index(const std::string& text) { put("index.dat", text); }
  void set_counter(const std::string& text) { put("index", text); }
  /// Sets a line of the index; an empty @p stored removes it.
  void set_line(const std::string& key, const std::string& stored) {
    reader::Lines lines = reader::read_index(read_file(scratch.path("index.dat")),
                                             reader::look_at(scratch.path()).files);
    lines.erase(key);
    if (!stored.empty()) lines[key] = stored;
    set_index(reader::index_text_of(lines));
  }
};

struct Case {
  const char* name;
  const char* complaint;  ///< part of it; empty for a state that is allowed
  std::function<void(Scenario&)> arrange;
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
      {"nothing happened", "", [](Scenario& s) { s.killed = creation(); }},
      {"a create after its file", "",
       [](Scenario& s) {
         s.killed = creation();
         s.set_counter("00000005");
         s.put("00000005.kdb", "");
       }},
      {"a create that was complete", "",
       [](Scenario& s) {
         s.killed = creation();
         s.set_counter("00000005");
         s.put("00000005.kdb", "");
         s.set_line("n.kdb_0000000007", "00000005");
       }},
      {"a removal between its file and its line", "",
       [](Scenario& s) {
         s.killed = removal();
         s.drop("00000001.kdb");
       }},
      {"a document cut short", "",
       [](Scenario& s) {
         s.killed = writing();
         s.put("00000001.kdb", text_number(5, 20));
       }},
      {"a rename after its copy", "",
       [](Scenario& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text");
       }},
      {"a rename between its save and the removal of its source", "",
       [](Scenario& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.set_line("a.kdb_0000000001", "");
         s.set_line("b.kdb_0000000001", "00000005");
       }},
      {"a clean in the middle", "",
       [](Scenario& s) {
         s.killed = cleaning();
         s.drop("00000001.kdb");
       }},
      {"a save that left a second copy after the first", "",
       [](Scenario& s) {
         s.killed = creation();
         const std::string text = read_file(s.scratch.path("index.dat"));
         s.set_index(text + "   \n" + text.substr(0, 30));
       }},
  };
}

std::vector<Case> harm_to_the_index() {
  return {
      {"an empty index", "index.dat is empty", [](Scenario& s) { s.set_index(""); }},
      {"an index that is gone", "index.dat is gone", [](Scenario& s) { s.drop("index.dat"); }},
      {"a line lost", "lost: b.kdb", [](Scenario& s) { s.set_line("b.kdb_0000000001", ""); }},
      {"a line cut at its end", "lost: list.ctg",
       [](Scenario& s) {
         const std::string text = read_file(s.scratch.path("index.dat"));
         s.set_index(text.substr(0, text.size() - 5));
       }},
      {"a line redirected", "redirected: b.kdb",
       [](Scenario& s) { s.set_line("b.kdb_0000000001", "00000001"); }},
      {"a line joined from two", "invented: a.kdb_000000000b.kdb_0000000001",
       [](Scenario& s) {
         s.set_index(
             "a.kdb_0000000001/00000001\na.kdb_000000000b.kdb_0000000001/00000002\n"
             "b.kdb_0000000001/00000002\nc_0000000001/00000003\n"
             "list.ctg_0000000000/00000004\n");
       }},
      {"a line without a name", "invented: x.kdb_0000000001",
       [](Scenario& s) {
         s.set_line("x.kdb_0000000001", ""),
             s.set_index(read_file(s.scratch.path("index.dat")) + "x.kdb_0000000001/\n");
       }},
      {"a counter that went back", "went back", [](Scenario& s) { s.set_counter("00000003"); }},
      {"a counter that is empty", "the counter reads", [](Scenario& s) { s.set_counter(""); }},
      {"a counter that jumped", "jumped",
       [](Scenario& s) {
         s.killed = creation();
         s.set_counter("00000006");
       }},
      {"a number drawn twice", "leads to 00000002",
       [](Scenario& s) {
         s.killed = creation();
         s.set_line("n.kdb_0000000007", "00000002");
       }},
      {"a new entry with a number that is not drawn", "not drawn",
       [](Scenario& s) {
         s.killed = creation();
         s.put("00000005.kdb", "");
         s.set_line("n.kdb_0000000007", "00000005");
       }},
  };
}

std::vector<Case> harm_to_files() {
  return {
      {"other bytes in an untouched document", "bytes of b.kdb",
       [](Scenario& s) { s.put("00000002.kdb", "text of x"); }},
      {"an untouched document gone", "lost: b.kdb", [](Scenario& s) { s.drop("00000002.kdb"); }},
      {"foreign bytes in a written document", "neither its old bytes",
       [](Scenario& s) {
         s.killed = writing();
         s.put("00000001.kdb", text_number(6, 20));
       }},
      {"a line removed before its file", "lost: a.kdb",
       [](Scenario& s) {
         s.killed = removal();
         s.set_line("a.kdb_0000000001", "");
       }},
      {"a category line removed before the entry", "removed before the entry",
       [](Scenario& s) {
         s.killed = forgetting();
         s.put("00000004.ctg", "b.kdb=1\n");
       }},
      {"a renamed file gone, with its bytes", "bytes of a.kdb_0000000001 are gone",
       [](Scenario& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text");
         s.drop("00000001.kdb");
         s.set_line("a.kdb_0000000001", "");
         s.set_line("n.kdb_0000000001", "00000005");
       }},
      {"a renamed file gone before the new line is there", "lost: a.kdb",
       [](Scenario& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.drop("00000001.kdb");
       }},
      {"a replaced file gone before the new line is there", "lost: b.kdb",
       [](Scenario& s) {
         s.killed = renaming("b.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.drop("00000002.kdb");
       }},
      {"a rename that left both", "both there",
       [](Scenario& s) {
         s.killed = renaming("n.kdb");
         s.set_counter("00000005");
         s.put("00000005.kdb", "text of a");
         s.set_line("n.kdb_0000000001", "00000005");
       }},
      {"a clean that took too much", "lost: b.kdb",
       [](Scenario& s) {
         s.killed = cleaning();
         s.drop("00000002.kdb");
       }},
      {"a file that no operation created", "no operation created: 00000009.kdb",
       [](Scenario& s) { s.put("00000009.kdb", ""); }},
  };
}

void checkers(Run& run) {
  std::uint64_t complaints = 0;
  for (const auto& cases : {allowed(), harm_to_the_index(), harm_to_files()}) {
    for (const Case& each : cases) {
      Scenario scenario;
      scenario.killed.kind = Kind::kPlainRewrite;
      each.arrange(scenario);
      const Findings found =
          check(scenario.model, &scenario.killed, scenario.scratch.path(), Depth::kEveryByte);
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
  run.figure("kinds of corruption that are distinguished", complaints);
}
REGISTER_SUITE(checkers, "checkers",
               "the checker of the kill suites detects every kind of corruption", "cases", 0,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
