// Processes killed while they convert a mail folder from escaped names: many renames and one save
// of the index, then one of the read list.

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "lab/reliability/folder_state.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

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

/// args: a root. Converts, says "done", and stays until it is told to end.
int mail_converter(const std::vector<std::string>& args) {
  vu_storage::initRootStorage(args.at(0), true, true);
  say("ready");
  hear();
  try {
    STGIndex::migrateInboxRead("anna");
    say("done");
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

  /// One folder: converted by a process that is killed, and then by one that is not.
  void kill_once() {
    fill();
    child_process killed("mail_converter", {m_scratch.path()});
    killed.next_line();
    killed.tell("go");
    const double part = std::uniform_real_distribution<double>(0.0, 1.2)(m_run.random());
    std::this_thread::sleep_for(std::chrono::duration<double, std::micro>(m_microseconds * part));
    killed.kill();
    killed.wait();
    const bool ended = killed.next_line(std::chrono::milliseconds(0)).has_value();
    check("killed", ended);
    convert_undisturbed();
    check("converted afterwards", true);
    check_list_is_converted();
    if (!ended) m_run.counted(1);
  }

  void tell() const {
    for (const auto& [what, count] : m_windows) m_run.figure("left behind: " + what, count);
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

  void convert_undisturbed() {
    const auto begin = Clock::now();
    child_process converter("mail_converter", {m_scratch.path()});
    converter.next_line();
    converter.tell("go");
    if (converter.next_line() != "done") m_run.fail("the next conversion does not work");
    const double taken = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
    m_microseconds += (taken - m_microseconds) / 8;
  }

  /// Every mail's bytes are there, whole, and under its old name or under its new one: all under
  /// the new ones, or none.
  void check(const std::string& when, bool ended) {
    const FolderState state = look_at(folder());
    std::size_t converted = 0;
    for (std::size_t mail = 0; mail < kMails; ++mail) {
      const auto line = state.lines.find(key_for(unescaped(mail), 0));
      if (line != state.lines.end()) {
        ++converted;
        if (!holds(file_of(line->first, line->second), mail)) {
          m_run.fail(when + ": foreign bytes in " + unescaped(mail));
        }
        if (holds(escaped(mail), mail))
          ++m_windows["the old file of a converted mail, without a line"];
        continue;
      }
      if (ended) m_run.fail(when + ": not converted: " + escaped(mail));
      if (!holds(escaped(mail), mail)) {
        m_run.fail(when + ": under neither name: " + escaped(mail));
      }
    }
    if (converted != 0 && converted != kMails) {
      m_run.fail(when + ": " + std::to_string(converted) + " of the mails are converted");
    }
    ++m_windows[converted == 0 ? "no mail converted" : "all mails converted"];
    check_plain(when, state);
    check_list(when);
  }

  /// A reader of lines alone finds none that nobody wrote.
  void check_plain(const std::string& when, const FolderState& state) {
    for (const auto& [key, stored] : state.plain_lines) {
      const std::string name = parts_of_key(key).first;
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
    // Names that are lost stay escaped in the list; a list cut short is a beginning of such a one.
    if (!is_beginning_of_lines(list)) m_run.fail(when + ": the read list holds foreign bytes");
    if (lines_of(list) < kMails) {
      ++m_windows["the read list, empty or cut short"];
      m_list_was_cut = true;
    }
  }

  static std::size_t lines_of(const std::string& list) {
    return static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n'));
  }

  /// Whether the text consists of the mails' lines in order, each escaped or not, maybe broken off.
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
    // A folder that is converted already is not written; a save finishes what a kill left.
    STGIndex::setSynchronizeMode(false);
    STGIndex::updateIndexFile(folder());
    const FolderState state = look_at(folder());
    if (state.lines.count(key_for("k1mailboxcompliant", 0)) == 0) {
      m_run.fail("the converted folder is not marked");
    }
    if (state.index_text != index_text_of(state.lines)) {
      m_run.fail("index.dat holds more than its lines");
    }
  }

  Run& m_run;
  const scratch_folder m_scratch;
  std::string m_old_list;
  std::string m_new_list;
  bool m_list_was_cut = false;
  double m_microseconds = 5000;
  std::map<std::string, std::uint64_t> m_windows;
};

void kills_mail(Run& run) {
  MailFolder folder(run);
  while (run.goes_on()) folder.kill_once();
  folder.tell();
}
REGISTER_SUITE(kills_mail, "kills-mail", "the conversion of a mail folder killed at random moments",
               "kills", 1000, Scratch::kDisk)

}  // namespace
}  // namespace reliability
