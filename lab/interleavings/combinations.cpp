#include "lab/interleavings/operations.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/storage_peer.h"
#include "vu_i18n.h"
#include "vu_storage.h"

namespace interleavings {
namespace {

constexpr std::array<Names, 5> kAllNames = {Names::kSame, Names::kSameNew, Names::kOther,
                                            Names::kOtherNew, Names::kOtherFolder};
constexpr std::array<Setup, 3> kAllSetups = {Setup::kTidy, Setup::kStray, Setup::kNoIndex};

const char* name_of(Names names) {
  switch (names) {
    case Names::kSame: return "same";
    case Names::kSameNew: return "same-new";
    case Names::kOther: return "other";
    case Names::kOtherNew: return "other-new";
    case Names::kOtherFolder: return "other-folder";
  }
  return "?";
}

bool is_in(const Operation& operation, std::string_view area) { return operation.area == area; }

/// Whether the two can touch a common file.
bool can_meet(const Operation& a, const Operation& b) {
  if (a.does(kBegins) || b.does(kBegins)) return false;
  if (std::string_view(a.area) == b.area) return true;
  // In another area, only the owner's mails move with the owner.
  return (a.does(kMovesOwner) && is_in(b, "mail")) || (b.does(kMovesOwner) && is_in(a, "mail"));
}

/// Whether these names add a case that no other names of the pair cover.
bool is_worth(const Operation& a, const Operation& b, Names names, Setup setup, bool synchronize) {
  const bool about_two = a.is_about_entry && b.is_about_entry;
  const bool about_one = a.is_about_entry || b.is_about_entry;
  const bool changes = a.effects != kAsks && b.effects != kAsks;
  const bool makes = a.does(kMakes) || b.does(kMakes);
  // Saved names belong to an index.
  if (setup == Setup::kNoIndex && (a.name == "restore" || b.name == "restore")) return false;
  switch (names) {
    case Names::kSame: return true;
    case Names::kSameNew: return about_one && makes && setup != Setup::kNoIndex;
    case Names::kOther: return about_two && setup == Setup::kTidy;
    case Names::kOtherNew:
      return about_two && a.does(kMakes) && b.does(kMakes) && setup != Setup::kStray;
    case Names::kOtherFolder: return changes && about_two && setup == Setup::kTidy && !synchronize;
  }
  return false;
}

/// The order of two operations that only read matters only if the first one writes an index.
bool can_differ(const Operation& a, const Operation& b, Setup setup, bool synchronize) {
  const auto only_asks = [](const Operation& each) {
    return (each.effects & ~(kReads | kCopies)) == 0;
  };
  if (!only_asks(a) || !only_asks(b)) return true;
  return setup == Setup::kNoIndex || (setup == Setup::kStray && synchronize);
}

}  // namespace

Target Combination::target_of(std::size_t who, const std::string& root) const {
  Target target{root, "anna", kOld, "moved.kdb", std::string("by ") + static_cast<char>('A' + who)};
  if (names == Names::kSameNew || names == Names::kOtherNew) target.entry = "new.kdb";
  if (who != 1) return target;
  if (names == Names::kOtherFolder) target.owner = "bert";
  if (names == Names::kOther) target.entry = kYoung;
  if (names == Names::kOtherNew) target.entry = "newer.kdb";
  if (names == Names::kOther || names == Names::kOtherNew) target.to = "moved-too.kdb";
  return target;
}

std::vector<Task> Combination::tasks(const std::string& root) const {
  std::vector<Task> tasks;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    tasks.emplace_back(
        [call = operations[i]->call, target = target_of(i, root)] { return call(target); });
  }
  return tasks;
}

std::string in_text(const Combination& combination) {
  std::string text;
  for (const Operation* const each : combination.operations)
    text += (text.empty() ? "" : " + ") + each->name;
  return text + ", " + name_of(combination.names) + ", " + name_of(combination.setup) + ", " +
         (combination.synchronize ? "on" : "off");
}

Combination combination_from(const std::string& text) {
  Combination combination;
  std::string plain = text;
  std::replace(plain.begin(), plain.end(), ',', ' ');
  std::replace(plain.begin(), plain.end(), '+', ' ');
  std::vector<std::string> words;
  std::istringstream in(plain);
  for (std::string word; in >> word;) words.push_back(word);
  if (words.size() < 5) throw std::invalid_argument("'" + text + "' is not a combination");
  combination.synchronize = words.back() == "on";
  const std::string setup = words[words.size() - 2];
  const std::string names = words[words.size() - 3];
  for (const Setup each : kAllSetups) {
    if (name_of(each) == setup) combination.setup = each;
  }
  for (const Names each : kAllNames) {
    if (name_of(each) == names) combination.names = each;
  }
  words.resize(words.size() - 3);
  for (const std::string& each : words) combination.operations.push_back(&operation_called(each));
  if (in_text(combination) != text)
    throw std::invalid_argument("'" + text + "' is not a combination");
  return combination;
}

std::vector<Combination> all_pairs() {
  std::vector<Combination> pairs;
  const auto& all = operations();
  for (std::size_t a = 0; a < all.size(); ++a) {
    for (std::size_t b = a; b < all.size(); ++b) {
      if (!can_meet(all[a], all[b])) continue;
      for (const Names names : kAllNames) {
        for (const Setup setup : kAllSetups) {
          for (const bool synchronize : {false, true}) {
            if (is_worth(all[a], all[b], names, setup, synchronize) &&
                can_differ(all[a], all[b], setup, synchronize))
              pairs.push_back({{&all[a], &all[b]}, names, setup, synchronize});
          }
        }
      }
    }
  }
  return pairs;
}

std::vector<Combination> all_trios() {
  std::vector<Combination> trios;
  const std::array changing = {"create", "remove", "rename", "rename-onto", "write", "copy-in"};
  for (const char* const reader : {"read", "exists", "names"}) {
    for (std::size_t a = 0; a < changing.size(); ++a) {
      for (std::size_t b = a; b < changing.size(); ++b) {
        for (const Names names : {Names::kSame, Names::kOther}) {
          trios.push_back({{&operation_called(changing[a]), &operation_called(changing[b]),
                            &operation_called(reader)},
                           names,
                           Setup::kTidy,
                           false});
        }
      }
    }
  }
  return trios;
}

// ------------------------------------------------------------------------------------------------
// The protocol between the processes. Each field of a line ends with a tab. The process sends "at"
// with its call, "done" with the result, at last "answer". It receives "go" with lock flags.

namespace {

using os::faults::Arriving;
using os::faults::Call;

/// Fields contain no tab and no line feed.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '\t') {
      result += "%t";
    } else if (c == '\n') {
      result += "%n";
    } else {
      result += c == '%' ? std::string("%%") : std::string(1, c);
    }
  }
  return result;
}

std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%' || ++i == text.size()) {
      if (i < text.size()) result += text[i];
    } else {
      result += text[i] == 't' ? '\t' : text[i] == 'n' ? '\n' : text[i];
    }
  }
  return result;
}

std::string line_of(const std::vector<std::string>& fields) {
  std::string line;
  for (const std::string& each : fields) line += escaped(each) + "\t";
  return line;
}

std::vector<std::string> fields_of(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; std::getline(in, field, '\t');) fields.push_back(unescaped(field));
  return fields;
}

std::string text_of(const os::Path* path) {
  if (path == nullptr) return "";
  if (path->is_wide()) return vu_utf8string(ucs2string(path->wide())).c_str();
  return path->narrow();
}

template <class Number>
std::string number_in_text(Number number) {
  return std::to_string(static_cast<long long>(number));
}

// ---- in the process -----------------------------------------------------------------------------

/// Waits for the parent's permission before each call.
class RemoteConductor final : public os::faults::Conductor {
 public:
  os::Status conduct(const Arriving& arriving, const std::function<os::Status()>& make) override {
    const std::uint32_t flags = arriving.request != nullptr ? arriving.request->flags : 0;
    say(line_of({"at", number_in_text(arriving.call), number_in_text(arriving.handle),
                 text_of(arriving.path), text_of(arriving.to), number_in_text(arriving.access),
                 number_in_text(flags)}));
    const std::optional<std::string> answer = hear();
    if (!answer) std::exit(1);
    if (arriving.request != nullptr)
      arriving.request->flags = static_cast<std::uint32_t>(std::stoul(fields_of(*answer).at(1)));
    const os::Status status = make();
    if (arriving.entries != nullptr) os::faults::sort_by_name(*arriving.entries);
    const os::Handle opened = arriving.opened != nullptr ? *arriving.opened : os::kNoHandle;
    say(line_of({"done", number_in_text(status.code()), number_in_text(status.failure()),
                 number_in_text(opened)}));
    return status;
  }
};

/// args: a root, a combination, the number of the operation.
int interleaving_participant(const std::vector<std::string>& args) {
  const Combination combination = combination_from(args.at(1));
  const std::size_t who = std::stoul(args.at(2));
  vu_storage_test_peer::reset();
  if (!combination.operations.at(who)->does(kBegins))
    vu_storage::initRootStorage(args.at(0), true, combination.synchronize);
  STGIndex::setSynchronizeMode(combination.synchronize);
  std::string answer;
  {
    RemoteConductor asking;
    const os::faults::Conducted conducted(asking);
    answer = answer_of(combination.tasks(args.at(0)).at(who));
  }
  say(line_of({"answer", answer}));
  return 0;
}
REGISTER_ROLE(interleaving_participant, interleaving_participant)

// ---- here ---------------------------------------------------------------------------------------

/// Represents a process.
class Proxy {
 public:
  Proxy(Interleaving& interleaving, child_process process)
      : m_interleaving(interleaving), m_process(std::move(process)) {}

  std::string run() {
    for (;;) {
      const std::vector<std::string> line = next();
      if (line.at(0) == "answer") return line.size() > 1 ? line[1] : "";
      if (line.at(0) != "at")
        throw std::runtime_error("unexpected line from a process: " + line.at(0));
      if (!hand_on(line)) return "";
    }
  }

 private:
  std::vector<std::string> next() {
    const std::optional<std::string> line = m_process.next_line();
    if (!line) throw std::runtime_error("a process ended too early");
    return fields_of(*line);
  }

  /// @return whether the process continues.
  bool hand_on(const std::vector<std::string>& line) {
    const std::string path = line.at(3);
    const std::string to = line.at(4);
    const os::Path path_there = path;
    const os::Path to_there = to;
    os::LockRequest request;
    request.flags = static_cast<std::uint32_t>(std::stoul(line.at(6)));
    os::Handle opened = os::kNoHandle;
    os::Listing entries;
    Arriving arriving;
    arriving.call = static_cast<Call>(std::stoi(line.at(1)));
    arriving.handle = std::stoi(line.at(2));
    if (!path.empty()) arriving.path = &path_there;
    if (!to.empty()) arriving.to = &to_there;
    arriving.access = static_cast<os::Access>(std::stoi(line.at(5)));
    arriving.request = arriving.call == Call::lock ? &request : nullptr;
    arriving.opened = &opened;
    arriving.entries = &entries;
    bool is_made = false;
    const auto make = [&] {
      is_made = true;
      m_process.tell(line_of({"go", number_in_text(request.flags)}));
      const std::vector<std::string> done = next();
      opened = std::stoi(done.at(3));
      return os::Status(std::stoi(done.at(1)), static_cast<os::Failure>(std::stoi(done.at(2))));
    };
    static_cast<void>(m_interleaving.conduct(arriving, make));
    if (!is_made) {
      // The operation was killed here.
      m_process.kill();
      m_process.wait();
    }
    return is_made;
  }

  Interleaving& m_interleaving;
  child_process m_process;
};

}  // namespace

std::vector<Task> process_tasks(const Combination& combination, const std::string& root,
                                Interleaving& interleaving) {
  std::vector<Task> tasks;
  for (std::size_t i = 0; i < combination.operations.size(); ++i) {
    tasks.emplace_back([&combination, &interleaving, root, i] {
      return Proxy(interleaving, child_process("interleaving_participant",
                                               {root, in_text(combination), std::to_string(i)}))
          .run();
    });
  }
  return tasks;
}

}  // namespace interleavings
