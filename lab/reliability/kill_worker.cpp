// The process that is killed: it carries out what it is told, one line at a time, and says when
// each is over.

#include <chrono>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lab/reliability/kill_field.h"
#include "lab/reliability/kill_model.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
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
    throw std::runtime_error("the keys are not saved");
  }
}

/// The index cut, then written again: what a save must not do.
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
      throw std::runtime_error("the document is not removed");
    }
  } else if (verb == "plain") {
    rewrite_plainly(folder);
  } else {
    throw std::runtime_error("what is \"" + verb + "\"?");
  }
  return {};
}

/// Says when the n-th write after the first operation begins, and stays there for a moment: a
/// process is told of too late otherwise, since the writes of a save follow each other in
/// microseconds.
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

/// args: a root; "on" or "off" for the synchronisation; which write to announce, 0 for none.
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

}  // namespace
}  // namespace reliability
