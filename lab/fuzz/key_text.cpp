// The text of key files: lines, pairs, and the line that is cut out.

#include "storage/key_text.h"

#include <string>
#include <string_view>

#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "tests/support/storage_peer.h"

namespace fuzz {
namespace {

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
  require(expected.size() == found.size(), "as many pairs");
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
  // Read back, unless a name would be cut elsewhere: it has no "=", since the first one ended it.
  require_pairs(pairs, read(joined, false));

  std::string expected = text;
  std::string found = text;
  const bool is_cut = model::cut_line(expected, entry);
  require(key_text::cut_line(found, entry) == is_cut, "whether a line is cut out");
  require_equal(expected, found, "the text without the line");
}

REGISTER_FUZZ_TARGET(key_text_target, "key-text")

}  // namespace
}  // namespace fuzz
