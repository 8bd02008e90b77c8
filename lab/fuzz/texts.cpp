// The formats of the index, of key files and of lists, with any bytes.

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "index/index_format.h"
#include "index/read_list.h"
#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "platform/os/os.h"
#include "storage/key_text.h"
#include "tests/support/index_peer.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"

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

/// The maps of a text, if all files exist.
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

  // Two keys of the text, its first half, and a key that is not there.
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

  // Entries without separators in their parts are written and read back unchanged.
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

// ------------------------------------------------------------------------------------------------
// The text of key files: lines, pairs, and the removal of a line.

STG::NameValueSeq read(const std::string& text, bool last) {
  STG::NameValueSeq seq;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    STG::NameValue pair;
    if (vu_storage_test_peer::LoadKeyLine(std::string(line), pair, last)) seq.push_back(pair);
  }
  return seq;
}

void require_pairs(const model::Pairs& expected, const STG::NameValueSeq& found) {
  require(expected.size() == found.size(), "the number of pairs");
  for (std::size_t i = 0; i < found.size(); ++i) {
    require_equal(expected[i].first, found[i].name, "the name of a pair");
    require_equal(expected[i].second, found[i].value, "the value of a pair");
  }
}

void key_text_target(std::string_view bytes) {
  Source source(bytes);
  const std::string entry = source.text();
  const std::string text = source.rest();

  for (const bool last : {false, true})
    require_pairs(model::key_pairs(text, last), read(text, last));

  const STG::NameValueSeq seq = read(text, false);
  const model::Pairs pairs = model::key_pairs(text, false);
  const std::string joined = key_text::join(seq);
  require_equal(model::key_text(pairs), joined, "the text of a sequence");
  // Read back with the first "=" as separator; a name contains no "=".
  require_pairs(pairs, read(joined, false));

  std::string expected = text;
  std::string found = text;
  const bool is_cut = model::cut_line(expected, entry);
  require(key_text::cut_line(found, entry) == is_cut, "whether a line is removed");
  require_equal(expected, found, "the text without the line");
}

REGISTER_FUZZ_TARGET(key_text_target, "key-text")

// ------------------------------------------------------------------------------------------------
// The list of read mails: the name of a line, and in some runs the whole list in a file.

/// Loads the text, unescapes the line of each name in turn, and saves.
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
    list.save();
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
  // Files are slow, so only some runs use one.
  if (std::hash<std::string>()(text) % 16 == 0) in_a_file(text);
}

REGISTER_FUZZ_TARGET(read_list, "read-list")

}  // namespace
}  // namespace fuzz
