// The list of read mails: the name that a line makes up, and now and then the whole list in a file.

#include "index/read_list.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "tests/support/scratch.h"

namespace fuzz {
namespace {

/// Loads the text, decodes the line under each name in turn, and saves.
void in_a_file(const std::string& text) {
  static const scratch_folder folder;
  write_file(folder.path("list"), text);
  model::Map expected = model::mail_lines(text);
  {
    ReadList list(folder.path(), "list");
    list.load();
    list.unescape_line_of("no such name");
    for (auto& [name, line] : expected) {
      list.unescape_line_of(name);
      line = model::mail_line_unescaped(line);
    }
  }
  std::string saved;
  for (const auto& [name, line] : expected) saved += line + "\n";
  require_equal(saved, read_file(folder.path("list")), "the list that is saved");
}

void read_list(std::string_view bytes) {
  const std::string text(bytes);
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    require_equal(model::mail_name(std::string(line)), ReadList::name_of(line),
                  "the name of a line");
  }
  // Files are slow beside text.
  if (std::hash<std::string>()(text) % 16 == 0) in_a_file(text);
}

REGISTER_FUZZ_TARGET(read_list, "read-list")

}  // namespace
}  // namespace fuzz
