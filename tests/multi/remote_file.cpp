#include "tests/multi/remote_file.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "vu_file.h"

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

}  // namespace
