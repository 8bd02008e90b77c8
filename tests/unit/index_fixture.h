#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "index/index_format.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/index_peer.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/test_kit.h"
#include "vu_file.h"

enum class UnknownFiles { kStay, kAreAdopted };

class IndexTest : public testing::Test {
 protected:
  explicit IndexTest(UnknownFiles unknown_files = UnknownFiles::kStay)
      : m_switch(unknown_files == UnknownFiles::kAreAdopted) {}

  /// Whether no handle has a lock on a file of the folder.
  bool is_free(const std::string& name) const {
    vu_file file(folder.path(), name);
    bool lock_failed = true;
    EXPECT_TRUE(file.try_open(vu_file::o_append, lock_failed, true));
    return !lock_failed;
  }
  bool index_is_free() const { return is_free("index.dat"); }

  index_folder folder;

 private:
  synchronisation m_switch;
};

/// A fixture for changes of entries and their traces.
class IndexEntries : public IndexTest {
 protected:
  /// The two records at the end of a change.
  Texts change(const std::string& kind, int blanks) const {
    return {
        "M:  STGIndex (" + kind + ": Set need update flag to true: index.dat will be updated",
        "M: " + std::string(static_cast<std::size_t>(blanks), ' ') + "folder : " + folder.path()};
  }
  Texts create_texts() const { return change("create)", 11); }
  Texts remove_texts() const { return change("remove) ", 12); }
  Texts rename_texts() const { return change("rename)", 11); }
};

class IndexOperations : public IndexTest {
 protected:
  std::string cannot_open(const std::string& logical, const std::string& reason) const {
    return "STGIndex::exists(): Unable to open index.dat file while checking for existence of " +
           logical + " in directory " + folder.path() + "\n Reason: " + reason;
  }

  std::string physical = "untouched";
};

/// A fixture for saves and their traces.
class IndexSaving : public IndexTest {
 protected:
  /// Loads the index and saves it, changed or not.
  void rewrite() const {
    STGIndex index = stg_index_test_peer::load(folder.path());
    stg_index_test_peer::set_need_update(index);
  }
  /// Makes this the text of the index and saves it. @return the text of the save.
  std::string rewritten(const std::string& text) const {
    folder.set_index(text);
    rewrite();
    return folder.index();
  }

  Texts begin_texts() const {
    return {"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + folder.path()};
  }
  Texts not_read_texts() const {
    return {"Error: STGIndex: index.dat is left as it is, for it cannot be read to its end: " +
            folder.path()};
  }
  Texts end_texts() const {
    return {"M:  STGIndex: (end) index.dat is uptodate", "M:   folder : " + folder.path()};
  }
};

inline constexpr std::int64_t kNow = 1700000000;
inline constexpr std::int64_t kDay = 86400;

/// A folder that is cleaned at the time kNow.
class IndexCleaning : public IndexTest {
 protected:
  /// Writes a file of this age in seconds.
  void write_aged(const std::string& name, std::int64_t age, const std::string& bytes = "x") const {
    folder.write(name, bytes);
    set_modify_time(folder.path(name), kNow - age);
  }
  unsigned long clean(unsigned long limit, bool use_access_time = false) {
    return STGIndex::cleanOutOfDateOutput(folder.path(), limit, kept, use_access_time);
  }
  std::string entry(const std::string& key) const { return folder.path() + "\\" + key; }

  os::faults::Fault now = os::faults::set_now(kNow);
  STGIndex::AgeMap kept;
};

/// A storage with the mail folder of the user "joe".
class IndexMigration : public testing::Test {
 protected:
  IndexMigration() { STGIndex::setSynchronizeMode(true); }

  static void migrate() { STGIndex::migrateInboxRead("joe"); }

  std::string path() const { return mail + "\\joe"; }
  std::string path(const std::string& name) const { return path() + "\\" + name; }
  void make_mail_folder() const { make_folder(path()); }
  void write(const std::string& name, const std::string& bytes) const {
    write_file(path(name), bytes);
  }
  std::string read(const std::string& name) const { return read_file(path(name)); }
  std::string index() const { return read("index.dat"); }
  Texts names() const { return list_folder(path()); }
  bool has(const std::string& name) const { return file_exists(path(name)); }
  /// The bytes of the file of a logical name.
  std::string entry(const std::string& logical) const {
    std::string physical;
    return STGIndex::exists(path(), logical, 0, physical) ? read(physical) : "no such entry";
  }
  bool is_marked() const { return entry("k1mailboxcompliant").empty(); }
  std::string not_begun_text() const {
    return "STGIndex: migration: not begun, for its index or its read list cannot be read for "
           "certain: " +
           path();
  }
  std::map<std::string, std::string> state() const {
    std::map<std::string, std::string> result;
    for (const std::string& name : names()) {
      result[name] = std::to_string(get_modify_time(path(name))) + " " + read(name);
    }
    return result;
  }

  scratch_folder root;
  initialised_storage storage{root.path()};
  const std::string mail = root.path("storage\\mail");
};

/// Random texts from a few pieces, with a fixed seed.
class RandomTexts {
 public:
  RandomTexts(std::uint32_t seed, std::vector<std::string> pieces)
      : m_random(seed), m_pieces(std::move(pieces)) {}

  std::string next(std::size_t most_pieces) {
    std::string text;
    for (std::size_t left = m_random() % (most_pieces + 1); left != 0; --left) {
      text += m_pieces[m_random() % m_pieces.size()];
    }
    return text;
  }

 private:
  std::mt19937 m_random;
  std::vector<std::string> m_pieces;
};

/// The lines of one key, in the order in which a query reads them.
inline std::vector<plain_index::line> lines_of_key(const std::string& text,
                                                   const std::string& key) {
  std::vector<plain_index::line> result;
  index_format::LinesOfKey lines(text, key);
  index_format::Line line;
  while (lines.next(line)) result.push_back({std::string(line.key), std::string(line.stored)});
  EXPECT_FALSE(lines.next(line)) << plain_index::shown(text);
  return result;
}
