#include "lab/interleavings/processes.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/storage_peer.h"
#include "vu_i18n.h"
#include "vu_storage.h"

// A line holds fields with a tab behind each. From the process: "at", with the call, and "done",
// with what came of it; at last "answer". To the process: "go", with the flags of a lock.

namespace interleavings {
namespace {

using os::faults::Arriving;
using os::faults::Call;

/// Fields of a line hold no tab and no line feed.
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

/// Asks before each call.
class Asking final : public os::faults::Conductor {
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

/// args: a root, a gathering, who of it.
int meeting_party(const std::vector<std::string>& args) {
  const Gathering gathering = gathering_from(args.at(1));
  const std::size_t who = std::stoul(args.at(2));
  vu_storage_test_peer::reset();
  if (!gathering.operations.at(who)->does(kBegins))
    vu_storage::initRootStorage(args.at(0), true, gathering.synchronize);
  STGIndex::setSynchronizeMode(gathering.synchronize);
  std::string answer;
  {
    Asking asking;
    const os::faults::Conducted conducted(asking);
    answer = answer_of(gathering.ready(args.at(0)).at(who));
  }
  say(line_of({"answer", answer}));
  return 0;
}
REGISTER_ROLE(meeting_party, meeting_party)

// ---- here ---------------------------------------------------------------------------------------

/// Stands for a process.
class Proxy {
 public:
  Proxy(Meeting& meeting, child_process process)
      : m_meeting(meeting), m_process(std::move(process)) {}

  std::string run() {
    for (;;) {
      const std::vector<std::string> line = next();
      if (line.at(0) == "answer") return line.size() > 1 ? line[1] : "";
      if (line.at(0) != "at") throw std::runtime_error("a process says " + line.at(0));
      if (!hand_on(line)) return "";
    }
  }

 private:
  std::vector<std::string> next() {
    const std::optional<std::string> line = m_process.next_line();
    if (!line) throw std::runtime_error("a process says no more");
    return fields_of(*line);
  }

  /// @return whether the process goes on.
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
    static_cast<void>(m_meeting.conduct(arriving, make));
    if (!is_made) {
      // Its process has ended here.
      m_process.kill();
      m_process.wait();
    }
    return is_made;
  }

  Meeting& m_meeting;
  child_process m_process;
};

}  // namespace

std::vector<Operation> ready_as_processes(const Gathering& gathering, const std::string& root,
                                          Meeting& meeting) {
  std::vector<Operation> ready;
  for (std::size_t i = 0; i < gathering.operations.size(); ++i) {
    ready.emplace_back([&gathering, &meeting, root, i] {
      return Proxy(meeting,
                   child_process("meeting_party", {root, in_text(gathering), std::to_string(i)}))
          .run();
    });
  }
  return ready;
}

}  // namespace interleavings
