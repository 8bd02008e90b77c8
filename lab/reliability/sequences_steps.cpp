// Random steps with few names, owners and versions, so that they concern the same documents.

#include <algorithm>
#include <cstdio>

#include "lab/reliability/machine.h"
#include "lab/reliability/sequences.h"

namespace reliability::ground {

std::string shown(const std::string& text) {
  std::string result = "\"";
  for (const char c : text.substr(0, 400)) {
    if (c >= ' ' && c != '"' && c != 127) {
      result += c;
      continue;
    }
    char code[8];
    std::snprintf(code, sizeof code, "<%02x>", static_cast<unsigned char>(c));
    result += code;
  }
  return result + "\"";
}

}  // namespace reliability::ground

namespace reliability::sequences {
namespace {

using Texts = std::vector<std::string>;

/// Draws the arguments of a step.
class Dice {
 public:
  Dice(Random& random, Alphabet alphabet) : m_random(random), m_any(alphabet == Alphabet::kAny) {}

  std::uint64_t below(std::uint64_t end) { return m_random() % end; }
  bool one_in(std::uint64_t n) { return below(n) == 0; }
  const std::string& of(const Texts& texts) { return texts[below(texts.size())]; }

  std::string owner() {
    static const Texts odd = {"", "a b", "..", "x\xC3\xA9", "ann\\in"};
    if (m_any && one_in(24)) return of(odd);
    static const Texts plain = {"ann", "ann", "bob", "_"};
    return one_in(20) ? "" : of(plain);
  }

  std::string name() {
    static const Texts plain = {
        "a.kdb",     "a.kdb",      "b.kdc",        "c.kdf",        "x.ctg",
        "notes.txt", "readme",     "attribut.txt", "read.txt",     "profile.txt",
        "a%20b.kdb", "q+1%41.kda", "00000001",     "00000001.kdb", "a.kdb_0000000000",
        "a.b.kdg"};
    static const Texts odd = {
        "",         "index",    "index.dat",  "*",         "a*",
        "?.kdb",    "..",       ".",          "..\\a.kdb", "sub\\a.kdb",
        "a/b.kdb",  "x\ny.kdb", "Report.KDB", "A.kdb",     "k1mailboxcompliant",
        "%2Fx.kdb", "%0Ax.kdb", "a.",         ".kdb",      "x\xC3\xA9.kdc",
        "\xC3\xA9", "a.kdb_",   "a b.kdb",    "a\tb=c"};
    return m_any && one_in(12) ? of(odd) : of(plain);
  }

  std::string file_name() {
    static const Texts generated = {"00000001.kdb", "00000002.kdb", "00000001.kdc", "00000001",
                                    "00000001.txt", "00000002.kdc", "00000003.kdb"};
    return one_in(3) ? of(generated) : name();
  }

  std::int32_t stamp() {
    static const std::vector<std::int32_t> plain = {0, 0, 0, 1, 5, 42, 2147483647, -1};
    if (one_in(6))
      return static_cast<std::int32_t>(kFirstTime + kTimeOfStep * static_cast<int>(below(8)) +
                                       static_cast<int>(below(3)) - 1);
    return plain[below(plain.size())];
  }

  int type() {
    static const int types[] = {0, 1, 1, 2, 2, 2, 3, 4, -1, 7};
    return types[below(one_in(10) ? 10 : 8)];
  }

  std::string bytes() {
    static const Texts some = {"",    "x",        "document",   "a.kdb=1\nb=2\n", "k=a.kdb\n",
                               "a=b", "a=b\tc=d", "k\tl=m\tn=", "a=b=c\r\n\r\nx", "b.kdc\n"};
    return one_in(200) ? std::string(3000, 'z') : of(some);
  }

  std::string index_line() {
    static const Texts keys = {"a.kdb_0000000000",
                               "a.kdb_0000000001",
                               "a.kdb_0000000042",
                               "b.kdc_0000000000",
                               "x.ctg_0000000000",
                               "notes.txt_0000000000",
                               "a.kdb_4294967295",
                               "a.kdb_xxxxxxxxxx",
                               "short",
                               "",
                               "_0000000000",
                               "c.kdf_0000000005",
                               "readme_0000000000",
                               "a%20b.kdb_0000000000"};
    static const Texts stored = {"00000001",   "00000002", "00000003",  "notes.txt", "00000001.kdb",
                                 "readme",     "a.kdb",    "a%20b.kdb", "",          ".",
                                 "00000001\r", "sub\\a"};
    static const Texts portable_stored = {"00000001",  "00000002",     "00000003",
                                          "notes.txt", "00000001.kdb", "readme"};
    const std::string name = of(m_any ? stored : portable_stored);
    if (one_in(8)) return of(keys);
    if (m_any && one_in(16)) return of(keys) + "/" + name + "/";
    return of(keys) + "/" + name;
  }

  std::string index_bytes() {
    if (one_in(10)) return one_in(2) ? "" : " ";
    std::string text;
    for (std::uint64_t i = 1 + below(4); i > 0; --i) {
      const std::string line = index_line();
      text += line + "\n";
      // The same key again, with another file.
      if (one_in(6))
        text += line.substr(0, line.find('/')) + "/0000000" + (one_in(2) ? "4" : "5") + "\n";
    }
    if (one_in(4)) text.pop_back();
    if (one_in(8)) text += "\n\n";
    return text;
  }

  std::string mails() {
    static const Texts lines = {
        "x\tA%20B\tB\tf4\tf5\tf6\t", "a\t%41\tH\ta\tb\tc\tmore",       "a\tb\tc", "",
        "1\ta+b\tN\t2\t3\t4\t",      "x\tA%20B\tB\tf4\tf5\tf6\tsecond"};
    std::string text;
    for (std::uint64_t i = 1 + below(3); i > 0; --i) text += of(lines) + "\n";
    if (one_in(3)) text.pop_back();
    return text;
  }

 private:
  Random& m_random;
  const bool m_any;
};

/// The relative frequency of each kind.
constexpr std::array<int, static_cast<std::size_t>(Kind::kCount)> kWeights = {
    8, 6, 3, 3, 2, 4, 2, 2, 3,  // documents
    3, 3, 2, 2,                 // key files
    4, 5,                       // parts
    2, 1, 1, 1, 1,              // owners, lists
    4, 6, 4, 4, 3, 3, 2, 3,     // the index
    3, 1, 3,                    // cleaning, mail
    2, 2, 3,                    // plain files
    4, 1, 4, 1, 2, 3, 1, 1,     // others
    2, 1, 1};                   // the process

Kind random_kind(Dice& dice) {
  static const int all = [] {
    int sum = 0;
    for (const int each : kWeights) sum += each;
    return sum;
  }();
  auto left = static_cast<int>(dice.below(static_cast<std::uint64_t>(all)));
  for (std::size_t i = 0;; ++i) {
    left -= kWeights[i];
    if (left < 0) return static_cast<Kind>(i);
  }
}

SequenceStep random_step(Dice& dice, Alphabet alphabet) {
  static const Texts selectors = {"html@p1", "pdf@x", "xls", "html@p1", "a@b"};
  SequenceStep step;
  step.kind = random_kind(dice);
  // Only on Linux the read-only mark applies to every user.
  while (alphabet == Alphabet::kPortable && step.kind == Kind::kReadOnly)
    step.kind = random_kind(dice);
  step.place = static_cast<int>(dice.below(8));
  step.type = dice.type();
  step.way = static_cast<int>(dice.below(24));
  step.flag = dice.one_in(2);
  step.second_flag = dice.one_in(2);
  step.stamp = dice.stamp();
  step.other_stamp = dice.stamp();
  step.owner = dice.owner();
  step.other_owner = dice.owner();
  step.name = dice.name();
  step.other_name = dice.name();
  step.selector = dice.of(selectors);
  step.bytes = dice.bytes();
  switch (step.kind) {
    case Kind::kWriteIndex: step.bytes = dice.index_bytes(); break;
    case Kind::kWriteMails: step.bytes = dice.mails(); break;
    case Kind::kWriteCounter: {
      static const Texts counters = {"",    "00000041",    "-5", "2147483646", "2147483647", "abc",
                                     " 12", "99999999999", "0",  "00000001 ",  "00000000002"};
      step.bytes = dice.of(counters);
      break;
    }
    case Kind::kWriteFile:
    case Kind::kErase:
    case Kind::kSetTime:
    case Kind::kReadOnly:
    case Kind::kPath:
    case Kind::kChangePath:
    case Kind::kHandle:
      step.name = dice.file_name();
      step.other_name = dice.file_name();
      break;
    case Kind::kMakeFolder: {
      static const Texts folders = {
          "00000001.kdb_", "00000001.kdb_\\html", "a.kdb_", "a.kdb_\\preload", "sub", "00000002"};
      step.name = dice.of(folders);
      break;
    }
    default: break;
  }
  return step;
}

const char* const kNames[] = {"store",
                              "fetch",
                              "IsFileExist",
                              "getLattestTimestamp",
                              "getIndexNameFromDocName",
                              "RemoveFile",
                              "copyToStorage",
                              "copyFromStorage",
                              "copyFileToStorage",
                              "saveProfile",
                              "loadProfile",
                              "readKeysFile",
                              "writeKeysFile",
                              "write a sub-part",
                              "read a sub-part",
                              "RenameUser",
                              "RemoveUser",
                              "getAllFileList",
                              "getFileList",
                              "AddExistVUFilesToMap",
                              "exists",
                              "create",
                              "remove",
                              "rename",
                              "lastVersion",
                              "values",
                              "getPhysicalPath",
                              "updateIndexFile",
                              "clean",
                              "cleanOutputDirectories",
                              "migrate",
                              "a handle",
                              "a path",
                              "change a path",
                              "others write the index",
                              "others write the counter",
                              "others write a file",
                              "others create a folder",
                              "others erase",
                              "others set a time",
                              "others mark read-only",
                              "others write read.txt",
                              "a new process",
                              "the switch",
                              "the timestamp of sub-parts"};
static_assert(std::size(kNames) == static_cast<std::size_t>(Kind::kCount));

}  // namespace

Steps random_steps(Random& random, Alphabet alphabet) {
  Dice dice(random, alphabet);
  Steps steps;
  for (std::uint64_t i = 3 + dice.below(8); i > 0; --i)
    steps.push_back(random_step(dice, alphabet));
  // Often adds a step that reads what an earlier step wrote.
  if (dice.one_in(2)) {
    SequenceStep again = steps[dice.below(steps.size())];
    if (again.kind == Kind::kWriteKeys) again.kind = Kind::kReadKeys;
    if (again.kind == Kind::kSaveProfile) again.kind = Kind::kLoadProfile;
    if (again.kind == Kind::kStore || again.kind == Kind::kCopyFile) again.kind = Kind::kFetch;
    if (again.kind == Kind::kCreate) again.kind = Kind::kLastVersion;
    if (again.kind == Kind::kWritePart) again.kind = Kind::kReadPart;
    if (again.kind == Kind::kWriteIndex) again.kind = Kind::kValues;
    again.stamp = dice.stamp();
    steps.push_back(again);
  }
  // Most sequences use one or two folders.
  if (!dice.one_in(4)) {
    for (SequenceStep& step : steps) {
      if (!dice.one_in(5)) {
        step.place = steps.front().place;
        step.type = steps.front().type;
        step.owner = steps.front().owner;
        // Steps on one document.
        if (dice.one_in(2) && step.kind < Kind::kHandle) step.name = steps.front().name;
      }
    }
  }
  return steps;
}

std::string described(const SequenceStep& step) {
  using ground::shown;
  return std::string(kNames[static_cast<std::size_t>(step.kind)]) +
         " place=" + std::to_string(step.place) + " type=" + std::to_string(step.type) +
         " way=" + std::to_string(step.way) + " flags=" + (step.flag ? "1" : "0") +
         (step.second_flag ? "1" : "0") + " stamps=" + std::to_string(step.stamp) + "," +
         std::to_string(step.other_stamp) + " owners=" + shown(step.owner) + "," +
         shown(step.other_owner) + " names=" + shown(step.name) + "," + shown(step.other_name) +
         " selector=" + step.selector + " bytes=" + shown(step.bytes);
}

// ---- places -------------------------------------------------------------------------------------

Places::Places(std::string folder)
    : root(std::move(folder)),
      work(root + "\\w"),
      source(work + "\\src"),
      index(work + "\\idx"),
      binary(work + "\\bin"),
      server(work + "\\srv") {}

std::string Places::of(const SequenceStep& step, const model::World& world) const {
  const std::string owner = step.owner.empty() ? "_" : step.owner;
  const std::string below = world.use_domain ? "\\" + owner : "";
  const std::string storage = world.initialised ? world.storage : work + "\\storage";
  switch (step.place) {
    case 2: return storage + "\\mail" + below;
    case 3: return storage + "\\user" + below;
    case 4:
    case 5: return storage + "\\docs" + below + "\\" + model::bucket(step.name);
    case 6: return step.second_flag ? source : work + "\\none";
    case 7: return step.second_flag ? index : source + "\\a.kdb";
    default: return index;
  }
}

}  // namespace reliability::sequences
