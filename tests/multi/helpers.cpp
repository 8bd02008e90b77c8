#include "tests/multi/helpers.h"

#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/support/process.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace {

vu_file_base::type_access mode_called(const std::string& name) {
  static const std::map<std::string, vu_file_base::type_access> modes = {
      {"read", vu_file::o_read},
      {"write", vu_file::o_write},
      {"append", vu_file::o_append},
      {"truncate", vu_file::o_truncate}};
  return modes.at(name);
}

void obey(vu_file& file, const std::string& verb, const std::string& rest) {
  if (verb == "open") {
    say("opening");
    file.open(mode_called(rest));
    say(file.is_locked() ? "locked" : "unlocked");
  } else if (verb == "try") {
    bool refused = false;
    if (!file.try_open(mode_called(rest), refused, true)) {
      say("not open");
    } else {
      say(refused ? "open, refused" : "open, locked");
    }
  } else if (verb == "read") {
    std::string content;
    file.rewind();
    file.read(content, 0);
    say(content);
  } else if (verb == "write") {
    say(std::to_string(file.write(rest)));
  } else if (verb == "close") {
    file.close();
    say("closed");
  } else {
    say("what is \"" + verb + "\"?");
  }
}

/// args: the file's path.
int hold_file(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  while (const std::optional<std::string> line = hear()) {
    const std::size_t blank = line->find(' ');
    try {
      obey(file, line->substr(0, blank),
           blank == std::string::npos ? std::string() : line->substr(blank + 1));
    } catch (const vu_file_except& e) {
      say("exception " + e.what());
    }
  }
  return 0;
}
REGISTER_ROLE(hold_file, hold_file)

std::string result_of(const std::string& folder, std::istringstream& words) {
  std::string verb;
  std::string name;
  long timestamp = 0;
  words >> verb >> name >> timestamp;
  if (verb == "create") return STGIndex::create(folder, name, timestamp);
  if (verb == "exists") {
    std::string physical;
    return STGIndex::exists(folder, name, timestamp, physical) ? physical : "no";
  }
  if (verb == "remove") {
    STGIndex::remove(folder, name, timestamp);
    return {};
  }
  if (verb == "update") {
    STGIndex::updateIndexFile(folder);
    return {};
  }
  if (verb == "clean") {
    // `timestamp` is the age limit here.
    STGIndex::AgeMap kept;
    return std::to_string(
        STGIndex::cleanOutOfDateOutput(folder, static_cast<unsigned long>(timestamp), kept, false));
  }
  return "what is \"" + verb + "\"?";
}

/// args: a folder; "on" or "off" for the synchronisation.
int use_index(const std::vector<std::string>& args) {
  STGIndex::setSynchronizeMode(args.at(1) == "on");
  while (const std::optional<std::string> line = hear()) {
    std::istringstream words(*line);
    say("begun");
    try {
      const std::string result = result_of(args.at(0), words);
      say(result.empty() ? "done" : "done " + result);
    } catch (const vu_file_except& e) {
      say("exception " + e.what());
    }
  }
  return 0;
}
REGISTER_ROLE(use_index, use_index)

/// args: a folder; the first part of the names; how many; "on" or "off" for the synchronisation.
/// Says the logical and the physical name of each entry after its operation. Ends when the parent
/// sends a second line.
int create_many(const std::vector<std::string>& args) {
  STGIndex::setSynchronizeMode(args.at(3) == "on");
  const int count = std::stoi(args.at(2));
  say("ready");
  if (!hear()) return 1;
  for (int number = 0; number < count; ++number) {
    const std::string logical = args.at(1) + std::to_string(number) + ".kdb";
    const std::string physical = STGIndex::create(args.at(0), logical, 7);
    say(logical + " " + physical);
  }
  say("done");
  hear();
  return 0;
}
REGISTER_ROLE(create_many, create_many)

}  // namespace
