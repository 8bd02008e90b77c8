// Names: escapes, keys, numbers, hashes, and the encodings of Unicode.

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "index/index_format.h"
#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "platform/os/posix_path.h"
#include "storage/layout.h"
#include "tests/support/index_peer.h"
#include "vu_i18n.h"
#include "vu_storage.h"

namespace fuzz {
namespace {

void escapes(const std::string& name) {
  require(STGIndex::iSsambaOrT101(name) == model::is_escaped(name), "the escaped form");
  std::string decoded = name;
  STGIndex::UnescapeVU(decoded);
  require_equal(model::unescaped(name), decoded, "the decoded name");
}

void keys(const std::string& name, std::int32_t stamp) {
  const std::string key = stg_index_test_peer::entryAndTS(name, stamp);
  require_equal(model::key(name, stamp), key, "a key");
  require_equal(name, stg_index_test_peer::entryOnly(key), "the name in a key");
  require(stg_index_test_peer::tsOnly(key) == model::stamp_of(key), "the timestamp in a key");
  require(stamp < 0 || stg_index_test_peer::tsOnly(key) == stamp, "the timestamp that was given");
  require_equal(model::extension_with_dot(name), stg_index_test_peer::extension(name),
                "the extension of a name");

  // Any text as a key.
  try {
    require(stg_index_test_peer::tsOnly(name) == model::number(name.substr(name.size() - 10)),
            "the number at a text's end");
    require(name.size() >= 10, "a text too short for a number");
  } catch (const std::out_of_range&) {
    require(name.size() < 10, "a text long enough for a number");
  }
  try {
    require_equal(name.substr(0, name.size() - 11), stg_index_test_peer::entryOnly(name),
                  "what stands before the last eleven characters");
  } catch (const std::out_of_range&) {
    require(name.size() < 11, "a text long enough for a key");
  }
  require(index_format::parse_decimal(name) == model::number(name), "the number in a text");
}

void hashes(const std::string& name, std::int32_t modulus) {
  require(layout::hash_of(name, modulus) == model::hash(name, modulus), "the hash");
  require_equal(model::bucket(name), layout::bucket_name(layout::hash_of(name, layout::kBuckets)),
                "the bucket");
}

void encodings(const std::string& bytes) {
  const vu_utf8string text(bytes);
  try {
    require_equal(bytes, vu_utf8string(ucs2string(text)).str(), "text through wide text");
  } catch (const vu_i18n_except&) {
    require(!text.is_valid(), "valid text is refused");
  }

  std::u16string units;
  if (os::posix::to_wide(bytes, units))
    require_equal(bytes, os::posix::to_bytes(units), "bytes through wide text");
  std::u16string any(bytes.size() / 2, u'\0');
  std::memcpy(any.data(), bytes.data(), any.size() * 2);
  std::u16string again;
  require(os::posix::to_wide(os::posix::to_bytes(any), again), "bytes of any wide text are some");
  require(again == any, "any wide text comes back");
}

void names(std::string_view bytes) {
  Source source(bytes);
  std::uint32_t number = 0;
  for (int i = 0; i < 4; ++i) number = number << 8U | source.byte();
  const std::string name = source.rest();
  escapes(name);
  keys(name, static_cast<std::int32_t>(number));
  hashes(name, static_cast<std::int32_t>(number));
  encodings(name);
}

REGISTER_FUZZ_TARGET(names, "names")

}  // namespace
}  // namespace fuzz
