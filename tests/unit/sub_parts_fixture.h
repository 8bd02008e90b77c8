#pragma once

#include <cstdint>
#include <string>

#include "tests/unit/storage_fixture.h"

inline constexpr const char* kOwner = "jdoe";
inline constexpr const char* kEntry = "sales.kdc";
inline constexpr const char* kPart = "part.out";
inline constexpr long kStamp = 42;

struct Decision {
  int way = 99;
  std::string part_dir;
  std::string preload_dir;
};

/// A storage with one corporate document, whose parts a test makes by hand or through the facade.
class SubParts : public StorageTest {
 protected:
  SubParts() { store(kEntry); }

  /// Stores a document of the owner and makes it the one that the test is about.
  void store(const std::string& entry) {
    m_entry = entry;
    m_document =
        make_entry(folder_of(kOwner, entry, STG::CorporateRepository), entry, kStamp, "doc");
    set_modify_time(m_document, 1000);
    sink.clear();
  }
  const std::string& document() const { return m_document; }
  /// The folder of the document's parts, while no stamp is set.
  std::string root() const { return m_document + "_"; }

  void make_file(const std::string& folder, const std::string& bytes, std::int64_t time) const {
    make_folder(folder);
    write_file(folder + "\\" + kPart, bytes);
    set_modify_time(folder + "\\" + kPart, time);
  }

  Decision decide(const std::string& selector) {
    Decision d;
    d.way = vu_storage_test_peer::getBestUpdateWay(m_facade, kOwner, m_entry, selector, kPart,
                                                   d.part_dir, d.preload_dir, kStamp);
    return d;
  }
  void open_for_writing(const std::string& selector) {
    m_facade.OpenWriteSubPart(m_file, kOwner, m_entry, selector, kPart, kStamp);
  }
  void open_for_reading(const std::string& selector) {
    m_facade.OpenReadSubPart(m_file, "amy", kOwner, m_entry, selector, kPart, kStamp);
  }
  unsigned long open_with_size(const std::string& selector) {
    unsigned long size = 77;
    m_facade.OpenReadSubPartEx(m_file, "amy", kOwner, m_entry, selector, kPart, kStamp, size);
    return size;
  }
  /// Stores a part through the facade.
  void write_part(const std::string& selector, const std::string& bytes) {
    open_for_writing(selector);
    ASSERT_TRUE(m_file.is_open());
    m_file.write(bytes);
    m_file.close();
  }
  /// What the open file holds; closes it.
  std::string read_and_close() {
    std::string bytes;
    m_file.read(bytes, 0);
    m_file.close();
    return bytes;
  }
  std::string opened() const { return m_file.is_open() ? m_file.getFilePath() : "closed"; }

  vu_storage& facade_object() { return m_facade; }
  vu_file& file() { return m_file; }

 private:
  vu_storage m_facade;
  vu_file m_file;
  std::string m_entry;
  std::string m_document;
};
