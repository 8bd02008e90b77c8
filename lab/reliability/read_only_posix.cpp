// Read-only files and folders, for an ordinary user and the superuser. A file is read-only if its
// owner may not write it; that also stops the superuser here. A read-only folder stops an ordinary
// user from creating and removing files, but not the superuser.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

constexpr ::uid_t kOrdinaryUser = 65534;

enum class Who : std::uint8_t { kUser, kSuperuser };

/// One test case, on a new folder with two entries.
class Answer {
 public:
  explicit Answer(Who who) : m_who(who) {
    make_folder(folder());
    write_file(folder() + "\\index.dat", "a.kdb_0000000000/00000001\nb.kdb_0000000000/00000002\n");
    write_file(folder() + "\\index", "00000002");
    write_file(folder() + "\\00000001.kdb", "text of a");
    write_file(folder() + "\\00000002.kdb", "text of b");
  }
  ~Answer() { ::chmod(native(folder()).c_str(), 0755); }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  std::string folder() const { return m_scratch.path() + "\\storage\\user\\owner"; }
  std::string file(const std::string& name) const { return folder() + "\\" + name; }
  bool superuser() const { return m_who == Who::kSuperuser; }

  void lock_folder() { ::chmod(native(folder()).c_str(), 0555); }
  void expect(bool truth, const std::string& what) {
    if (!truth) m_wrong.push_back(what);
  }
  reader::FolderState state() const { return reader::look_at(folder()); }
  bool has(const std::string& key) const { return state().lines.count(key) != 0; }
  const recording_sink& sink() const { return m_sink; }
  bool traced(vu_host::trace_event event, const std::string& text) const {
    const std::vector<std::string> all = m_sink.events(event);
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string& each) { return each.rfind(text, 0) == 0; });
  }
  bool warned(const std::string& text) const { return traced(vu_host::trace_event::warning, text); }
  bool failed(const std::string& text) const { return traced(vu_host::trace_event::error, text); }
  const std::vector<std::string>& wrong() const { return m_wrong; }

 private:
  const Who m_who;
  scratch_folder m_scratch;
  const initialised_storage m_storage{m_scratch.path()};
  recording_sink m_sink;
  std::vector<std::string> m_wrong;
};

/// The result of the operation, or "exception" with its text.
std::string answer_of(const std::function<std::string()>& operation) {
  try {
    return operation();
  } catch (const vu_file_except& e) {
    return "exception " + e.what();
  }
}

struct Question {
  const char* name;
  std::function<void(Answer&)> ask;
};

std::vector<Question> about_files() {
  return {
      {"create with a read-only index",
       [](Answer& a) {
         make_read_only(a.file("index.dat"));
         const std::string text = a.state().index_text;
         const std::string name = STGIndex::create(a.folder(), "n.kdb", 0);
         a.expect(name == "00000003.kdb", "the answer is " + name);
         a.expect(file_exists(a.file(name)), "the data file stays");
         a.expect(a.state().index_text == text, "the index stays");
         a.expect(a.warned("STGIndex::~STGIndex(): Unable to create/update index.dat"),
                  "a warning");
       }},
      {"create with a read-only counter",
       [](Answer& a) {
         make_read_only(a.file("index"));
         const std::string name = STGIndex::create(a.folder(), "n.kdb", 0);
         a.expect(name == "99999999.kdb", "the answer is " + name);
         a.expect(a.has("n.kdb_0000000000"), "the entry is there");
         a.expect(a.failed("STGIndex::newIndex : return 99999999"), "an error");
       }},
      {"write a read-only document",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         vu_storage storage;
         vu_file document;
         storage.OpenWrite(document, std::string("owner"), "a.kdb", STG::UserRepository, true, 0);
         a.expect(!document.is_open(), "it is not open");
         a.expect(read_file(a.file("00000001.kdb")) == "text of a", "its bytes stay");
         a.expect(a.failed("vu_storage::OpenWrite : throw exception on open"), "an error");
       }},
      {"read a read-only document",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         vu_storage storage;
         vu_file document;
         storage.OpenRead(document, std::string("owner"), "a.kdb", STG::UserRepository, 0);
         std::string text;
         if (document.is_open()) storage.Read(document, text, 0);
         a.expect(text == "text of a", "its bytes are read");
       }},
      {"remove the entry of a read-only document",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         STGIndex::remove(a.folder(), "a.kdb", 0);
         a.expect(!a.has("a.kdb_0000000000"), "the entry is gone");
         a.expect(!file_exists(a.file("00000001.kdb")), "the file is gone");
       }},
      {"rename a read-only document",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         STGIndex::rename(a.folder(), "a.kdb", 0, "n.kdb", 0);
         a.expect(a.has("n.kdb_0000000000") && !a.has("a.kdb_0000000000"), "the entry has moved");
         a.expect(read_file(a.file("00000003.kdb")) == "text of a", "its bytes have moved");
       }},
      {"clean read-only documents",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         STGIndex::cleanAllOutput(a.folder());
         a.expect(a.state().lines.empty(), "no entry is left");
         a.expect(a.state().files.empty(), "no file is left");
       }},
      {"remove a read-only file",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         vu_file::remove(a.file("00000001.kdb"));
         a.expect(file_exists(a.file("00000001.kdb")), "it stays");
       }},
      {"remove a folder with a read-only file",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         a.expect(vu_file::recurseRemoveDir(a.folder()), "the answer is true");
         a.expect(list_folder(a.folder()) == std::vector<std::string>{"00000001.kdb"}, "it stays");
       }},
      {"copy a read-only file, and onto one",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         a.expect(vu_file::copyFile(a.file("00000001.kdb"), a.file("copy"), true), "copied");
         a.expect(!is_writable(a.file("copy")), "the copy is read-only");
         a.expect(!vu_file::copyFile(a.file("00000002.kdb"), a.file("copy"), true), "refused");
         a.expect(read_file(a.file("copy")) == "text of a", "its bytes stay");
       }},
      {"open a read-only file for writing",
       [](Answer& a) {
         make_read_only(a.file("00000001.kdb"));
         vu_file file(a.file("00000001.kdb"));
         bool refused = false;
         a.expect(!file.try_open(vu_file::o_write, refused, true), "refused");
         a.expect(vu_file::chmodW(a.file("00000001.kdb")), "made writable");
         a.expect(file.try_open(vu_file::o_write, refused, true), "open");
       }},
  };
}

std::vector<Question> about_folders() {
  return {
      {"create in a read-only folder",
       [](Answer& a) {
         a.lock_folder();
         const std::string answer =
             answer_of([&] { return STGIndex::create(a.folder(), "n.kdb", 0); });
         a.expect(answer == (a.superuser() ? "00000003.kdb" : "exception throw exception on open"),
                  "the answer is " + answer);
         a.expect(a.has("n.kdb_0000000000") == a.superuser(), "the entry");
         a.expect(a.has("a.kdb_0000000000"), "the other entries stay");
       }},
      {"create in a read-only folder without a counter",
       [](Answer& a) {
         std::filesystem::remove(native(a.file("index")));
         a.lock_folder();
         const std::string answer =
             answer_of([&] { return STGIndex::create(a.folder(), "n.kdb", 0); });
         a.expect(a.failed("STGIndex::newIndex : return 99999999") != a.superuser(), "an error");
         // The lowest free number, if the counter can be created.
         a.expect(answer == (a.superuser() ? "00000003.kdb" : "exception throw exception on open"),
                  "the answer is " + answer);
       }},
      {"write a new document in a read-only folder",
       [](Answer& a) {
         a.lock_folder();
         vu_storage storage;
         vu_file document;
         storage.OpenWrite(document, std::string("owner"), "n.kdb", STG::UserRepository, true, 0);
         a.expect(document.is_open() == a.superuser(), "open or not");
         a.expect(a.failed("vu_storage::OpenWrite : throw exception on open") != a.superuser(),
                  "an error");
       }},
      {"replace a document in a read-only folder",
       [](Answer& a) {
         a.lock_folder();
         vu_storage storage;
         vu_file document;
         storage.OpenWrite(document, std::string("owner"), "a.kdb", STG::UserRepository, true, 0);
         storage.Write(document, "new");
         storage.Close(document);
         a.expect(read_file(a.file("00000001.kdb")) == "new", "the folder does not matter");
       }},
      {"remove in a read-only folder",
       [](Answer& a) {
         a.lock_folder();
         STGIndex::remove(a.folder(), "a.kdb", 0);
         a.expect(a.has("a.kdb_0000000000") != a.superuser(), "the entry comes back");
         a.expect(file_exists(a.file("00000001.kdb")) != a.superuser(), "the file stays");
         a.expect(a.failed("STGIndex: removal of file failed: ") != a.superuser(), "an error");
       }},
      {"list a read-only folder",
       [](Answer& a) {
         a.lock_folder();
         STGIndex::NameMap all;
         STGIndex::plValues(a.folder(), all);
         a.expect(all.size() == 2, "both entries");
       }},
      {"look into a read-only folder without an index",
       [](Answer& a) {
         std::filesystem::remove(native(a.file("index.dat")));
         a.lock_folder();
         std::string name;
         const bool found = STGIndex::exists(a.folder(), "a.kdb", 0, name);
         a.expect(!found, "nothing is found");
         a.expect(file_exists(a.file("index.dat")) == a.superuser(), "an index is created");
       }},
  };
}

/// Runs all test cases. A helper first becomes an ordinary user if needed.
std::vector<std::string> ask_all(Who who, std::uint64_t& asked) {
  std::vector<std::string> wrong;
  for (const auto& questions : {about_files(), about_folders()}) {
    for (const Question& each : questions) {
      Answer answer(who);
      each.ask(answer);
      ++asked;
      for (const std::string& what : answer.wrong()) {
        wrong.push_back(std::string(who == Who::kUser ? "a user, " : "the superuser, ") +
                        each.name + ": " + what);
      }
    }
  }
  return wrong;
}

/// args: "user" or "superuser".
int read_only_asker(const std::vector<std::string>& args) {
  const Who who = args.at(0) == "user" ? Who::kUser : Who::kSuperuser;
  if (who == Who::kUser && machine::is_superuser() &&
      (::setgid(kOrdinaryUser) != 0 || ::setuid(kOrdinaryUser) != 0)) {
    say("cannot become an ordinary user");
    return 1;
  }
  std::uint64_t asked = 0;
  for (const std::string& each : ask_all(who, asked)) say("wrong " + each);
  say("asked " + std::to_string(asked));
  return 0;
}
REGISTER_ROLE(read_only_asker, read_only_asker)

void ask(Run& run, const std::string& who) {
  child_process asker("read_only_asker", {who});
  while (const auto line = asker.next_line()) {
    if (line->rfind("asked ", 0) == 0) {
      run.counted(std::stoull(line->substr(6)));
      run.figure("cases as " + who, line->substr(6));
      return expect_normal_end(run, asker, "the helper for the " + who);
    }
    run.fail(*line);
  }
  run.fail("the helper for the " + who + " ended without a result");
}

void read_only(Run& run) {
  const scratch_folder scratch;
  // The ordinary user must be able to write in it.
  const std::string place = native(scratch.path()).string();
  if (machine::is_superuser() && ::chown(place.c_str(), kOrdinaryUser, kOrdinaryUser) != 0) {
    return run.not_run("cannot change the owner of a folder");
  }
  machine::set_variable("VU_TEST_TMP", place);
  ask(run, "user");
  if (machine::is_superuser()) {
    ask(run, "superuser");
  } else {
    run.figure("cases as superuser", "not run: this is an ordinary user");
  }
}
REGISTER_SUITE(read_only, "read-only", "read-only files and folders, for a user and the superuser",
               "answers", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
