#include "client/admin/names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "client/admin/name_restore.h"
#include "client/admin/names.h"
#include "client/tests/admin/tree_fixture.h"

using admin::NameStore;
using admin::SavedIndex;
using admin::SavedIndexes;
using admin::StoreError;

namespace {

class AdminNames : public ::testing::Test {
 protected:
  std::string file() const { return m_scratch.path("names"); }
  std::string path() const { return system_form(file()); }

  /// Saves a snapshot: each text is the index of the folder "user/<key>".
  std::uint64_t save(const std::map<std::string, std::string>& texts, std::int64_t time = 1000) {
    NameStore store(path(), NameStore::For::kCreating, {});
    const std::uint64_t last = store.last_number();
    SavedIndexes before;
    if (last != 0) before = store.indexes_of(last);
    SavedIndexes now;
    for (const auto& [name, text] : texts) {
      const auto old = before.find("user/" + name);
      const bool same = old != before.end() && old->second.digest == admin::digest_of(text);
      now["user/" + name] =
          same ? old->second : store.add(text, old == before.end() ? nullptr : &old->second);
    }
    admin::Snapshot head;
    head.time = time;
    head.storage = "/storage";
    return store.commit(head, before, now).number;
  }

  /// The texts in a snapshot.
  std::map<std::string, std::string> load(std::uint64_t number) {
    NameStore store(path(), NameStore::For::kReading, {});
    std::map<std::string, std::string> texts;
    for (const auto& [name, index] : store.indexes_of(number))
      texts[name.substr(name.find('/') + 1)] = store.text_of(index);
    return texts;
  }

  std::size_t count() { return NameStore(path(), NameStore::For::kReading, {}).snapshots().size(); }

  StoreError::Why why(std::uint64_t number) {
    try {
      load(number);
    } catch (const StoreError& error) {
      return error.why();
    }
    ADD_FAILURE() << "snapshot " << number << " could be read";
    return StoreError::Why::kFailed;
  }

  scratch_folder m_scratch;
};

std::string long_text(int entries, const std::string& extra = "") {
  std::string text;
  for (int i = 0; i < entries; ++i) {
    const std::string number = std::to_string(10'000'000 + i);
    text += "Report " + number + ".kdc_0000000000/" + number + "\n";
    if (i == entries / 2) text += extra;
  }
  return text;
}

}  // namespace

TEST_F(AdminNames, KeepWhatWasSavedSnapshotBySnapshot) {
  const std::map<std::string, std::string> first = {{"anna", "a_0000000000/a\n"}, {"bert", ""}};
  const std::map<std::string, std::string> second = {{"anna", "b_0000000000/b\n"}, {"carl", " "}};
  EXPECT_EQ(save(first), 1U);
  EXPECT_EQ(save(second), 2U);
  EXPECT_EQ(save({}), 3U);
  EXPECT_EQ(load(1), first);
  EXPECT_EQ(load(2), second);
  EXPECT_TRUE(load(3).empty());
  EXPECT_EQ(count(), 3U);
}

TEST_F(AdminNames, AreOnlyAListOfChangesWhenNothingChanged) {
  std::map<std::string, std::string> texts;
  for (int i = 0; i < 50; ++i)
    texts["owner" + std::to_string(i)] = long_text(100, "x_0000000000/" + std::to_string(i) + "\n");
  save(texts);
  const std::size_t size = read_file(file()).size();
  save(texts);
  EXPECT_LT(read_file(file()).size() - size, 300U);
  EXPECT_EQ(load(2), texts);
}

TEST_F(AdminNames, StoreOfAChangedIndexOnlyWhatDiffers) {
  std::map<std::string, std::string> texts = {
      {"anna", long_text(2000)}, {"bert", long_text(10)}, {"carl", long_text(20)}};
  save(texts);
  std::size_t size = read_file(file()).size();
  // More rounds than the maximum depth of texts, so a complete text is stored in between.
  for (int i = 0; i < 40; ++i) {
    texts["anna"] = long_text(2000, "new_0000000000/" + std::to_string(i) + "\n");
    save(texts, 1000 + i);
    EXPECT_EQ(load(static_cast<std::uint64_t>(i) + 2), texts);
  }
  EXPECT_LT(read_file(file()).size() - size, 40 * 1000 + 3 * texts["anna"].size());
}

TEST_F(AdminNames, SurviveATruncationAnywhereInTheAppendedPart) {
  const std::map<std::string, std::string> first = {{"anna", long_text(5)}};
  const std::map<std::string, std::string> second = {{"anna", long_text(6)},
                                                     {"bert", long_text(3)}};
  save(first);
  const std::string whole = read_file(file());
  save(second);
  const std::string longer = read_file(file());
  for (std::size_t size = whole.size(); size < longer.size(); ++size) {
    write_file(file(), longer.substr(0, size));
    ASSERT_EQ(count(), 1U) << size;
    ASSERT_EQ(load(1), first) << size;
    NameStore store(path(), NameStore::For::kReading, {});
    ASSERT_EQ(store.torn_bytes(), size - whole.size());
  }
  // The next snapshot removes the incomplete one and takes its number.
  EXPECT_EQ(save(second), 2U);
  EXPECT_EQ(read_file(file()), longer);
}

TEST_F(AdminNames, SurviveATruncationWithinTheFirstSnapshot) {
  save({{"anna", long_text(5)}});
  const std::string whole = read_file(file());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    write_file(file(), whole.substr(0, size));
    ASSERT_EQ(count(), 0U) << size;
    ASSERT_EQ(save({{"anna", long_text(5)}}), 1U) << size;
    ASSERT_EQ(read_file(file()), whole) << size;
  }
}

TEST_F(AdminNames, LoseOnlyWhatDependsOnDamagedBytes) {
  save({{"anna", long_text(30)}});
  const std::size_t first_end = read_file(file()).size();
  save({{"anna", "x_0000000000/x\n"}});
  const std::size_t second_end = read_file(file()).size();
  save({{"anna", "y_0000000000/y\n"}});
  const std::string whole = read_file(file());
  const auto with_fault = [&](std::size_t at) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 0x20);
    write_file(file(), bytes);
  };
  // Damages a text of the first snapshot: its digest does not match.
  with_fault(100);
  EXPECT_EQ(why(1), StoreError::Why::kDamaged);
  EXPECT_EQ(load(2).at("anna"), "x_0000000000/x\n");
  EXPECT_EQ(load(3).at("anna"), "y_0000000000/y\n");
  // Damages the trailer of the second snapshot: the first one is still found.
  with_fault(second_end - 10);
  EXPECT_EQ(load(1).at("anna"), long_text(30));
  EXPECT_EQ(count(), 2U);
  EXPECT_EQ(why(2), StoreError::Why::kDamaged);
  EXPECT_EQ(load(3).at("anna"), "y_0000000000/y\n");
  // The next snapshot follows the third.
  EXPECT_EQ(save({{"anna", "z_0000000000/z\n"}}), 4U);
  EXPECT_EQ(load(4).at("anna"), "z_0000000000/z\n");
  EXPECT_EQ(load(1).at("anna"), long_text(30));
  // Damages each byte in turn: no text is read that was not saved.
  for (std::size_t at = first_end; at < whole.size(); ++at) {
    with_fault(at);
    NameStore store(path(), NameStore::For::kReading, {});
    for (const NameStore::Kept& kept : store.snapshots()) {
      try {
        for (const auto& [name, index] : store.indexes_of(kept.number)) {
          const std::string text = store.text_of(index);
          ASSERT_TRUE(text == long_text(30) || text == "x_0000000000/x\n" ||
                      text == "y_0000000000/y\n")
              << at;
        }
      } catch (const StoreError& error) {
        ASSERT_EQ(error.why(), StoreError::Why::kDamaged) << at;
      }
    }
  }
}

TEST_F(AdminNames, AreNotReadFromAnotherKindOfFile) {
  for (const std::string& bytes : {std::string("hello"), std::string(5000, '\0')}) {
    write_file(file(), bytes);
    for (const auto purpose : {NameStore::For::kReading, NameStore::For::kCreating}) {
      try {
        NameStore(path(), purpose, {});
        ADD_FAILURE() << bytes.size();
      } catch (const StoreError& error) {
        EXPECT_EQ(error.why(), StoreError::Why::kForeign);
      }
    }
    EXPECT_EQ(read_file(file()), bytes);
  }
  EXPECT_THROW(NameStore(system_form(m_scratch.path("none")), NameStore::For::kReading, {}),
               StoreError);
  EXPECT_FALSE(file_exists(m_scratch.path("none")));
}

TEST_F(AdminNames, AreRemovedWhenASnapshotIsNotCommitted) {
  save({{"anna", long_text(5)}});
  const std::string whole = read_file(file());
  {
    NameStore store(path(), NameStore::For::kCreating, {});
    // Large enough to be written in several pieces.
    store.add(long_text(60'000), nullptr);
  }
  EXPECT_EQ(read_file(file()), whole);
}

TEST_F(AdminNames, ADamagedListIsNotExtended) {
  save({{"anna", long_text(5)}, {"bert", long_text(6)}, {"carl", long_text(7)}});
  save({{"anna", long_text(8)}, {"bert", long_text(6)}, {"carl", long_text(7)}});
  std::string bytes = read_file(file());
  // The list of the second snapshot ends directly before its trailer.
  char& last = bytes[bytes.size() - NameStore::kTrailerSize - 1];
  last = static_cast<char>(last ^ 0x01);
  write_file(file(), bytes);
  EXPECT_EQ(why(2), StoreError::Why::kDamaged);
  NameStore store(path(), NameStore::For::kCreating, {});
  SavedIndexes now;
  now["user/anna"] = store.add(long_text(9), nullptr);
  admin::Snapshot head;
  const admin::Snapshot made = store.commit(head, {}, now);
  EXPECT_EQ(made.number, 3U);
  EXPECT_TRUE(made.is_whole);
  EXPECT_EQ(store.text_of(store.indexes_of(3).at("user/anna")), long_text(9));
  EXPECT_EQ(store.snapshots().size(), 3U);
  EXPECT_FALSE(store.snapshots()[1].snapshot);
}

TEST(AdminNameDiff, ReportsAddedRemovedAndMovedEntries) {
  std::vector<std::string> told;
  admin::compare_names(
      "a.kdc_0000000000/1\nb.kdc_0000000000/2\nc.kdc_0000000000/3\n",
      // Unsorted, with a duplicate key, and with an invalid line.
      "d.kdc_0000000007/4\nb.kdc_0000000000/9\nb.kdc_0000000000/8\nshort/x\n"
      "a.kdc_0000000000/1\nrest",
      [&](const admin::NameDifference& difference) {
        told.push_back(std::string(name_of(difference.what)) + " " + std::string(difference.key) +
                       " " + std::string(difference.before) + ">" + std::string(difference.after));
      });
  EXPECT_EQ(told,
            (std::vector<std::string>{"moved b.kdc_0000000000 2>9", "removed c.kdc_0000000000 3>",
                                      "added d.kdc_0000000007 >4"}));
}

TEST_F(AdminTree, IndexesAreSavedOnceAndKeepTheirStateIfUnreadable) {
  add(admin::Area::kDocs, "anna", "a.kdc", 0);
  add(admin::Area::kUser, "bert", "b.kdc", 0);
  std::vector<std::string> kept;
  const auto keep = [&](std::string_view text, const SavedIndex*) {
    kept.emplace_back(text);
    return admin::measure(text);
  };
  const auto ignore = [](const std::string&, const std::string&) {};
  const admin::TakenIndexes first = admin::take_indexes(tree(), {}, {}, keep, ignore);
  EXPECT_EQ(first.indexes.size(), 2U);
  EXPECT_EQ(kept.size(), 2U);
  EXPECT_EQ(first.indexes.at("user/bert").entries, 1U);
  kept.clear();
  add(admin::Area::kUser, "bert", "c.kdc", 0);
  vu_file index(storage() + "\\docs\\anna\\" +
                    admin::folder_for(tree(), admin::Area::kDocs, "anna", "a.kdc").bucket,
                "index.dat");
  index.open(vu_file::o_append);
  admin::WalkOptions options;
  options.locking.time_out = std::chrono::milliseconds(30);
  std::vector<std::string> failed;
  const admin::TakenIndexes second = admin::take_indexes(
      tree(), first.indexes, options, keep,
      [&](const std::string& path, const std::string&) { failed.push_back(path); });
  index.close();
  EXPECT_EQ(second.unread, 1U);
  EXPECT_TRUE(second.lock_missed);
  EXPECT_EQ(failed.size(), 1U);
  EXPECT_EQ(kept.size(), 1U);
  EXPECT_EQ(second.indexes.size(), 2U);
  for (const auto& [name, saved] : first.indexes) {
    EXPECT_EQ(second.indexes.at(name) == saved, name != "user/bert") << name;
    const auto folder = admin::folder_of_saved_name(tree(), name);
    ASSERT_TRUE(folder);
    EXPECT_EQ(admin::saved_name_of(tree(), folder->path), name);
  }
  for (const char* const odd : {"", "docs", "docs/anna", "docs/anna/x", "docs/../00000001", "x/y",
                                "user/anna/b", "docs/anna/00000001/x"})
    EXPECT_FALSE(admin::folder_of_saved_name(tree(), odd)) << odd;
}
