// The text of an index: the library's readers against a second one, and what a writer makes of it.

#include <map>
#include <string>
#include <string_view>

#include "index/index_format.h"
#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "platform/os/os.h"
#include "tests/support/index_peer.h"

namespace fuzz {
namespace {

using os::faults::Call;
using os::faults::Times;

model::Pairs walked(std::string_view text) {
  model::Pairs result;
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line)) {
    require(text[line.separator] == '/', "a line's separator is a slash");
    result.emplace_back(line.key, line.stored);
  }
  return result;
}

model::Pairs walked_for(std::string_view text, const std::string& key) {
  model::Pairs result;
  index_format::LinesOfKey lines(text, key);
  index_format::Line line;
  while (lines.next(line)) result.emplace_back(line.key, line.stored);
  return result;
}

/// The maps of a text when every file that is asked for exists.
void loaded(const std::string& text, model::Map& lp, model::Map& pl) {
  const auto everything_exists =
      os::faults::fail(Call::probe_search, os::Status{}, 1, Times::kLasting);
  const auto nothing_is_listed = os::faults::fail(Call::list, os::Status{}, 1, Times::kLasting);
  stg_index_test_peer::string2Maps("folder", text, lp, pl);
}

void index_text(std::string_view bytes) {
  const std::string text(bytes);
  const model::Pairs expected = model::index_pairs(text);
  require(walked(text) == expected, "the lines of a text");

  // Some keys of the text, one of its pieces, and one that is not there.
  std::string some[4] = {"x_0000000000", text.substr(0, text.size() / 2), "", ""};
  if (!expected.empty()) {
    some[2] = expected.front().first;
    some[3] = expected[expected.size() / 2].first;
  }
  for (const std::string& key : some) {
    if (key.size() < 11) continue;
    model::Pairs of_key;
    for (const model::Pair& each : expected) {
      if (each.first == key) of_key.push_back(each);
    }
    require(walked_for(text, key) == of_key, "the lines of one key");
  }

  model::Map lp;
  model::Map pl;
  for (const auto& [key, stored] : expected) {
    if (key.size() < 11) continue;
    lp.insert({key, stored});
    pl.insert({stored, key});
  }
  model::Map found_lp;
  model::Map found_pl;
  loaded(text, found_lp, found_pl);
  require(found_lp == lp, "the entries of a text, by key");
  require(found_pl == pl, "the entries of a text, by stored name");

  // What a writer makes of the entries that a line can hold is read back as it was.
  model::Map plain;
  for (const auto& [key, stored] : lp) {
    if (key.find_first_of("/\n") == std::string::npos && stored.find('\n') == std::string::npos)
      plain.insert({key, stored});
  }
  const std::string written = model::index_text(plain);
  model::Map read_lp;
  model::Map read_pl;
  loaded(written, read_lp, read_pl);
  require(read_lp == plain, "the entries that were written");
  for (const auto& [key, stored] : plain) {
    require_equal(model::file_of(key, stored), index_format::file_name_of(key, stored),
                  "the file of an entry");
  }
}

REGISTER_FUZZ_TARGET(index_text, "index-text")

}  // namespace
}  // namespace fuzz
