#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "stg_index.h"
#include "tests/c_interface/program_store.h"
#include "vu_file.h"

// Time limits: what a call has changed, and which status it returns, when a lock timed out.

namespace {

/// A store whose calls wait at most 40 ms for a lock.
class Hurried {
 public:
  Hurried() { m_store = program_store().open(0, 40, m_status); }
  ~Hurried() { EXPECT_EQ(vu_close_store(m_store), VU_DONE); }
  Hurried(const Hurried&) = delete;
  Hurried& operator=(const Hurried&) = delete;
  vu_store* store() const { return m_store; }

 private:
  vu_status m_status = VU_FAILED;
  vu_store* m_store = nullptr;
};

/// A stream that keeps the lock of a version while it exists.
class Locked {
 public:
  explicit Locked(const vu_document& what, std::int32_t mode = VU_READ_EXACT) {
    EXPECT_EQ(vu_open(store(), &what, mode, &m_stream), VU_DONE) << last_error().text;
  }
  ~Locked() { vu_stream_close(m_stream); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  vu_stream* m_stream = nullptr;
};

std::string opened_over(const vu_document& what) {
  const Hurried hurried;
  vu_stream* stream = nullptr;
  const vu_status status = vu_open(hurried.store(), &what, VU_WRITE_OVER, &stream);
  EXPECT_EQ(stream != nullptr, status == VU_DONE);
  if (stream != nullptr) {
    EXPECT_EQ(vu_stream_write(stream, "new", 3), VU_DONE);
    EXPECT_EQ(vu_stream_close(stream), VU_DONE);
  }
  return name_of(status);
}

std::string stored(const vu_document& what, std::uint32_t flags) {
  const Hurried hurried;
  return name_of(vu_put(hurried.store(), &what, "new", 3, VU_REPLACE | flags, nullptr));
}

/// Each way to write a version without atomic replacement.
const auto kWaysInPlace = {
    +[](const vu_document& what) { return opened_over(what); },
    +[](const vu_document& what) { return stored(what, VU_IN_PLACE); },
};

/// A document and two category files. The second one has a line for the document.
struct Categories {
  explicit Categories(const char* owner)
      : text(document(owner, "a.txt", 0, VU_AREA_USER)),
        other(document(owner, "c.ctg", 0, VU_AREA_USER)),
        category(document(owner, "d.ctg", 0, VU_AREA_USER)) {
    EXPECT_EQ(put(other, "x.txt=1\n"), VU_DONE);
    EXPECT_EQ(put(text, "old"), VU_DONE);
    EXPECT_EQ(put(category, "a.txt=1\nx.txt=2\n"), VU_DONE);
  }
  vu_document text;
  vu_document other;
  vu_document category;
};

}  // namespace

TEST(CLimits, ALockedCategoryFileKeepsTheBytesOfADocumentThatIsWrittenInPlace) {
  const Categories all("limit-category");
  for (const auto& write : kWaysInPlace) {
    {
      const Locked reader(all.category);
      EXPECT_EQ(write(all.text), "VU_LOCK_TIMEOUT");
    }
    EXPECT_EQ(content(all.text), "old");
    EXPECT_EQ(content(all.category), "a.txt=1\nx.txt=2\n");
  }
}

TEST(CLimits, ACategoryFileWithoutALineOfTheDocumentMayBeRead) {
  for (const auto& write : kWaysInPlace) {
    const Categories all(write == *kWaysInPlace.begin() ? "limit-read-1" : "limit-read-2");
    const Locked reader(all.other);
    EXPECT_EQ(write(all.text), "VU_DONE");
    EXPECT_EQ(content(all.text), "new");
    EXPECT_EQ(content(all.category), "x.txt=2\n");
    EXPECT_EQ(content(all.other), "x.txt=1\n");
  }
}

TEST(CLimits, ACategoryFileItselfIsWrittenInPlace) {
  const Categories all("limit-itself");
  const char* const own = "d.ctg=1\n";
  ASSERT_EQ(put(all.category, own, VU_REPLACE), VU_DONE);
  for (const auto& write : kWaysInPlace) {
    EXPECT_EQ(write(all.category), "VU_DONE");
    EXPECT_EQ(content(all.category), "new");
  }
}

TEST(CLimits, ANewVersionIsWrittenInPlace) {
  const vu_document first = document("limit-new", "a.txt", 1, VU_AREA_USER);
  const vu_document second = document("limit-new", "a.txt", 2, VU_AREA_USER);
  EXPECT_EQ(opened_over(first), "VU_DONE");
  EXPECT_EQ(stored(second, VU_IN_PLACE), "VU_DONE");
  EXPECT_EQ(content(first) + content(second), "newnew");
}

TEST(CLimits, ALockedDocumentKeepsItsPartsAndLines) {
  const Categories all("limit-line");
  const vu_document corporate = document("limit-parts", "a.kdf", 1);
  ASSERT_EQ(put(corporate, "old"), VU_DONE);
  vu_stream* part = nullptr;
  ASSERT_EQ(vu_open_part(store(), &corporate, "html@de", "1", VU_WRITE_OVER, &part), VU_DONE);
  ASSERT_EQ(vu_stream_close(part), VU_DONE);
  for (const auto& write : kWaysInPlace) {
    {
      const Locked text(all.text);
      const Locked document(corporate);
      EXPECT_EQ(write(all.text), "VU_LOCK_TIMEOUT");
      EXPECT_EQ(write(corporate), "VU_LOCK_TIMEOUT");
    }
    EXPECT_EQ(content(all.text) + content(corporate), "oldold");
    EXPECT_EQ(content(all.category), "a.txt=1\nx.txt=2\n");
    EXPECT_EQ(vu_open_part(store(), &corporate, "html@de", "1", VU_READ_SERVED, &part), VU_DONE);
    EXPECT_EQ(vu_stream_close(part), VU_DONE);
  }
  EXPECT_EQ(opened_over(corporate), "VU_DONE");
  EXPECT_EQ(content(corporate), "new");
  EXPECT_EQ(vu_open_part(store(), &corporate, "html@de", "1", VU_READ_SERVED, &part), VU_OUTDATED);
}

TEST(CLimits, AStoredVersionIsToldAlthoughACategoryFileIsLocked) {
  const Categories all("limit-stored");
  const std::string file = path_of(all.category);
  const Hurried hurried;
  const auto put_it = [&] {
    return vu_put(hurried.store(), &all.text, "new", 3, VU_REPLACE, nullptr);
  };
  const vu_document next = document("limit-stored", "b.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(next, "renamed"), VU_DONE);
  const auto rename_it = [&] { return vu_rename(hurried.store(), &next, &all.text, VU_REPLACE); };
  const auto copy_it = [&] {
    return vu_copy_in(hurried.store(), &all.text, file.c_str(), VU_REPLACE, nullptr);
  };
  const Locked reader(all.category);
  EXPECT_EQ(name_of(put_it()), "VU_PARTLY_DONE");
  EXPECT_EQ(last_error().path, file);
  EXPECT_NE(std::string(last_error().text).find("category file"), std::string::npos);
  EXPECT_EQ(content(all.text), "new");
  EXPECT_EQ(name_of(rename_it()), "VU_PARTLY_DONE");
  EXPECT_EQ(last_error().path, file);
  EXPECT_EQ(content(all.text), "renamed");
  EXPECT_EQ(content(next), "VU_NOTHING_MATCHED");
  EXPECT_EQ(name_of(copy_it()), "VU_PARTLY_DONE");
  EXPECT_EQ(last_error().path, file);
  EXPECT_EQ(content(all.text), content(all.category));
}

TEST(CLimits, ARenameBetweenFoldersTellsWhatKeepsTheOldName) {
  const Categories all("limit-from");
  const vu_document to = document("limit-to", "a.txt", 0, VU_AREA_USER);
  const Hurried hurried;
  const std::string file = path_of(all.category);
  const Locked reader(all.category);
  EXPECT_EQ(name_of(vu_rename(hurried.store(), &all.text, &to, 0)), "VU_PARTLY_DONE");
  EXPECT_EQ(last_error().path, file);
  EXPECT_EQ(content(to), "old");
  EXPECT_EQ(content(all.text), "VU_NOTHING_MATCHED");
}

TEST(CLimits, ARenameBetweenFoldersRemovesTheOldVersionAlthoughALineOfTheReplacedOneStays) {
  const Categories all("limit-over");
  const vu_document from = document("limit-away", "a.txt", 0, VU_AREA_USER);
  ASSERT_EQ(put(from, "moved"), VU_DONE);
  const Hurried hurried;
  const std::string file = path_of(all.category);
  const Locked reader(all.category);
  EXPECT_EQ(name_of(vu_rename(hurried.store(), &from, &all.text, VU_REPLACE)), "VU_PARTLY_DONE");
  EXPECT_EQ(last_error().path, file);
  EXPECT_EQ(content(all.text), "moved");
  EXPECT_EQ(content(from), "VU_NOTHING_MATCHED");
}

TEST(CLimits, ARemovalTellsWhichLineStays) {
  const Categories all("limit-removed");
  const Hurried hurried;
  const std::string file = path_of(all.category);
  const Locked reader(all.category);
  EXPECT_EQ(name_of(vu_remove(hurried.store(), &all.text)), "VU_PARTLY_DONE");
  const vu_error error = last_error();
  EXPECT_EQ(error.path, file);
  EXPECT_NE(std::string(error.text).find("its line"), std::string::npos) << error.text;
  EXPECT_EQ(content(all.text), "VU_NOTHING_MATCHED");
  EXPECT_EQ(content(all.category), "a.txt=1\nx.txt=2\n");
}

TEST(CLimits, EachCallInACallbackHasItsOwnLimit) {
  const Hurried hurried;
  const vu_document listed = document("limit-outer", "a.txt", 1, VU_AREA_USER);
  static const vu_document held = document("limit-inner", "a.txt", 1, VU_AREA_USER);
  ASSERT_EQ(put(listed, "x"), VU_DONE);
  ASSERT_EQ(put(held, "x"), VU_DONE);
  struct Results {
    vu_store* hurried;
    std::string patient_read;
    std::string hurried_read;
  } results = {hurried.store(), "", ""};
  const auto read_held = [](void* context, const vu_entry*) -> std::int32_t {
    auto& to = *static_cast<Results*>(context);
    std::size_t size = 0;
    vu_stream* writer = nullptr;
    EXPECT_EQ(vu_open(store(), &held, VU_WRITE_OVER, &writer), VU_DONE);
    to.hurried_read = name_of(vu_read(to.hurried, &held, nullptr, 0, &size));
    std::thread closing([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
      EXPECT_EQ(vu_stream_close(writer), VU_DONE);
    });
    to.patient_read = name_of(vu_read(store(), &held, nullptr, 0, &size));
    closing.join();
    return 0;
  };
  EXPECT_EQ(name_of(vu_each_version(hurried.store(), &listed, 0, read_held, &results)), "VU_DONE");
  EXPECT_EQ(results.hurried_read, "VU_LOCK_TIMEOUT");
  EXPECT_EQ(results.patient_read, "VU_DONE");
}

TEST(CLimits, ALockedReadListKeepsTheMailFolderUnconverted) {
  const std::string folder = program_store().root.path("storage\\mail\\limit-mail");
  make_folder(folder);
  write_file(folder + "\\f4#f5#x#A%20B.kdb", "mail");
  const vu_document list = document("limit-mail", "read.txt", 0, VU_AREA_MAIL);
  ASSERT_EQ(put(list, "x\tA%20B\tB\tf4\tf5\tf6\t\n"), VU_DONE);
  const Hurried hurried;
  const auto migrate = [&] {
    STGIndex::setSynchronizeMode(true);
    const vu_status status = vu_migrate_inbox(hurried.store(), "limit-mail");
    STGIndex::setSynchronizeMode(false);
    return name_of(status);
  };
  const std::string converted = "f4#f5#x#A B.kdb";
  const vu_document mail = document("limit-mail", converted.c_str(), 0, VU_AREA_MAIL);
  {
    const Locked reader(list);
    EXPECT_EQ(migrate(), "VU_LOCK_TIMEOUT");
  }
  EXPECT_EQ(content(mail), "VU_NOTHING_MATCHED");
  EXPECT_EQ(content(list), "x\tA%20B\tB\tf4\tf5\tf6\t\n");
  EXPECT_EQ(migrate(), "VU_DONE");
  EXPECT_EQ(content(mail), "mail");
  EXPECT_EQ(content(list), "x\tA B\tB\tf4\tf5\tf6\t\n");
}
