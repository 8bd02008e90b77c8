// The differential test compares results and errors after each step, and the whole tree at the end.

#include "lab/reliability/sequences.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>

#include "lab/reliability/machine.h"
#include "tests/support/host_services.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"

namespace reliability::sequences {
namespace {

#if defined(_WIN32)
constexpr Alphabet kAlphabet = Alphabet::kPortable;
#else
constexpr Alphabet kAlphabet = Alphabet::kAny;
#endif

bool ends_in(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

bool begins_with(const std::string& text, const std::string& head) {
  return text.substr(0, head.size()) == head;
}

/// The errors that are compared. They exclude what no document states: the texts of the system, and
/// a failed write of a counter.
std::vector<std::string> counted(const std::vector<std::string>& errors) {
  std::vector<std::string> result;
  for (std::string each : errors) {
    if (begins_with(each, "Error message :")) continue;
    const bool on_counter = ends_in(each, "\\index");
    if (on_counter && (begins_with(each, "write file") || begins_with(each, "Can't truncate")))
      continue;
    if (begins_with(each, "vu_fileutf8::")) each.erase(7, 4);
    result.push_back(std::move(each));
  }
  return result;
}

bool agree(const std::vector<std::string>& expected, const std::vector<std::string>& found) {
  if (expected.size() != found.size()) return false;
  for (std::size_t i = 0; i < found.size(); ++i) {
    const std::string& pattern = expected[i];
    const bool open = !pattern.empty() && pattern.back() == '*';
    const std::string head = open ? pattern.substr(0, pattern.size() - 1) : pattern;
    if (open ? !begins_with(found[i], head) : found[i] != head) return false;
  }
  return true;
}

/// The traces of the UTF-8 handle contain its name. Otherwise they are those of vu_file.
std::string in_one_spelling(std::string text) {
  for (std::size_t at = text.find("vu_fileutf8"); at != std::string::npos;
       at = text.find("vu_fileutf8"))
    text.erase(at + 7, 4);
  return text;
}

/// Sets the time of all files that a step wrote to the time of the step, on both sides.
void set_times(model::Node& node, const std::string& path, std::int64_t time) {
  for (auto& [name, child] : node.names) {
    const std::string inner = path + "\\" + name;
    if (child.is_folder) set_times(child, inner, time);
    if (!child.is_fresh) continue;
    child.is_fresh = false;
    child.time = time;
    // If the file is missing, the comparison reports that.
    if (file_exists(inner)) ground::set_time(inner, time);
  }
}

enum class Check : std::uint8_t { kTreeAtEnd, kTreeEachTime };

/// Runs sequences, each in an empty folder.
class SequenceRunner {
 public:
  explicit SequenceRunner(model::Mutation mutation = model::Mutation::kNone)
      : m_mutation(mutation), m_places(m_scratch.path()) {
    m_configuration.set_binary_folder(m_places.binary);
    m_temporary.set_server_folder(m_places.server);
    vu_host::services services;
    services.trace = &m_sink;
    services.config = &m_configuration;
    services.temp = &m_temporary;
    vu_host::install(services);
  }
  ~SequenceRunner() {
    vu_storage_test_peer::reset();
    vu_host::install({});
  }
  SequenceRunner(const SequenceRunner&) = delete;
  SequenceRunner& operator=(const SequenceRunner&) = delete;

  /// @return the first difference, or empty.
  std::string play(const Steps& steps, Check check) {
    model::World world(m_places.root, m_mutation);
    world.server_folder = m_places.server;
    world.binary_folder = m_places.binary;
    world.tree.real_order = ground::listing;
    set_up(world);
    std::string difference;
    for (std::size_t i = 0; i < steps.size() && difference.empty(); ++i) {
      try {
        difference = play_step(steps[i], i, world);
      } catch (const std::exception& e) {
        // Example: the step sets the time of a file that only the model has.
        difference = std::string("the two sides have drifted apart: ") + e.what();
      }
      if (difference.empty() && check == Check::kTreeEachTime)
        difference = ground::difference(m_places.root, world.tree.root(), ground::After::kKeep);
      if (!difference.empty()) difference = "step " + std::to_string(i) + ": " + difference;
    }
    const std::string left =
        ground::difference(m_places.root, world.tree.root(), ground::After::kEmpty);
    return difference.empty() && !left.empty() ? "at the end: " + left : difference;
  }

 private:
  void set_up(model::World& world) {
    vu_storage_test_peer::reset();
    for (const std::string& folder : {m_places.work, m_places.source, m_places.index,
                                      m_places.binary, m_places.binary + "\\config"}) {
      world.tree.make_folder(folder);
      ground::make_folder(folder);
    }
    for (const char* const name : {"\\a.kdb", "\\b.kdc"}) {
      const std::string path = m_places.source + name;
      model::Node* const node = world.tree.open_to_write(path);
      node->bytes = std::string("source") + name;
      node->time = kFirstTime;
      node->is_fresh = false;
      ground::write(path, node->bytes);
      ground::set_time(path, kFirstTime);
    }
  }

  std::string play_step(const SequenceStep& step, std::size_t number, model::World& world) {
    const std::int64_t time = kFirstTime + kTimeOfStep * static_cast<std::int64_t>(number + 1);
    BothSides sides{m_places, m_places.of(step, world), time + 3};
    world.errors.clear();
    m_sink.errors.clear();
    // The model comes first: it needs the order of the listing before the step.
    const std::string expected = run_on_model(step, world, sides);
    const std::string found = in_one_spelling(run_on_library(step, sides));
    set_times(world.tree.root(), m_places.root, time);
    if (expected != found)
      return "expected " + ground::shown(expected) + ", found " + ground::shown(found);
    const std::vector<std::string> errors = counted(m_sink.errors);
    const std::vector<std::string> expected_errors = counted(world.errors);
    if (!agree(expected_errors, errors))
      return "expected the errors " + ground::shown(text_of(expected_errors)) + ", found " +
             ground::shown(text_of(errors));
    return "";
  }

  const model::Mutation m_mutation;
  scratch_folder m_scratch;
  const Places m_places;
  ErrorSink m_sink;
  fake_configuration m_configuration;
  fake_temporary_files m_temporary;
};

/// Removes steps as long as the difference stays.
Steps shrunk(SequenceRunner& runner, Steps steps) {
  for (bool again = true; again;) {
    again = false;
    for (std::size_t i = 0; i < steps.size(); ++i) {
      Steps fewer = steps;
      fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
      if (runner.play(fewer, Check::kTreeEachTime).empty()) continue;
      steps = fewer;
      again = true;
      break;
    }
  }
  return steps;
}

std::string told(SequenceRunner& runner, const Steps& steps, std::uint64_t seed) {
  const Steps few = shrunk(runner, steps);
  std::string text = "sequence with the seed " + std::to_string(seed) + ": " +
                     runner.play(few, Check::kTreeEachTime);
  for (const SequenceStep& each : few) text += "\n    " + described(each);
  return text;
}

SequenceStep first_step(Random& random) {
  SequenceStep step;
  step.kind = Kind::kNewProcess;
  step.flag = random() % 8 != 0;
  step.second_flag = random() % 2 == 0;
  step.way = random() % 32 == 0 ? 0 : 2;
  return step;
}

Steps steps_of(std::uint64_t seed) {
  Random random(seed);
  Steps steps = random_steps(random, kAlphabet);
  steps.insert(steps.begin(), first_step(random));
  return steps;
}

/// The seeds are consecutive, from the seed of the run on. So a printed seed repeats its sequence.
void sequences(Run& run) {
  SequenceRunner runner;
  std::map<Kind, std::uint64_t> kinds;
  std::uint64_t count = 0;
  while (run.goes_on()) {
    const std::uint64_t seed = run.seed() + run.reached();
    const Steps steps = steps_of(seed);
    const Check check = seed % 16 == 0 ? Check::kTreeEachTime : Check::kTreeAtEnd;
    if (!runner.play(steps, check).empty()) run.fail(told(runner, steps, seed));
    for (const SequenceStep& each : steps) ++kinds[each.kind];
    count += steps.size();
    run.counted(1);
  }
  run.figure("steps", count);
  run.figure("kinds of steps", kinds.size());
}

/// Changes one rule of the model at a time. The comparison must detect each change.
void sequences_noticed(Run& run) {
  const auto rules = static_cast<std::uint64_t>(model::Mutation::kCount) - 1;
  for (std::uint64_t i = 1; i <= rules; ++i) {
    if (run.time_is_over()) return run.not_run("the time was over before every rule was tried");
    SequenceRunner runner(static_cast<model::Mutation>(i));
    bool is_noticed = false;
    for (std::uint64_t seed = 0; seed < run.wanted() && !is_noticed; ++seed) {
      is_noticed = !runner.play(steps_of(run.seed() + seed), Check::kTreeAtEnd).empty();
      if (is_noticed)
        run.figure("changed rule " + std::to_string(i) + ", sequences until it is detected",
                   seed + 1);
    }
    if (!is_noticed) run.fail("changed rule " + std::to_string(i) + " was not detected");
    run.counted(1);
  }
}

REGISTER_SUITE(sequences, "sequences", "random operations, compared with the reference model",
               "sequences", 100000, Scratch::kMemory)
REGISTER_SUITE(sequences_noticed, "sequences-noticed", "each changed rule of the model is detected",
               "sequences for each rule", 20000, Scratch::kMemory)

}  // namespace
}  // namespace reliability::sequences
