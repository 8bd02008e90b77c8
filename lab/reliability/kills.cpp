// Kills at random moments. First the worker: it reads operations as lines, and reports their ends.

#include "lab/reliability/kills.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "lab/reliability/tree_state.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using Words = std::vector<std::string>;

Words words_of(const std::string& line) {
  Words words;
  std::istringstream stream(line);
  for (std::string word; std::getline(stream, word, '\t');) words.push_back(word);
  return words;
}

void write_document(const Words& words) {
  vu_storage storage;
  vu_file file;
  storage.OpenWrite(file, "owner", words.at(1), STG::UserRepository, true, std::stol(words.at(2)));
  if (!file.is_open()) throw std::runtime_error("the document is not open");
  storage.Write(file, text_number(std::stoull(words.at(3)), std::stoull(words.at(4))));
  storage.Close(file);
}

void save_keys(const Words& words) {
  STG::NameValueSeq lines;
  for (std::size_t i = 2; i < words.size(); ++i) lines.push_back({words[i], "1"});
  if (vu_storage::saveUserOrMasterProfile("owner", words.at(1), lines) != 0) {
    throw std::runtime_error("the keys were not saved");
  }
}

/// A faulty save: truncates the index, then writes it.
void rewrite_plainly(const std::string& folder) {
  vu_file file(folder, "index.dat");
  file.open(vu_file::o_read);
  std::string text;
  file.read(text, 0);
  file.close();
  file.open(vu_file::o_truncate);
  file.write(text);
  file.close();
}

std::string carry_out(const std::string& folder, const Words& words) {
  const std::string& verb = words.at(0);
  if (verb == "create") return STGIndex::create(folder, words.at(1), std::stol(words.at(2)));
  if (verb == "remove") {
    STGIndex::remove(folder, words.at(1), std::stol(words.at(2)));
  } else if (verb == "rename") {
    STGIndex::rename(folder, words.at(1), std::stol(words.at(2)), words.at(3),
                     std::stol(words.at(4)));
  } else if (verb == "clean") {
    STGIndex::AgeMap kept;
    STGIndex::cleanOutOfDateOutput(folder, std::stoul(words.at(1)), kept, false);
  } else if (verb == "write") {
    write_document(words);
  } else if (verb == "copy") {
    if (!vu_storage::copyToStorage(words.at(3), "owner", words.at(1), STG::UserRepository, true,
                                   std::stol(words.at(2)))) {
      throw std::runtime_error("the copy failed");
    }
  } else if (verb == "keys") {
    save_keys(words);
  } else if (verb == "forget") {
    if (!vu_storage::RemoveFile(std::string("owner"), words.at(1), STG::UserRepository,
                                std::stol(words.at(2)))) {
      throw std::runtime_error("the document was not removed");
    }
  } else if (verb == "plain") {
    rewrite_plainly(folder);
  } else {
    throw std::runtime_error("unknown command \"" + verb + "\"");
  }
  return {};
}

/// Reports the beginning of the n-th write after the first operation, and then waits a moment.
/// Without the wait the kill comes too late: the writes of a save are only microseconds apart.
class WriteAnnouncer {
 public:
  explicit WriteAnnouncer(long number) : m_number(number) {}
  void first_operation_is_over() { m_left = m_number; }

 private:
  void announce() {
    if (m_left == 0 || --m_left != 0) return;
    say(kWriteBegins);
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }

  const long m_number;
  long m_left = 0;
  os::faults::Fault m_hook = os::faults::before(
      os::faults::Call::write, [this] { announce(); }, 1, os::faults::Times::kLasting);
};

/// args: a root; synchronisation "on" or "off"; the number of the write to announce, 0 for none.
int kill_worker(const std::vector<std::string>& args) {
  WriteAnnouncer announcer(std::stol(args.at(2)));
  if (!vu_storage::initRootStorage(args.at(0), true, args.at(1) == "on")) return 1;
  const std::string folder = vu_storage::getUserPath() + "\\owner";
  bool first = true;
  say("ready");
  while (const std::optional<std::string> line = hear()) {
    try {
      say("done " + carry_out(folder, words_of(*line)));
    } catch (const vu_file_except& e) {
      say("exception " + e.what());
    } catch (const std::exception& e) {
      say(std::string("exception ") + e.what());
    }
    if (std::exchange(first, false)) announcer.first_operation_is_over();
  }
  return 0;
}
REGISTER_ROLE(kill_worker, kill_worker)

// ------------------------------------------------------------------------------------------------
// The suites with kills at random moments.

struct Share {
  std::size_t index_size;
  int kills;  ///< in each round
};
/// From this number of kills on, some of them must have struck in the middle of a rewrite.
constexpr std::uint64_t kEnoughToJudge = 50;
constexpr Share kShares[] = {{2000, 28}, {4000, 28}, {20'000, 28}, {500'000, 12}};

/// One folder; it is created before its first kill.
struct Place {
  Share share;
  Adoption adoption;
  std::unique_ptr<KillFolder> folder;
  std::uint64_t killed;
};

/// Limits the kills of a round, so that a short run also reaches every folder.
std::uint64_t kills_of_round(const Run& run, const Share& share, std::size_t places) {
  const std::uint64_t fair = std::max<std::uint64_t>(1, run.wanted() / places);
  return std::min<std::uint64_t>(static_cast<std::uint64_t>(share.kills), fair);
}

void tell(Run& run, const Tally& tally) {
  run.figure("operations that finished before the kills", tally.operations);
  for (const auto& [kind, count] : tally.kills_by_kind) run.figure("killed " + kind, count);
  for (const auto& [what, count] : tally.windows) run.figure("left behind: " + what, count);
  run.figure("kills while the index was rewritten", tally.in_the_middle);
  // Usually every fourth.
  if (run.reached() >= kEnoughToJudge && tally.in_the_middle == 0)
    run.fail("no kill struck while the index was rewritten");
}

void kill_many(Run& run, Aim aim) {
  Tally tally;
  std::vector<Place> places;
  for (const Share& share : kShares) {
    if (share.index_size > 100'000 && machine::large_folders_are_slow()) continue;
    for (const Adoption adoption : {Adoption::kOff, Adoption::kOn}) {
      places.push_back({share, adoption, nullptr, 0});
    }
  }
  while (run.goes_on()) {
    for (Place& place : places) {
      if (!run.goes_on()) break;
      if (place.folder == nullptr) {
        place.folder =
            std::make_unique<KillFolder>(run, place.share.index_size, place.adoption, aim);
      }
      const std::uint64_t before = run.reached();
      const std::uint64_t end = before + kills_of_round(run, place.share, places.size());
      while (run.reached() < end && run.goes_on()) place.folder->kill_once(tally);
      place.killed += run.reached() - before;
      if (run.failures() == 0) place.folder->work_undisturbed();
    }
  }
  for (const Place& place : places) {
    if (place.folder != nullptr) run.figure("kills at " + place.folder->name(), place.killed);
  }
  tell(run, tally);
}
void kills(Run& run) { kill_many(run, Aim::kAnyMoment); }
REGISTER_SUITE(kills, "kills", "operations killed at random moments; index of 2, 4, 20 and 500 KB",
               "kills", 50'000, Scratch::kDisk)

void kills_writing(Run& run) { kill_many(run, Aim::kWrites); }
REGISTER_SUITE(kills_writing, "kills-writing",
               "the same, each shortly after one of the operation's writes begins", "kills", 5000,
               Scratch::kDisk)

/// The same with a worker that truncates the index and then writes it. Passes as soon as a
/// corruption is found; fails if the count is reached before.
void kills_noticed(Run& run) {
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  KillFolder folder(inner, 2000, Adoption::kOff);
  Tally tally;
  while (inner.failures() == 0 && run.goes_on()) {
    const std::uint64_t before = inner.reached();
    folder.kill_once(tally, Victim::kFaulty);
    run.counted(inner.reached() - before);
  }
  if (inner.failures() == 0) {
    run.fail("the corruption by a save that truncates first was not detected");
  } else {
    run.figure("found after the last kill", inner.first_failures().front());
  }
}
REGISTER_SUITE(kills_noticed, "kills-noticed",
               "the corruption by a save that truncates first is detected", "kills at most", 300,
               Scratch::kDisk)

// ------------------------------------------------------------------------------------------------
// Kills during a migration: many renames and one save of the index, then one save of the read list.

constexpr std::size_t kMails = 12;

std::string field(std::size_t mail) { return "subject%20" + std::to_string(100 + mail); }
std::string plain_field(std::size_t mail) { return "subject " + std::to_string(100 + mail); }
std::string escaped(std::size_t mail) { return "f4#f5#from#" + field(mail) + ".kdb"; }
std::string unescaped(std::size_t mail) { return "f4#f5#from#" + plain_field(mail) + ".kdb"; }
std::string content(std::size_t mail) {
  return std::string(mail * 700, static_cast<char>('a' + mail)) + std::to_string(mail);
}
std::string read_line(const std::string& subject) {
  return "from\t" + subject + "\tB\tf4\tf5\tf6\t\n";
}

/// args: a root; the number of a system call, from 1, or 0; "before" or "after". Migrates, and
/// prints "done" and the number of its system calls. Before or after the given call it prints
/// "there", waits a moment for its kill, and continues.
int mail_converter(const std::vector<std::string>& args) {
  using os::faults::Call;
  vu_storage::initRootStorage(args.at(0), true, true);
  constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
  const std::uint64_t call = std::stoull(args.at(1));
  const std::uint64_t nth = call == 0 ? kNever : call;
  const auto wait = [] {
    say("there");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  };
  const auto hook = args.at(2) == "before" ? os::faults::before(Call::system, wait, nth)
                                           : os::faults::after(Call::system, wait, nth);
  say("ready");
  hear();
  try {
    os::faults::begin_sequence();
    STGIndex::migrateInboxRead("anna");
    say("done");
    say(std::to_string(os::faults::end_sequence().size()));
  } catch (const vu_file_except& e) {
    say("exception " + e.what());
  }
  hear();
  return 0;
}
REGISTER_ROLE(mail_converter, mail_converter)

class MailFolder {
 public:
  explicit MailFolder(Run& run) : m_run(run) {}

  /// Learns the number of system calls of a whole migration.
  /// @return whether there are enough to strike between them.
  bool learn() {
    fill();
    m_calls = convert_undisturbed();
    if (m_calls < kMails) m_run.fail("a migration makes " + std::to_string(m_calls) + " calls");
    return m_calls >= kMails;
  }

  /// Fills one folder. Kills a migration in it near a random system call; then another migration
  /// must finish.
  void kill_once() {
    fill();
    const Tree before = tree_of(folder());
    const char* const side = m_run.below(2) == 0 ? "before" : "after";
    child_process killed("mail_converter", {m_scratch.path(), std::to_string(some_call()), side});
    if (killed.next_line() != "ready") return m_run.fail("the migration does not start");
    killed.tell("go");
    if (killed.next_line() != "there") m_run.fail("the migration does not reach its call");
    std::this_thread::sleep_for(std::chrono::microseconds(m_run.below(3000)));
    killed.kill();
    if (killed.wait() != child_process::kKilled) m_run.fail("the migration ended before its kill");
    const bool ended = killed.next_line(std::chrono::milliseconds(0)).has_value();
    check("killed", ended);
    if (!ended && tree_of(folder()) != before) ++(m_migrated == 0 ? m_begun : m_saved);
    convert_undisturbed();
    check("migrated afterwards", true);
    check_list_is_converted();
    if (!ended) m_run.counted(1);
    // A kill takes part of the moment that the converter waits for it.
    if (ended && ++m_late > 20 + 4 * m_run.reached())
      m_run.fail("four of five kills come after the end of the migration");
  }

  void tell() const {
    for (const auto& [what, count] : m_windows) m_run.figure("left behind: " + what, count);
    m_run.figure("kills after the first change and before the new names", m_begun);
    m_run.figure("kills after the new names and before the end", m_saved);
    // Each is more than a third of all kills.
    if (m_run.reached() >= 20 && (m_begun == 0 || m_saved == 0))
      m_run.fail("no kill struck in one half of the migration");
  }

 private:
  std::string folder() const { return m_scratch.path() + "\\storage\\mail\\anna"; }

  void fill() {
    std::filesystem::remove_all(native(folder()));
    make_folder(folder());
    m_old_list.clear();
    m_new_list.clear();
    for (std::size_t mail = 0; mail < kMails; ++mail) {
      write_file(folder() + "\\" + escaped(mail), content(mail));
      m_old_list += read_line(field(mail));
      m_new_list += read_line(plain_field(mail));
    }
    write_file(folder() + "\\read.txt", m_old_list);
    m_list_was_cut = false;
  }

  /// Every second call is one of the last ones, which follow the save of the index.
  std::uint64_t some_call() {
    constexpr std::uint64_t kLast = 6;
    const bool is_late = m_run.reached() % 2 != 0;
    return is_late ? m_calls - m_run.below(m_calls / kLast) : 1 + m_run.below(m_calls);
  }

  /// @return the number of system calls.
  std::uint64_t convert_undisturbed() {
    child_process converter("mail_converter", {m_scratch.path(), "0", "before"});
    converter.next_line();
    converter.tell("go");
    if (converter.next_line() != "done") m_run.fail("the next migration fails");
    const std::uint64_t calls = std::stoull(converter.next_line().value_or("0"));
    converter.close_input();
    expect_normal_end(m_run, converter, "the next migration");
    return calls;
  }

  /// The bytes of every mail are complete, under the old or the new name. Either all mails have
  /// their new names in the index, or none.
  void check(const std::string& when, bool ended) {
    const reader::FolderState state = reader::look_at(folder());
    std::size_t converted = 0;
    for (std::size_t mail = 0; mail < kMails; ++mail) {
      const auto line = state.lines.find(reader::key_for(unescaped(mail), 0));
      if (line != state.lines.end()) {
        ++converted;
        if (!holds(reader::file_of(line->first, line->second), mail)) {
          m_run.fail(when + ": foreign bytes in " + unescaped(mail));
        }
        if (holds(escaped(mail), mail)) ++m_windows["the old file of a migrated mail"];
        continue;
      }
      if (ended) m_run.fail(when + ": not migrated: " + escaped(mail));
      if (!holds(escaped(mail), mail)) {
        m_run.fail(when + ": under neither name: " + escaped(mail));
      }
    }
    if (converted != 0 && converted != kMails) {
      m_run.fail(when + ": " + std::to_string(converted) + " of the mails are migrated");
    }
    ++m_windows[converted == 0 ? "no mail migrated" : "all mails migrated"];
    m_migrated = converted;
    check_plain(when, state);
    check_list(when);
  }

  /// A reader of plain lines finds no entry that no operation wrote.
  void check_plain(const std::string& when, const reader::FolderState& state) {
    for (const auto& [key, stored] : state.plain_lines) {
      const std::string name = reader::parts_of_key(key).first;
      const bool is_known = name == stored || name == "k1mailboxcompliant" ||
                            (name.starts_with("f4#f5#from#subject ") && name.ends_with(".kdb"));
      if (!is_known) m_run.fail(when + ": invented: " + key + " / " + stored);
    }
  }

  bool holds(const std::string& file, std::size_t mail) const {
    const std::string path = folder() + "\\" + file;
    return file_exists(path) && read_file(path) == content(mail);
  }

  void check_list(const std::string& when) {
    const std::string list = read_file(folder() + "\\read.txt");
    if (list == m_old_list || list == m_new_list) return;
    if (m_list_was_cut) return;
    // If a change is lost, its name stays escaped. The list may also be cut after any byte.
    if (!is_beginning_of_lines(list)) m_run.fail(when + ": the read list contains foreign bytes");
    if (lines_of(list) < kMails) {
      ++m_windows["the read list, empty or cut short"];
      m_list_was_cut = true;
    }
  }

  static std::size_t lines_of(const std::string& list) {
    return static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n'));
  }

  /// Whether the text is a beginning of the mails' lines in order, each of them escaped or not.
  bool is_beginning_of_lines(const std::string& list) const {
    std::string_view rest(list);
    for (std::size_t mail = 0; mail < kMails && !rest.empty(); ++mail) {
      const std::string one = read_line(field(mail));
      const std::string other = read_line(plain_field(mail));
      if (rest.starts_with(one)) {
        rest.remove_prefix(one.size());
      } else if (rest.starts_with(other)) {
        rest.remove_prefix(other.size());
      } else {
        return one.starts_with(rest) || other.starts_with(rest);
      }
    }
    return rest.empty();
  }

  void check_list_is_converted() {
    // A migrated folder is not migrated again; a save completes what a kill interrupted.
    STGIndex::setSynchronizeMode(false);
    STGIndex::updateIndexFile(folder());
    const reader::FolderState state = reader::look_at(folder());
    if (state.lines.count(reader::key_for("k1mailboxcompliant", 0)) == 0) {
      m_run.fail("the migrated folder has no marker");
    }
    if (state.index_text != reader::index_text_of(state.lines)) {
      m_run.fail("index.dat contains more than its entries");
    }
  }

  Run& m_run;
  const scratch_folder m_scratch;
  std::string m_old_list;
  std::string m_new_list;
  bool m_list_was_cut = false;
  std::uint64_t m_calls = 0;   ///< of a whole migration
  std::size_t m_migrated = 0;  ///< mails with new names, in the last check
  std::uint64_t m_late = 0;    ///< kills after the end of the migration
  std::uint64_t m_begun = 0;   ///< kills after the first change and before the new names
  std::uint64_t m_saved = 0;   ///< kills after the new names and before the end
  std::map<std::string, std::uint64_t> m_windows;
};

void kills_mail(Run& run) {
  MailFolder folder(run);
  if (!folder.learn()) return;
  while (run.goes_on()) folder.kill_once();
  folder.tell();
}
REGISTER_SUITE(kills_mail, "kills-mail", "the migration of a mail folder, killed at random moments",
               "kills", 1000, Scratch::kDisk)

}  // namespace
}  // namespace reliability
